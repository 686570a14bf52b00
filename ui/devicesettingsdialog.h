#pragma once

#include <QDialog>

class TavroVideo;

// The four choices that tie a box's USB functions together: its video device, audio input,
// serial port and baud rate. Each takes effect at once and is stored for the box.
class DeviceSettingsDialog : public QDialog
{
    Q_OBJECT
public:
    DeviceSettingsDialog(QWidget *parent, TavroVideo *view);

private:
    TavroVideo *m_view = nullptr;
};
