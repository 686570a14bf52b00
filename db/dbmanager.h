#pragma once

#include <QList>
#include <QObject>
#include <QSqlDatabase>
#include <QString>
#include <QVariantMap>

// The SQLite store of known boxes (table `device`, one record per DID) and application-wide
// settings (table `app_settings`). GUI thread only; uses the SQL module's default connection.
// Device operations return false / empty results when the database is not open.
class DBManager : public QObject
{
    Q_OBJECT
public:
    static DBManager *instance();

    // Opens (or creates) the database and brings its schema up to date. An empty path means
    // "<application data>/db/tavrokvm.db". Returns whether the file opened.
    bool initDatabase(const QString &dbPath);
    bool isInitialized() const { return m_initialized; }

    // Upsert by the map's "did". On update every data column is written: a key missing from
    // the map stores NULL, so callers read the whole record, change it and write it back.
    bool insertOrUpdateDevice(const QVariantMap &device);
    // All maps in one transaction; the first failure rolls everything back.
    bool insertOrUpdateDevices(const QList<QVariantMap> &devices);

    // Column name -> value for every column; empty when unknown or on failure.
    QVariantMap getDeviceByDid(const QString &did);
    QList<QVariantMap> getAllDevices();
    QVariantMap getLastUsedDevice();

    // The box's keyboard layout for pasted text ("us", "de", "ch(de)", ...) and the interval
    // between paste reports (0: unpaced); kept by the upsert. False when the box is unknown.
    bool setDeviceKeyboardLayout(const QString &did, const QString &layout);
    bool setDevicePasteInterval(const QString &did, int intervalMs);

    // Stored text, or `defaultValue` when not initialised, on failure, or when absent.
    QString getAppSetting(const QString &key, const QString &defaultValue);
    bool setAppSetting(const QString &key, const QString &value);

    // Default database file: "<application data>/db/tavrokvm.db" (folder created if missing).
    static QString defaultDatabasePath();

private:
    DBManager() = default;
    void createTables();
    bool isUsable() const;
    bool setDeviceColumn(const QString &did, const char *column, const QVariant &value);

    QSqlDatabase m_db;
    bool m_initialized = false;
};
