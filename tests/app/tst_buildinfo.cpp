#include <QTest>

#include "app/buildinfo.h"
#include "app/translation.h"

#include <QTranslator>

class TestBuildInfo : public QObject
{
    Q_OBJECT
private slots:
    void buildStamp_data();
    void buildStamp();
    void monthTable_data();
    void monthTable();
    void translationCandidates_data();
    void translationCandidates();
    void fallbackTranslation_data();
    void fallbackTranslation();
};

void TestBuildInfo::buildStamp_data()
{
    QTest::addColumn<QByteArray>("date");
    QTest::addColumn<QByteArray>("time");
    QTest::addColumn<QByteArray>("version");

    // The compiler pads single-digit days with a blank: "Mar  5 2027".
    QTest::newRow("5 March 2027 09:04:07") << QByteArray("Mar  5 2027") << QByteArray("09:04:07")
                                           << QByteArray("TavroKVM-v0.9.0-20270305090407");
    QTest::newRow("28 May 2026 20:52:31") << QByteArray("May 28 2026") << QByteArray("20:52:31")
                                          << QByteArray("TavroKVM-v0.9.0-20260528205231");
    QTest::newRow("31 Dec 1999 23:59:59") << QByteArray("Dec 31 1999") << QByteArray("23:59:59")
                                          << QByteArray("TavroKVM-v0.9.0-19991231235959");
    QTest::newRow("unknown month gives 00") << QByteArray("Foo  1 2026") << QByteArray("00:00:00")
                                            << QByteArray("TavroKVM-v0.9.0-20260001000000");
    QTest::newRow("lowercase month is unknown")
        << QByteArray("jan 10 2026") << QByteArray("01:02:03")
        << QByteArray("TavroKVM-v0.9.0-20260010010203");
}

void TestBuildInfo::buildStamp()
{
    QFETCH(QByteArray, date);
    QFETCH(QByteArray, time);
    QFETCH(QByteArray, version);
    QCOMPARE(appVersionString(date.constData(), time.constData()), version);
}

void TestBuildInfo::monthTable_data()
{
    QTest::addColumn<QByteArray>("text");
    QTest::addColumn<int>("month");
    const char *const names[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                 "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
    for (int i = 0; i < 12; ++i)
        QTest::newRow(names[i]) << QByteArray(names[i]) << i + 1;
    QTest::newRow("MAY") << QByteArray("MAY") << 0;
    QTest::newRow("June") << QByteArray("June") << 0;
    QTest::newRow("empty") << QByteArray("") << 0;
}

void TestBuildInfo::monthTable()
{
    QFETCH(QByteArray, text);
    QFETCH(int, month);
    QCOMPARE(monthFromAbbreviation(text.constData()), month);
}

void TestBuildInfo::translationCandidates_data()
{
    QTest::addColumn<QStringList>("uiLanguages");
    QTest::addColumn<QStringList>("candidates");
    QTest::newRow("de-DE, zh-Hans-CN")
        << QStringList{"de-DE", "zh-Hans-CN"}
        << QStringList{":/i18n/tavrokvm_de_DE", ":/i18n/tavrokvm_zh_CN"};
    QTest::newRow("none") << QStringList{} << QStringList{};
}

void TestBuildInfo::translationCandidates()
{
    QFETCH(QStringList, uiLanguages);
    QFETCH(QStringList, candidates);
    QCOMPARE(::translationCandidates(uiLanguages), candidates);

    // This test links no catalogue, so nothing loads.
    QTranslator translator;
    QCOMPARE(loadFirstTranslation(translator, uiLanguages), QString());
    QVERIFY(translator.isEmpty());
}

void TestBuildInfo::fallbackTranslation_data()
{
    QTest::addColumn<QStringList>("uiLanguages");
    QTest::addColumn<QString>("catalogue");
    const QString english = QStringLiteral(":/i18n/tavrokvm_en");
    QTest::newRow("de-DE") << QStringList{"de-DE"} << english;
    QTest::newRow("fr-FR, en-GB") << QStringList{"fr-FR", "en-GB"} << english;
    QTest::newRow("en-US") << QStringList{"en-US"} << english;
    QTest::newRow("C") << QStringList{"C"} << english;
    QTest::newRow("none") << QStringList{} << english;
    QTest::newRow("zh-CN") << QStringList{"zh-CN"} << QString();
    QTest::newRow("zh-Hans-CN") << QStringList{"zh-Hans-CN"} << QString();
    QTest::newRow("zh-TW") << QStringList{"zh-TW"} << QString();
    QTest::newRow("bare zh") << QStringList{"zh"} << QString();
    // Chinese anywhere in the list keeps the built-in texts.
    QTest::newRow("de-DE, zh-Hans-CN") << QStringList{"de-DE", "zh-Hans-CN"} << QString();
    QTest::newRow("ja-JP, en-US, zh-CN") << QStringList{"ja-JP", "en-US", "zh-CN"} << QString();
}

void TestBuildInfo::fallbackTranslation()
{
    QFETCH(QStringList, uiLanguages);
    QFETCH(QString, catalogue);
    QCOMPARE(::fallbackTranslation(uiLanguages), catalogue);
}

QTEST_APPLESS_MAIN(TestBuildInfo)
#include "tst_buildinfo.moc"
