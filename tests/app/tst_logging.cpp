#include <QDir>
#include <QFile>
#include <QRegularExpression>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>
#include <QThread>

#include <cstdio>
#include <fcntl.h>
#include <unistd.h>

#include "app/logging.h"

// The handler fixes its file at the first line of the process, so this test runs its cases
// in order in one process: first the rotation at the first line, then the rest.
class TestLogging : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void cleanupTestCase();
    void firstLineRotatesToTenAndSparesOtherFiles();
    void formatLine_data();
    void formatLine();
    void handlerWritesLiteralTextAndEmptyContext();
    void concurrentThreadsKeepWholeLinesInSameOrder();
    void deletedFolderIsRecreated();

private:
    QString logDir() const { return m_home.path() + "/TavroKVM/log"; }
    QStringList logFiles() const;
    QString currentLogFile() const;
    QStringList stderrLines() const;

    QTemporaryDir m_home;
    QString m_stderrPath;
    int m_savedStderr = -1;
    QtMessageHandler m_previousHandler = nullptr;
};

QStringList TestLogging::logFiles() const
{
    return QDir(logDir()).entryList({"tavrokvm-*.log"}, QDir::Files, QDir::Name);
}

QString TestLogging::currentLogFile() const
{
    // The run's own file is the newest by modification time.
    const QFileInfoList files =
        QDir(logDir()).entryInfoList({"tavrokvm-*.log"}, QDir::Files, QDir::Time);
    return files.isEmpty() ? QString() : files.first().absoluteFilePath();
}

QStringList TestLogging::stderrLines() const
{
    std::fflush(stderr);
    QFile file(m_stderrPath);
    if (!file.open(QIODevice::ReadOnly))
        return {};
    return QString::fromUtf8(file.readAll()).split('\n', Qt::SkipEmptyParts);
}

void TestLogging::initTestCase()
{
    QVERIFY(m_home.isValid());
    qputenv("XDG_DATA_HOME", m_home.path().toLocal8Bit());
    QCoreApplication::setApplicationName("TavroKVM");
    QCOMPARE(QStandardPaths::writableLocation(QStandardPaths::AppDataLocation),
             m_home.path() + "/TavroKVM");

    // Capture standard error in a file so the echo can be compared with the log file.
    m_stderrPath = m_home.path() + "/stderr.txt";
    std::fflush(stderr);
    m_savedStderr = dup(STDERR_FILENO);
    const int fd =
        ::open(QFile::encodeName(m_stderrPath).constData(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    QVERIFY(fd >= 0);
    dup2(fd, STDERR_FILENO);
    ::close(fd);
}

void TestLogging::cleanupTestCase()
{
    qInstallMessageHandler(m_previousHandler);
    if (m_savedStderr >= 0) {
        std::fflush(stderr);
        dup2(m_savedStderr, STDERR_FILENO);
        ::close(m_savedStderr);
    }
}

void TestLogging::firstLineRotatesToTenAndSparesOtherFiles()
{
    QVERIFY(QDir().mkpath(logDir()));
    const QDateTime base = QDateTime::currentDateTime().addDays(-30);
    for (int i = 0; i < 12; ++i) {
        QFile old(logDir() + QString("/tavrokvm-202601%1-000000.log").arg(i + 10));
        QVERIFY(old.open(QIODevice::WriteOnly));
        old.write("old\n");
        old.flush(); // a later flush would stamp the file with the current time
        QVERIFY(old.setFileTime(base.addSecs(i * 60), QFileDevice::FileModificationTime));
    }
    // Older than every log, but not a log by name: never counted nor deleted.
    for (const char *other : {"/notes.txt", "/tavrokvm-crash.txt"}) {
        QFile file(logDir() + other);
        QVERIFY(file.open(QIODevice::WriteOnly));
        QVERIFY(file.setFileTime(base.addDays(-1), QFileDevice::FileModificationTime));
    }

    m_previousHandler = qInstallMessageHandler(customLogMessageHandler);
    qInfo("first line of the run");

    const QStringList files = logFiles();
    QCOMPARE(files.size(), 10);
    for (int i = 0; i < 3; ++i)
        QVERIFY2(!files.contains(QString("tavrokvm-202601%1-000000.log").arg(i + 10)),
                 "the three oldest logs go");
    QVERIFY(files.contains("tavrokvm-20260113-000000.log"));
    QVERIFY(QFile::exists(logDir() + "/notes.txt"));
    QVERIFY(QFile::exists(logDir() + "/tavrokvm-crash.txt"));
    QVERIFY(QRegularExpression(R"(^tavrokvm-\d{8}-\d{6}\.log$)")
                .match(QFileInfo(currentLogFile()).fileName())
                .hasMatch());
}

void TestLogging::formatLine_data()
{
    QTest::addColumn<int>("type");
    QTest::addColumn<QByteArray>("file");
    QTest::addColumn<bool>("nullFile");
    QTest::addColumn<int>("line");
    QTest::addColumn<QString>("message");
    QTest::addColumn<QString>("expected");

    QTest::newRow("debug, unix path")
        << int(QtDebugMsg) << QByteArray("/build/src/uart/link.cpp") << false << 273 << "x"
        << "2026-05-28 20:52:31.045 [DEBUG] [link.cpp:273] x\n";
    QTest::newRow("info") << int(QtInfoMsg) << QByteArray("main.cpp") << false << 1 << "v"
                          << "2026-05-28 20:52:31.045 [INFO] [main.cpp:1] v\n";
    QTest::newRow("warning, backslash path")
        << int(QtWarningMsg) << QByteArray("C:\\src\\db\\dbmanager.cpp") << false << 9 << "w"
        << "2026-05-28 20:52:31.045 [WARN] [dbmanager.cpp:9] w\n";
    QTest::newRow("critical") << int(QtCriticalMsg) << QByteArray("a/b.cpp") << false << 2 << "c"
                              << "2026-05-28 20:52:31.045 [CRIT] [b.cpp:2] c\n";
    QTest::newRow("fatal") << int(QtFatalMsg) << QByteArray("b.cpp") << false << 3 << "f"
                           << "2026-05-28 20:52:31.045 [FATAL] [b.cpp:3] f\n";
    QTest::newRow("unknown level") << 42 << QByteArray("b.cpp") << false << 3 << "u"
                                   << "2026-05-28 20:52:31.045 [] [b.cpp:3] u\n";
    QTest::newRow("no file") << int(QtDebugMsg) << QByteArray() << true << 0 << "n"
                             << "2026-05-28 20:52:31.045 [DEBUG] [:0] n\n";
    QTest::newRow("percent digits stay literal")
        << int(QtDebugMsg) << QByteArray("/x/y.cpp") << false << 5 << "100%1 %2%3 done"
        << "2026-05-28 20:52:31.045 [DEBUG] [y.cpp:5] 100%1 %2%3 done\n";
    QTest::newRow("utf-8 text")
        << int(QtDebugMsg) << QByteArray("z.cpp") << false << 7 << "[Main] 数据库初始化完成"
        << "2026-05-28 20:52:31.045 [DEBUG] [z.cpp:7] [Main] 数据库初始化完成\n";
}

void TestLogging::formatLine()
{
    QFETCH(int, type);
    QFETCH(QByteArray, file);
    QFETCH(bool, nullFile);
    QFETCH(int, line);
    QFETCH(QString, message);
    QFETCH(QString, expected);
    const QDateTime when(QDate(2026, 5, 28), QTime(20, 52, 31, 45));
    QCOMPARE(
        formatLogLine(when, QtMsgType(type), nullFile ? nullptr : file.constData(), line, message),
        expected);
}

void TestLogging::handlerWritesLiteralTextAndEmptyContext()
{
    QMessageLogger("/deep/folder/source.cpp", 12, nullptr).debug().noquote() << "%1 and %2 stay";
    QMessageLogger(nullptr, 0, nullptr).warning("no context");

    QFile file(currentLogFile());
    QVERIFY(file.open(QIODevice::ReadOnly));
    const QStringList lines = QString::fromUtf8(file.readAll()).split('\n', Qt::SkipEmptyParts);
    QVERIFY(lines.size() >= 2);
    const QRegularExpression stamp(R"(^\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3} )");
    QVERIFY(stamp.match(lines.at(lines.size() - 2)).hasMatch());
    QVERIFY(lines.at(lines.size() - 2).endsWith(" [DEBUG] [source.cpp:12] %1 and %2 stay"));
    QVERIFY(lines.last().endsWith(" [WARN] [:0] no context"));

    // Standard error carries the same lines.
    const QStringList echoed = stderrLines();
    QVERIFY(echoed.size() >= 2);
    QCOMPARE(echoed.mid(echoed.size() - 2), lines.mid(lines.size() - 2));
}

void TestLogging::concurrentThreadsKeepWholeLinesInSameOrder()
{
    const int perThread = 300;
    auto writer = [perThread](char tag) {
        return QThread::create([tag, perThread] {
            for (int i = 0; i < perThread; ++i)
                qDebug("concurrent %c %04d end", tag, i);
        });
    };
    QScopedPointer<QThread> a(writer('A')), b(writer('B'));
    a->start();
    b->start();
    QVERIFY(a->wait(60000));
    QVERIFY(b->wait(60000));

    const QRegularExpression whole(
        R"(^\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3} \[DEBUG\] \[tst_logging\.cpp:\d+\] concurrent [AB] \d{4} end$)");
    auto concurrentLines = [&](const QStringList &lines) {
        QStringList picked;
        for (const QString &line : lines) {
            if (line.contains("concurrent")) {
                picked << line.section(' ', 4); // message only: times may differ per line
                if (!whole.match(line).hasMatch())
                    picked << "BROKEN: " + line;
            }
        }
        return picked;
    };

    QFile file(currentLogFile());
    QVERIFY(file.open(QIODevice::ReadOnly));
    const QStringList inFile =
        concurrentLines(QString::fromUtf8(file.readAll()).split('\n', Qt::SkipEmptyParts));
    const QStringList inStderr = concurrentLines(stderrLines());
    QCOMPARE(inFile.size(), 2 * perThread);
    QCOMPARE(inStderr, inFile);
    // Each thread's own lines stay in the order it wrote them.
    for (char tag : {'A', 'B'}) {
        int expected = 0;
        for (const QString &line : inFile) {
            if (line.startsWith(QString("concurrent %1").arg(tag)))
                QCOMPARE(
                    line,
                    QString("concurrent %1 %2 end").arg(tag).arg(expected++, 4, 10, QChar('0')));
        }
        QCOMPARE(expected, perThread);
    }
}

void TestLogging::deletedFolderIsRecreated()
{
    const QString file = currentLogFile();
    QVERIFY(QDir(logDir()).removeRecursively());
    qWarning("after the folder was removed");
    QVERIFY(QFile::exists(file));
    QFile log(file);
    QVERIFY(log.open(QIODevice::ReadOnly));
    QVERIFY(log.readAll().contains("[WARN] [tst_logging.cpp:"));
}

QTEST_GUILESS_MAIN(TestLogging)
#include "tst_logging.moc"
