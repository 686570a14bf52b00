#include <QDir>
#include <QFile>
#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>

// Runs the real program through its whole start-up on the offscreen platform and checks
// what it wrote, in which order, to its log file and to standard error.
class TestStartup : public QObject
{
    Q_OBJECT
private slots:
    void startupWritesItsLinesInOrder();
    void unopenableDatabaseStillReachesTheWindow();

private:
    struct Run
    {
        int exitCode = -1;
        QStringList logLines;
        QStringList stderrLines;
    };
    Run runProgram(const QString &dataHome);
};

TestStartup::Run TestStartup::runProgram(const QString &dataHome)
{
    QProcess process;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert("XDG_DATA_HOME", dataHome);
    env.insert("QT_QPA_PLATFORM", "offscreen");
    env.insert("TAVROKVM_QUIT_AFTER_START", "1");
    process.setProcessEnvironment(env);
    process.start(TAVROKVM_BINARY, {});
    Run run;
    if (!process.waitForFinished(60000))
        return run;
    run.exitCode = process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1;
    run.stderrLines =
        QString::fromUtf8(process.readAllStandardError()).split('\n', Qt::SkipEmptyParts);

    const QDir logDir(dataHome + "/TavroKVM/log");
    const QStringList logs = logDir.entryList({"tavrokvm-*.log"}, QDir::Files);
    if (logs.size() == 1) {
        QFile file(logDir.filePath(logs.first()));
        if (file.open(QIODevice::ReadOnly))
            run.logLines = QString::fromUtf8(file.readAll()).split('\n', Qt::SkipEmptyParts);
    }
    return run;
}

namespace {

// Index of the first line at or after `from` that contains `text`, or -1.
int findFrom(const QStringList &lines, const QString &text, int from)
{
    for (int i = qMax(0, from); i < lines.size(); ++i) {
        if (lines.at(i).contains(text))
            return i;
    }
    return -1;
}

void verifyInOrder(const QStringList &lines, const QStringList &texts)
{
    int at = 0;
    for (const QString &text : texts) {
        const int found = findFrom(lines, text, at);
        QVERIFY2(found >= 0,
                 qPrintable("missing or out of order: " + text + "\n" + lines.join('\n')));
        at = found + 1;
    }
}

} // namespace

void TestStartup::startupWritesItsLinesInOrder()
{
    QTemporaryDir home;
    const Run run = runProgram(home.path());
    QCOMPARE(run.exitCode, 0);

    const QStringList handled = {
        "App Version: TavroKVM-v0.9.0-",
        "[Main] 开始初始化数据库...",
        "数据库实际路径: " + home.path() + "/TavroKVM/db/tavrokvm.db",
        "[DBManager] 数据库初始化成功",
        "[Main] 数据库初始化完成",
        "[Main] 开始预获取串口列表...",
        "[Main] 串口列表预获取完成",
    };
    verifyInOrder(run.logLines, handled);
    QVERIFY(
        QRegularExpression(R"(^\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3} \[INFO\] \[main\.cpp:\d+\] )"
                           R"(App Version: TavroKVM-v0\.9\.0-\d{14}$)")
            .match(run.logLines.first())
            .hasMatch());
    QVERIFY(QFile::exists(home.path() + "/TavroKVM/db/tavrokvm.db"));

    // Lines before the handler go to standard error only; then the handled lines follow.
    QStringList early = {"[HardwareAcceleration] === 强制启用硬件加速 ===",
                         "[HardwareAcceleration] 硬件加速已强制启用",
                         "==========================================",
                         "[Main] 已禁用事件压缩，将接收所有高频鼠标事件"};
    verifyInOrder(run.stderrLines, early + handled);
    // (The console view enables acceleration once more later, so its lines may follow.)
    const int firstHandled = findFrom(run.logLines, handled.at(1), 0);
    for (const QString &text : early) {
        const int at = findFrom(run.logLines, text, 0);
        QVERIFY(at == -1 || at > firstHandled);
    }
    // Between the message pattern and the handler, lines carry the pattern's time and position.
    const int compression = findFrom(run.stderrLines, "[Main] 已禁用事件压缩", 0);
    QVERIFY(QRegularExpression(R"(^\d\d:\d\d:\d\d\.\d{3} \[\S*main\.cpp:\d+\] \[Main\] )")
                .match(run.stderrLines.at(compression))
                .hasMatch());
    // Every handled line of the file is echoed, in the same order.
    QCOMPARE(run.stderrLines.mid(run.stderrLines.size() - run.logLines.size()), run.logLines);
}

void TestStartup::unopenableDatabaseStillReachesTheWindow()
{
    QTemporaryDir home;
    // A regular file where the database folder should be: the folder can't be made.
    QVERIFY(QDir().mkpath(home.path() + "/TavroKVM"));
    QFile blocker(home.path() + "/TavroKVM/db");
    QVERIFY(blocker.open(QIODevice::WriteOnly));
    blocker.close();

    const Run run = runProgram(home.path());
    QCOMPARE(run.exitCode, 0);
    verifyInOrder(run.logLines, {"[Main] 开始初始化数据库...", "数据库打开失败:",
                                 "[Main] 数据库初始化完成", "[Main] 串口列表预获取完成"});
    QCOMPARE(findFrom(run.logLines, "[DBManager] 数据库初始化成功", 0), -1);
}

QTEST_GUILESS_MAIN(TestStartup)
#include "tst_startup.moc"
