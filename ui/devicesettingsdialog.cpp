#include "ui/devicesettingsdialog.h"

DeviceSettingsDialog::DeviceSettingsDialog(QWidget *parent, TavroVideo *view)
    : QDialog(parent), m_view(view)
{}
