// Console view: the box's sound. Its audio input is found by name (or by the input bound to the
// box), attached to the capture session so that recordings carry it, and copied to the default
// output while frames flow.
#include "console/tavrovideo.h"

#include <QAudioDevice>
#include <QAudioInput>

#include <QAudioOutput>
#include <QAudioSink>
#include <QAudioSource>
#include <QCamera>
#include <QDebug>
#include <QMediaCaptureSession>
#include <QMediaDevices>
#include <QTimer>
#include <utility>

#include "console/audiopairing.h"
#include "db/dbmanager.h"
#include "platform/cameraidentity.h"
#include "platform/permissions.h"

namespace {

constexpr qint64 kPassthroughFrameAgeMs = 500;

// Capture and playback share one format, so the copier moves bytes unchanged.
QAudioFormat sharedAudioFormat(const QAudioDevice &input, const QAudioDevice &output)
{
    const QAudioFormat in = input.preferredFormat();
    if (output.isNull() || output.isFormatSupported(in))
        return in;
    QAudioFormat candidate = output.preferredFormat();
    candidate.setChannelCount(in.channelCount());
    if (output.isFormatSupported(candidate) && input.isFormatSupported(candidate))
        return candidate;
    if (input.isFormatSupported(output.preferredFormat()))
        return output.preferredFormat();
    return in;
}

} // namespace

bool TavroVideo::isLikelyUsbUacAudioInputEndpoint(const QAudioDevice &device)
{
    return isLikelyUsbUacAudioInput({device.description(), device.id()});
}

QByteArray TavroVideo::savedAudioInputDeviceIdFromDb() const
{
    const QString did = getCurrentDeviceDid();
    if (did.isEmpty())
        return QByteArray();
    const QVariantMap record = DBManager::instance()->getDeviceByDid(did);
    return QByteArray::fromHex(
        record.value(QStringLiteral("audio_input_device_id")).toString().toUtf8());
}

void TavroVideo::saveAudioInputDeviceBindingForCurrentDevice(const QByteArray &audioId)
{
    const QString did = getCurrentDeviceDid();
    if (did.isEmpty())
        return;
    DBManager *db = DBManager::instance();
    QVariantMap record = db->getDeviceByDid(did);
    if (record.isEmpty())
        return;
    record.insert(QStringLiteral("audio_input_device_id"), QString::fromLatin1(audioId.toHex()));
    if (!db->insertOrUpdateDevice(record))
        qWarning().noquote() << "[TavroVideo] 输入音频绑定保存失败, DID:" << did;
}

void TavroVideo::reapplyUvcAudioForCurrentCamera()
{
    // The current list's entry of the camera: the one the camera was made from may be stale.
    if (m_camera)
        setupUvcAudioPlayback(findCameraByIdentity(m_currentDeviceId));
}

void TavroVideo::detachCaptureSessionAudioOutput()
{
    // Taken off the members first: the back end runs the event loop while it tears a stream
    // down, and the pass-through timer must not reach a half-destroyed one meanwhile.
    if (QAudioSink *sink = std::exchange(m_audioSink, nullptr)) {
        m_audioSinkDevice = nullptr;
        sink->disconnect(this);
        sink->stop();
        delete sink;
    }
    m_audioSinkDevice = nullptr;
    if (m_audioOutput) {
        m_captureSession->setAudioOutput(nullptr);
        delete m_audioOutput;
        m_audioOutput = nullptr;
    }
}

void TavroVideo::releaseCaptureAudio()
{
    if (QAudioSource *source = std::exchange(m_audioSource, nullptr)) {
        m_audioSourceDevice = nullptr;
        source->disconnect(this);
        source->stop();
        delete source;
    }
    m_audioSourceDevice = nullptr;
    if (m_audioInput) {
        m_captureSession->setAudioInput(nullptr);
        delete m_audioInput;
        m_audioInput = nullptr;
    }
    // The sink is stopped before it goes: destroying an active one can abort the process.
    detachCaptureSessionAudioOutput();
}

void TavroVideo::setupUvcAudioPlayback(const QCameraDevice &camera)
{
    if (!m_captureSession || camera.isNull())
        return;
    const QList<IdentifiedCamera> cameras = identifiedVideoInputs();
    const QByteArray cameraId = identityIn(cameras, camera);
    if (!m_currentDeviceId.isEmpty() && cameraId != m_currentDeviceId) {
        qDebug().noquote() << "[TavroVideo::setupUvcAudioPlayback] 忽略过期音频挂载请求，target="
                           << QString::fromUtf8(cameraId)
                           << "current=" << QString::fromUtf8(m_currentDeviceId);
        return;
    }
    qDebug() << "[TavroVideo::setupUvcAudioPlayback] ===开始配置音频回放===";
    qDebug().noquote() << "[TavroVideo::setupUvcAudioPlayback] 目标相机:" << camera.description()
                       << QString::fromUtf8(cameraId);
    qDebug() << "[TavroVideo::setupUvcAudioPlayback] === 配置 UVC 本地音频播放（采集→扬声器）===";

    const MediaPermissionStatus permission = mediaPermissionStatus(MediaPermission::Microphone);
    qDebug() << "[TavroVideo::setupUvcAudioPlayback] 麦克风权限(不阻断视频):"
             << permissionStatusText(permission);
    if (permission == MediaPermissionStatus::Undetermined) {
        requestMediaPermission(
            MediaPermission::Microphone, this,
            [this, camera, cameraId](MediaPermissionStatus result) {
                if (result != MediaPermissionStatus::Granted)
                    return;
                if (cameraId != m_currentDeviceId) {
                    qDebug().noquote() << "[TavroVideo::setupUvcAudioPlayback] "
                                          "麦克风权限回调已过期，放弃重试。target="
                                       << QString::fromUtf8(cameraId)
                                       << "current=" << QString::fromUtf8(m_currentDeviceId);
                    return;
                }
                qDebug() << "[TavroVideo::setupUvcAudioPlayback] 麦克风已授予，重试挂载音频播放";
                QTimer::singleShot(0, this, [this, camera] { setupUvcAudioPlayback(camera); });
            });
    }

    // The previous attachment goes first.
    releaseCaptureAudio();

    const QList<QAudioDevice> devices = QMediaDevices::audioInputs();
    const quint64 generation = ++m_captureGeneration;
    qDebug() << "[TavroVideo::setupUvcAudioPlayback] 系统音频输入端点数量:" << devices.size();

    QList<AudioInputText> inputs;
    for (const QAudioDevice &device : devices)
        inputs.append({device.description(), device.id()});
    QList<CameraText> boxCameras;
    for (const IdentifiedCamera &listed : cameras)
        boxCameras.append({listed.device.description(), listed.identity});
    const QByteArray bound = savedAudioInputDeviceIdFromDb();
    const AudioPairing pairing =
        pairAudioInput({camera.description(), cameraId}, boxCameras, inputs, bound);

    switch (pairing.rule) {
    case AudioPairing::Bound:
        qDebug().noquote() << "[TavroVideo::setupUvcAudioPlayback] 使用设备设置中绑定的输入音频:"
                           << devices[pairing.chosen].description();
        break;
    case AudioPairing::TkUsb3:
    case AudioPairing::UsbVideo:
    case AudioPairing::NoRule:
        if (pairing.boundInputMissing)
            qDebug() << "[TavroVideo::setupUvcAudioPlayback] "
                        "数据库中的输入音频已不在当前枚举，回退自动配对";
        if (pairing.rule == AudioPairing::TkUsb3)
            qDebug() << "[TavroVideo::setupUvcAudioPlayback] 规则 *TK*usb3*video* → "
                        "*TK*USB3*Audio*，候选数:"
                     << pairing.candidates.size();
        else if (pairing.rule == AudioPairing::UsbVideo)
            qDebug()
                << "[TavroVideo::setupUvcAudioPlayback] 规则 *usb*video* → *usb*audio*，候选数:"
                << pairing.candidates.size();
        break;
    }
    if (pairing.chosen < 0) {
        qDebug() << "[TavroVideo::setupUvcAudioPlayback] 无符合绑定规则的 USB 音频端点，仅视频";
        return;
    }
    qDebug() << "[TavroVideo::setupUvcAudioPlayback] 找到" << pairing.candidates.size()
             << "个匹配的音频设备:";
    for (int i = 0; i < pairing.candidates.size(); ++i) {
        const QAudioDevice &candidate = devices[pairing.candidates[i]];
        qDebug().noquote().nospace() << "  [" << i << "] " << candidate.description()
                                     << " id=" << QString::fromUtf8(candidate.id());
    }
    if (pairing.mappedByOrder)
        qDebug() << "[TavroVideo::setupUvcAudioPlayback] 多 TK 设备自动映射: videoIndex="
                 << pairing.videoIndex << "audioIndex=" << pairing.audioIndex;

    const QAudioDevice chosen = devices[pairing.chosen];
    qDebug().noquote() << "[TavroVideo::setupUvcAudioPlayback] 选用 USB 音频:"
                       << chosen.description() << "id=" << QString::fromUtf8(chosen.id());
    saveAudioInputDeviceBindingForCurrentDevice(chosen.id());

    const QAudioDevice output = QMediaDevices::defaultAudioOutput();
    const QAudioFormat format = sharedAudioFormat(chosen, output);
    qDebug() << "[TavroVideo::setupUvcAudioPlayback] 采集/播放共用格式:" << format.sampleRate()
             << "Hz" << format.channelCount() << "ch";

    m_audioInput = new QAudioInput(chosen, this);
    m_captureSession->setAudioInput(m_audioInput);
    m_audioSource = new QAudioSource(chosen, format, this);
    m_audioSourceDevice = m_audioSource->start();
    if (!m_audioSourceDevice) {
        qWarning() << "[TavroVideo::setupUvcAudioPlayback] QAudioSource 未启动，剥离会话音频输入"
                   << "  error:" << m_audioSource->error() << "state:" << m_audioSource->state();
        releaseCaptureAudio();
        return;
    }
    connect(m_audioSourceDevice, &QIODevice::readyRead, this, [this, generation] {
        if (generation != m_captureGeneration || !m_audioSourceDevice || !m_audioSinkDevice)
            return;
        const QByteArray bytes = m_audioSourceDevice->readAll();
        if (!bytes.isEmpty())
            m_audioSinkDevice->write(bytes);
    });
    connect(m_audioSource, &QAudioSource::stateChanged, this,
            [this, generation](QAudio::State state) {
                if (generation != m_captureGeneration || !m_audioSource)
                    return;
                if (state == QAudio::SuspendedState || state == QAudio::StoppedState)
                    qDebug() << "[TavroVideo::setupUvcAudioPlayback] QAudioSource 停止/暂停:"
                             << m_audioSource->error();
            });

    if (output.isNull()) {
        qDebug() << "[TavroVideo::setupUvcAudioPlayback] 无默认扬声器，仅保留采集输入(会话/录制)";
        qDebug() << "[TavroVideo::setupUvcAudioPlayback] === 采集就绪(无本地播放) ===";
        return;
    }
    m_audioSink = new QAudioSink(output, format, this);
    m_audioSinkDevice = m_audioSink->start();
    if (!m_audioSinkDevice) {
        qWarning() << "[TavroVideo::setupUvcAudioPlayback] QAudioSink 未启动"
                   << m_audioSink->error() << m_audioSink->state();
        detachCaptureSessionAudioOutput();
        return;
    }
    connect(m_audioSink, &QAudioSink::stateChanged, this, [this, generation](QAudio::State state) {
        if (generation != m_captureGeneration || !m_audioSink)
            return;
        if (state == QAudio::ActiveState)
            qDebug() << "[TavroVideo::setupUvcAudioPlayback] QAudioSink 已激活，扬声器监听中";
        else if (state == QAudio::SuspendedState || state == QAudio::StoppedState)
            qDebug() << "[TavroVideo::setupUvcAudioPlayback] QAudioSink 停止/暂停:"
                     << m_audioSink->error();
    });
    qDebug() << "[TavroVideo::setupUvcAudioPlayback] === 本地音频播放已就绪 ===";
    // Frames that stop coming stop the sound within the frame-age limit.
    if (!m_audioPassthroughTimer) {
        m_audioPassthroughTimer = new QTimer(this);
        m_audioPassthroughTimer->setInterval(kPassthroughFrameAgeMs / 2);
        connect(m_audioPassthroughTimer, &QTimer::timeout, this, [this] {
            if (m_audioSource)
                syncAudioPassthroughState();
            else
                m_audioPassthroughTimer->stop();
        });
    }
    m_audioPassthroughTimer->start();
    // Until frames flow nothing is heard.
    m_audioPassthroughOn = true;
    syncAudioPassthroughState();
}

void TavroVideo::syncAudioPassthroughState()
{
    const bool active = m_cameraActive && m_frameAgeClock.isValid() &&
                        m_frameAgeClock.elapsed() < kPassthroughFrameAgeMs;
    if (active == m_audioPassthroughOn)
        return;
    m_audioPassthroughOn = active;
    if (m_audioOutput)
        m_audioOutput->setVolume(active ? 1.0f : 0.0f);
    if (m_audioSource) {
        if (!active) {
            if (m_audioSourceDevice)
                m_audioSourceDevice->readAll();
            if (m_audioSource->state() == QAudio::ActiveState)
                m_audioSource->suspend();
        } else if (m_audioSource->state() == QAudio::SuspendedState) {
            m_audioSource->resume();
        }
    }
    if (m_audioSink) {
        if (active && m_audioSink->state() == QAudio::SuspendedState)
            m_audioSink->resume();
        else if (!active && m_audioSink->state() == QAudio::ActiveState)
            m_audioSink->suspend();
    }
}
