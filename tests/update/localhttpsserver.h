#pragma once

#include <QFile>
#include <QHash>
#include <QList>
#include <QPointer>
#include <QSslCertificate>
#include <QSslConfiguration>
#include <QSslKey>
#include <QSslServer>
#include <QSslSocket>

// An HTTPS server on 127.0.0.1 for the update tests, with the self-signed certificate of
// certs/. Each path answers as its Route says; anything else is a 404.
class LocalHttpsServer : public QObject
{
    Q_OBJECT
public:
    struct Route
    {
        QByteArray body;
        int status = 200;
        // false: no Content-Length; the body ends when the server closes the connection.
        bool sendLength = true;
        // >= 0: send this many bytes of the body, then hold the connection open.
        qsizetype stallAfter = -1;
    };

    // The certificate the tests' clients are told to trust.
    static QSslCertificate certificate()
    {
        return QSslCertificate::fromPath(QStringLiteral(TAVROKVM_TEST_CERT_DIR "/localhost.crt"))
            .value(0);
    }

    bool start()
    {
        QFile keyFile(QStringLiteral(TAVROKVM_TEST_CERT_DIR "/localhost.key"));
        if (!keyFile.open(QIODevice::ReadOnly))
            return false;
        QSslConfiguration config = QSslConfiguration::defaultConfiguration();
        config.setLocalCertificate(certificate());
        config.setPrivateKey(QSslKey(&keyFile, QSsl::Rsa));
        config.setPeerVerifyMode(QSslSocket::VerifyNone);
        m_server.setSslConfiguration(config);
        connect(&m_server, &QTcpServer::pendingConnectionAvailable, this,
                &LocalHttpsServer::acceptConnections);
        // Counted before any handshake: a refused scheme must not even connect.
        connect(&m_server, &QSslServer::startedEncryptionHandshake, this,
                [this] { ++connections; });
        return m_server.listen(QHostAddress::LocalHost);
    }

    void setRoute(const QString &path, const Route &route) { m_routes.insert(path, route); }

    QString url(const QString &path) const
    {
        return QStringLiteral("https://localhost:%1%2").arg(m_server.serverPort()).arg(path);
    }
    quint16 port() const { return m_server.serverPort(); }

    int connections = 0;
    QStringList requestedPaths;
    QList<QByteArray> userAgents;

signals:
    void requestAnswered(const QString &path);
    void stalledConnectionClosed();

private:
    void acceptConnections()
    {
        while (QTcpSocket *socket = m_server.nextPendingConnection()) {
            connect(socket, &QTcpSocket::readyRead, this, [this, socket] { serve(socket); });
            connect(socket, &QTcpSocket::disconnected, socket, &QObject::deleteLater);
        }
    }

    void serve(QTcpSocket *socket)
    {
        QByteArray &pending = m_pending[socket];
        pending += socket->readAll();
        const qsizetype end = pending.indexOf("\r\n\r\n");
        if (end < 0)
            return;
        const QList<QByteArray> lines = pending.left(end).split('\n');
        m_pending.remove(socket);
        const QString path = QString::fromLatin1(lines.value(0).split(' ').value(1));
        for (const QByteArray &line : lines) {
            if (line.toLower().startsWith("user-agent:"))
                userAgents.append(line.mid(11).trimmed());
        }
        requestedPaths.append(path);

        const Route route = m_routes.value(path, Route{"not found", 404});
        QByteArray head = "HTTP/1.1 " + QByteArray::number(route.status) +
                          (route.status == 200 ? " OK" : " Error") +
                          "\r\nContent-Type: application/octet-stream\r\nConnection: close\r\n";
        if (route.sendLength)
            head += "Content-Length: " + QByteArray::number(route.body.size()) + "\r\n";
        socket->write(head + "\r\n");
        if (route.stallAfter >= 0) {
            socket->write(route.body.left(route.stallAfter));
            socket->flush();
            connect(socket, &QTcpSocket::disconnected, this,
                    &LocalHttpsServer::stalledConnectionClosed);
        } else {
            socket->write(route.body);
            socket->disconnectFromHost();
        }
        emit requestAnswered(path);
    }

    QSslServer m_server;
    QHash<QString, Route> m_routes;
    QHash<QTcpSocket *, QByteArray> m_pending;
};

// Makes this process's TLS configuration trust the server's certificate, and only in this process.
inline void trustLocalHttpsServer()
{
    QSslConfiguration config = QSslConfiguration::defaultConfiguration();
    config.addCaCertificate(LocalHttpsServer::certificate());
    QSslConfiguration::setDefaultConfiguration(config);
}
