// The real program against the simulated box on a real X server: once its log says the box's
// link is connected and its picture arrived, the whole window is saved as a PNG, the picture a
// user sees (the README's screenshot is made from it by scripts/make-screenshot.sh). Then the
// toolbar over the picture is clicked through with xdotool, as a user would, and each step is
// saved as a screenshot beside it.

#include <QDir>
#include <QGuiApplication>
#include <QImage>
#include <QProcess>
#include <QRegularExpression>
#include <QScreen>
#include <QStandardPaths>
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

QImage grabScreen()
{
    return QGuiApplication::primaryScreen()->grabWindow(0).toImage().convertToFormat(
        QImage::Format_RGB32);
}

// The centre of the tool switch's green arrows on the screen; null when it is not shown.
QPoint toolSwitchOnScreen(const QImage &screen)
{
    QRect arrows;
    for (int y = 0; y < screen.height(); ++y) {
        const QRgb *line = reinterpret_cast<const QRgb *>(screen.constScanLine(y));
        for (int x = 0; x < screen.width(); ++x) {
            const QRgb pixel = line[x];
            if (qAbs(qRed(pixel) - 0x75) < 30 && qGreen(pixel) > 225 &&
                qAbs(qBlue(pixel) - 0x4c) < 40)
                arrows |= QRect(x, y, 1, 1);
        }
    }
    return arrows.isValid() && arrows.width() < 40 ? arrows.center() : QPoint();
}

bool click(const QPoint &at)
{
    return QProcess::execute(QStringLiteral("xdotool"), {"mousemove", QString::number(at.x()),
                                                         QString::number(at.y()), "click", "1"}) ==
           0;
}

} // namespace

class TestConsoleScreenshot : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void cleanupTestCase();
    void wholeWindowShowsTheBoxAndItsLink();
    void toolbarClickThrough();

private:
    QString log() const { return logText(m_dir.filePath(QStringLiteral("data/TavroKVM/log"))); }
    // Saves the screen as <name>.png beside the window's screenshot.
    void save(const QString &name)
    {
        const QString path = QStringLiteral(TAVROKVM_SCREENSHOT_DIR "/%1.png").arg(name);
        QVERIFY2(grabScreen().save(path), qPrintable(path));
        qInfo().noquote() << "screenshot:" << path;
    }

    QTemporaryDir m_dir;
    BoxSimProcess m_box;
    QProcess m_console;
};

void TestConsoleScreenshot::initTestCase()
{
    if (QGuiApplication::platformName() != QLatin1String("xcb"))
        QSKIP("needs a real X server");
    QVERIFY(m_dir.isValid());
    const QString link = m_dir.filePath(QStringLiteral("tk-box"));
    QVERIFY(m_box.startReady(link));

    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("XDG_DATA_HOME"), m_dir.filePath(QStringLiteral("data")));
    environment.insert(QStringLiteral("XDG_CONFIG_HOME"), m_dir.filePath(QStringLiteral("config")));
    environment.insert(QStringLiteral("TAVROKVM_EXTRA_SERIAL_PORTS"), link + "=TK CDC");
    environment.insert(QStringLiteral("TAVROKVM_VCAM_DEVICES"), QStringLiteral("box:TK3V0001"));
    m_console.setProcessEnvironment(environment);
    m_console.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    m_console.setStandardOutputFile(QProcess::nullDevice());
    m_console.start(QStringLiteral(TAVROKVM_BINARY), {});
    QVERIFY(m_console.waitForStarted());
}

void TestConsoleScreenshot::cleanupTestCase()
{
    if (m_console.state() != QProcess::NotRunning) {
        m_console.terminate();
        if (!m_console.waitForFinished(10000))
            m_console.kill();
    }
    m_box.stop();
}

void TestConsoleScreenshot::wholeWindowShowsTheBoxAndItsLink()
{
    const QString logFolder = m_dir.filePath(QStringLiteral("data/TavroKVM/log"));
    QTRY_VERIFY_WITH_TIMEOUT(logText(logFolder).contains(QStringLiteral("[第一帧]")),
                             kStartTimeoutMs);
    QTRY_VERIFY_WITH_TIMEOUT(logText(logFolder).contains(QRegularExpression(QStringLiteral(
                                 "状态栏UART状态已更新: UART: \\S*tk-box: connected"))),
                             kStartTimeoutMs);

    // Painted and centred: the window and its picture are on the screen.
    QImage window;
    QTRY_VERIFY_WITH_TIMEOUT(
        [&window] {
            const QImage screen = grabScreen();
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

void TestConsoleScreenshot::toolbarClickThrough()
{
    if (QStandardPaths::findExecutable(QStringLiteral("xdotool")).isEmpty())
        QSKIP("xdotool is missing");
    // The switch over the picture brings the toolbar.
    QPoint toolSwitch;
    QTRY_VERIFY_WITH_TIMEOUT(!(toolSwitch = toolSwitchOnScreen(grabScreen())).isNull(), 10000);
    QVERIFY(click(toolSwitch));
    const QRegularExpression shown(
        QStringLiteral("工具栏已显示，屏幕位置: (-?\\d+),(-?\\d+) (\\d+)x(\\d+)"));
    QRegularExpressionMatch where;
    QTRY_VERIFY_WITH_TIMEOUT((where = shown.match(log())).hasMatch(), 10000);
    const QPoint panel(where.captured(1).toInt(), where.captured(2).toInt());
    // The row: margin, grip and spacing, then 24 px buttons 2 px apart.
    auto buttonAt = [&panel](int index) { return panel + QPoint(22 + index * 26 + 12, 12); };
    save(QStringLiteral("toolbar-shown"));

    // The soft keyboard opens under the toolbar.
    QVERIFY(click(buttonAt(1)));
    QTRY_VERIFY_WITH_TIMEOUT(
        log().contains(QStringLiteral("[onBtnKeyboardClicked] 显示软键盘窗口")), 10000);
    QTest::qWait(500);
    save(QStringLiteral("toolbar-softkeyboard"));
    QVERIFY(click(buttonAt(1)));
    QTRY_VERIFY_WITH_TIMEOUT(
        log().contains(QStringLiteral("[onBtnKeyboardClicked] 隐藏软键盘窗口")), 10000);

    // The serial panel shows the box's link connected.
    QVERIFY(click(buttonAt(3)));
    QTRY_VERIFY_WITH_TIMEOUT(log().contains(QStringLiteral("[Mouse] UART状态显示已更新: 已连接")),
                             10000);
    QTest::qWait(500);
    save(QStringLiteral("toolbar-serialpanel"));
    QVERIFY(click(buttonAt(3)));
    QTRY_VERIFY_WITH_TIMEOUT(log().contains(QStringLiteral("[onBtnMouseClicked] 隐藏鼠标控制窗口")),
                             10000);

    // The information box shows the simulated box's record.
    QVERIFY(click(buttonAt(8)));
    QTRY_VERIFY_WITH_TIMEOUT(log().contains(QStringLiteral("[DeviceInfo] 设备")), 10000);
    QTest::qWait(500);
    save(QStringLiteral("toolbar-deviceinfo"));
    QVERIFY(QProcess::execute(QStringLiteral("xdotool"), {"key", "Return"}) == 0);
}

QTEST_MAIN(TestConsoleScreenshot)
#include "tst_consolescreenshot.moc"
