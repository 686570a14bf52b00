#pragma once

#include <QWidget>

namespace Ui {
class MessageWidget;
}

// Time-stamped list of what the console told the operator; messages may be rich text.
class MessageWidget : public QWidget
{
    Q_OBJECT
public:
    explicit MessageWidget(QWidget *parent = nullptr);
    ~MessageWidget() override;

    void setupTable();

public slots:
    // Appends a row: the current time ("yyyy-MM-dd hh:mm:ss.zzz") and the text.
    void appendMessage(const QString &text);
    void clearMessages();
    void onClearClicked();
    void onSectionResized(int logicalIndex, int oldSize, int newSize);
    // Fits every row's height to its rich text laid out at the column's width.
    void updateRichCellHeightsForColumn(int column);

protected:
    void resizeEvent(QResizeEvent *event) override;
    void changeEvent(QEvent *event) override;

private:
    void fitRowHeight(int row, int column);
    // The time column's width: the widest stamp the format can give, in the table's font.
    void fitTimeColumn();

    Ui::MessageWidget *ui;
};
