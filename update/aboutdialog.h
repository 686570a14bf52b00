#pragma once

#include <QDialog>

class QLabel;

// The program's name, version and legal notices. With an update available the version line
// carries a red "[有更新]" link; following it ends the dialog with UpdateRequested.
class AboutDialog : public QDialog
{
    Q_OBJECT
public:
    // exec() result when the operator asked for the new version.
    static constexpr int UpdateRequested = 100;

    AboutDialog(QWidget *parent, bool hasUpdate);

private:
    void setupUi();
    void onVersionLinkActivated(const QString &link);

    bool m_hasUpdate = false;
    QLabel *m_versionLabel = nullptr;
};
