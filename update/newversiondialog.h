#pragma once

#include <QDialog>

#include "update/appversionmanifest.h"

// The new version's file name, checksum and release notes, with "下载" to fetch it.
class NewVersionDialog : public QDialog
{
    Q_OBJECT
public:
    NewVersionDialog(QWidget *parent, const AppVersionManifest &manifest);

private:
    void setupUi(const AppVersionManifest &manifest);
    void onDownloadClicked();

    AppVersionManifest m_manifest;
};
