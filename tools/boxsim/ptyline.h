#pragma once

#include <QByteArray>
#include <QObject>
#include <QString>

class QSocketNotifier;

// The box's end of the serial line: the master side of a pseudo-terminal whose slave device
// is reached through a symlink. The slave is set raw, so bytes pass unchanged at any baud
// rate, and one slave descriptor stays open here so that the master keeps working while the
// console closes and re-opens the port.
class PtyLine : public QObject
{
    Q_OBJECT
public:
    explicit PtyLine(const QString &linkPath, QObject *parent = nullptr);
    ~PtyLine() override;

    // Creates a new pty and points the link at its slave. False with `error` on failure;
    // nothing is left open then.
    bool open(QString &error);
    // Closes both ends (the console's side sees a hang-up) and removes the link if it still
    // points at this pty.
    void close();

    bool isOpen() const { return m_master >= 0; }
    QString ptyName() const { return m_ptyName; }
    QString linkPath() const { return m_linkPath; }

    // Queues bytes towards the console; false when the line is closed.
    bool write(const QByteArray &bytes);
    // Bytes written towards the console that it has not read yet; 0 when closed.
    int unreadByConsole() const;

signals:
    void bytesReceived(const QByteArray &bytes);

private:
    void onReadable();
    void flushOutgoing();
    bool pointLink(QString &error);
    void removeLink();

    QString m_linkPath;
    QString m_ptyName;
    int m_master = -1;
    int m_slave = -1;
    QSocketNotifier *m_readNotifier = nullptr;
    QSocketNotifier *m_writeNotifier = nullptr;
    QByteArray m_outgoing;
};
