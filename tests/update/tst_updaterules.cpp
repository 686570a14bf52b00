#include <QFile>
#include <QTemporaryDir>
#include <QTest>

#include "update/appversionmanifest.h"
#include "update/updaterules.h"

Q_DECLARE_METATYPE(DigestVerdict)

class TestUpdateRules : public QObject
{
    Q_OBJECT
private slots:
    void parseManifest_data();
    void parseManifest();
    void versionComparison_data();
    void versionComparison();
    void manifestUrlChoice_data();
    void manifestUrlChoice();
    void httpsOnly_data();
    void httpsOnly();
    void plainFileNames_data();
    void plainFileNames();
    void downloadFolder_data();
    void downloadFolder();
    void downloadPercent_data();
    void downloadPercent();
    void digests_data();
    void digests();
};

// The manifest cases the checker's own test does not reach over HTTPS.
void TestUpdateRules::parseManifest_data()
{
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<bool>("chinese");
    QTest::addColumn<bool>("isObject");
    QTest::addColumn<bool>("isValid");
    // versionNo|fileName|md5|url|changeLog|sha256
    QTest::addColumn<QString>("fields");

    const QByteArray full = R"({"VersionNo":" 1.2.0 ","FileName":" tk.tar.gz ","md5":" AB12 ",
        "Url":" https://h/tk ","sha256":" CD34 ","ChangeLog":{"zh":"中文说明","en":"English"}})";
    QTest::newRow("trimmed, digests lower-cased, Chinese notes")
        << full << true << true << true << "1.2.0|tk.tar.gz|ab12|https://h/tk|中文说明|cd34";
    QTest::newRow("English user") << full << false << true << true
                                  << "1.2.0|tk.tar.gz|ab12|https://h/tk|English|cd34";
    QTest::newRow("only Chinese notes for an English user")
        << QByteArray(R"({"VersionNo":"1","FileName":"f","md5":"m","Url":"u",
                          "ChangeLog":{"zh":"仅中文","en":""}})")
        << false << true << true << "1|f|m|u|仅中文|";
    QTest::newRow("non-string members read as empty")
        << QByteArray(R"({"VersionNo":1.0,"FileName":["f"],"md5":null,"Url":{},"ChangeLog":"x"})")
        << true << true << false << "|||||";
    QTest::newRow("blank md5 counts as missing")
        << QByteArray(R"({"VersionNo":"1","FileName":"f","md5":"  ","Url":"u"})") << true << true
        << false << "1|f||u||";
    QTest::newRow("truncated manifest") << QByteArray(R"({"VersionNo":"1.0.0","FileName":"f","m)")
                                        << true << false << false << "|||||";
    QTest::newRow("empty body") << QByteArray() << true << false << false << "|||||";
}

void TestUpdateRules::parseManifest()
{
    QFETCH(QByteArray, body);
    QFETCH(bool, chinese);
    QFETCH(bool, isObject);
    QFETCH(bool, isValid);
    QFETCH(QString, fields);

    AppVersionManifest manifest;
    manifest.versionNo = QStringLiteral("left over");
    QString error;
    QCOMPARE(parseAppVersionManifest(body, chinese, &manifest, &error), isObject);
    QCOMPARE(error.isEmpty(), isObject);
    QCOMPARE(manifest.isValid, isValid);
    const QStringList read{manifest.versionNo, manifest.fileName,  manifest.md5,
                           manifest.url,       manifest.changeLog, manifest.sha256};
    QCOMPARE(read.join('|'), fields);
}

void TestUpdateRules::versionComparison_data()
{
    QTest::addColumn<QString>("manifest");
    QTest::addColumn<bool>("different");
    QTest::newRow("same") << "0.9.0" << false;
    QTest::newRow("blanks around") << " 0.9.0 \n" << false;
    QTest::newRow("older counts") << "0.8.9" << true;
    QTest::newRow("not compared as numbers") << "0.9.00" << true;
}

void TestUpdateRules::versionComparison()
{
    QFETCH(QString, manifest);
    QFETCH(bool, different);
    QCOMPARE(isDifferentVersion(manifest, currentAppVersionNumber()), different);
    // Letter case never counts.
    QVERIFY(!isDifferentVersion(QStringLiteral("1.0.0-RC1"), QStringLiteral("1.0.0-rc1")));
}

void TestUpdateRules::manifestUrlChoice_data()
{
    QTest::addColumn<bool>("environmentSet");
    QTest::addColumn<QString>("environment");
    QTest::addColumn<QString>("builtIn");
    QTest::addColumn<QString>("chosen");
    QTest::newRow("nothing configured") << false << ""
                                        << ""
                                        << "";
    QTest::newRow("built in") << false << ""
                              << " https://u/v.json "
                              << "https://u/v.json";
    QTest::newRow("environment wins") << true << "https://e/v"
                                      << "https://u/v"
                                      << "https://e/v";
    QTest::newRow("empty environment turns it off") << true << ""
                                                    << "https://u/v.json"
                                                    << "";
}

void TestUpdateRules::manifestUrlChoice()
{
    QFETCH(bool, environmentSet);
    QFETCH(QString, environment);
    QFETCH(QString, builtIn);
    QFETCH(QString, chosen);
    QCOMPARE(chooseManifestUrl(environmentSet, environment, builtIn), chosen);
}

void TestUpdateRules::httpsOnly_data()
{
    QTest::addColumn<QString>("address");
    QTest::addColumn<bool>("allowed");
    QTest::newRow("https") << "https://127.0.0.1:8443/tk/v.json?x=1" << true;
    QTest::newRow("http") << "http://updates.example/v.json" << false;
    QTest::newRow("file") << "file:///etc/passwd" << false;
    QTest::newRow("no host") << "https:///v.json" << false;
    QTest::newRow("relative") << "/v.json" << false;
    QTest::newRow("malformed") << "https://exa mple/v.json" << false;
}

void TestUpdateRules::httpsOnly()
{
    QFETCH(QString, address);
    QFETCH(bool, allowed);
    QCOMPARE(isHttpsUrl(address), allowed);
}

void TestUpdateRules::plainFileNames_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<bool>("plain");
    QTest::newRow("archive") << "TavroKVM-1.0.0-x86_64.tar.gz" << true;
    QTest::newRow("dotted but plain") << "..tk" << true;
    QTest::newRow("parent step") << "../evil" << false;
    QTest::newRow("absolute") << "/etc/passwd" << false;
    QTest::newRow("subfolder") << "a/b" << false;
    QTest::newRow("backslash") << "..\\evil.exe" << false;
    QTest::newRow("drive") << "C:evil" << false;
    QTest::newRow("dot dot") << ".." << false;
    QTest::newRow("dot") << "." << false;
    QTest::newRow("empty") << "" << false;
    QTest::newRow("newline") << "a\nb" << false;
    QTest::newRow("255 bytes") << QString(255, 'a') << true;
    QTest::newRow("256 bytes") << QString(256, 'a') << false;
}

void TestUpdateRules::plainFileNames()
{
    QFETCH(QString, name);
    QFETCH(bool, plain);
    QCOMPARE(isPlainFileName(name), plain);
    QCOMPARE(downloadDestination(QStringLiteral("/opt/tk"), name),
             plain ? "/opt/tk/" + name : QString());
}

void TestUpdateRules::downloadFolder_data()
{
    QTest::addColumn<QString>("applicationDir");
    QTest::addColumn<bool>("writable");
    QTest::addColumn<QString>("folder");
    QTest::newRow("portable build") << "/opt/tk/bin" << true << "/opt/tk";
    QTest::newRow("installed build") << "/usr/bin" << false << "/home/u/Downloads";
    QTest::newRow("bundle") << "/Apps/TK.app/Contents/MacOS" << true << "/Apps/TK.app/Contents";
}

void TestUpdateRules::downloadFolder()
{
    QFETCH(QString, applicationDir);
    QFETCH(bool, writable);
    QFETCH(QString, folder);
    QCOMPARE(chooseDownloadFolder(folderAboveApplication(applicationDir), writable,
                                  QStringLiteral("/home/u/Downloads")),
             folder);
}

void TestUpdateRules::downloadPercent_data()
{
    QTest::addColumn<qint64>("received");
    QTest::addColumn<qint64>("total");
    QTest::addColumn<int>("percent");
    const qint64 gib = qint64(1) << 30;
    QTest::newRow("unknown total") << qint64(5000) << qint64(-1) << 0;
    QTest::newRow("rounds down") << qint64(999) << qint64(1000) << 99;
    QTest::newRow("all") << qint64(1000) << qint64(1000) << 100;
    QTest::newRow("more than announced") << qint64(1200) << qint64(1000) << 100;
    QTest::newRow("64-bit product") << 5 * gib << 6 * gib << 83;
}

void TestUpdateRules::downloadPercent()
{
    QFETCH(qint64, received);
    QFETCH(qint64, total);
    QFETCH(int, percent);
    QCOMPARE(::downloadPercent(received, total), percent);
}

void TestUpdateRules::digests_data()
{
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<QString>("md5");
    QTest::addColumn<QString>("sha256");
    QTest::addColumn<DigestVerdict>("verdict");
    const QString abcMd5 = "900150983cd24fb0d6963f7d28e17f72";
    const QString abcSha = "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad";
    QTest::newRow("abc") << QByteArray("abc") << abcMd5 << abcSha << DigestVerdict::Match;
    QTest::newRow("empty file") << QByteArray() << "d41d8cd98f00b204e9800998ecf8427e"
                                << "" << DigestVerdict::Match;
    // A million 'a's spans many read chunks.
    QTest::newRow("million a") << QByteArray(1000000, 'a') << "7707d6ae4e027c70eea2a935c2296f21"
                               << "cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0"
                               << DigestVerdict::Match;
    QTest::newRow("MD5 mismatch") << QByteArray("abd") << abcMd5 << ""
                                  << DigestVerdict::Md5Mismatch;
    QTest::newRow("SHA-256 mismatch")
        << QByteArray("abc") << abcMd5 << "c" + abcSha.mid(1) << DigestVerdict::Sha256Mismatch;
    QTest::newRow("missing file") << QByteArray() << abcMd5 << "" << DigestVerdict::Unreadable;
}

void TestUpdateRules::digests()
{
    QFETCH(QByteArray, content);
    QFETCH(QString, md5);
    QFETCH(QString, sha256);
    QFETCH(DigestVerdict, verdict);
    QTemporaryDir dir;
    const QString path = dir.filePath("download.bin");
    if (verdict != DigestVerdict::Unreadable) {
        QFile file(path);
        QVERIFY(file.open(QIODevice::WriteOnly));
        QCOMPARE(file.write(content), content.size());
    }
    QCOMPARE(verifyDownloadedFile(path, md5, sha256), verdict);
}

QTEST_APPLESS_MAIN(TestUpdateRules)
#include "tst_updaterules.moc"
