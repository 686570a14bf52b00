// The virtual cameras as Qt Multimedia lists them: names, formats, order, identity properties,
// and cameras plugged and unplugged through the scene file while the program runs.

#include <QCameraDevice>
#include <QGuiApplication>
#include <QMediaDevices>
#include <QMutex>
#include <QProcess>
#include <QSaveFile>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>
#include <QTextStream>

#include <gst/gst.h>

namespace {

constexpr int kPlugWaitMs = 10000;
constexpr int kChildWaitMs = 30000;
constexpr int kSettleMs = 500;
const char kListArgument[] = "--list-cameras";

QStringList descriptions(const QList<QCameraDevice> &cameras)
{
    QStringList out;
    for (const QCameraDevice &c : cameras)
        out << c.description();
    return out;
}

QStringList currentDescriptions()
{
    return descriptions(QMediaDevices::videoInputs());
}

QList<QByteArray> currentIds()
{
    QList<QByteArray> ids;
    for (const QCameraDevice &c : QMediaDevices::videoInputs())
        ids << c.id();
    return ids;
}

QString formatText(QVideoFrameFormat::PixelFormat pixelFormat, QSize size, float maxFps)
{
    return QStringLiteral("%1 %2x%3 @%4")
        .arg(QVideoFrameFormat::pixelFormatToString(pixelFormat))
        .arg(size.width())
        .arg(size.height())
        .arg(double(maxFps));
}

// Child mode: one line per camera as Qt lists it, then one per virtual camera as GStreamer
// describes it, tab-separated.
int listCameras()
{
    // Cameras announced while the back end starts arrive through the event loop: list after
    // they have, as the console does.
    QMediaDevices::videoInputs();
    QTest::qWait(kSettleMs);
    QTextStream out(stdout);
    for (const QCameraDevice &c : QMediaDevices::videoInputs())
        out << "qt\t" << c.description() << '\t' << c.videoFormats().size() << '\n';

    // Qt has initialised GStreamer by now.
    GstDeviceMonitor *monitor = gst_device_monitor_new();
    gst_device_monitor_add_filter(monitor, "Video/Source", nullptr);
    gst_device_monitor_start(monitor);
    GList *devices = gst_device_monitor_get_devices(monitor);
    for (GList *item = devices; item; item = item->next) {
        GstDevice *device = GST_DEVICE(item->data);
        GstStructure *p = gst_device_get_properties(device);
        if (p && g_strcmp0(gst_structure_get_string(p, "device.api"), "tavrokvm-vcam") == 0) {
            gchar *name = gst_device_get_display_name(device);
            out << "gst\t" << name;
            for (const char *key : {"device.serial", "device.vendor.id", "device.product.id",
                                    "device.bus_path", "device.path"})
                out << '\t' << gst_structure_get_string(p, key);
            out << '\n';
            g_free(name);
        }
        if (p)
            gst_structure_free(p);
    }
    g_list_free_full(devices, gst_object_unref);
    gst_device_monitor_stop(monitor);
    gst_object_unref(monitor);
    out.flush();
    return 0;
}

// Warnings and messages of the plugin, collected from whichever thread logs them.
struct PluginLog
{
    QMutex mutex;
    QStringList lines;

    static void handler(const gchar *, GLogLevelFlags, const gchar *message, gpointer data)
    {
        auto *log = static_cast<PluginLog *>(data);
        QMutexLocker lock(&log->mutex);
        log->lines << QString::fromUtf8(message);
    }

    bool contains(const QString &text)
    {
        QMutexLocker lock(&mutex);
        return lines.filter(text).size() > 0;
    }
};

} // namespace

class TestVcamDevices : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void cleanupTestCase();
    void boxIsListedWithItsFormats();
    void scenesFromTheEnvironment_data();
    void scenesFromTheEnvironment();
    void pluggingAndUnplugging();
    void sceneFileRemovedAndRestored();
    void malformedSceneFileKeepsTheCameras();

private:
    bool writeScene(const QByteArray &text);

    QTemporaryDir m_dir;
    QString m_scenePath;
    QMediaDevices *m_devices = nullptr;
    PluginLog m_log;
    guint m_logHandler = 0;
};

bool TestVcamDevices::writeScene(const QByteArray &text)
{
    // Written whole, so the camera never reads half a scene.
    QSaveFile file(m_scenePath);
    return file.open(QIODevice::WriteOnly) && file.write(text) == text.size() && file.commit();
}

void TestVcamDevices::initTestCase()
{
    QVERIFY(m_dir.isValid());
    m_scenePath = m_dir.filePath("scene");
    QVERIFY(writeScene("box\n"));
    qputenv("TAVROKVM_VCAM_SCENE", m_scenePath.toLocal8Bit());
    qunsetenv("TAVROKVM_VCAM_DEVICES");
    m_logHandler = g_log_set_handler("tavrokvm-vcam",
                                     GLogLevelFlags(G_LOG_LEVEL_WARNING | G_LOG_LEVEL_MESSAGE),
                                     PluginLog::handler, &m_log);
    m_devices = new QMediaDevices(this);
}

void TestVcamDevices::cleanupTestCase()
{
    g_log_remove_handler("tavrokvm-vcam", m_logHandler);
}

void TestVcamDevices::boxIsListedWithItsFormats()
{
    QTest::qWait(kSettleMs); // see listCameras
    const QList<QCameraDevice> cameras = QMediaDevices::videoInputs();
    QCOMPARE(descriptions(cameras), QStringList{"TK USB3 Video"});

    QStringList formats;
    for (const QCameraFormat &f : cameras.first().videoFormats()) {
        formats << formatText(f.pixelFormat(), f.resolution(), f.maxFrameRate());
        QVERIFY2(f.minFrameRate() <= f.maxFrameRate(), qPrintable(formats.last()));
    }
    const QStringList expected = {
        formatText(QVideoFrameFormat::Format_Jpeg, {1920, 1080}, 60),
        formatText(QVideoFrameFormat::Format_Jpeg, {1280, 720}, 30),
        formatText(QVideoFrameFormat::Format_Jpeg, {3840, 2160}, 30),
        formatText(QVideoFrameFormat::Format_NV12, {1920, 1080}, 60),
        formatText(QVideoFrameFormat::Format_YUYV, {640, 480}, 30),
        // Small and slow, for the preview grid.
        formatText(QVideoFrameFormat::Format_YUYV, {640, 360}, 10),
        formatText(QVideoFrameFormat::Format_YUYV, {320, 240}, 10),
        formatText(QVideoFrameFormat::Format_Jpeg, {960, 540}, 10),
    };
    QCOMPARE(formats, expected);
}

void TestVcamDevices::scenesFromTheEnvironment_data()
{
    QTest::addColumn<QByteArray>("devices"); // null: variable unset
    QTest::addColumn<QStringList>("names");
    QTest::addColumn<QStringList>("serials");
    QTest::addColumn<bool>("warns");

    const QStringList oneBox{"TK USB3 Video"};
    const QStringList defaultSerial{"TK3V0001"};
    QTest::newRow("unset") << QByteArray() << oneBox << defaultSerial << false;
    QTest::newRow("blank") << QByteArray("  ") << oneBox << defaultSerial << false;
    QTest::newRow("every kind") << QByteArray("box:SERIAL1,box2131:SERIAL2,builtin,usbvideo")
                                << QStringList{"TK USB3 Video", "TK USB Video", "Integrated Camera",
                                               "USB Video"}
                                << QStringList{"SERIAL1", "SERIAL2", "IC0001", "UV0001"} << false;
    QTest::newRow("every kind, reversed")
        << QByteArray("usbvideo,builtin,box2131:SERIAL2,box:SERIAL1")
        << QStringList{"USB Video", "Integrated Camera", "TK USB Video", "TK USB3 Video"}
        << QStringList{"UV0001", "IC0001", "SERIAL2", "SERIAL1"} << false;
    QTest::newRow("built-in before two boxes")
        << QByteArray("builtin,box:B1,box:B2")
        << QStringList{"Integrated Camera", "TK USB3 Video", "TK USB3 Video"}
        << QStringList{"IC0001", "B1", "B2"} << false;
    QTest::newRow("unknown kind") << QByteArray("box,webcam") << oneBox << defaultSerial << true;
    QTest::newRow("empty entry") << QByteArray("builtin,,box") << oneBox << defaultSerial << true;
    QTest::newRow("bad serial") << QByteArray("box:has space") << oneBox << defaultSerial << true;
    QTest::newRow("same camera twice")
        << QByteArray("box:A,box:A") << oneBox << defaultSerial << true;
}

void TestVcamDevices::scenesFromTheEnvironment()
{
    QFETCH(QByteArray, devices);
    QFETCH(QStringList, names);
    QFETCH(QStringList, serials);
    QFETCH(bool, warns);

    // The variable is read once per process: each scene runs in a child of its own.
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.remove("TAVROKVM_VCAM_SCENE");
    if (devices.isNull())
        env.remove("TAVROKVM_VCAM_DEVICES");
    else
        env.insert("TAVROKVM_VCAM_DEVICES", QString::fromLatin1(devices));
    QProcess child;
    child.setProcessEnvironment(env);
    child.start(QCoreApplication::applicationFilePath(), {kListArgument});
    QVERIFY(child.waitForFinished(kChildWaitMs));
    QCOMPARE(child.exitCode(), 0);
    const QString errors = QString::fromLocal8Bit(child.readAllStandardError());

    QStringList qtNames;
    QStringList gstNames;
    QStringList gstSerials;
    QSet<QString> busPaths;
    QSet<QString> paths;
    const QMap<QString, QString> usbIds = {{"TK USB3 Video", "a5c0:2132"},
                                           {"TK USB Video", "a5c0:2131"},
                                           {"Integrated Camera", "04f2:b6dd"},
                                           {"USB Video", "534d:2109"}};
    const QStringList lines = QString::fromUtf8(child.readAllStandardOutput()).split('\n');
    for (const QString &line : lines) {
        const QStringList f = line.split('\t');
        if (f.first() == "qt") {
            qtNames << f.at(1);
        } else if (f.first() == "gst") {
            QCOMPARE(f.size(), 7);
            gstNames << f.at(1);
            gstSerials << f.at(2);
            QCOMPARE(f.at(3) + ':' + f.at(4), usbIds.value(f.at(1)));
            QVERIFY2(f.at(5).startsWith("usb-"), qPrintable(line));
            QVERIFY2(f.at(6).contains(f.at(2)), qPrintable(line));
            busPaths << f.at(5);
            paths << f.at(6);
        }
    }
    QCOMPARE(qtNames, names);
    QCOMPARE(gstNames, names);
    QCOMPARE(gstSerials, serials);
    QCOMPARE(busPaths.size(), names.size());
    QCOMPARE(paths.size(), names.size());
    QVERIFY2(errors.contains("TAVROKVM_VCAM_DEVICES") == warns, qPrintable(errors));
}

void TestVcamDevices::pluggingAndUnplugging()
{
    QCOMPARE(currentDescriptions(), QStringList{"TK USB3 Video"});
    const QByteArray boxId = currentIds().first();
    QSignalSpy changed(m_devices, &QMediaDevices::videoInputsChanged);

    QVERIFY(writeScene("box\nbox2131:HOT1\n"));
    QTRY_COMPARE_WITH_TIMEOUT(currentDescriptions(), QStringList({"TK USB3 Video", "TK USB Video"}),
                              kPlugWaitMs);
    QVERIFY(changed.count() >= 1);
    // The box was not unplugged on the way.
    QCOMPARE(currentIds().first(), boxId);
    QCOMPARE(QMediaDevices::videoInputs().at(1).videoFormats().size(), 6);

    changed.clear();
    QVERIFY(writeScene("box\n"));
    QTRY_COMPARE_WITH_TIMEOUT(currentDescriptions(), QStringList{"TK USB3 Video"}, kPlugWaitMs);
    QVERIFY(changed.count() >= 1);
    QCOMPARE(currentIds().first(), boxId);

    QVERIFY(writeScene("# nothing plugged in\n"));
    QTRY_VERIFY_WITH_TIMEOUT(QMediaDevices::videoInputs().isEmpty(), kPlugWaitMs);
    QVERIFY(writeScene("box\n"));
    QTRY_COMPARE_WITH_TIMEOUT(currentDescriptions(), QStringList{"TK USB3 Video"}, kPlugWaitMs);
}

void TestVcamDevices::sceneFileRemovedAndRestored()
{
    QTRY_COMPARE_WITH_TIMEOUT(currentDescriptions(), QStringList{"TK USB3 Video"}, kPlugWaitMs);
    QVERIFY(QFile::remove(m_scenePath));
    QTRY_VERIFY_WITH_TIMEOUT(QMediaDevices::videoInputs().isEmpty(), kPlugWaitMs);
    QTRY_VERIFY(m_log.contains("is gone"));

    QVERIFY(writeScene("builtin\nbox\n"));
    QTRY_COMPARE_WITH_TIMEOUT(currentDescriptions(),
                              QStringList({"Integrated Camera", "TK USB3 Video"}), kPlugWaitMs);
}

void TestVcamDevices::malformedSceneFileKeepsTheCameras()
{
    QVERIFY(writeScene("box\n"));
    QTRY_COMPARE_WITH_TIMEOUT(currentDescriptions(), QStringList{"TK USB3 Video"}, kPlugWaitMs);
    const QList<QByteArray> ids = currentIds();

    QVERIFY(writeScene("box\nwebcam\n"));
    QTRY_VERIFY_WITH_TIMEOUT(m_log.contains("unknown camera kind in 'webcam'"), kPlugWaitMs);
    // Several polls later nothing has been unplugged or added.
    QTest::qWait(1000);
    QCOMPARE(currentIds(), ids);

    // Back to a good scene with the same camera: still nothing replugged.
    QVERIFY(writeScene("box\n"));
    QTest::qWait(1000);
    QCOMPARE(currentIds(), ids);
}

int main(int argc, char **argv)
{
    QGuiApplication app(argc, argv);
    if (argc > 1 && qstrcmp(argv[1], kListArgument) == 0)
        return listCameras();
    TestVcamDevices test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_vcamdevices.moc"
