#include <QDir>
#include <QFile>
#include <QPushButton>
#include <QStackedWidget>
#include <QStandardPaths>
#include <QTableWidget>
#include <QTemporaryDir>
#include <QTest>

#include <quazip/quazip.h>
#include <quazip/quazipfile.h>

#include "ui/logmng.h"
#include "ui/tools.h"

namespace {

// The log manager with its file dialog and message boxes replaced by records.
class RecordingLogMng : public logMng
{
public:
    QString answer; // what the file dialog returns
    QStringList asked;
    QStringList messages; // "title|text"

protected:
    QString askExportFilePath(const QString &proposedPath) override
    {
        asked << proposedPath;
        return answer;
    }
    void showExportMessage(QMessageBox::Icon, const QString &title, const QString &text) override
    {
        messages << title + '|' + text;
    }
};

bool writeFile(const QString &path, const QByteArray &content, int minutes)
{
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(content) != content.size())
        return false;
    file.flush(); // written before the time is set, or closing would move it
    return file.setFileTime(QDateTime::currentDateTime().addSecs(-3600 + minutes * 60),
                            QFileDevice::FileModificationTime);
}

QStringList column(const QTableWidget *table, int column)
{
    QStringList cells;
    for (int row = 0; row < table->rowCount(); ++row)
        cells << table->item(row, column)->text();
    return cells;
}

} // namespace

class TestLogMng : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase() { QStandardPaths::setTestModeEnabled(true); }
    void init();
    void tableListsTenNewestLogsThenCrashReports();
    void exportWritesEveryFile();
    void exportFailures_data();
    void exportFailures();
    void toolPageShowsTheLogManager();

private:
    void fill(int businessLogs, int crashReports);

    QTemporaryDir m_root;
    LogSources m_sources;
    QMap<QString, QByteArray> m_contents; // by file name
};

void TestLogMng::init()
{
    static int round = 0;
    const QString base = m_root.filePath(QString::number(++round));
    m_sources = {base + "/log", {base + "/crash", {"*tavrokvm*"}}};
    QVERIFY(QDir().mkpath(m_sources.businessLogFolder));
    QVERIFY(QDir().mkpath(m_sources.crashReports.folder));
    m_contents.clear();
}

void TestLogMng::fill(int businessLogs, int crashReports)
{
    for (int i = 1; i <= businessLogs; ++i) {
        const QString name =
            QStringLiteral("tavrokvm-20260528-1200%1.log").arg(i, 2, 10, QChar('0'));
        m_contents[name] = QByteArray("run ") + QByteArray::number(i) + QByteArray(i * 7, '.');
        QVERIFY(writeFile(m_sources.businessLogFolder + '/' + name, m_contents[name], i));
    }
    for (int i = 1; i <= crashReports; ++i) {
        const QString name = QStringLiteral("_usr_bin_tavrokvm.%1.crash").arg(i);
        m_contents[name] = QByteArray("crash ") + QByteArray::number(i);
        QVERIFY(writeFile(m_sources.crashReports.folder + '/' + name, m_contents[name], i));
    }
    QVERIFY(writeFile(m_sources.crashReports.folder + "/_usr_bin_other.1.crash", "not ours", 9));
}

void TestLogMng::tableListsTenNewestLogsThenCrashReports()
{
    fill(15, 2);
    RecordingLogMng manager;
    manager.setLogSources(m_sources);
    QTest::ignoreMessage(QtDebugMsg, "[logMng] 日志表格已刷新：业务日志 10 个，崩溃日志 2 个");
    manager.refreshLogTable();

    auto *table = manager.findChild<QTableWidget *>("logTableWidget");
    QVERIFY(table);
    QCOMPARE(table->columnCount(), 4);
    QStringList headers;
    for (int c = 0; c < 4; ++c)
        headers << table->horizontalHeaderItem(c)->text();
    QCOMPARE(headers, (QStringList{"序号", "文件大小", "文件名", "完整路径"}));

    QStringList expectedNames;
    for (int i = 15; i >= 6; --i)
        expectedNames << QStringLiteral("tavrokvm-20260528-1200%1.log").arg(i, 2, 10, QChar('0'));
    expectedNames << "_usr_bin_tavrokvm.2.crash"
                  << "_usr_bin_tavrokvm.1.crash";
    QCOMPARE(column(table, 2), expectedNames);
    QStringList numbers, sizes, paths;
    for (int row = 0; row < expectedNames.size(); ++row) {
        numbers << QString::number(row + 1);
        sizes << QString::number(m_contents[expectedNames.at(row)].size());
        paths << QDir(row < 10 ? m_sources.businessLogFolder : m_sources.crashReports.folder)
                     .filePath(expectedNames.at(row));
    }
    QCOMPARE(column(table, 0), numbers);
    QCOMPARE(column(table, 1), sizes);
    QCOMPARE(column(table, 3), paths);
}

void TestLogMng::exportWritesEveryFile()
{
    fill(3, 1);
    RecordingLogMng manager;
    manager.setLogSources(m_sources);
    manager.refreshLogTable();
    manager.answer = m_root.filePath("export.zip");
    QTest::mouseClick(manager.findChild<QPushButton *>("exportLogBtn"), Qt::LeftButton);

    QCOMPARE(manager.asked.size(), 1);
    QVERIFY2(QFileInfo(manager.asked.first())
                 .fileName()
                 .contains(QRegularExpression("^tavrokvm-log-\\d{8}-\\d{6}\\.zip$")),
             qPrintable(manager.asked.first()));
    QCOMPARE(manager.messages, QStringList{"导出成功|日志已成功导出为 zip 文件！"});

    QuaZip zip(manager.answer);
    QVERIFY(zip.open(QuaZip::mdUnzip));
    QMap<QString, QByteArray> archived;
    for (bool more = zip.goToFirstFile(); more; more = zip.goToNextFile()) {
        QuaZipFile entry(&zip);
        QVERIFY(entry.open(QIODevice::ReadOnly));
        archived[entry.getActualFileName()] = entry.readAll();
    }
    QCOMPARE(archived, m_contents);
}

void TestLogMng::exportFailures_data()
{
    QTest::addColumn<bool>("withFiles");
    QTest::addColumn<QString>("answer"); // "blocked": a path below a plain file
    QTest::addColumn<bool>("asks");
    QTest::addColumn<QStringList>("messages");
    QTest::newRow("nothing to export")
        << false << "x.zip" << false << QStringList{"导出失败|没有可导出的日志文件！"};
    QTest::newRow("cancelled") << true << "" << true << QStringList{};
    QTest::newRow("unwritable target")
        << true << "blocked" << true << QStringList{"导出失败|无法创建 zip 文件！"};
}

void TestLogMng::exportFailures()
{
    QFETCH(bool, withFiles);
    QFETCH(QString, answer);
    QFETCH(bool, asks);
    QFETCH(QStringList, messages);
    if (withFiles)
        fill(2, 0);
    RecordingLogMng manager;
    manager.setLogSources(m_sources);
    manager.refreshLogTable();
    if (answer == "blocked") {
        QVERIFY(writeFile(m_root.filePath("plain"), "x", 0));
        answer = m_root.filePath("plain/logs.zip");
    } else if (!answer.isEmpty()) {
        answer = m_root.filePath(answer);
    }
    manager.answer = answer;
    manager.on_exportLogBtn_clicked();
    QCOMPARE(manager.asked.size(), asks ? 1 : 0);
    QCOMPARE(manager.messages, messages);
    if (!answer.isEmpty())
        QVERIFY(!QFileInfo::exists(answer));
}

void TestLogMng::toolPageShowsTheLogManager()
{
    tools page(nullptr);
    QVERIFY(QFile::exists(":/images/tool/log.png"));
    QVERIFY(!page.findChild<QPushButton *>("logToolBtn")->icon().pixmap(20).isNull());
    logMng *manager = page.logManager();
    manager->setLogSources(m_sources);
    auto *stack = page.findChild<QStackedWidget *>("toolStackWidget");
    stack->setCurrentIndex(0);

    fill(1, 0);
    page.showLogMngPage();
    QVERIFY(stack->currentWidget()->isAncestorOf(manager));
    QCOMPARE(manager->findChild<QTableWidget *>("logTableWidget")->rowCount(), 1);
}

QTEST_MAIN(TestLogMng)
#include "tst_logmng.moc"
