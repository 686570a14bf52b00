// The real program against the simulated box on a real X server: once its log says the box's
// link is connected and its picture arrived, the whole window is saved as a PNG, the picture a
// user sees (the README's screenshot is made from it by scripts/make-screenshot.sh).

#include <QDir>
#include <QGuiApplication>
#include <QImage>
#include <QProcess>
#include <QRegularExpression>
#include <QScopeGuard>
#include <QScreen>
#include <QTemporaryDir>
#include <QTest>

#include "tests/support/boxsimprocess.h"

namespace {

constexpr int kStartTimeoutMs = 60000;

QString logText(const QString &logFolder)
{
    QString text;
    const QDir dir(logFolder);
    for (const QString &name : dir.entryList({QStringLiteral("tavrokvm-*.log")}, QDir::Files)) {
        QFile file(dir.filePath(name));
        if (file.open(QIODevice::ReadOnly))
            text += QString::fromUtf8(file.readAll());
    }
    return text;
}

// The part of the screen that is not the bare black root window.
QRect drawnArea(const QImage &screen)
{
    QRect area;
    for (int y = 0; y < screen.height(); y += 2) {
        const QRgb *line = reinterpret_cast<const QRgb *>(screen.constScanLine(y));
        for (int x = 0; x < screen.width(); x += 2) {
            if ((line[x] & 0xffffff) != 0)
                area |= QRect(x, y, 2, 2);
        }
    }
    return area & screen.rect();
}

// Share of pixels in saturated colours: the test pattern's bars, never the dark window.
double colourfulShare(const QImage &image)
{
    qint64 colourful = 0;
    for (int y = 0; y < image.height(); ++y) {
        const QRgb *line = reinterpret_cast<const QRgb *>(image.constScanLine(y));
        for (int x = 0; x < image.width(); ++x) {
            const int r = qRed(line[x]), g = qGreen(line[x]), b = qBlue(line[x]);
            if (qMax(r, qMax(g, b)) - qMin(r, qMin(g, b)) > 120)
                ++colourful;
        }
    }
    return double(colourful) / (qint64(image.width()) * image.height());
}

} // namespace

class TestConsoleScreenshot : public QObject
{
    Q_OBJECT
private slots:
    void wholeWindowShowsTheBoxAndItsLink();
};

void TestConsoleScreenshot::wholeWindowShowsTheBoxAndItsLink()
{
    if (QGuiApplication::platformName() != QLatin1String("xcb"))
        QSKIP("needs a real X server");
    QTemporaryDir dir;
    QVERIFY(dir.isValid());
    BoxSimProcess box;
    const QString link = dir.filePath(QStringLiteral("tk-box"));
    QVERIFY(box.startReady(link));

    QProcess console;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("XDG_DATA_HOME"), dir.filePath(QStringLiteral("data")));
    environment.insert(QStringLiteral("XDG_CONFIG_HOME"), dir.filePath(QStringLiteral("config")));
    environment.insert(QStringLiteral("TAVROKVM_EXTRA_SERIAL_PORTS"), link + "=TK CDC");
    environment.insert(QStringLiteral("TAVROKVM_VCAM_DEVICES"), QStringLiteral("box:TK3V0001"));
    console.setProcessEnvironment(environment);
    console.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    console.setStandardOutputFile(QProcess::nullDevice());
    console.start(QStringLiteral(TAVROKVM_BINARY), {});
    QVERIFY(console.waitForStarted());
    auto stop = qScopeGuard([&console] {
        console.terminate();
        if (!console.waitForFinished(10000))
            console.kill();
    });

    const QString logFolder = dir.filePath(QStringLiteral("data/TavroKVM/log"));
    QTRY_VERIFY_WITH_TIMEOUT(logText(logFolder).contains(QStringLiteral("[第一帧]")),
                             kStartTimeoutMs);
    QTRY_VERIFY_WITH_TIMEOUT(logText(logFolder).contains(QRegularExpression(QStringLiteral(
                                 "状态栏UART状态已更新: UART: \\S*tk-box: connected"))),
                             kStartTimeoutMs);

    // Painted and centred: the window and its picture are on the screen.
    QImage window;
    QTRY_VERIFY_WITH_TIMEOUT(
        [&window] {
            const QImage screen =
                QGuiApplication::primaryScreen()->grabWindow(0).toImage().convertToFormat(
                    QImage::Format_RGB32);
            const QRect area = drawnArea(screen);
            if (area.width() < 800 || area.height() < 500)
                return false;
            window = screen.copy(area);
            return colourfulShare(window) > 0.15;
        }(),
        kStartTimeoutMs);

    const QString saved = QStringLiteral(TAVROKVM_SCREENSHOT_PATH);
    QVERIFY(window.save(saved));
    qInfo().noquote() << "screenshot of the whole window:" << saved << window.size();
    const QString copy = qEnvironmentVariable("TAVROKVM_SCREENSHOT_OUT");
    if (!copy.isEmpty())
        QVERIFY2(window.save(copy), qPrintable(copy));
}

QTEST_MAIN(TestConsoleScreenshot)
#include "tst_consolescreenshot.moc"
