#pragma once

#include <QWidget>

class TavroVideo;

// The serial settings panel of the current box: port, baud rate, protocol and coordinate mode of
// its keyboard-and-mouse link, with the link's state.
class mouse : public QWidget
{
    Q_OBJECT
public:
    explicit mouse(QWidget *parent = nullptr);

signals:
    void hidden();
};
