#include <QDir>
#include <QFile>
#include <QRegularExpression>
#include <QSqlDatabase>
#include <QSqlQuery>
#include <QSqlRecord>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>

#include "db/dbmanager.h"

namespace {

QStringList columnsOf(const QString &table)
{
    QStringList columns;
    QSqlQuery query(QSqlDatabase::database());
    query.exec(QString("PRAGMA table_info(%1)").arg(table));
    while (query.next())
        columns << query.value(1).toString();
    return columns;
}

int rowCount(const QString &table)
{
    QSqlQuery query(QSqlDatabase::database());
    query.exec(QString("SELECT COUNT(*) FROM %1").arg(table));
    return query.next() ? query.value(0).toInt() : -1;
}

QVariantMap box(const QString &did, const QString &port)
{
    return {{"did", did},
            {"device_name", "Box " + did.right(2)},
            {"sys_desc_name", "TK USB3 Video"},
            {"device_id", "usb-vid_a5c0&pid_2132-" + did.right(2)},
            {"uart_port", port},
            {"baud_rate", 2000000},
            {"protocol", "CH9329"},
            {"coord_mode", "0"},
            {"audio_input_device_id", "audio-" + did.right(2)},
            {"cursor_correction_enabled", 1}};
}

const QString kDid1 = "0123456789abcdef0123456789abcd01";
const QString kDid2 = "0123456789abcdef0123456789abcd02";
const QString kDid3 = "0123456789abcdef0123456789abcd03";

} // namespace

class TestDBManager : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void init();
    void firstStartCreatesSchemaAndDefaultSetting();
    void oldFileIsMigrated();
    void reinitChangesNothing();
    void insertThenReadBack();
    void insertWithoutDidWritesNothing();
    void updateWithOnlyPortNullsOtherColumns();
    void pasteSettingsSurviveTheUpsert();
    void batchFailureRollsBack();
    void batchSuccessAndEmptyBatch();
    void lastUsedDeviceIsNewestUpdate();
    void appSettings();
    void unopenablePathFallsBack();

private:
    QString freshPath();
    QTemporaryDir m_dir;
    int m_counter = 0;
};

QString TestDBManager::freshPath()
{
    return m_dir.path() + QString("/case%1.db").arg(++m_counter);
}

void TestDBManager::initTestCase()
{
    QVERIFY(m_dir.isValid());
    qputenv("XDG_DATA_HOME", (m_dir.path() + "/data").toLocal8Bit());
    QCoreApplication::setApplicationName("TavroKVM");
}

void TestDBManager::init()
{
    // Every case starts on a database file of its own.
    QVERIFY(DBManager::instance()->initDatabase(freshPath()));
}

void TestDBManager::firstStartCreatesSchemaAndDefaultSetting()
{
    // The default location: "<data>/TavroKVM/db/tavrokvm.db", folder created on demand.
    const QString expected = m_dir.path() + "/data/TavroKVM/db/tavrokvm.db";
    QVERIFY(!QFile::exists(expected));
    QVERIFY(DBManager::instance()->initDatabase(QString()));
    QVERIFY(DBManager::instance()->isInitialized());
    QVERIFY(QFile::exists(expected));

    QCOMPARE(columnsOf("device"),
             QStringList({"id", "did", "device_name", "sys_desc_name", "device_id", "uart_port",
                          "baud_rate", "protocol", "coord_mode", "create_time", "update_time",
                          "audio_input_device_id", "cursor_correction_enabled", "keyboard_layout",
                          "paste_interval_ms"}));
    QCOMPARE(columnsOf("app_settings"), QStringList({"key", "value"}));
    QCOMPARE(rowCount("app_settings"), 1);
    QCOMPARE(DBManager::instance()->getAppSetting("multi_same_display", "?"), QString("0"));
}

void TestDBManager::oldFileIsMigrated()
{
    const QString path = freshPath();
    {
        // A file written by an older build: eleven columns, two rows.
        QSqlDatabase old = QSqlDatabase::addDatabase("QSQLITE", "old");
        old.setDatabaseName(path);
        QVERIFY(old.open());
        QSqlQuery q(old);
        QVERIFY(q.exec("CREATE TABLE device (id INTEGER PRIMARY KEY AUTOINCREMENT, did TEXT "
                       "UNIQUE, device_name TEXT, sys_desc_name TEXT, device_id TEXT, uart_port "
                       "TEXT, baud_rate INTEGER, protocol TEXT, coord_mode TEXT, create_time "
                       "DATETIME DEFAULT CURRENT_TIMESTAMP, update_time DATETIME DEFAULT "
                       "CURRENT_TIMESTAMP)"));
        QVERIFY(q.exec(QString("INSERT INTO device (did, uart_port, baud_rate) VALUES ('%1', "
                               "'ttyACM0', 115200)")
                           .arg(kDid1)));
        QVERIFY(q.exec(QString("INSERT INTO device (did) VALUES ('%1')").arg(kDid2)));
        old.close();
    }
    QSqlDatabase::removeDatabase("old");

    QVERIFY(DBManager::instance()->initDatabase(path));
    QVERIFY(columnsOf("device").contains("audio_input_device_id"));
    QVERIFY(columnsOf("device").contains("cursor_correction_enabled"));
    for (const QString &did : {kDid1, kDid2}) {
        const QVariantMap row = DBManager::instance()->getDeviceByDid(did);
        QCOMPARE(row.size(), 15);
        QCOMPARE(row.value("cursor_correction_enabled").toInt(), 0);
        QVERIFY(!row.value("cursor_correction_enabled").isNull());
        QVERIFY(row.value("audio_input_device_id").isNull());
        // Boxes known before pasting had a layout type on US, paced.
        QCOMPARE(row.value("keyboard_layout").toString(), QString("us"));
        QCOMPARE(row.value("paste_interval_ms").toInt(), 16);
    }
    QCOMPARE(DBManager::instance()->getDeviceByDid(kDid1).value("uart_port").toString(),
             QString("ttyACM0"));
    QCOMPARE(DBManager::instance()->getAppSetting("multi_same_display", "?"), QString("0"));
}

void TestDBManager::reinitChangesNothing()
{
    auto *db = DBManager::instance();
    const QString path = m_dir.path() + QString("/case%1.db").arg(m_counter);
    QVERIFY(db->insertOrUpdateDevice(box(kDid1, "ttyACM0")));
    QVERIFY(db->setAppSetting("multi_same_display", "1"));
    const QVariantMap before = db->getDeviceByDid(kDid1);

    QVERIFY(db->initDatabase(path));
    QCOMPARE(db->getDeviceByDid(kDid1), before);
    QCOMPARE(db->getAppSetting("multi_same_display", "?"), QString("1"));
    QCOMPARE(columnsOf("device").size(), 15);
    QCOMPARE(rowCount("device"), 1);
}

void TestDBManager::insertThenReadBack()
{
    auto *db = DBManager::instance();
    QVERIFY(db->getDeviceByDid(kDid1).isEmpty());
    QVERIFY(db->insertOrUpdateDevice(box(kDid1, "ttyACM0")));

    const QVariantMap row = db->getDeviceByDid(kDid1);
    QCOMPARE(row.size(), 15);
    const QVariantMap written = box(kDid1, "ttyACM0");
    for (auto it = written.begin(); it != written.end(); ++it)
        QCOMPARE(row.value(it.key()).toString(), it.value().toString());
    QVERIFY(!row.value("create_time").toString().isEmpty());

    // A missing correction switch is stored as 0 on insert.
    QVERIFY(db->insertOrUpdateDevice({{"did", kDid2}}));
    QCOMPARE(db->getDeviceByDid(kDid2).value("cursor_correction_enabled").toInt(), 0);
    QVERIFY(!db->getDeviceByDid(kDid2).value("cursor_correction_enabled").isNull());
    QCOMPARE(db->getAllDevices().size(), 2);

    // Keys that are not columns are ignored; reading back and writing again works.
    QVariantMap again = row;
    again["baud_rate"] = 115200;
    QVERIFY(db->insertOrUpdateDevice(again));
    QCOMPARE(db->getDeviceByDid(kDid1).value("baud_rate").toInt(), 115200);
    QCOMPARE(db->getDeviceByDid(kDid1).value("uart_port").toString(), QString("ttyACM0"));
}

void TestDBManager::insertWithoutDidWritesNothing()
{
    QVariantMap noDid = box(kDid1, "ttyACM0");
    noDid.remove("did");
    QVERIFY(!DBManager::instance()->insertOrUpdateDevice(noDid));
    QCOMPARE(rowCount("device"), 0);
}

void TestDBManager::updateWithOnlyPortNullsOtherColumns()
{
    auto *db = DBManager::instance();
    QVERIFY(db->insertOrUpdateDevice(box(kDid1, "ttyACM0")));
    QVERIFY(db->insertOrUpdateDevice({{"did", kDid1}, {"uart_port", "ttyACM1"}}));

    const QVariantMap row = db->getDeviceByDid(kDid1);
    QCOMPARE(row.value("uart_port").toString(), QString("ttyACM1"));
    for (const char *column : {"device_name", "sys_desc_name", "device_id", "baud_rate", "protocol",
                               "coord_mode", "audio_input_device_id", "cursor_correction_enabled"})
        QVERIFY2(row.value(column).isNull(), column);
    QVERIFY(QRegularExpression(R"(^\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d$)")
                .match(row.value("update_time").toString())
                .hasMatch());
}

void TestDBManager::pasteSettingsSurviveTheUpsert()
{
    auto *db = DBManager::instance();
    QVERIFY(db->insertOrUpdateDevice(box(kDid1, "ttyACM0")));
    QVERIFY(db->setDeviceKeyboardLayout(kDid1, "ch(de)"));
    QVERIFY(db->setDevicePasteInterval(kDid1, 25));
    // Code that writes the record back without knowing these columns keeps them.
    QVERIFY(db->insertOrUpdateDevice({{"did", kDid1}, {"uart_port", "ttyACM1"}}));
    QCOMPARE(db->getDeviceByDid(kDid1).value("keyboard_layout").toString(), QString("ch(de)"));
    QCOMPARE(db->getDeviceByDid(kDid1).value("paste_interval_ms").toInt(), 25);
    // Out of range is held to the range; an unknown box is refused.
    QVERIFY(db->setDevicePasteInterval(kDid1, 100000));
    QCOMPARE(db->getDeviceByDid(kDid1).value("paste_interval_ms").toInt(), 100);
    QVERIFY(!db->setDeviceKeyboardLayout(kDid2, "de"));
    QVERIFY(db->getDeviceByDid(kDid2).isEmpty());
}

void TestDBManager::batchFailureRollsBack()
{
    auto *db = DBManager::instance();
    QVERIFY(db->insertOrUpdateDevice(box(kDid1, "ttyACM0")));
    const QList<QVariantMap> before = db->getAllDevices();

    QVariantMap second = box(kDid2, "ttyACM1");
    second.remove("did");
    QVariantMap changedFirst = box(kDid1, "ttyUSB9");
    QVERIFY(!db->insertOrUpdateDevices({changedFirst, second, box(kDid3, "ttyACM2")}));
    QCOMPARE(db->getAllDevices(), before);
}

void TestDBManager::batchSuccessAndEmptyBatch()
{
    auto *db = DBManager::instance();
    QVERIFY(db->insertOrUpdateDevices({}));
    QVERIFY(db->insertOrUpdateDevices({box(kDid1, "a"), box(kDid2, "b"), box(kDid3, "c")}));
    QCOMPARE(rowCount("device"), 3);
    QCOMPARE(db->getDeviceByDid(kDid3).value("uart_port").toString(), QString("c"));
}

void TestDBManager::lastUsedDeviceIsNewestUpdate()
{
    auto *db = DBManager::instance();
    QVERIFY(db->getLastUsedDevice().isEmpty());
    QVERIFY(db->insertOrUpdateDevices({box(kDid1, "a"), box(kDid2, "b")}));
    // An update stamps local ISO time, which sorts after SQLite's "YYYY-MM-DD HH:MM:SS".
    QVERIFY(db->insertOrUpdateDevice(box(kDid1, "a2")));
    QCOMPARE(db->getLastUsedDevice().value("did").toString(), kDid1);
}

void TestDBManager::appSettings()
{
    auto *db = DBManager::instance();
    QCOMPARE(db->getAppSetting("unknown", "x"), QString("x"));
    QCOMPARE(db->getAppSetting("multi_same_display", "?"), QString("0"));
    QVERIFY(db->setAppSetting("multi_same_display", "1"));
    QCOMPARE(db->getAppSetting("multi_same_display", "0"), QString("1"));
    QVERIFY(db->setAppSetting("multi_same_display", "0"));
    QCOMPARE(db->getAppSetting("multi_same_display", "1"), QString("0"));
}

void TestDBManager::unopenablePathFallsBack()
{
    // A path under a regular file can never be opened, not even by root.
    QFile blocker(m_dir.path() + "/not-a-folder");
    QVERIFY(blocker.open(QIODevice::WriteOnly));
    blocker.close();

    auto *db = DBManager::instance();
    QVERIFY(!db->initDatabase(blocker.fileName() + "/tavrokvm.db"));
    QVERIFY(!db->isInitialized());
    QCOMPARE(db->getAppSetting("multi_same_display", "fallback"), QString("fallback"));
    QVERIFY(!db->setAppSetting("multi_same_display", "1"));
    QVERIFY(!db->insertOrUpdateDevice(box(kDid1, "a")));
    QVERIFY(!db->insertOrUpdateDevices({box(kDid1, "a")}));
    QVERIFY(db->getDeviceByDid(kDid1).isEmpty());
    QVERIFY(db->getAllDevices().isEmpty());
    QVERIFY(db->getLastUsedDevice().isEmpty());
}

QTEST_GUILESS_MAIN(TestDBManager)
#include "tst_dbmanager.moc"
