#include "update/newversiondialog.h"

#include <QDialogButtonBox>
#include <QFormLayout>
#include <QLabel>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QVBoxLayout>

#include "ui/stylesheet.h"
#include "update/downloaddialog.h"

namespace {

QLabel *selectableLabel(const QString &text, const QString &objectName, QWidget *parent)
{
    auto *label = new QLabel(text, parent);
    label->setObjectName(objectName);
    label->setTextFormat(Qt::PlainText);
    label->setTextInteractionFlags(Qt::TextSelectableByMouse);
    label->setWordWrap(true);
    return label;
}

} // namespace

NewVersionDialog::NewVersionDialog(QWidget *parent, const AppVersionManifest &manifest)
    : QDialog(parent), m_manifest(manifest)
{
    setupUi(manifest);
}

void NewVersionDialog::setupUi(const AppVersionManifest &manifest)
{
    setObjectName(QStringLiteral("newVersionDialog"));
    setWindowTitle(tr("新版本"));
    resize(480, 420);
    setStyleSheet(getQssString(QStringLiteral(":/res/qss/update_dialogs.css")));

    auto *layout = new QVBoxLayout(this);

    auto *form = new QFormLayout;
    form->addRow(tr("文件名"),
                 selectableLabel(manifest.fileName, QStringLiteral("fileNameValue"), this));
    form->addRow(QStringLiteral("MD5"),
                 selectableLabel(manifest.md5, QStringLiteral("md5Value"), this));
    if (!manifest.sha256.isEmpty()) {
        form->addRow(QStringLiteral("SHA-256"),
                     selectableLabel(manifest.sha256, QStringLiteral("sha256Value"), this));
    }
    layout->addLayout(form);

    layout->addWidget(new QLabel(tr("更新说明"), this));
    auto *notes = new QPlainTextEdit(this);
    notes->setObjectName(QStringLiteral("changeLogEdit"));
    notes->setReadOnly(true);
    notes->setPlainText(manifest.changeLog);
    layout->addWidget(notes, 1);

    auto *buttons = new QDialogButtonBox(this);
    QPushButton *download = buttons->addButton(tr("下载"), QDialogButtonBox::ActionRole);
    download->setObjectName(QStringLiteral("downloadBtn"));
    buttons->addButton(tr("关闭"), QDialogButtonBox::RejectRole);
    connect(download, &QPushButton::clicked, this, &NewVersionDialog::onDownloadClicked);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
    layout->addWidget(buttons);
}

void NewVersionDialog::onDownloadClicked()
{
    DownloadDialog dialog(this, AppVersionManifest(m_manifest));
    dialog.exec();
}
