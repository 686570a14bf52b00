// A program that ends the way the console does, with two boxes' links open and an information
// record cached: run by tst_deviceuartmanager, which reads its standard error.
//
//   linkexitchild <database> quit|return <port> <port>
//
// "quit" ends through the event loop; "return" destroys the application object without having
// run it. After the application object is gone it prints kApplicationGone; every link must
// have been destroyed before that line.

#include <QCoreApplication>
#include <QEventLoop>
#include <QTimer>

#include <cstdio>

#include "db/dbmanager.h"
#include "protocol/tkprotocol.h"
#include "serial/deviceuartmanager.h"
#include "serial/uartmanager.h"

namespace {

// A copy of the cached record that outlives the registry, as a reader of the cache keeps one.
// Clearing the cache after its own destruction would free this copy's data under it.
QByteArray &keptRecord()
{
    static QByteArray record;
    return record;
}

} // namespace

int main(int argc, char **argv)
{
    if (argc != 5)
        return 2;
    int code = 0;
    {
        QCoreApplication app(argc, argv);
        const QStringList arguments = app.arguments();
        if (!DBManager::instance()->initDatabase(arguments.at(1)))
            return 3;
        keptRecord();
        // The registry is created before the record cache is first used.
        UartManager *registry = UartManager::instance();
        int records = 0;
        for (int i = 0; i < 2; ++i) {
            DeviceUartManager *link =
                registry->getDeviceUartManager(QStringLiteral("exit-child-box-%1").arg(i));
            QObject::connect(link, &DeviceUartManager::deviceInfoPayloadReceived, &app,
                             [&records] { ++records; });
            if (!link->openSerialPort(arguments.at(3 + i), 2000000))
                return 4;
        }
        QEventLoop loop;
        QTimer poll;
        QObject::connect(&poll, &QTimer::timeout, &loop, [&] {
            if (records >= 2)
                loop.quit();
        });
        poll.start(10);
        QTimer::singleShot(10000, &loop, [&loop] { loop.exit(1); });
        if (loop.exec() != 0)
            return 5;
        keptRecord() = TkProtocol::globalCachedDeviceInfoPayload();
        if (arguments.at(2) == QLatin1String("quit")) {
            QTimer::singleShot(0, &app, &QCoreApplication::quit);
            code = app.exec();
        }
    }
    std::fprintf(stderr, "linkexitchild: application object gone\n");
    return code;
}
