#include <QCryptographicHash>
#include <QDir>
#include <QLabel>
#include <QProgressBar>
#include <QPushButton>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

#include "app/buildinfo.h"
#include "localhttpsserver.h"
#include "update/aboutdialog.h"
#include "update/downloaddialog.h"

// The About and download dialogs; downloads come from a local HTTPS server that only this
// process trusts, into a temporary folder.
class TestUpdateDialogs : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void init();
    void aboutLinkAsksForTheNewVersion();
    void aboutWithoutUpdateHasNoLink();
    void downloads_data();
    void downloads();
    void refusedBeforeAnyRequest_data();
    void refusedBeforeAnyRequest();
    void closingMidTransferRemovesThePartialFile();
    void unknownTotalKeepsTheBarAtZero();

private:
    AppVersionManifest manifestFor(const QString &path, const QByteArray &content) const;
    DownloadDialogHooks hooks();

    LocalHttpsServer m_server;
    QTemporaryDir m_root;
    QString m_folder;
    QStringList m_warnings;
    QList<QUrl> m_openedFolders;
};

namespace {

const QByteArray kPayload = QByteArray("TavroKVM update payload ").repeated(4000);

QString hex(QCryptographicHash::Algorithm algorithm, const QByteArray &data)
{
    return QString::fromLatin1(QCryptographicHash::hash(data, algorithm).toHex());
}

template<typename T> T *child(QWidget &parent, const char *name)
{
    return parent.findChild<T *>(QLatin1String(name));
}

} // namespace

Q_DECLARE_METATYPE(LocalHttpsServer::Route)

void TestUpdateDialogs::initTestCase()
{
    trustLocalHttpsServer();
    QVERIFY(m_server.start());
    QVERIFY(m_root.isValid());
}

void TestUpdateDialogs::init()
{
    static int round = 0;
    m_folder = m_root.filePath(QStringLiteral("dest%1").arg(++round));
    QVERIFY(QDir().mkpath(m_folder));
    m_warnings.clear();
    m_openedFolders.clear();
    m_server.requestedPaths.clear();
    m_server.userAgents.clear();
}

AppVersionManifest TestUpdateDialogs::manifestFor(const QString &path,
                                                  const QByteArray &content) const
{
    AppVersionManifest manifest;
    manifest.versionNo = QStringLiteral("1.0.0");
    manifest.fileName = QStringLiteral("TavroKVM-1.0.0.tar.gz");
    manifest.md5 = hex(QCryptographicHash::Md5, content);
    manifest.url = m_server.url(path);
    manifest.isValid = true;
    return manifest;
}

DownloadDialogHooks TestUpdateDialogs::hooks()
{
    DownloadDialogHooks hooks;
    hooks.destinationFolder = m_folder;
    hooks.warn = [this](QWidget *, const QString &, const QString &text) { m_warnings << text; };
    hooks.openFolder = [this](const QUrl &folder) {
        m_openedFolders << folder;
        return true;
    };
    return hooks;
}

void TestUpdateDialogs::aboutLinkAsksForTheNewVersion()
{
    AboutDialog about(nullptr, true);
    auto *label = child<QLabel>(about, "versionLabel");
    QVERIFY(label);
    QVERIFY(label->text().startsWith(QString::fromLatin1(appVersionString())));
    QVERIFY(label->text().contains("href=\"tkc://update\""));
    QVERIFY(label->text().contains("[有更新]"));

    QSignalSpy finished(&about, &QDialog::finished);
    about.open();
    emit label->linkActivated(QStringLiteral("https://www.qt.io/"));
    QCOMPARE(finished.count(), 0);
    // Keyboard: Tab to the link, Return follows it.
    QTest::keyClick(label, Qt::Key_Tab);
    QTest::keyClick(label, Qt::Key_Return);
    QCOMPARE(finished.count(), 1);
    QCOMPARE(finished.at(0).at(0).toInt(), 100);
    QCOMPARE(about.result(), AboutDialog::UpdateRequested);
}

void TestUpdateDialogs::aboutWithoutUpdateHasNoLink()
{
    AboutDialog about(nullptr, false);
    auto *label = child<QLabel>(about, "versionLabel");
    QVERIFY(label);
    QCOMPARE(label->text(), QString::fromLatin1(appVersionString()));
}

void TestUpdateDialogs::downloads_data()
{
    QTest::addColumn<LocalHttpsServer::Route>("route");
    QTest::addColumn<QString>("md5");    // "GOOD": the payload's, upper case in the manifest text
    QTest::addColumn<QString>("sha256"); // "good", "bad" or empty
    QTest::addColumn<QString>("warning");

    QTest::newRow("MD5 given in upper case verifies") << LocalHttpsServer::Route{kPayload} << "GOOD"
                                                      << ""
                                                      << "";
    QTest::newRow("MD5 and SHA-256 verify") << LocalHttpsServer::Route{kPayload} << "good"
                                            << "good"
                                            << "";
    QTest::newRow("no Content-Length") << LocalHttpsServer::Route{kPayload, 200, false} << "good"
                                       << ""
                                       << "";
    QTest::newRow("MD5 mismatch") << LocalHttpsServer::Route{kPayload + "x"} << "good"
                                  << ""
                                  << "校验错误，请重新下载";
    QTest::newRow("SHA-256 mismatch") << LocalHttpsServer::Route{kPayload} << "good"
                                      << "bad"
                                      << "校验错误，请重新下载";
    QTest::newRow("server error") << LocalHttpsServer::Route{"gone", 404} << "good"
                                  << ""
                                  << "下载失败：";
}

void TestUpdateDialogs::downloads()
{
    QFETCH(LocalHttpsServer::Route, route);
    QFETCH(QString, md5);
    QFETCH(QString, sha256);
    QFETCH(QString, warning);

    m_server.setRoute("/tk.tar.gz", route);
    AppVersionManifest manifest = manifestFor("/tk.tar.gz", kPayload);
    if (md5 == "GOOD") {
        const QByteArray json =
            R"({"VersionNo":"1.0.0","FileName":")" + manifest.fileName.toUtf8() + R"(","md5":")" +
            manifest.md5.toUpper().toUtf8() + R"(","Url":")" + manifest.url.toUtf8() + "\"}";
        QVERIFY(parseAppVersionManifest(json, true, &manifest));
        QVERIFY(manifest.isValid);
    }
    if (!sha256.isEmpty())
        manifest.sha256 = sha256 == "good" ? hex(QCryptographicHash::Sha256, kPayload)
                                           : hex(QCryptographicHash::Sha256, "other");
    // An earlier file of the same name is replaced, never appended to.
    const QString destination = QDir(m_folder).filePath(manifest.fileName);
    QFile stale(destination);
    QVERIFY(stale.open(QIODevice::WriteOnly));
    stale.write("stale");
    stale.close();

    DownloadDialog dialog(nullptr, manifest, hooks());
    QSignalSpy finished(&dialog, &QDialog::finished);
    dialog.show();
    QCOMPARE(dialog.destinationPath(), destination);
    auto *status = child<QLabel>(dialog, "statusLabel");
    QTRY_VERIFY_WITH_TIMEOUT(status->text() == "下载完成，校验通过。" || finished.count() > 0,
                             15000);
    QCOMPARE(m_server.userAgents, QList<QByteArray>{"TavroKVM-Qt-UpdateDownload"});

    if (!warning.isEmpty()) {
        QCOMPARE(m_warnings.size(), 1);
        QVERIFY2(m_warnings.first().startsWith(warning), qPrintable(m_warnings.first()));
        QCOMPARE(finished.count(), 1);
        QCOMPARE(finished.at(0).at(0).toInt(), int(QDialog::Rejected));
        QVERIFY(!QFileInfo::exists(destination));
        return;
    }
    QVERIFY(m_warnings.isEmpty());
    QCOMPARE(finished.count(), 0); // stays open
    QCOMPARE(child<QProgressBar>(dialog, "progressBar")->value(), 100);
    auto *reveal = child<QPushButton>(dialog, "revealBtn");
    QVERIFY(reveal->isVisible());
    QFile file(destination);
    QVERIFY(file.open(QIODevice::ReadOnly));
    QCOMPARE(file.readAll(), kPayload);

    QTest::mouseClick(reveal, Qt::LeftButton);
    QCOMPARE(m_openedFolders, QList<QUrl>{QUrl::fromLocalFile(m_folder)});
    QCOMPARE(finished.count(), 1);
    QCOMPARE(finished.at(0).at(0).toInt(), int(QDialog::Accepted));
    QVERIFY(QFileInfo::exists(destination)); // a verified file stays
}

void TestUpdateDialogs::refusedBeforeAnyRequest_data()
{
    QTest::addColumn<QString>("fileName");
    QTest::addColumn<QString>("url"); // empty: the server's
    QTest::addColumn<bool>("unwritableFolder");
    QTest::addColumn<QString>("warning");

    const QString badName = "下载失败：文件名不合法（%1）";
    QTest::newRow("parent step") << "../evil"
                                 << "" << false << badName.arg("../evil");
    QTest::newRow("absolute path") << "/tmp/evil"
                                   << "" << false << badName.arg("/tmp/evil");
    QTest::newRow("subfolder") << "a/b"
                               << "" << false << badName.arg("a/b");
    QTest::newRow("dot dot") << ".."
                             << "" << false << badName.arg("..");
    QTest::newRow("empty name") << ""
                                << "" << false << badName.arg("");
    QTest::newRow("http address") << "evil"
                                  << "http://localhost/tk.tar.gz" << false
                                  << "下载失败：仅支持 HTTPS 下载地址";
    QTest::newRow("unwritable folder") << "tk.tar.gz"
                                       << "" << true << "无法写入文件：%1";
}

void TestUpdateDialogs::refusedBeforeAnyRequest()
{
    QFETCH(QString, fileName);
    QFETCH(QString, url);
    QFETCH(bool, unwritableFolder);
    QFETCH(QString, warning);

    m_server.setRoute("/tk.tar.gz", {kPayload});
    AppVersionManifest manifest = manifestFor("/tk.tar.gz", kPayload);
    manifest.fileName = fileName;
    if (!url.isEmpty())
        manifest.url = url;
    DownloadDialogHooks dialogHooks = hooks();
    if (unwritableFolder) {
        // A folder below a plain file cannot exist, whoever runs the test.
        QFile blocker(QDir(m_folder).filePath("file"));
        QVERIFY(blocker.open(QIODevice::WriteOnly));
        dialogHooks.destinationFolder = blocker.fileName() + "/folder";
        warning = warning.arg(dialogHooks.destinationFolder + "/" + fileName);
    }

    DownloadDialog dialog(nullptr, manifest, dialogHooks);
    QSignalSpy finished(&dialog, &QDialog::finished);
    QCOMPARE(m_warnings, QStringList{warning});
    QTRY_COMPARE(finished.count(), 1); // ends as soon as the event loop runs
    QCOMPARE(finished.at(0).at(0).toInt(), int(QDialog::Rejected));
    QVERIFY(m_server.requestedPaths.isEmpty());
    const QStringList written =
        QDir(m_root.path()).entryList(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden);
    QVERIFY2(!written.contains("evil") && !written.contains("b"), qPrintable(written.join(',')));
    const QStringList inFolder =
        QDir(m_folder).entryList(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden);
    QCOMPARE(inFolder, unwritableFolder ? QStringList{"file"} : QStringList{});
}

void TestUpdateDialogs::closingMidTransferRemovesThePartialFile()
{
    m_server.setRoute("/slow.tar.gz", {kPayload, 200, true, kPayload.size() / 2});
    DownloadDialog dialog(nullptr, manifestFor("/slow.tar.gz", kPayload), hooks());
    QSignalSpy finished(&dialog, &QDialog::finished);
    QSignalSpy closed(&m_server, &LocalHttpsServer::stalledConnectionClosed);
    dialog.show();
    // Part of the file has arrived and been written.
    QTRY_VERIFY_WITH_TIMEOUT(QFileInfo(dialog.destinationPath()).size() > 0, 15000);

    QVERIFY(dialog.close());
    QCOMPARE(child<QLabel>(dialog, "statusLabel")->text(), QStringLiteral("已取消下载。"));
    QVERIFY(!QFileInfo::exists(dialog.destinationPath()));
    QVERIFY(m_warnings.isEmpty());
    QCOMPARE(finished.count(), 1);
    QVERIFY(closed.count() > 0 || closed.wait(15000)); // the transfer really stopped
}

void TestUpdateDialogs::unknownTotalKeepsTheBarAtZero()
{
    m_server.setRoute("/slow.tar.gz", {kPayload, 200, false, kPayload.size() / 2});
    DownloadDialog dialog(nullptr, manifestFor("/slow.tar.gz", kPayload), hooks());
    auto *bar = child<QProgressBar>(dialog, "progressBar");
    QTRY_VERIFY_WITH_TIMEOUT(QFileInfo(dialog.destinationPath()).size() > 0, 15000);
    QCOMPARE(bar->value(), 0);
    dialog.onDownloadProgress(1, 2);
    dialog.onDownloadProgress(kPayload.size() / 2, -1);
    QCOMPARE(bar->value(), 0);
}

QTEST_MAIN(TestUpdateDialogs)
#include "tst_updatedialogs.moc"
