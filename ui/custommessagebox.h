#pragma once

#include <QDialog>

class QLabel;
class QPushButton;

// A small modal box in the console's style: title, icon, one sentence and an OK button.
class CustomMessageBox : public QDialog
{
    Q_OBJECT
public:
    explicit CustomMessageBox(QWidget *parent = nullptr);

    void setTitle(const QString &title);
    void setText(const QString &text);
    // An empty pixmap hides the icon.
    void setIcon(const QPixmap &pixmap);
    // Default "确定".
    void setOkButtonText(const QString &text);

private:
    QLabel *m_titleLabel = nullptr;
    QLabel *m_iconLabel = nullptr;
    QLabel *m_textLabel = nullptr;
    QPushButton *m_okButton = nullptr;
};
