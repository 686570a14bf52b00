#include <QApplication>
#include <QDebug>
#include <QIcon>
#include <QLocale>
#include <QTimer>
#include <QTranslator>

#include "app/buildinfo.h"
#include "app/hardwareacceleration.h"
#include "app/logging.h"
#include "app/translation.h"
#include "db/dbmanager.h"
#include "serial/uartmanager.h"
#include "ui/mainwindow.h"

int main(int argc, char **argv)
{
    // Before the application object: the multimedia back end reads these at its start.
    HardwareAcceleration::forceEnableHardwareAcceleration();

    QApplication app(argc, argv);
    qSetMessagePattern(QStringLiteral(
        "%{time hh:mm:ss.zzz} [%{if-category}%{category}: %{endif}%{file}:%{line}] %{message}"));
    QApplication::setApplicationName(QStringLiteral("TavroKVM"));
    QApplication::setWindowIcon(QIcon(QStringLiteral(":/images/kvm.png")));

    // Every mouse move must reach the console view, not a compressed subset.
    QApplication::setAttribute(Qt::AA_CompressHighFrequencyEvents, false);
    qDebug() << "[Main] 已禁用事件压缩，将接收所有高频鼠标事件";

    QTranslator translator;
    if (!loadInterfaceTranslation(translator, QLocale::system().uiLanguages()).isEmpty())
        QApplication::installTranslator(&translator);

    qInstallMessageHandler(customLogMessageHandler);
    qInfo().noquote() << "App Version:" << QString::fromLatin1(appVersionString());

    qDebug() << "[Main] 开始初始化数据库...";
    DBManager::instance()->initDatabase(QString());
    qDebug() << "[Main] 数据库初始化完成";

    qDebug() << "[Main] 开始预获取串口列表...";
    UartManager::instance()->preloadSerialPorts();
    qDebug() << "[Main] 串口列表预获取完成";

    MainWindow window;
    window.show();

    // Lets tests and scripted checks run the whole start-up and leave as soon as the loop runs.
    if (qEnvironmentVariableIsSet("TAVROKVM_QUIT_AFTER_START"))
        QTimer::singleShot(0, &app, &QCoreApplication::quit);

    return QApplication::exec();
}
