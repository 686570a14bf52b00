#include "db/dbmanager.h"

#include <QDateTime>
#include <QDebug>
#include <QDir>
#include <QSqlError>
#include <QSqlQuery>
#include <QSqlRecord>
#include <QStandardPaths>

#include "console/input/pasteplan.h"

namespace {

// The nine data columns written by an upsert, in statement order.
const char *const kDataColumns[] = {"device_name",
                                    "sys_desc_name",
                                    "device_id",
                                    "uart_port",
                                    "baud_rate",
                                    "protocol",
                                    "coord_mode",
                                    "audio_input_device_id",
                                    "cursor_correction_enabled"};

QVariant valueOrNull(const QVariantMap &map, const char *key)
{
    const auto it = map.constFind(QLatin1String(key));
    return it == map.constEnd() ? QVariant() : it.value();
}

QVariantMap recordToMap(const QSqlRecord &record)
{
    QVariantMap map;
    for (int i = 0; i < record.count(); ++i)
        map.insert(record.fieldName(i), record.value(i));
    return map;
}

} // namespace

DBManager *DBManager::instance()
{
    static DBManager manager;
    return &manager;
}

QString DBManager::defaultDatabasePath()
{
    const QString folder =
        QStandardPaths::writableLocation(QStandardPaths::AppDataLocation) + QStringLiteral("/db");
    QDir dir(folder);
    if (!dir.exists())
        dir.mkpath(QStringLiteral("."));
    return folder + QStringLiteral("/tavrokvm.db");
}

bool DBManager::initDatabase(const QString &dbPath)
{
    QString path = dbPath;
    if (path.isEmpty()) {
        path = defaultDatabasePath();
        qDebug().noquote() << "数据库实际路径:" << path;
    }

    // A second call (tests, a later re-open) reuses the default connection instead of
    // registering a duplicate.
    if (QSqlDatabase::contains(QSqlDatabase::defaultConnection)) {
        m_db = QSqlDatabase::database(QSqlDatabase::defaultConnection, false);
        m_db.close();
    } else {
        m_db = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"));
    }
    m_db.setDatabaseName(path);

    if (!m_db.open()) {
        qWarning().noquote() << "数据库打开失败:" << m_db.lastError().text();
        m_initialized = false;
        return false;
    }

    createTables();
    m_initialized = true;
    qDebug() << "[DBManager] 数据库初始化成功";
    return true;
}

void DBManager::createTables()
{
    QSqlQuery query(m_db);
    query.exec(QStringLiteral("CREATE TABLE IF NOT EXISTS device ("
                              "id INTEGER PRIMARY KEY AUTOINCREMENT, "
                              "did TEXT UNIQUE, "
                              "device_name TEXT, "
                              "sys_desc_name TEXT, "
                              "device_id TEXT, "
                              "uart_port TEXT, "
                              "baud_rate INTEGER, "
                              "protocol TEXT, "
                              "coord_mode TEXT, "
                              "create_time DATETIME DEFAULT CURRENT_TIMESTAMP, "
                              "update_time DATETIME DEFAULT CURRENT_TIMESTAMP)"));

    bool hasAudioInput = false;
    bool hasCursorCorrection = false;
    bool hasKeyboardLayout = false;
    bool hasPasteInterval = false;
    if (query.exec(QStringLiteral("PRAGMA table_info(device)"))) {
        while (query.next()) {
            const QString column = query.value(1).toString();
            hasAudioInput |= column == QLatin1String("audio_input_device_id");
            hasCursorCorrection |= column == QLatin1String("cursor_correction_enabled");
            hasKeyboardLayout |= column == QLatin1String("keyboard_layout");
            hasPasteInterval |= column == QLatin1String("paste_interval_ms");
        }
    }
    if (!hasAudioInput)
        query.exec(QStringLiteral("ALTER TABLE device ADD COLUMN audio_input_device_id TEXT"));
    if (!hasCursorCorrection) {
        query.exec(QStringLiteral(
            "ALTER TABLE device ADD COLUMN cursor_correction_enabled INTEGER DEFAULT 0"));
        query.exec(QStringLiteral("UPDATE device SET cursor_correction_enabled = 0 "
                                  "WHERE cursor_correction_enabled IS NULL"));
    }
    // Columns the upsert never writes: set only by their own setters, so that a record written
    // back by code that does not know them keeps them.
    if (!hasKeyboardLayout)
        query.exec(
            QStringLiteral("ALTER TABLE device ADD COLUMN keyboard_layout TEXT DEFAULT 'us'"));
    if (!hasPasteInterval)
        query.exec(
            QStringLiteral("ALTER TABLE device ADD COLUMN paste_interval_ms INTEGER DEFAULT %1")
                .arg(kDefaultPasteIntervalMs));

    query.exec(QStringLiteral(
        "CREATE TABLE IF NOT EXISTS app_settings (key TEXT PRIMARY KEY, value TEXT)"));
    query.exec(QStringLiteral(
        "INSERT OR IGNORE INTO app_settings (key, value) VALUES ('multi_same_display', '0')"));
}

bool DBManager::isUsable() const
{
    return m_initialized && m_db.isOpen();
}

bool DBManager::insertOrUpdateDevice(const QVariantMap &device)
{
    if (!device.contains(QStringLiteral("did")))
        return false;
    const QString did = device.value(QStringLiteral("did")).toString();

    QSqlQuery query(m_db);
    query.prepare(QStringLiteral("SELECT id FROM device WHERE did = ?"));
    query.addBindValue(did);
    if (!query.exec())
        return false;

    if (query.next()) {
        QSqlQuery update(m_db);
        update.prepare(QStringLiteral(
            "UPDATE device SET device_name = ?, sys_desc_name = ?, device_id = ?, "
            "uart_port = ?, baud_rate = ?, protocol = ?, coord_mode = ?, "
            "audio_input_device_id = ?, cursor_correction_enabled = ?, update_time = ? "
            "WHERE did = ?"));
        for (const char *column : kDataColumns)
            update.addBindValue(valueOrNull(device, column));
        update.addBindValue(
            QDateTime::currentDateTime().toString(QStringLiteral("yyyy-MM-ddTHH:mm:ss")));
        update.addBindValue(did);
        return update.exec();
    }

    QSqlQuery insert(m_db);
    insert.prepare(QStringLiteral(
        "INSERT INTO device (did, device_name, sys_desc_name, device_id, uart_port, baud_rate, "
        "protocol, coord_mode, audio_input_device_id, cursor_correction_enabled) "
        "VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?)"));
    insert.addBindValue(did);
    for (const char *column : kDataColumns) {
        QVariant value = valueOrNull(device, column);
        if (!value.isValid() && qstrcmp(column, "cursor_correction_enabled") == 0)
            value = 0;
        insert.addBindValue(value);
    }
    return insert.exec();
}

bool DBManager::insertOrUpdateDevices(const QList<QVariantMap> &devices)
{
    if (devices.isEmpty())
        return true;

    m_db.transaction();
    for (const QVariantMap &device : devices) {
        if (!insertOrUpdateDevice(device)) {
            qWarning().noquote() << "[DBManager] 批量操作失败，设备ID:"
                                 << device.value(QStringLiteral("device_id")).toString();
            m_db.rollback();
            qWarning() << "[DBManager] 批量操作失败，已回滚事务";
            return false;
        }
    }
    if (!m_db.commit()) {
        qWarning().noquote() << "[DBManager] 事务提交失败:" << m_db.lastError().text();
        m_db.rollback();
        return false;
    }
    qDebug() << "[DBManager] 批量操作成功，处理了" << devices.size() << "个设备";
    return true;
}

QVariantMap DBManager::getDeviceByDid(const QString &did)
{
    QSqlQuery query(m_db);
    query.prepare(QStringLiteral("SELECT * FROM device WHERE did = ?"));
    query.addBindValue(did);
    if (!query.exec() || !query.next())
        return {};
    return recordToMap(query.record());
}

QList<QVariantMap> DBManager::getAllDevices()
{
    QList<QVariantMap> devices;
    QSqlQuery query(m_db);
    if (!query.exec(QStringLiteral("SELECT * FROM device")))
        return devices;
    while (query.next())
        devices.append(recordToMap(query.record()));
    return devices;
}

QVariantMap DBManager::getLastUsedDevice()
{
    QSqlQuery query(m_db);
    if (!query.exec(QStringLiteral("SELECT * FROM device ORDER BY update_time DESC LIMIT 1")) ||
        !query.next())
        return {};
    return recordToMap(query.record());
}

bool DBManager::setDeviceColumn(const QString &did, const char *column, const QVariant &value)
{
    if (!isUsable())
        return false;
    QSqlQuery query(m_db);
    query.prepare(
        QStringLiteral("UPDATE device SET %1 = ? WHERE did = ?").arg(QLatin1String(column)));
    query.addBindValue(value);
    query.addBindValue(did);
    if (!query.exec()) {
        qWarning().noquote() << "[DBManager] 保存" << column << "失败:" << query.lastError().text();
        return false;
    }
    return query.numRowsAffected() == 1;
}

bool DBManager::setDeviceKeyboardLayout(const QString &did, const QString &layout)
{
    return setDeviceColumn(did, "keyboard_layout", layout);
}

bool DBManager::setDevicePasteInterval(const QString &did, int intervalMs)
{
    return setDeviceColumn(did, "paste_interval_ms", qBound(0, intervalMs, kMaxPasteIntervalMs));
}

QString DBManager::getAppSetting(const QString &key, const QString &defaultValue)
{
    if (!isUsable())
        return defaultValue;
    QSqlQuery query(m_db);
    query.prepare(QStringLiteral("SELECT value FROM app_settings WHERE key = ?"));
    query.addBindValue(key);
    if (!query.exec() || !query.next())
        return defaultValue;
    return query.value(0).toString();
}

bool DBManager::setAppSetting(const QString &key, const QString &value)
{
    if (!isUsable())
        return false;
    QSqlQuery query(m_db);
    query.prepare(QStringLiteral("INSERT OR REPLACE INTO app_settings (key, value) VALUES (?, ?)"));
    query.addBindValue(key);
    query.addBindValue(value);
    return query.exec();
}
