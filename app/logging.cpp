#include "app/logging.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QMutex>
#include <QMutexLocker>
#include <QStandardPaths>
#include <QTextStream>

#include <cstdio>

QString tkcLogDirPath()
{
    const QString path =
        QStandardPaths::writableLocation(QStandardPaths::AppDataLocation) + QStringLiteral("/log");
    QDir dir(path);
    if (!dir.exists())
        dir.mkpath(QStringLiteral("."));
    return path;
}

QString tkcNextLogFile()
{
    return tkcLogDirPath() +
           QStringLiteral("/tavrokvm-%1.log")
               .arg(QDateTime::currentDateTime().toString(QStringLiteral("yyyyMMdd-HHmmss")));
}

void tkcRotateLogs()
{
    QDir dir(tkcLogDirPath());
    // QDir::Time sorts newest first; Reversed makes the oldest come first.
    QFileInfoList files = dir.entryInfoList({QStringLiteral("tavrokvm-*.log")}, QDir::Files,
                                            QDir::Time | QDir::Reversed);
    while (files.size() > kMaxLogFiles) {
        QFile::remove(files.first().absoluteFilePath());
        files.removeFirst();
    }
}

QString logLevelName(QtMsgType type)
{
    switch (type) {
    case QtDebugMsg:
        return QStringLiteral("DEBUG");
    case QtInfoMsg:
        return QStringLiteral("INFO");
    case QtWarningMsg:
        return QStringLiteral("WARN");
    case QtCriticalMsg:
        return QStringLiteral("CRIT");
    case QtFatalMsg:
        return QStringLiteral("FATAL");
    }
    return QString();
}

QString logSourceFileName(const char *file)
{
    if (!file)
        return QString();
    QString name = QString::fromUtf8(file);
    int cut = name.lastIndexOf(QLatin1Char('/'));
    if (cut < 0)
        cut = name.lastIndexOf(QLatin1Char('\\'));
    return cut < 0 ? name : name.mid(cut + 1);
}

QString formatLogLine(const QDateTime &when, QtMsgType type, const char *file, int line,
                      const QString &msg)
{
    // Filled one placeholder at a time so "%1" inside the message stays literal.
    return QStringLiteral("%1 [%2] [%3:%4] %5\n")
        .arg(when.toString(QStringLiteral("yyyy-MM-dd HH:mm:ss.zzz")))
        .arg(logLevelName(type))
        .arg(logSourceFileName(file))
        .arg(line)
        .arg(msg);
}

void customLogMessageHandler(QtMsgType type, const QMessageLogContext &context, const QString &msg)
{
    static QMutex mutex;
    static QString currentLogFile;

    QMutexLocker locker(&mutex);
    const QString text =
        formatLogLine(QDateTime::currentDateTime(), type, context.file, context.line, msg);

    const QString folder = tkcLogDirPath();
    if (currentLogFile.isEmpty()) {
        currentLogFile = folder + QStringLiteral("/tavrokvm-") +
                         QDateTime::currentDateTime().toString(QStringLiteral("yyyyMMdd-HHmmss")) +
                         QStringLiteral(".log");
    }

    QFile file(currentLogFile);
    if (file.open(QIODevice::Append | QIODevice::Text)) {
        QTextStream stream(&file);
        stream << text;
    }
    file.close();

    tkcRotateLogs();

    const QByteArray utf8 = text.toUtf8();
    std::fwrite(utf8.constData(), 1, size_t(utf8.size()), stderr);
    std::fflush(stderr);
}
