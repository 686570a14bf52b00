#include "ui/logmng.h"

#include <QCoreApplication>
#include <QDateTime>
#include <QDebug>
#include <QDir>
#include <QFile>
#include <QFileDialog>
#include <QFileInfo>
#include <QHeaderView>
#include <QStandardPaths>
#include <QTableWidgetItem>

#include <quazip/quazip.h>
#include <quazip/quazipfile.h>
#include <quazip/quazipnewinfo.h>

#include "app/logfiles.h"
#include "ui/stylesheet.h"
#include "ui_logmng.h"

namespace {

enum Column { NumberColumn, SizeColumn, NameColumn, PathColumn, ColumnCount };

QTableWidgetItem *cell(const QString &text)
{
    auto *item = new QTableWidgetItem(text);
    item->setFlags(item->flags() & ~Qt::ItemIsEditable);
    return item;
}

bool copyIntoArchive(QuaZip &zip, const QString &path)
{
    QFile source(path);
    if (!source.open(QIODevice::ReadOnly)) {
        qWarning().noquote() << "[logMng] 无法读取日志文件，已跳过:" << path
                             << source.errorString();
        return true;
    }
    QuaZipFile entry(&zip);
    if (!entry.open(QIODevice::WriteOnly, QuaZipNewInfo(QFileInfo(path).fileName(), path)))
        return false;
    for (;;) {
        const QByteArray chunk = source.read(1 << 16);
        if (chunk.isEmpty())
            break;
        if (entry.write(chunk) != chunk.size())
            return false;
    }
    entry.close();
    return entry.getZipError() == ZIP_OK;
}

} // namespace

LogSources defaultLogSources()
{
    return {QStandardPaths::writableLocation(QStandardPaths::AppDataLocation) +
                QStringLiteral("/log"),
            crashReportLocation(QDir::homePath(),
                                QFileInfo(QCoreApplication::applicationFilePath()).fileName())};
}

bool writeLogArchive(const QString &archivePath, const QStringList &files)
{
    QuaZip zip(archivePath);
    if (!zip.open(QuaZip::mdCreate)) {
        qWarning().noquote() << "[logMng] 无法创建 zip 文件:" << archivePath << zip.getZipError();
        return false;
    }
    bool ok = true;
    for (const QString &path : files) {
        if (!copyIntoArchive(zip, path)) {
            qWarning().noquote() << "[logMng] 写入 zip 文件失败:" << path << zip.getZipError();
            ok = false;
            break;
        }
    }
    zip.close();
    if (ok && zip.getZipError() != ZIP_OK) {
        qWarning().noquote() << "[logMng] 关闭 zip 文件失败:" << archivePath << zip.getZipError();
        ok = false;
    }
    if (!ok)
        QFile::remove(archivePath);
    return ok;
}

logMng::logMng(QWidget *parent)
    : QWidget(parent), ui(new Ui::logMng), m_sources(defaultLogSources())
{
    ui->setupUi(this);
    setStyleSheet(getQssString(QStringLiteral(":/res/qss/logmng.css")));

    QTableWidget *table = ui->logTableWidget;
    table->setEditTriggers(QAbstractItemView::NoEditTriggers);
    table->setSelectionBehavior(QAbstractItemView::SelectRows);
    table->setAlternatingRowColors(true);
    table->verticalHeader()->setVisible(false);
    refreshLogTable();
}

logMng::~logMng()
{
    delete ui;
}

void logMng::setLogSources(const LogSources &sources)
{
    m_sources = sources;
}

void logMng::refreshLogTable()
{
    const QList<LogFileEntry> business = recentBusinessLogs(m_sources.businessLogFolder);
    const QList<LogFileEntry> crashes =
        listLogFiles(m_sources.crashReports.folder, m_sources.crashReports.nameFilters);

    QTableWidget *table = ui->logTableWidget;
    table->clear();
    table->setColumnCount(ColumnCount);
    table->setHorizontalHeaderLabels({tr("序号"), tr("文件大小"), tr("文件名"), tr("完整路径")});
    table->setRowCount(int(business.size() + crashes.size()));
    int row = 0;
    for (const QList<LogFileEntry> *group : {&business, &crashes}) {
        for (const LogFileEntry &entry : *group) {
            table->setItem(row, NumberColumn, cell(QString::number(row + 1)));
            QTableWidgetItem *size = cell(QString::number(entry.size));
            size->setTextAlignment(Qt::AlignRight | Qt::AlignVCenter);
            table->setItem(row, SizeColumn, size);
            table->setItem(row, NameColumn, cell(entry.fileName));
            table->setItem(row, PathColumn, cell(entry.absolutePath));
            ++row;
        }
    }
    QHeaderView *header = table->horizontalHeader();
    for (int column = NumberColumn; column < PathColumn; ++column)
        header->setSectionResizeMode(column, QHeaderView::ResizeToContents);
    header->setSectionResizeMode(PathColumn, QHeaderView::Stretch);

    qDebug().noquote() << "[logMng] 日志表格已刷新：业务日志" << business.size() << "个，崩溃日志"
                       << crashes.size() << "个";
}

void logMng::on_exportLogBtn_clicked()
{
    QStringList paths;
    const QTableWidget *table = ui->logTableWidget;
    for (int row = 0; row < table->rowCount(); ++row) {
        if (const QTableWidgetItem *item = table->item(row, PathColumn))
            paths.append(item->text());
    }
    if (paths.isEmpty()) {
        showExportMessage(QMessageBox::Warning, tr("导出失败"), tr("没有可导出的日志文件！"));
        return;
    }

    const QString proposed =
        QDir(QDir::homePath()).filePath(logArchiveFileName(QDateTime::currentDateTime()));
    const QString target = askExportFilePath(proposed);
    if (target.isEmpty())
        return;

    if (!writeLogArchive(target, paths)) {
        showExportMessage(QMessageBox::Warning, tr("导出失败"), tr("无法创建 zip 文件！"));
        return;
    }
    qInfo().noquote() << "[logMng] 日志已导出:" << target << "文件数" << paths.size();
    showExportMessage(QMessageBox::Information, tr("导出成功"), tr("日志已成功导出为 zip 文件！"));
}

QString logMng::askExportFilePath(const QString &proposedPath)
{
    QFileDialog dialog(this, tr("保存日志压缩包"));
    dialog.setAcceptMode(QFileDialog::AcceptSave);
    dialog.setNameFilter(QStringLiteral("Zip Files (*.zip)"));
    dialog.setDefaultSuffix(QStringLiteral("zip"));
    dialog.selectFile(proposedPath);
    if (dialog.exec() != QDialog::Accepted || dialog.selectedFiles().isEmpty())
        return QString();
    return dialog.selectedFiles().constFirst();
}

void logMng::showExportMessage(QMessageBox::Icon icon, const QString &title, const QString &text)
{
    QMessageBox box(icon, title, text, QMessageBox::Ok, this);
    box.exec();
}
