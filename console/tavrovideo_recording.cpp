// Console view: screenshots of the target's picture, and recordings of the capture session into
// a temporary file that is offered for saving when the recording ends. The record button blinks
// and the elapsed label counts while a recording runs (both on the toolbar, when there is one).
#include "console/tavrovideo.h"

#include <QCamera>
#include <QDebug>
#include <QDir>
#include <QEventLoop>
#include <QFile>
#include <QFileDialog>
#include <QFileInfo>
#include <QLabel>
#include <QMediaCaptureSession>
#include <QMediaFormat>
#include <QMessageBox>
#include <QPushButton>
#include <QStandardPaths>
#include <QTimer>
#include <QUrl>

#include <utility>

#include "console/frameimage.h"
#include "console/recordingrules.h"
#include "platform/recordingencoder.h"

namespace {

constexpr int kRecordBlinkIntervalMs = 500;
constexpr int kRecordElapsedIntervalMs = 100;
constexpr int kRecordStopWaitMs = 8000;
// How long a stop waits for a recording's first sound, and how often it looks.
constexpr int kFirstSoundWaitMs = 3000;
constexpr int kFirstSoundPollMs = 50;

} // namespace

void TavroVideo::createRecordingTimers()
{
    m_recordBlinkTimer = new QTimer(this);
    m_recordBlinkTimer->setInterval(kRecordBlinkIntervalMs);
    connect(m_recordBlinkTimer, &QTimer::timeout, this, &TavroVideo::onRecordBlinkTick);
    m_recordElapsedTimer = new QTimer(this);
    m_recordElapsedTimer->setInterval(kRecordElapsedIntervalMs);
    m_recordElapsedTimer->setTimerType(Qt::PreciseTimer);
    connect(m_recordElapsedTimer, &QTimer::timeout, this, &TavroVideo::onRecordElapsedTick);
    m_recordStopTimer = new QTimer(this);
    m_recordStopTimer->setSingleShot(true);
    m_recordStopTimer->setTimerType(Qt::PreciseTimer); // a coarse one may end 5% early
    connect(m_recordStopTimer, &QTimer::timeout, this, &TavroVideo::onRecordingLimitReached);
}

void TavroVideo::showInformation(QWidget *parent, const QString &title, const QString &text)
{
    emit operatorMessageShown(title + QStringLiteral(": ") + text);
    QMessageBox::information(parent, title, text);
}

QString TavroVideo::chooseSavePath(const QString &caption, const QString &path,
                                   const QString &filter)
{
    if (m_savePathChooser)
        return m_savePathChooser(caption, path, filter);
    return QFileDialog::getSaveFileName(this, caption, path, filter);
}

// ---- Screenshot ----------------------------------------------------------------------------

void TavroVideo::onBtnCaptureClicked()
{
    qDebug() << "[UI] 捕捉按钮点击";
    if (m_camera && m_camera->isActive())
        performScreenshotSave();
    else
        showWarning(this, tr("截图"), tr("视频未就绪"));
}

// The picture on screen may be one scaled for display; a screenshot is always the frame as
// captured, converted here.
QImage TavroVideo::fullSizeImageOfLastFrame() const
{
    QVideoFrame frame = m_lastFrame;
    if (!frame.isValid() || !frame.map(QVideoFrame::ReadOnly))
        return QImage();
    QImage image = imageOfMappedFrame(frame);
    frame.unmap();
    return image;
}

void TavroVideo::performScreenshotSave()
{
    if (!m_lastFrame.isValid()) {
        showWarning(this, tr("截图"), tr("没有可用的视频帧"));
        return;
    }
    const QImage image = fullSizeImageOfLastFrame();
    if (image.isNull()) {
        showWarning(this, tr("截图"), tr("视频帧转换为图像失败"));
        return;
    }
    const QString suggested = QStandardPaths::writableLocation(QStandardPaths::PicturesLocation) +
                              QLatin1Char('/') + screenshotFileName(QDateTime::currentDateTime());
    const QString path =
        chooseSavePath(tr("保存截图"), suggested, tr("PNG 图像 (*.png);;所有文件 (*.*)"));
    if (path.isEmpty())
        return;
    if (image.save(path)) {
        emit statusBarMessageRequested(tr("图片已保存"));
        showInformation(this, tr("截图"), tr("图片已保存"));
    } else {
        showWarning(this, tr("截图"), tr("无法保存图像到: %1").arg(path));
    }
}

// ---- Recording -----------------------------------------------------------------------------

void TavroVideo::onBtnRecordClicked()
{
    qDebug() << "[UI] 录制按钮点击";
    if (!m_camera || !m_camera->isActive()) {
        showWarning(this, tr("录屏"), tr("视频未就绪"));
        return;
    }
    if (!m_isRecording) {
        beginScreenRecordingFromUvc();
        return;
    }
    if (m_recordedMs >= 0) {
        qDebug() << "[TavroVideo] 录屏正在停止，忽略重复点击";
        return;
    }
    const QMessageBox::StandardButton answer =
        QMessageBox::question(this, tr("停止录屏？"), tr("确定结束当前录制并保存文件吗？"),
                              QMessageBox::Ok | QMessageBox::Cancel, QMessageBox::Ok);
    // The recording may have ended while the question was open.
    if (answer != QMessageBox::Ok || !m_isRecording || !m_mediaRecorder)
        return;
    m_recordingLimitReached = false;
    m_saveRecordingOnStop = true;
    if (m_mediaRecorder->recorderState() == QMediaRecorder::RecordingState) {
        m_recordedMs = m_recordingClock.elapsed();
        stopMediaRecorderAfterFirstSound(0);
    }
}

void TavroVideo::stopMediaRecorderAfterFirstSound(int waitedMs)
{
    if (!m_mediaRecorder || m_mediaRecorder->recorderState() != QMediaRecorder::RecordingState)
        return;
    // A recording stopped before its first sound gets an empty sound track that players reject:
    // the sound may start late on a busy machine.
    if (recordingAwaitsFirstSound() && waitedMs < kFirstSoundWaitMs) {
        if (waitedMs == 0)
            qDebug() << "[TavroVideo] 录屏尚未收到声音，等待第一段声音后再停止";
        const quint64 serial = m_mediaRecorderSerial;
        QTimer::singleShot(kFirstSoundPollMs, this, [this, serial, waitedMs] {
            if (serial == m_mediaRecorderSerial)
                stopMediaRecorderAfterFirstSound(waitedMs + kFirstSoundPollMs);
        });
        return;
    }
    if (waitedMs >= kFirstSoundWaitMs)
        qWarning() << "[TavroVideo] 录屏" << kFirstSoundWaitMs
                   << "ms 内没有收到声音，文件的声轨可能无法播放";
    m_mediaRecorder->stop();
}

void TavroVideo::ensureMediaRecorder()
{
    if (m_mediaRecorder || !m_camera)
        return;
    installRecordingEncoder();
    m_mediaRecorder = new QMediaRecorder(this);
    // MP4 with H.264 (4:2:0, see platform/recordingencoder.h) and AAC when the session has the
    // box's sound: what common players play.
    QMediaFormat format(QMediaFormat::MPEG4);
    format.setVideoCodec(QMediaFormat::VideoCodec::H264);
    format.setAudioCodec(QMediaFormat::AudioCodec::AAC);
    m_mediaRecorder->setMediaFormat(format);
    m_captureSession->setRecorder(m_mediaRecorder);
    // The stop is handled from the event loop, not from inside the back end's message dispatch
    // that reports it: the handler opens dialogs and deletes the recorder.
    const quint64 serial = ++m_mediaRecorderSerial;
    connect(
        m_mediaRecorder, &QMediaRecorder::recorderStateChanged, this,
        [this, serial](QMediaRecorder::RecorderState state) {
            if (serial == m_mediaRecorderSerial && m_mediaRecorder)
                onMediaRecorderStateChanged(state);
        },
        Qt::QueuedConnection);
    connect(m_mediaRecorder, &QMediaRecorder::errorOccurred, this,
            &TavroVideo::onMediaRecorderError);
}

void TavroVideo::beginScreenRecordingFromUvc()
{
    if (!m_camera || !m_camera->isActive()) {
        showWarning(this, tr("录屏"), tr("视频未就绪"));
        return;
    }
    ensureMediaRecorder();
    if (!m_mediaRecorder)
        return;
    m_recordingTempPath =
        QDir(QDir::tempPath())
            .absoluteFilePath(
                QStringLiteral("tavrokvm_%1.mp4").arg(QDateTime::currentMSecsSinceEpoch()));
    m_mediaRecorder->setOutputLocation(QUrl::fromLocalFile(m_recordingTempPath));

    m_saveRecordingOnStop = true;
    m_recordingLimitReached = false;
    m_recordedMs = -1;
    m_recordingClock.start();
    m_mediaRecorder->record();
    if (m_mediaRecorder->recorderState() != QMediaRecorder::RecordingState) {
        // Refused at once (the error went to the status bar): nothing runs, nothing to save.
        qWarning() << "[TavroVideo] 录屏未能开始";
        m_saveRecordingOnStop = false;
        removeRecordingTempFile();
        releaseMediaRecorder();
        return;
    }
    qDebug().noquote() << "[TavroVideo] 开始录屏:" << m_recordingTempPath;
    m_isRecording = true;
    m_recordBlinkOn = false;
    m_recordBlinkTimer->start();
    m_recordElapsedTimer->start();
    m_recordStopTimer->start(m_recordingLimitMs);

    m_recordElapsedShown = 1;
    if (m_recordElapsedLabel) {
        m_recordElapsedLabel->setText(QStringLiteral("1"));
        m_recordElapsedLabel->show();
    }
    if (m_btnRecord)
        m_btnRecord->setToolTip(tr("停止录屏"));
    emit recordingProgressChanged(true, m_recordElapsedShown);
}

void TavroVideo::onRecordingLimitReached()
{
    if (!m_isRecording || !m_mediaRecorder)
        return;
    qDebug() << "[TavroVideo] 录屏达到时长上限，停止录制";
    m_recordingLimitReached = true;
    m_saveRecordingOnStop = true;
    if (m_mediaRecorder->recorderState() == QMediaRecorder::RecordingState) {
        m_recordedMs = m_recordingClock.elapsed();
        stopMediaRecorderAfterFirstSound(0);
    }
}

void TavroVideo::onRecordBlinkTick()
{
    if (!m_isRecording)
        return;
    m_recordBlinkOn = !m_recordBlinkOn;
    if (m_btnRecord)
        m_btnRecord->setIcon(m_recordBlinkOn ? m_recordingIcon : m_recordIcon);
}

void TavroVideo::onRecordElapsedTick()
{
    if (!m_isRecording)
        return;
    const int seconds = recordingElapsedLabelSeconds(m_recordingClock.elapsed());
    if (m_recordElapsedLabel)
        m_recordElapsedLabel->setText(QString::number(seconds));
    if (seconds != m_recordElapsedShown) {
        m_recordElapsedShown = seconds;
        emit recordingProgressChanged(true, seconds);
    }
}

void TavroVideo::onMediaRecorderStateChanged(QMediaRecorder::RecorderState state)
{
    if (state != QMediaRecorder::StoppedState)
        return;
    if (m_discardRecordingOnStop) {
        m_discardRecordingOnStop = false;
        removeRecordingTempFile();
        cleanupRecordingUi();
        return;
    }
    if (m_saveRecordingOnStop) {
        m_saveRecordingOnStop = false;
        const QFileInfo file(m_recordingTempPath);
        if (!m_recordingTempPath.isEmpty() && file.exists() && file.size() > 0) {
            const bool limitReached = std::exchange(m_recordingLimitReached, false);
            cleanupRecordingUi();
            if (limitReached)
                showInformation(this, tr("录屏"), tr("录制达到系统限制，已停止。请确认。"));
            finalizeRecordingSaveToDisk();
        } else {
            cleanupRecordingUi();
            emit statusBarMessageRequested(tr("录制内容为空"));
            removeRecordingTempFile();
            releaseMediaRecorder();
        }
        return;
    }
    cleanupRecordingUi();
}

void TavroVideo::onMediaRecorderError(QMediaRecorder::Error, const QString &errorString)
{
    qWarning().noquote() << "[TavroVideo] QMediaRecorder error:" << errorString;
    emit statusBarMessageRequested(tr("录制错误: %1").arg(errorString));
}

void TavroVideo::finalizeRecordingSaveToDisk()
{
    // The recorder has finished with the file: it goes first, so that a camera closed while the
    // dialog is open has nothing of this recording left to throw away.
    const QString temporary = std::exchange(m_recordingTempPath, QString());
    const qint64 recordedMs = m_recordedMs >= 0 ? m_recordedMs : m_recordingClock.elapsed();
    releaseMediaRecorder();
    if (temporary.isEmpty())
        return;

    const QString suggested = QStandardPaths::writableLocation(QStandardPaths::MoviesLocation) +
                              QLatin1Char('/') +
                              recordingFileName(QDateTime::currentDateTime(), recordedMs);
    const QString chosen =
        chooseSavePath(tr("保存录屏"), suggested, tr("视频 (*.mp4 *.mkv *.webm);;所有文件 (*.*)"));
    if (chosen.isEmpty()) {
        qDebug().noquote() << "[TavroVideo] 录屏未保存，临时文件保留:" << temporary;
        return;
    }
    if (QFile::exists(chosen))
        QFile::remove(chosen);
    if (QFile::copy(temporary, chosen)) {
        qDebug().noquote() << "[TavroVideo] 录屏已保存:" << chosen;
        emit statusBarMessageRequested(tr("视频已保存"));
        showInformation(this, tr("录屏"), tr("视频已保存"));
    } else {
        showWarning(this, tr("录屏"), tr("保存文件失败"));
    }
    QFile::remove(temporary);
}

void TavroVideo::cleanupRecordingUi()
{
    const bool wasRecording = m_isRecording;
    m_isRecording = false;
    m_recordBlinkOn = false;
    m_recordBlinkTimer->stop();
    m_recordElapsedTimer->stop();
    m_recordStopTimer->stop();
    m_recordElapsedShown = 0;
    if (m_recordElapsedLabel) {
        m_recordElapsedLabel->hide();
        m_recordElapsedLabel->setText(QStringLiteral("0"));
    }
    if (m_btnRecord) {
        m_btnRecord->setIcon(m_recordIcon);
        m_btnRecord->setToolTip(tr("录屏"));
    }
    if (wasRecording)
        emit recordingProgressChanged(false, 0);
}

void TavroVideo::removeRecordingTempFile()
{
    if (!m_recordingTempPath.isEmpty())
        QFile::remove(m_recordingTempPath);
    m_recordingTempPath.clear();
}

// Off the session before it goes: a recorder deleted while attached would stop the session's
// whole pipeline.
void TavroVideo::releaseMediaRecorder()
{
    if (!m_mediaRecorder)
        return;
    QMediaRecorder *recorder = std::exchange(m_mediaRecorder, nullptr);
    recorder->disconnect(this);
    if (m_captureSession->recorder() == recorder)
        m_captureSession->setRecorder(nullptr);
    delete recorder;
}

void TavroVideo::discardRecordingOnClose()
{
    if (m_mediaRecorder && m_mediaRecorder->recorderState() != QMediaRecorder::StoppedState) {
        qDebug() << "[TavroVideo::closeCamera] 录屏进行中，停止并丢弃";
        m_discardRecordingOnStop = true;
        QEventLoop loop;
        connect(m_mediaRecorder, &QMediaRecorder::recorderStateChanged, &loop, &QEventLoop::quit);
        QTimer::singleShot(kRecordStopWaitMs, &loop, &QEventLoop::quit);
        m_mediaRecorder->stop();
        if (m_mediaRecorder && m_mediaRecorder->recorderState() != QMediaRecorder::StoppedState)
            loop.exec();
    }
    m_discardRecordingOnStop = false;
    m_saveRecordingOnStop = false;
    m_recordingLimitReached = false;
    removeRecordingTempFile();
    releaseMediaRecorder();
    cleanupRecordingUi();
}
