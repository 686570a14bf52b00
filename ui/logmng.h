#pragma once

#include <QMessageBox>
#include <QWidget>

#include "platform/crashreports.h"

namespace Ui {
class logMng;
}

// Where the log table takes its files from.
struct LogSources
{
    QString businessLogFolder; // the run logs ("tavrokvm-*.log")
    CrashReportLocation crashReports;
};

// The application's log folder and this system's crash reports of the running executable.
LogSources defaultLogSources();

// Table of the recent run logs (newest ten) and of the program's crash reports, exported as one
// zip archive.
class logMng : public QWidget
{
    Q_OBJECT
public:
    explicit logMng(QWidget *parent = nullptr);
    ~logMng() override;

    // Replaces the folders the table lists; the table is not refreshed.
    void setLogSources(const LogSources &sources);
    // Rebuilds the table: run logs first, then crash reports.
    void refreshLogTable();

public slots:
    void on_exportLogBtn_clicked();

protected:
    // Asks where to save the archive, proposing `proposedPath`; empty when the operator cancels.
    virtual QString askExportFilePath(const QString &proposedPath);
    // Tells the operator how the export went.
    virtual void showExportMessage(QMessageBox::Icon icon, const QString &title,
                                   const QString &text);

private:
    Ui::logMng *ui;
    LogSources m_sources;
};

// Writes the files into a new zip archive at `archivePath`, each under its file name. Files that
// cannot be read are left out with a log line. False when the archive cannot be created or
// completed; a failed archive is removed.
bool writeLogArchive(const QString &archivePath, const QStringList &files);
