#pragma once

// Answers the message boxes the code under test opens modally: records each box's title and
// text and closes it, so that a test goes on without a user. Other modal dialogs are recorded by
// object name and cancelled. Header-only.

#include <QApplication>
#include <QMessageBox>
#include <QPushButton>
#include <QTimer>

class ModalCatcher : public QObject
{
public:
    struct Box
    {
        QString title;
        QString text;
    };

    ModalCatcher()
    {
        m_timer.setInterval(10);
        connect(&m_timer, &QTimer::timeout, this, &ModalCatcher::answer);
        m_timer.start();
    }

    QList<Box> boxes;
    QStringList dialogs; // object names of the other modal dialogs, in order

    int count(const QString &title, const QString &text) const
    {
        int seen = 0;
        for (const Box &box : boxes)
            seen += box.title == title && box.text == text;
        return seen;
    }

private:
    void answer()
    {
        QWidget *modal = QApplication::activeModalWidget();
        if (!modal || !modal->isVisible())
            return;
        auto *box = qobject_cast<QMessageBox *>(modal);
        if (!box) {
            if (auto *dialog = qobject_cast<QDialog *>(modal)) {
                dialogs.append(dialog->objectName());
                dialog->reject();
            }
            return;
        }
        boxes.append({box->windowTitle(), box->text()});
        // As a user pressing Enter would: the default button (OK of a question box) when there
        // is one, so that the caller sees which button answered.
        if (QPushButton *button = box->defaultButton())
            button->click();
        else
            box->done(QMessageBox::Ok);
    }

    QTimer m_timer;
};
