#pragma once

#include <QPoint>
#include <QWidget>

class QGridLayout;
class QHBoxLayout;
class QLabel;
class QPushButton;
class QVBoxLayout;

// The on-screen keyboard: a small frameless tool window above the console. Each click emits the
// name of the key; the console view types it on the target. Dragged by its title bar.
class NewSoftKeyboard : public QWidget
{
    Q_OBJECT
public:
    explicit NewSoftKeyboard(QWidget *parent = nullptr);

    void createButtons();
    // The string a key button with this text emits.
    static QString keyNameForButtonText(const QString &text);

signals:
    void keyPressed(const QString &key);
    void hidden();

public slots:
    void buttonClicked();

protected:
    void mousePressEvent(QMouseEvent *event) override;
    void mouseMoveEvent(QMouseEvent *event) override;
    void mouseReleaseEvent(QMouseEvent *event) override;
    void mouseDoubleClickEvent(QMouseEvent *event) override;
    void showEvent(QShowEvent *event) override;
    void hideEvent(QHideEvent *event) override;
    void changeEvent(QEvent *event) override;

private:
    bool inTitleBar(const QPoint &pos) const;

    QWidget *m_titleBar = nullptr;
    QLabel *m_titleLabel = nullptr;
    QPushButton *m_closeButton = nullptr;
    QHBoxLayout *m_titleLayout = nullptr;
    QGridLayout *m_keyLayout = nullptr;
    QVBoxLayout *m_mainLayout = nullptr;
    bool m_dragging = false;
    QPoint m_dragOffset;
};
