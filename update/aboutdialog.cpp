#include "update/aboutdialog.h"

#include <QCoreApplication>

#include <QDialogButtonBox>
#include <QLabel>
#include <QTextBrowser>
#include <QVBoxLayout>

#include "app/buildinfo.h"
#include "ui/stylesheet.h"

namespace {

const char kUpdateLink[] = "tkc://update";

// The notices of the program and of the libraries it ships with.
QString legalNoticeHtml()
{
    return QCoreApplication::translate(
               "AboutDialog",
               "<p><b>TavroKVM</b> %1 — KVM-over-USB 设备的桌面控制台。</p>"
               "<p>TavroKVM 按其源代码附带的许可证条款发布；使用、复制与分发须遵守该许可证。"
               "本程序不附带任何明示或默示的担保。</p>"
               "<p>本程序使用了以下开源组件，它们各自遵循自己的许可证：</p>"
               "<ul>"
               "<li><a href=\"https://www.qt.io/licensing/\">Qt</a> %2 — GNU LGPL v3</li>"
               "<li><a href=\"https://github.com/stachenov/quazip\">QuaZip</a> — GNU LGPL v2.1"
               "（附静态链接例外）</li>"
               "<li><a href=\"https://gstreamer.freedesktop.org/\">GStreamer</a> — GNU LGPL v2.1 "
               "或更新版本</li>"
               "<li><a href=\"https://libjpeg-turbo.org/\">libjpeg</a> — IJG 许可证与 BSD "
               "许可证。This software is based in part on the work of the Independent JPEG "
               "Group.</li>"
               "</ul>"
               "<p>LGPL 组件以动态库形式使用，可由用户替换为自行构建的版本。</p>")
        .arg(QString::fromLatin1(kAppVersionNumber), QString::fromLatin1(qVersion()));
}

} // namespace

AboutDialog::AboutDialog(QWidget *parent, bool hasUpdate) : QDialog(parent), m_hasUpdate(hasUpdate)
{
    setupUi();
}

void AboutDialog::setupUi()
{
    setObjectName(QStringLiteral("aboutDialog"));
    setWindowTitle(tr("关于"));
    setModal(true);
    resize(420, 260);
    setStyleSheet(getQssString(QStringLiteral(":/res/qss/update_dialogs.css")));

    auto *layout = new QVBoxLayout(this);

    QString versionHtml = QString::fromLatin1(appVersionString()).toHtmlEscaped();
    if (m_hasUpdate) {
        versionHtml += QStringLiteral(" <a href=\"%1\" style=\"color:#e53935; "
                                      "text-decoration:none; font-weight:600;\">[%2]</a>")
                           .arg(QLatin1String(kUpdateLink), tr("有更新"));
    }
    m_versionLabel = new QLabel(versionHtml, this);
    m_versionLabel->setObjectName(QStringLiteral("versionLabel"));
    m_versionLabel->setTextFormat(Qt::RichText);
    m_versionLabel->setTextInteractionFlags(Qt::TextBrowserInteraction);
    m_versionLabel->setOpenExternalLinks(false);
    connect(m_versionLabel, &QLabel::linkActivated, this, &AboutDialog::onVersionLinkActivated);
    layout->addWidget(m_versionLabel);

    auto *notice = new QTextBrowser(this);
    notice->setObjectName(QStringLiteral("legalBrowser"));
    notice->setReadOnly(true);
    notice->setFrameShape(QFrame::NoFrame);
    notice->setOpenExternalLinks(true);
    notice->document()->setDefaultStyleSheet(
        QStringLiteral("a { color: #00c853; text-decoration: none; }"));
    notice->setHtml(legalNoticeHtml());
    layout->addWidget(notice, 1);

    auto *buttons = new QDialogButtonBox(QDialogButtonBox::Ok, this);
    connect(buttons, &QDialogButtonBox::accepted, this, &QDialog::accept);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
    layout->addWidget(buttons);
}

void AboutDialog::onVersionLinkActivated(const QString &link)
{
    if (link == QLatin1String(kUpdateLink))
        done(UpdateRequested);
}
