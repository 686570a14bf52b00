// Console view: cursor correction. A frame now and then is written as a JPEG file and its black
// margins measured on a pool thread; the margins the measurement accepts are left out of the
// mouse mapping. The switch is kept per box in the database.
#include "console/tavrovideo.h"

#include <QDebug>
#include <QDir>
#include <QFile>
#include <QFutureWatcher>
#include <QStandardPaths>
#include <QtConcurrent/QtConcurrentRun>

#include "console/frameimage.h"
#include "console/input/bordercheck.h"
#include "db/dbmanager.h"

namespace {

struct BorderCheckOutcome
{
    bool measured = false; // false: the frame could not be converted or written
    image_blank_info info;
    int result = 1;
    bool withinLimits = false;
};

QString appDataFolder()
{
    return QStandardPaths::writableLocation(QStandardPaths::AppDataLocation);
}

BorderCheckOutcome measureFrame(QVideoFrame frame, const QString &path)
{
    BorderCheckOutcome outcome;
    if (!frame.isValid() || !frame.map(QVideoFrame::ReadOnly))
        return outcome;
    const QImage image = imageOfMappedFrame(frame);
    frame.unmap();
    if (image.isNull())
        return outcome;
    if (!QDir().mkpath(QFileInfo(path).absolutePath()) || !image.save(path, "JPG")) {
        qWarning().noquote() << "[BlackBorder] 无法写入检测帧:" << path;
        return outcome;
    }
    outcome.measured = true;
    outcome.result = jpeg_check(QFile::encodeName(path).constData(), &outcome.info);
    outcome.withinLimits = blankInfoWithinLimits(outcome.info);
    return outcome;
}

} // namespace

QString TavroVideo::borderCheckFramePath()
{
    return appDataFolder() + QStringLiteral("/data/stream.tmp");
}

QString TavroVideo::borderCheckImagePath()
{
    // The application's own folder is not writable in an installed build.
    return appDataFolder() + QStringLiteral("/check.jpg");
}

void TavroVideo::scheduleJpegBorderCheckAsync(const QVideoFrame &frame)
{
    if (!m_cursorCorrectionEnabled || m_borderCheckInFlight || !frame.isValid())
        return;
    m_borderCheckInFlight = true;
    const quint64 generation = m_captureGeneration;
    auto *watcher = new QFutureWatcher<BorderCheckOutcome>(this);
    connect(
        watcher, &QFutureWatcher<BorderCheckOutcome>::finished, this, [this, watcher, generation] {
            watcher->deleteLater();
            const BorderCheckOutcome outcome = watcher->result();
            if (!outcome.measured)
                onBorderCheckFinished(generation);
            else
                onBorderCheckResult(generation, outcome.info, outcome.result, outcome.withinLimits);
        });
    watcher->setFuture(QtConcurrent::run(measureFrame, frame, borderCheckFramePath()));
}

void TavroVideo::onBorderCheckFinished(quint64)
{
    m_borderCheckInFlight = false;
}

void TavroVideo::onBorderCheckResult(quint64 generation, const image_blank_info &info, int result,
                                     bool withinLimits)
{
    m_borderCheckInFlight = false;
    // A measurement of another camera's frame says nothing about this one.
    if (generation != m_captureGeneration || result != 0 || !withinLimits)
        return;
    m_blackBorderInfo = info;
    invalidateActualVideoDisplayRect();
    qDebug() << "[BlackBorder] 更新成功"
             << "T:" << info.top << "L:" << info.left << "B:" << info.bottom << "R:" << info.right;
    updateWatermark();
}

void TavroVideo::loadCursorCorrectionSettingForCurrentDevice()
{
    const QString did = getCurrentDeviceDid();
    if (did.isEmpty()) {
        m_blackBorderInfo = image_blank_info();
        m_watermarkDebugInfoVisible = false;
        m_cursorCorrectionEnabled = false;
        m_borderCheckRequested = false;
        updateWatermark();
        return;
    }
    const QVariantMap record = DBManager::instance()->getDeviceByDid(did);
    const int value = record.value(QStringLiteral("cursor_correction_enabled"), 0).toInt();
    m_cursorCorrectionEnabled = value != 0;
    if (value == 0) {
        m_blackBorderInfo = image_blank_info();
        m_watermarkDebugInfoVisible = false;
    }
    m_borderCheckRequested = m_cursorCorrectionEnabled;
    updateWatermark();
}

void TavroVideo::setCursorCorrectionEnabled(bool on)
{
    m_cursorCorrectionEnabled = on;
    if (!on) {
        m_blackBorderInfo = image_blank_info();
        m_watermarkDebugInfoVisible = false;
    }
    m_borderCheckRequested = on;
    updateWatermark();
    persistCursorCorrectionSettingForCurrentDevice(on);
    emit statusBarMessageRequested(on ? tr("光标矫正已开启") : tr("光标矫正已关闭"));
}

void TavroVideo::persistCursorCorrectionSettingForCurrentDevice(bool on)
{
    const QString did = getCurrentDeviceDid();
    if (did.isEmpty())
        return;
    DBManager *db = DBManager::instance();
    QVariantMap record = db->getDeviceByDid(did);
    if (record.isEmpty())
        record.insert(QStringLiteral("did"), did);
    record.insert(QStringLiteral("cursor_correction_enabled"), on ? 1 : 0);
    if (!db->insertOrUpdateDevice(record))
        qWarning().noquote() << "[TavroVideo] 光标矫正设置保存失败, DID:" << did;
}

void TavroVideo::applyCursorCorrectionRuntime(bool on)
{
    m_cursorCorrectionEnabled = on;
    if (!on) {
        m_blackBorderInfo = image_blank_info();
        m_watermarkDebugInfoVisible = false;
        m_borderCheckRequested = false;
    } else {
        m_borderCheckRequested = true;
    }
    updateWatermark();
}

bool TavroVideo::saveBlackBorderCheckImage()
{
    // The picture on screen is scaled to the view; the scan looks at the frame's own pixels.
    QImage image;
    if (m_lastFrame.isValid()) {
        image = fullSizeImageOfLastFrame();
        if (image.isNull())
            image = m_lastFrame.toImage();
    }
    if (image.isNull()) {
        emit statusBarMessageRequested(tr("保存 check.jpg 失败：当前无可用视频帧"));
        return false;
    }
    if (image.width() < 1 || image.height() < 1) {
        emit statusBarMessageRequested(tr("保存 check.jpg 失败：视频帧尺寸无效"));
        return false;
    }
    const QImage region = image
                              .copy(0, 0, qMin(image.width(), kBorderScanColumns),
                                    qMin(image.height(), kBorderScanRows))
                              .convertToFormat(QImage::Format_RGB888);
    const QString path = borderCheckImagePath();
    if (!QDir().mkpath(QFileInfo(path).absolutePath()) || !region.save(path, "JPG", 95)) {
        emit statusBarMessageRequested(tr("保存 check.jpg 失败：%1").arg(path));
        return false;
    }
    emit statusBarMessageRequested(tr("检测区域像素已保存：%1").arg(path));
    return true;
}
