#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>

#include "app/logfiles.h"
#include "platform/crashreports.h"

class TestLogFiles : public QObject
{
    Q_OBJECT
private slots:
    void listing_data();
    void listing();
    void missingFolderListsNothing();
    void crashReportsOfThisProgram_data();
    void crashReportsOfThisProgram();
    void archiveName();
};

namespace {

// Writes `name` with `size` bytes, last modified `minutes` after a fixed moment.
bool writeFile(const QString &folder, const QString &name, int minutes, int size = 10)
{
    QFile file(QDir(folder).filePath(name));
    if (!file.open(QIODevice::WriteOnly) || file.write(QByteArray(size, 'x')) != size)
        return false;
    file.flush(); // written before the time is set, or closing would move it
    const QDateTime when = QDateTime(QDate(2026, 5, 28), QTime(12, 0)).addSecs(minutes * 60);
    return file.setFileTime(when, QFileDevice::FileModificationTime);
}

QStringList names(const QList<LogFileEntry> &entries)
{
    QStringList result;
    for (const LogFileEntry &entry : entries)
        result << entry.fileName;
    return result;
}

} // namespace

void TestLogFiles::listing_data()
{
    QTest::addColumn<QStringList>("files");    // "name@minutes"
    QTest::addColumn<QStringList>("expected"); // business logs, newest first
    // The time decides, not the name.
    QTest::newRow("renamed old file") << QStringList{"tavrokvm-b.log@1", "tavrokvm-a.log@2"}
                                      << QStringList{"tavrokvm-a.log", "tavrokvm-b.log"};
    QTest::newRow("same time ordered by name")
        << QStringList{"tavrokvm-20260528-120001.log@5", "tavrokvm-20260528-120002.log@5"}
        << QStringList{"tavrokvm-20260528-120002.log", "tavrokvm-20260528-120001.log"};
    QTest::newRow("other files ignored")
        << QStringList{"tavrokvm-1.log@1", "tavrokvm.db@9", "other-2.log@9", "tavrokvm-1.log.gz@9"}
        << QStringList{"tavrokvm-1.log"};
}

void TestLogFiles::listing()
{
    QFETCH(QStringList, files);
    QFETCH(QStringList, expected);
    QTemporaryDir dir;
    for (const QString &file : files)
        QVERIFY(writeFile(dir.path(), file.section('@', 0, 0), file.section('@', 1).toInt()));
    QDir(dir.path()).mkdir("tavrokvm-folder.log"); // folders are not files

    const QList<LogFileEntry> logs = recentBusinessLogs(dir.path());
    QCOMPARE(names(logs), expected);
    QCOMPARE(logs.first().size, qint64(10));
    QCOMPARE(logs.first().absolutePath, QDir(dir.path()).filePath(expected.first()));
}

void TestLogFiles::missingFolderListsNothing()
{
    QTemporaryDir dir;
    QVERIFY(recentBusinessLogs(dir.filePath("log")).isEmpty());
    QVERIFY(listLogFiles(QString(), {"*"}).isEmpty());
    QVERIFY(writeFile(dir.path(), "a.crash", 1));
    QVERIFY(listLogFiles(dir.path(), {}).isEmpty());
}

void TestLogFiles::crashReportsOfThisProgram_data()
{
    QTest::addColumn<QString>("executable");
    QTest::addColumn<QStringList>("expected");
    const QStringList crashes{"_usr_bin_tavrokvm.1000.crash", "_opt_tk_tavrokvm-boxsim.0.crash",
                              "_usr_bin_gimp.1000.crash"};
#ifdef Q_OS_MACOS
    QTest::newRow("every report") << "tavrokvm" << crashes;
#else
    QTest::newRow("the console's")
        << "tavrokvm"
        << QStringList{"_usr_bin_tavrokvm.1000.crash", "_opt_tk_tavrokvm-boxsim.0.crash"};
    QTest::newRow("another program's") << "gimp" << QStringList{"_usr_bin_gimp.1000.crash"};
    QTest::newRow("no executable name") << "" << QStringList{};
#endif
}

void TestLogFiles::crashReportsOfThisProgram()
{
    QFETCH(QString, executable);
    QFETCH(QStringList, expected);
    QTemporaryDir dir;
    const QStringList crashes{"_usr_bin_tavrokvm.1000.crash", "_opt_tk_tavrokvm-boxsim.0.crash",
                              "_usr_bin_gimp.1000.crash"};
    for (int i = 0; i < crashes.size(); ++i)
        QVERIFY(writeFile(dir.path(), crashes.at(i), 10 - i));

    CrashReportLocation location = crashReportLocation(QDir::homePath(), executable);
#ifdef Q_OS_MACOS
    QCOMPARE(location.folder, QDir::homePath() + "/Library/Logs/DiagnosticReports");
#else
    QCOMPARE(location.folder, executable.isEmpty() ? QString() : QStringLiteral("/var/crash"));
#endif
    location.folder = location.folder.isEmpty() ? QString() : dir.path();
    QCOMPARE(names(listLogFiles(location.folder, location.nameFilters)), expected);
}

void TestLogFiles::archiveName()
{
    QCOMPARE(logArchiveFileName(QDateTime(QDate(2026, 3, 5), QTime(9, 4, 7))),
             QStringLiteral("tavrokvm-log-20260305-090407.zip"));
}

QTEST_APPLESS_MAIN(TestLogFiles)
#include "tst_logfiles.moc"
