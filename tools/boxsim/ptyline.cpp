#include "ptyline.h"

#include <QFile>
#include <QSocketNotifier>
#include <QTimer>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

namespace {

QString systemError(const char *what)
{
    return QStringLiteral("%1: %2").arg(QString::fromLatin1(what),
                                        QString::fromLocal8Bit(std::strerror(errno)));
}

} // namespace

PtyLine::PtyLine(const QString &linkPath, QObject *parent) : QObject(parent), m_linkPath(linkPath)
{}

PtyLine::~PtyLine()
{
    close();
}

bool PtyLine::open(QString &error)
{
    close();
    const int master = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    if (master < 0) {
        error = systemError("posix_openpt");
        return false;
    }
    char name[128] = {};
    if (grantpt(master) != 0 || unlockpt(master) != 0 || ptsname_r(master, name, sizeof name)) {
        error = systemError("pty set-up");
        ::close(master);
        return false;
    }
    const int slave = ::open(name, O_RDWR | O_NOCTTY | O_CLOEXEC);
    if (slave < 0) {
        error = systemError("opening the pty slave");
        ::close(master);
        return false;
    }
    termios settings{};
    if (tcgetattr(slave, &settings) == 0) {
        cfmakeraw(&settings);
        tcsetattr(slave, TCSANOW, &settings);
    }
    fcntl(master, F_SETFL, fcntl(master, F_GETFL) | O_NONBLOCK);

    m_master = master;
    m_slave = slave;
    m_ptyName = QString::fromLocal8Bit(name);
    if (!pointLink(error)) {
        close();
        return false;
    }
    m_readNotifier = new QSocketNotifier(m_master, QSocketNotifier::Read, this);
    connect(m_readNotifier, &QSocketNotifier::activated, this, &PtyLine::onReadable);
    m_writeNotifier = new QSocketNotifier(m_master, QSocketNotifier::Write, this);
    m_writeNotifier->setEnabled(false);
    connect(m_writeNotifier, &QSocketNotifier::activated, this, &PtyLine::flushOutgoing);
    return true;
}

void PtyLine::close()
{
    delete m_readNotifier;
    m_readNotifier = nullptr;
    delete m_writeNotifier;
    m_writeNotifier = nullptr;
    m_outgoing.clear();
    if (m_master >= 0) {
        removeLink();
        ::close(m_master);
        m_master = -1;
    }
    if (m_slave >= 0) {
        ::close(m_slave);
        m_slave = -1;
    }
}

bool PtyLine::pointLink(QString &error)
{
    // A symlink made beside the link and renamed over it, so the link never dangles and an
    // existing one is replaced in one step.
    const QByteArray link = QFile::encodeName(m_linkPath);
    const QByteArray staging = link + ".new-" + QByteArray::number(qint64(getpid()));
    ::unlink(staging.constData());
    if (::symlink(QFile::encodeName(m_ptyName).constData(), staging.constData()) != 0) {
        error = systemError("creating the link");
        return false;
    }
    if (::rename(staging.constData(), link.constData()) != 0) {
        error = systemError("replacing the link");
        ::unlink(staging.constData());
        return false;
    }
    return true;
}

void PtyLine::removeLink()
{
    // Leave the link alone when another process has re-pointed it meanwhile.
    if (QFile::symLinkTarget(m_linkPath) == m_ptyName)
        ::unlink(QFile::encodeName(m_linkPath).constData());
}

void PtyLine::onReadable()
{
    QByteArray received;
    char buffer[4096];
    for (;;) {
        const ssize_t count = ::read(m_master, buffer, sizeof buffer);
        if (count > 0) {
            received.append(buffer, int(count));
            continue;
        }
        if (count < 0 && errno == EINTR)
            continue;
        if (count < 0 && errno == EIO && m_readNotifier) {
            // No slave open (should not happen while we hold one): back off instead of
            // spinning on a notifier that stays ready.
            m_readNotifier->setEnabled(false);
            QTimer::singleShot(20, this, [this] {
                if (m_readNotifier)
                    m_readNotifier->setEnabled(true);
            });
        }
        break;
    }
    if (!received.isEmpty())
        emit bytesReceived(received);
}

bool PtyLine::write(const QByteArray &bytes)
{
    if (m_master < 0)
        return false;
    m_outgoing += bytes;
    flushOutgoing();
    return true;
}

void PtyLine::flushOutgoing()
{
    while (m_master >= 0 && !m_outgoing.isEmpty()) {
        const ssize_t count = ::write(m_master, m_outgoing.constData(), size_t(m_outgoing.size()));
        if (count > 0) {
            m_outgoing.remove(0, int(count));
            continue;
        }
        if (count < 0 && errno == EINTR)
            continue;
        if (count < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) {
            // The console is not reading; the rest goes when the pty has room again.
            if (m_writeNotifier)
                m_writeNotifier->setEnabled(true);
            return;
        }
        m_outgoing.clear(); // the line is broken; nobody will read these bytes
        break;
    }
    if (m_writeNotifier)
        m_writeNotifier->setEnabled(false);
}

int PtyLine::unreadByConsole() const
{
    int count = 0;
    if (m_slave < 0 || ::ioctl(m_slave, FIONREAD, &count) != 0)
        return 0;
    return count + int(m_outgoing.size());
}
