#include <QLocale>
#include <QRegularExpression>
#include <QSignalSpy>
#include <QTest>

#include "localhttpsserver.h"
#include "update/appupdatechecker.h"
#include "update/updaterules.h"

// The checker against a local HTTPS server that only this process trusts.
class TestAppUpdateChecker : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void init();
    void manifests_data();
    void manifests();
    void noAddressMakesNoRequest();
    void httpAddressIsRefused();
    void untrustedCertificateReportsNoUpdate();
    void secondCheckAbortsTheFirst();

private:
    // Runs one check and returns its single report.
    QList<QVariant> checkOnce(AppUpdateChecker &checker);

    LocalHttpsServer m_server;
};

void TestAppUpdateChecker::initTestCase()
{
    trustLocalHttpsServer();
    QVERIFY(m_server.start());
}

void TestAppUpdateChecker::init()
{
    QLocale::setDefault(QLocale(QLocale::Chinese, QLocale::China));
    qputenv(kManifestUrlEnvironment, m_server.url("/version.json").toUtf8());
}

QList<QVariant> TestAppUpdateChecker::checkOnce(AppUpdateChecker &checker)
{
    QSignalSpy spy(&checker, &AppUpdateChecker::checkFinished);
    checker.startCheck();
    if (spy.isEmpty() && !spy.wait(15000))
        return {};
    if (spy.count() != 1)
        return {};
    return spy.takeFirst();
}

void TestAppUpdateChecker::manifests_data()
{
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<int>("status");
    QTest::addColumn<bool>("hasUpdate");
    QTest::addColumn<bool>("isValid");
    QTest::addColumn<QString>("versionNo");
    QTest::addColumn<QString>("changeLog");

    auto manifest = [](const char *version, const char *extra = "") {
        return QByteArray(R"({"VersionNo":")") + version +
               R"(","FileName":"tk.tar.gz","md5":"ABC","Url":"https://h/tk.tar.gz")" + extra + "}";
    };
    QTest::newRow("same version") << manifest("0.9.0") << 200 << false << true << "0.9.0"
                                  << "";
    QTest::newRow("same version with blanks")
        << manifest(" 0.9.0 ") << 200 << false << true << "0.9.0"
        << "";
    QTest::newRow("older version") << manifest("0.8.9") << 200 << true << true << "0.8.9"
                                   << "";
    QTest::newRow("English notes only, Chinese system")
        << manifest("1.0.0", R"(,"ChangeLog":{"en":"Faster video"})") << 200 << true << true
        << "1.0.0"
        << "Faster video";
    QTest::newRow("missing md5")
        << QByteArray(R"({"VersionNo":"0.8.9","FileName":"f","Url":"https://h/f"})") << 200 << false
        << false << "0.8.9"
        << "";
    QTest::newRow("not JSON") << QByteArray("<html>busy</html>") << 200 << false << false << ""
                              << "";
    QTest::newRow("JSON array") << QByteArray("[]") << 200 << false << false << ""
                                << "";
    QTest::newRow("server error") << manifest("0.8.9") << 500 << false << false << ""
                                  << "";
}

void TestAppUpdateChecker::manifests()
{
    QFETCH(QByteArray, body);
    QFETCH(int, status);
    QFETCH(bool, hasUpdate);
    QFETCH(bool, isValid);
    QFETCH(QString, versionNo);
    QFETCH(QString, changeLog);

    m_server.setRoute("/version.json", {body, status});
    m_server.userAgents.clear();
    AppUpdateChecker checker(nullptr);
    const QList<QVariant> report = checkOnce(checker);
    QCOMPARE(report.size(), 2);
    const auto manifest = report.at(1).value<AppVersionManifest>();
    QCOMPARE(report.at(0).toBool(), hasUpdate);
    QCOMPARE(manifest.isValid, isValid);
    QCOMPARE(manifest.versionNo, versionNo);
    QCOMPARE(manifest.changeLog, changeLog);
    if (isValid)
        QCOMPARE(manifest.md5, QStringLiteral("abc"));
    QCOMPARE(m_server.userAgents, QList<QByteArray>{"TavroKVM-Qt-UpdateCheck"});
}

void TestAppUpdateChecker::noAddressMakesNoRequest()
{
    qputenv(kManifestUrlEnvironment, "");
    const int before = m_server.connections;
    AppUpdateChecker checker(nullptr);
    QTest::ignoreMessage(QtInfoMsg, "[AppUpdateChecker] 未配置更新清单地址，跳过更新检查");
    const QList<QVariant> report = checkOnce(checker);
    QCOMPARE(report.size(), 2);
    QCOMPARE(report.at(0).toBool(), false);
    QCOMPARE(report.at(1).value<AppVersionManifest>().versionNo, QString());
    QCOMPARE(m_server.connections, before);
}

void TestAppUpdateChecker::httpAddressIsRefused()
{
    // Pointed at the HTTPS server's port: a request, had one been made, would reach it.
    qputenv(kManifestUrlEnvironment, QByteArray("http://localhost:") +
                                         QByteArray::number(m_server.port()) + "/version.json");
    m_server.setRoute("/version.json", {R"({"VersionNo":"0.8.9","FileName":"f","md5":"m",
                                           "Url":"https://h/f"})"});
    const int before = m_server.connections;
    AppUpdateChecker checker(nullptr);
    QTest::ignoreMessage(
        QtWarningMsg,
        QRegularExpression("^\\[AppUpdateChecker\\] 拒绝非 HTTPS 的更新清单地址: http://"));
    const QList<QVariant> report = checkOnce(checker);
    QCOMPARE(report.size(), 2);
    QCOMPARE(report.at(0).toBool(), false);
    QCOMPARE(m_server.connections, before);
}

void TestAppUpdateChecker::untrustedCertificateReportsNoUpdate()
{
    m_server.setRoute("/version.json", {R"({"VersionNo":"0.8.9","FileName":"f","md5":"m",
                                           "Url":"https://h/f"})"});
    const QSslConfiguration trusting = QSslConfiguration::defaultConfiguration();
    QSslConfiguration config = trusting;
    config.setCaCertificates(QSslConfiguration::systemCaCertificates());
    QSslConfiguration::setDefaultConfiguration(config);
    AppUpdateChecker checker(nullptr);
    const QList<QVariant> report = checkOnce(checker);
    QSslConfiguration::setDefaultConfiguration(trusting);
    QCOMPARE(report.size(), 2);
    QCOMPARE(report.at(0).toBool(), false);
    QCOMPARE(report.at(1).value<AppVersionManifest>().versionNo, QString());
}

void TestAppUpdateChecker::secondCheckAbortsTheFirst()
{
    const QByteArray older =
        R"({"VersionNo":"0.8.9","FileName":"f","md5":"m","Url":"https://h/f"})";
    m_server.setRoute("/slow.json", {older, 200, true, 5}); // holds the first check in flight
    m_server.setRoute("/version.json", {older});
    AppUpdateChecker checker(nullptr);
    QSignalSpy reports(&checker, &AppUpdateChecker::checkFinished);
    QSignalSpy answered(&m_server, &LocalHttpsServer::requestAnswered);

    qputenv(kManifestUrlEnvironment, m_server.url("/slow.json").toUtf8());
    checker.startCheck();
    QVERIFY(answered.wait(15000));
    QCOMPARE(reports.count(), 0);

    qputenv(kManifestUrlEnvironment, m_server.url("/version.json").toUtf8());
    checker.startCheck();
    QTRY_COMPARE_WITH_TIMEOUT(reports.count(), 2, 15000);
    QCOMPARE(reports.at(0).at(0).toBool(), false);
    QCOMPARE(reports.at(0).at(1).value<AppVersionManifest>().versionNo, QString());
    QCOMPARE(reports.at(1).at(0).toBool(), true);
    QCOMPARE(reports.at(1).at(1).value<AppVersionManifest>().versionNo, QStringLiteral("0.8.9"));

    // A third check still reports once: nothing of the aborted one is left to report.
    checker.startCheck();
    QTRY_COMPARE_WITH_TIMEOUT(reports.count(), 3, 15000);
    QCOMPARE(reports.count(), 3);
}

QTEST_GUILESS_MAIN(TestAppUpdateChecker)
#include "tst_appupdatechecker.moc"
