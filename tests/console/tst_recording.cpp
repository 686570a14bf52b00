// Screenshots and recordings of the console view against the virtual camera and the simulated box:
// the names offered, the PNG at the captured size, MP4 files read back with GStreamer's discoverer
// (length, picture size, H.264 4:2:0 also from a YUY2 camera), the device menu's items, the
// discard when the camera closes, and the time limit. Save dialogs are answered through the
// view's save-path seam, message boxes by the modal catcher.

#include <QAction>
#include <QDir>
#include <QFileInfo>
#include <QLabel>
#include <QPushButton>
#include <QRegularExpression>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QUrl>

#include "console/recordingrules.h"
#include "platform/cameraidentity.h"
#include "tests/support/consolewithbox.h"
#include "tests/support/mediafacts.h"
#include "tests/support/modalcatcher.h"
#include "tests/support/tavrovideotestaccess.h"

// An H.264 parser that takes 300 ms to get ready (h264parse in a bin), ranked above h264parse, so
// that encodebin starts late after the back end has linked it to the camera's tee.
struct SlowH264Parse
{
    GstBin parent;
};

struct SlowH264ParseClass
{
    GstBinClass parentClass;
};

G_DEFINE_TYPE(SlowH264Parse, slow_h264_parse, GST_TYPE_BIN)

static GstStaticPadTemplate slowParseSink =
    GST_STATIC_PAD_TEMPLATE("sink", GST_PAD_SINK, GST_PAD_ALWAYS, GST_STATIC_CAPS("video/x-h264"));
static GstStaticPadTemplate slowParseSrc = GST_STATIC_PAD_TEMPLATE(
    "src", GST_PAD_SRC, GST_PAD_ALWAYS, GST_STATIC_CAPS("video/x-h264, parsed=(boolean)true"));

static GstStateChangeReturn slowParseChangeState(GstElement *element, GstStateChange transition)
{
    if (transition == GST_STATE_CHANGE_NULL_TO_READY)
        g_usleep(300000);
    return GST_ELEMENT_CLASS(slow_h264_parse_parent_class)->change_state(element, transition);
}

static void slow_h264_parse_class_init(SlowH264ParseClass *klass)
{
    GstElementClass *element = GST_ELEMENT_CLASS(klass);
    gst_element_class_set_static_metadata(
        element, "Slow H.264 parser", "Codec/Parser/Converter/Video", "h264parse, late", "test");
    gst_element_class_add_static_pad_template(element, &slowParseSink);
    gst_element_class_add_static_pad_template(element, &slowParseSrc);
    element->change_state = slowParseChangeState;
}

static void slow_h264_parse_init(SlowH264Parse *self)
{
    GstElement *parse = gst_element_factory_make("h264parse", nullptr);
    if (!parse)
        return;
    gst_bin_add(GST_BIN(self), parse);
    for (GstStaticPadTemplate *templ : {&slowParseSink, &slowParseSrc}) {
        GstPad *target = gst_element_get_static_pad(parse, templ->name_template);
        gst_element_add_pad(GST_ELEMENT(self),
                            gst_ghost_pad_new_from_template(templ->name_template, target,
                                                            gst_static_pad_template_get(templ)));
        gst_object_unref(target);
    }
}

static gboolean registerSlowH264Parse(GstPlugin *plugin)
{
    return gst_element_register(plugin, "slowh264parse", GST_RANK_PRIMARY + 2,
                                slow_h264_parse_get_type());
}

namespace {

// One question the view asked through its save-path seam.
struct SaveRequest
{
    QString caption;
    QString path;
    QString filter;
    int boxesBefore = 0; // message boxes already shown when it was asked
};

// How many of the messages a spy caught read `text`.
int messagesLike(const QSignalSpy &spy, const QString &text)
{
    int seen = 0;
    for (const QList<QVariant> &arguments : spy)
        seen += arguments.value(0).toString() == text;
    return seen;
}

const QString kTimestamp = QStringLiteral("\\d{4}-\\d{2}-\\d{2}T\\d{2}-\\d{2}-\\d{2}");

} // namespace

class TestRecording : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void cleanupTestCase();
    void init();
    void fileNamesAndCounters_data();
    void fileNamesAndCounters();
    void screenshotIsTheCapturedPicture_data();
    void screenshotIsTheCapturedPicture();
    void recordingIsAnH264Mp4_data();
    void recordingIsAnH264Mp4();
    void limitStopsTheRecordingAndOffersIt();
    void pictureGoesOnWhileTheRecordingStartsLate();
    void closingTheCameraDiscardsTheRecording();
    void inactiveCameraIsReported_data();
    void inactiveCameraIsReported();

private:
    // Recordings left in the temporary folder.
    QStringList temporaryRecordings() const
    {
        return QDir(QDir::tempPath())
            .entryList({QStringLiteral("tavrokvm_*.mp4")}, QDir::Files, QDir::Name);
    }
    QPushButton *toolbarButton(const QString &name) const
    {
        return m_view->findChild<QPushButton *>(name);
    }
    QString elapsedLabelText() const
    {
        auto *label = m_view->findChild<QLabel *>(QStringLiteral("recordElapsedLabel"));
        return label && !label->isHidden() ? label->text() : QString();
    }
    bool waitForFrames()
    {
        const quint32 from = m_view->frameSequence();
        return QTest::qWaitFor([&] { return m_view->frameSequence() >= from + 3; }, 20000);
    }

    ConsoleWithBox m_console;
    TavroVideo *m_view = nullptr;
    QTemporaryDir m_saved; // where the save dialogs are answered to save
    ModalCatcher *m_catcher = nullptr;
    QList<SaveRequest> m_saveRequests;
    QString m_saveAnswer; // the path the seam returns; empty = cancelled
};

void TestRecording::initTestCase()
{
    QVERIFY(m_saved.isValid());
    QVERIFY(m_console.start());
    m_view = m_console.view();
    m_catcher = new ModalCatcher;
    m_view->setSavePathChooser(
        [this](const QString &caption, const QString &path, const QString &filter) {
            m_saveRequests.append({caption, path, filter, int(m_catcher->boxes.size())});
            return m_saveAnswer;
        });
    QVERIFY(waitForFrames());
}

void TestRecording::cleanupTestCase()
{
    m_console.stop();
    delete m_catcher;
}

void TestRecording::init()
{
    m_catcher->boxes.clear();
    m_saveRequests.clear();
    m_saveAnswer.clear();
}

void TestRecording::fileNamesAndCounters_data()
{
    QTest::addColumn<qint64>("recordedMs");
    QTest::addColumn<QString>("recordingName");
    QTest::addColumn<int>("labelSeconds");

    const QString at = QStringLiteral("tavrokvm-video-2026-11-16T18-07-05-");
    QTest::newRow("first second") << qint64(0) << at + "0s.mp4" << 1;
    QTest::newRow("just before 1 s") << qint64(999) << at + "0s.mp4" << 1;
    QTest::newRow("12.9 s") << qint64(12900) << at + "12s.mp4" << 13;
    QTest::newRow("30 minutes") << qint64(1800000) << at + "1800s.mp4" << 1801;
    QTest::newRow("negative") << qint64(-1500) << at + "0s.mp4" << 1;
}

void TestRecording::fileNamesAndCounters()
{
    QFETCH(qint64, recordedMs);
    QFETCH(QString, recordingName);
    QFETCH(int, labelSeconds);
    const QDateTime at(QDate(2026, 11, 16), QTime(18, 7, 5));
    QCOMPARE(fileNameTimestamp(at), QStringLiteral("2026-11-16T18-07-05"));
    QCOMPARE(screenshotFileName(at), QStringLiteral("tavrokvm-picture-2026-11-16T18-07-05.png"));
    QCOMPARE(recordingFileName(at, recordedMs), recordingName);
    QCOMPARE(recordingElapsedLabelSeconds(recordedMs), labelSeconds);
}

void TestRecording::screenshotIsTheCapturedPicture_data()
{
    QTest::addColumn<QString>("answer"); // relative to the save folder; "" = cancel
    QTest::addColumn<bool>("written");
    QTest::addColumn<QString>("boxTitle");
    QTest::addColumn<QString>("boxText");

    QTest::newRow("saved") << "shot.png" << true << "截图"
                           << "图片已保存";
    QTest::newRow("cancelled") << "" << false << ""
                               << "";
    QTest::newRow("unwritable") << "missing/shot.png" << false << "截图"
                                << "无法保存图像到: %1";
}

void TestRecording::screenshotIsTheCapturedPicture()
{
    QFETCH(QString, answer);
    QFETCH(bool, written);
    QFETCH(QString, boxTitle);
    QFETCH(QString, boxText);
    m_saveAnswer = answer.isEmpty() ? QString() : m_saved.filePath(answer);
    QSignalSpy status(m_view, &TavroVideo::statusBarMessageRequested);

    QPushButton *capture = toolbarButton(QStringLiteral("btnSnap"));
    QVERIFY(capture && capture->isEnabled());
    capture->click();

    QCOMPARE(m_saveRequests.size(), 1);
    QCOMPARE(m_saveRequests[0].caption, QStringLiteral("保存截图"));
    QCOMPARE(m_saveRequests[0].filter, QStringLiteral("PNG 图像 (*.png);;所有文件 (*.*)"));
    QVERIFY2(QRegularExpression(QStringLiteral("/tavrokvm-picture-%1\\.png$").arg(kTimestamp))
                 .match(m_saveRequests[0].path)
                 .hasMatch(),
             qPrintable(m_saveRequests[0].path));
    QCOMPARE(QFileInfo::exists(m_saveAnswer), written);
    if (written) {
        // The captured frame's size, whatever the view shows it at.
        const QImage saved(m_saveAnswer);
        QCOMPARE(saved.size(), QSize(3840, 2160));
        QCOMPARE(saved.size(), m_view->negotiatedResolution());
        QVERIFY(QFile::remove(m_saveAnswer));
    }
    // The status bar also hears from the box's link now and then.
    QCOMPARE(messagesLike(status, QStringLiteral("图片已保存")), written ? 1 : 0);
    if (boxTitle.isEmpty()) {
        QCOMPARE(m_catcher->boxes.size(), 0);
    } else {
        QCOMPARE(m_catcher->boxes.size(), 1);
        QCOMPARE(m_catcher->boxes[0].title, boxTitle);
        QCOMPARE(m_catcher->boxes[0].text,
                 boxText.contains(QLatin1String("%1")) ? boxText.arg(m_saveAnswer) : boxText);
    }
}

void TestRecording::recordingIsAnH264Mp4_data()
{
    QTest::addColumn<int>("pixelFormat"); // the camera's format; Invalid = the one negotiated
    QTest::addColumn<QSize>("size");

    QTest::newRow("MJPEG as negotiated")
        << int(QVideoFrameFormat::Format_Invalid) << QSize(3840, 2160);
    // YUY2 would be encoded as High 4:2:2 by default.
    QTest::newRow("YUY2") << int(QVideoFrameFormat::Format_YUYV) << QSize(640, 480);
}

void TestRecording::recordingIsAnH264Mp4()
{
    QFETCH(int, pixelFormat);
    QFETCH(QSize, size);
    if (pixelFormat != QVideoFrameFormat::Format_Invalid) {
        const QCameraDevice device = findCameraByIdentity(m_view->currentDeviceId());
        QCameraFormat wanted;
        for (const QCameraFormat &format : device.videoFormats()) {
            if (format.pixelFormat() == pixelFormat && format.resolution() == size)
                wanted = format;
        }
        QVERIFY(!wanted.isNull());
        QVERIFY(TavroVideoTestAccess::restartCameraInFormat(*m_view, wanted));
        // Frames of the previous format may still be on their way.
        QTRY_COMPARE_WITH_TIMEOUT(m_view->lastFrame().size(), size, 10000);
        QVERIFY(waitForFrames());
    }
    m_saveAnswer = m_saved.filePath(QStringLiteral("recording.mp4"));
    QSignalSpy progress(m_view, &TavroVideo::recordingProgressChanged);
    QSignalSpy status(m_view, &TavroVideo::statusBarMessageRequested);

    QPushButton *record = toolbarButton(QStringLiteral("btnRecord"));
    QVERIFY(record && record->isEnabled());
    QCOMPARE(record->toolTip(), QStringLiteral("录屏"));
    record->click();
    QVERIFY(m_view->isRecording());
    QCOMPARE(m_view->recordElapsedSeconds(), 1);
    QCOMPARE(record->toolTip(), QStringLiteral("停止录屏"));
    const QString temporary = TavroVideoTestAccess::recordingTempPath(*m_view);
    QVERIFY2(
        QRegularExpression(QStringLiteral("/tavrokvm_\\d+\\.mp4$")).match(temporary).hasMatch(),
        qPrintable(temporary));
    QCOMPARE(QFileInfo(temporary).absolutePath(), QDir(QDir::tempPath()).absolutePath());

    // Stopped while the label reads 4, i.e. after 3.x s: the name says 3 s.
    QTRY_COMPARE_WITH_TIMEOUT(m_view->recordElapsedSeconds(), 4, 15000);
    QCOMPARE(elapsedLabelText(), QStringLiteral("4"));
    record->click();
    QTRY_COMPARE_WITH_TIMEOUT(m_saveRequests.size(), 1, 15000);
    QVERIFY(!m_view->isRecording());
    QCOMPARE(m_saveRequests[0].caption, QStringLiteral("保存录屏"));
    QCOMPARE(m_saveRequests[0].filter, QStringLiteral("视频 (*.mp4 *.mkv *.webm);;所有文件 (*.*)"));
    QVERIFY2(QRegularExpression(QStringLiteral("/tavrokvm-video-%1-3s\\.mp4$").arg(kTimestamp))
                 .match(m_saveRequests[0].path)
                 .hasMatch(),
             qPrintable(m_saveRequests[0].path));

    QCOMPARE(m_catcher->count(QStringLiteral("停止录屏？"),
                              QStringLiteral("确定结束当前录制并保存文件吗？")),
             1);
    QTRY_COMPARE(m_catcher->count(QStringLiteral("录屏"), QStringLiteral("视频已保存")), 1);
    QCOMPARE(messagesLike(status, QStringLiteral("视频已保存")), 1);
    QVERIFY(!QFileInfo::exists(temporary));
    QCOMPARE(progress.first(), QVariantList({true, 1}));
    QCOMPARE(progress.last(), QVariantList({false, 0}));
    QCOMPARE(record->toolTip(), QStringLiteral("录屏"));
    QCOMPARE(elapsedLabelText(), QString());

    QVERIFY(QFileInfo(m_saveAnswer).size() > 0);
    const MediaFacts facts = discoverMedia(m_saveAnswer);
    QVERIFY(facts.read);
    QCOMPARE(facts.container, QStringLiteral("video/quicktime"));
    QCOMPARE(facts.videoStreams, 1);
    QCOMPARE(facts.audioStreams, 0);
    QCOMPARE(facts.videoCodec, QStringLiteral("video/x-h264"));
    QCOMPARE(facts.chromaFormat, QStringLiteral("4:2:0"));
    QCOMPARE(facts.size, size);
    QVERIFY2(facts.seconds > 2.0 && facts.seconds < 4.5,
             qPrintable(QString::number(facts.seconds)));
    QVERIFY(QFile::remove(m_saveAnswer));
}

void TestRecording::limitStopsTheRecordingAndOffersIt()
{
    const QStringList before = temporaryRecordings();
    TavroVideoTestAccess::setRecordingLimit(*m_view, 1500);
    m_view->onBtnRecordClicked();
    QVERIFY(m_view->isRecording());
    QTRY_COMPARE_WITH_TIMEOUT(m_saveRequests.size(), 1, 15000);
    TavroVideoTestAccess::setRecordingLimit(*m_view, 30 * 60 * 1000);

    // The limit box came first, then the save dialog; nothing asked whether to stop.
    QCOMPARE(m_saveRequests[0].boxesBefore, 1);
    QCOMPARE(m_catcher->boxes.size(), 1);
    QCOMPARE(m_catcher->boxes[0].title, QStringLiteral("录屏"));
    QCOMPARE(m_catcher->boxes[0].text, QStringLiteral("录制达到系统限制，已停止。请确认。"));
    QVERIFY(!m_view->isRecording());
    QVERIFY(m_saveRequests[0].path.endsWith(QStringLiteral("-1s.mp4")));

    // Cancelled: the recording stays in the temporary folder, and only there.
    const QStringList after = temporaryRecordings();
    QCOMPARE(after.size(), before.size() + 1);
    QVERIFY(QFileInfo(QDir(QDir::tempPath()).filePath(after.last())).size() > 0);
    QVERIFY(QDir(m_saved.path()).isEmpty());
}

// The back end links the recording branch to the camera before it starts it: frames that arrive
// in between must not stop the camera.
void TestRecording::pictureGoesOnWhileTheRecordingStartsLate()
{
    QVERIFY(gst_plugin_register_static(GST_VERSION_MAJOR, GST_VERSION_MINOR, "slowh264parse",
                                       "test", registerSlowH264Parse, "1.0", "LGPL", "test", "test",
                                       "https://tavrokvm.invalid"));
    m_saveAnswer = m_saved.filePath(QStringLiteral("late.mp4"));
    m_view->onBtnRecordClicked();
    QVERIFY(m_view->isRecording());
    const quint32 from = m_view->frameSequence();
    QTRY_VERIFY_WITH_TIMEOUT(m_view->frameSequence() >= from + 30, 15000);
    m_view->onBtnRecordClicked();
    QTRY_COMPARE_WITH_TIMEOUT(m_saveRequests.size(), 1, 15000);

    const MediaFacts facts = discoverMedia(m_saveAnswer);
    QVERIFY(facts.read);
    QCOMPARE(facts.videoStreams, 1);
    QCOMPARE(facts.chromaFormat, QStringLiteral("4:2:0"));
    QVERIFY(facts.seconds > 0.5);
    QVERIFY(QFile::remove(m_saveAnswer));
}

void TestRecording::closingTheCameraDiscardsTheRecording()
{
    const QStringList before = temporaryRecordings();
    m_view->onBtnRecordClicked();
    QVERIFY(m_view->isRecording());
    const QString temporary = TavroVideoTestAccess::recordingTempPath(*m_view);
    QTRY_VERIFY_WITH_TIMEOUT(QFileInfo(temporary).size() > 0, 15000);

    QSignalSpy status(m_view, &TavroVideo::statusBarMessageRequested);
    m_view->closeCamera(true);
    QVERIFY(!m_view->isRecording());
    QVERIFY(!QFileInfo::exists(temporary));
    QCOMPARE(temporaryRecordings(), before);
    // Nothing is offered, now or later.
    QTest::qWait(300);
    QCOMPARE(m_saveRequests.size(), 0);
    QCOMPARE(m_catcher->boxes.size(), 0);
    QCOMPARE(messagesLike(status, QStringLiteral("录制内容为空")), 0);
    QVERIFY(QDir(m_saved.path()).isEmpty());
}

void TestRecording::inactiveCameraIsReported_data()
{
    QTest::addColumn<bool>("record");
    QTest::addColumn<QString>("title");
    QTest::newRow("screenshot") << false << "截图";
    QTest::newRow("recording") << true << "录屏";
}

void TestRecording::inactiveCameraIsReported()
{
    QFETCH(bool, record);
    QFETCH(QString, title);
    QVERIFY(!m_view->isCameraActive()); // closed by the test before
    QSignalSpy shown(m_view, &TavroVideo::operatorMessageShown);
    if (record)
        m_view->onBtnRecordClicked();
    else
        m_view->onBtnCaptureClicked();
    QCOMPARE(m_catcher->count(title, QStringLiteral("视频未就绪")), 1);
    QCOMPARE(shown.size(), 1);
    QCOMPARE(m_saveRequests.size(), 0);
    QVERIFY(!m_view->isRecording());
    QVERIFY(QDir(m_saved.path()).isEmpty());
}

int main(int argc, char **argv)
{
    // Recordings go to a temporary folder of this test only, which it checks for leftovers.
    QTemporaryDir temporary;
    if (!temporary.isValid())
        return 1;
    qputenv("TMPDIR", temporary.path().toUtf8());
    qputenv("TAVROKVM_VCAM_DEVICES", "box:TKREC01");
    QApplication app(argc, argv);
    QStandardPaths::setTestModeEnabled(true);
    TestRecording test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_recording.moc"
