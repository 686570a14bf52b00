// Console view: the clipboard typed on the target's own keyboard layout, one report every paste
// interval, so that a target reading its keyboard every few milliseconds sees every key. The
// reports leave from a timer: the window stays responsive and the mouse keeps working meanwhile.
#include <QClipboard>
#include <QDebug>
#include <QGuiApplication>
#include <QKeyEvent>
#include <QTimer>

#include "console/input/keysequences.h"
#include "console/tavrovideo.h"
#include "db/dbmanager.h"
#include "protocol/ch9329.h"
#include "serial/deviceuartmanager.h"

namespace {

QString progressText(int done, int total)
{
    return QStringLiteral("%1 / %2").arg(done).arg(total);
}

} // namespace

void TavroVideo::pasteTextAsKeyEvents()
{
    if (isPasting()) {
        cancelPaste();
        return;
    }
    const QString text = QGuiApplication::clipboard()->text(QClipboard::Clipboard);
    if (text.isEmpty()) {
        qDebug() << "[key_pass] 剪贴板为空，跳过粘贴";
        return;
    }
    qDebug().noquote() << "[key_pass] 开始模拟粘贴文本，长度:" << text.size()
                       << ", 内容预览:" << pastePreview(text);

    const QVariantMap record = DBManager::instance()->getDeviceByDid(getCurrentDeviceDid());
    const QVariant storedInterval = record.value(QStringLiteral("paste_interval_ms"));
    const int interval = storedInterval.isNull()
                             ? kDefaultPasteIntervalMs
                             : qBound(0, storedInterval.toInt(), kMaxPasteIntervalMs);
    if (interval == 0) {
        pasteTextUnpaced(text);
        return;
    }
    QString layoutCode = record.value(QStringLiteral("keyboard_layout")).toString();
    if (layoutCode.isEmpty())
        layoutCode = QStringLiteral("us");
    if (!m_pasteLayout.isValid() || m_pasteLayout.code() != layoutCode) {
        QString error;
        if (!KeyboardLayout::compile(layoutCode, m_pasteLayout, error)) {
            qWarning().noquote() << "[key_pass] 目标键盘布局不可用:" << layoutCode << error
                                 << "，改用 us";
            if (!KeyboardLayout::compile(QStringLiteral("us"), m_pasteLayout, error)) {
                qWarning().noquote() << "[key_pass] 无法编译键盘布局 us:" << error << "，粘贴取消";
                return;
            }
        }
    }
    if (m_uartProtocol != kProtocolCh9329) {
        qDebug() << "[key_pass] 当前协议不支持按布局粘贴，协议:" << m_uartProtocol;
        return;
    }

    m_pastePlan = planPaste(text, m_pasteLayout);
    qDebug().noquote() << "[key_pass] 粘贴: 布局" << m_pasteLayout.code() << "间隔" << interval
                       << "ms, 字符" << m_pastePlan.characters << "报告"
                       << m_pastePlan.reports.size();
    if (m_pastePlan.skipped > 0)
        qDebug().noquote() << "[key_pass] 目标布局无法输入的字符:" << m_pastePlan.skipped
                           << "个，例如:" << m_pastePlan.skippedPreview;
    // A Control or Alt still held on the target from the paste shortcut must not combine with
    // the text: the first report lets go of everything. It is the only report sent now: a second
    // one before the target reads its keyboard would replace it.
    m_pastePlan.reports.prepend({0, 0, 0});
    m_pasteIntervalMs = interval;
    m_pasteNext = 0;
    if (!m_pasteTimer) {
        m_pasteTimer = new QTimer(this);
        m_pasteTimer->setSingleShot(true);
        m_pasteTimer->setTimerType(Qt::PreciseTimer);
        connect(m_pasteTimer, &QTimer::timeout, this, &TavroVideo::sendNextPasteReport);
    }
    emit statusBarMessageRequested(progressText(0, m_pastePlan.characters));
    sendNextPasteReport();
}

void TavroVideo::sendNextPasteReport()
{
    if (!isPasting())
        return;
    DeviceUartManager *link = currentLink();
    if (!isLinkOpen(link)) {
        qDebug() << "[key_pass] 串口未连接，粘贴中止";
        finishPaste(true);
        return;
    }
    const PastePlan::Report &report = m_pastePlan.reports.at(m_pasteNext);
    uint8_t frame[kCh9329KeyFrameSize];
    ch9329_keyboard_report(report.modifiers, report.usage, frame);
    if (!link->sendData(QByteArray(reinterpret_cast<const char *>(frame), kCh9329KeyFrameSize))) {
        qDebug() << "[key_pass] 键盘数据发送失败，粘贴中止";
        finishPaste(true);
        return;
    }
    const int before = m_pasteNext == 0 ? 0 : m_pastePlan.reports.at(m_pasteNext - 1).character;
    const int done = report.character;
    const bool last = ++m_pasteNext >= m_pastePlan.reports.size();
    if (last) {
        finishPaste(false);
        return;
    }
    // Measured from this report's departure, not from after whatever the progress sets off.
    m_pasteTimer->start(m_pasteIntervalMs);
    if (done != before)
        emit statusBarMessageRequested(progressText(done, m_pastePlan.characters));
}

void TavroVideo::cancelPaste()
{
    if (!isPasting())
        return;
    DeviceUartManager *link = currentLink();
    // The report in flight may hold a key: every key goes up now.
    if (isLinkOpen(link)) {
        uint8_t frame[kCh9329KeyFrameSize];
        ch9329_keyboard_report(0, 0, frame);
        link->sendData(QByteArray(reinterpret_cast<const char *>(frame), kCh9329KeyFrameSize));
    }
    finishPaste(true);
}

void TavroVideo::finishPaste(bool cancelled)
{
    const int done = m_pasteNext > 0 ? m_pastePlan.reports.at(m_pasteNext - 1).character : 0;
    const int total = m_pastePlan.characters;
    m_pasteNext = -1;
    if (m_pasteTimer)
        m_pasteTimer->stop();
    m_pastePlan = PastePlan();
    // The encoder's report still holds whatever the operator held before: the target does not.
    ch9329_release_all_keys();
    m_heldKeys.clear();
    if (cancelled) {
        qDebug().noquote() << "[key_pass] 粘贴已取消" << progressText(done, total);
        emit statusBarMessageRequested(tr("粘贴已取消 %1").arg(progressText(done, total)));
    } else {
        qDebug() << "[key_pass] 粘贴文本模拟完成";
        emit statusBarMessageRequested(progressText(total, total));
    }
    // What the operator typed meanwhile follows, in order and at the paste's pace: sent at once
    // they would replace each other before the target reads them.
    m_keysAfterPaste += std::exchange(m_keysDuringPaste, {});
    if (!m_keysAfterPaste.isEmpty()) {
        if (!m_heldKeyTimer) {
            m_heldKeyTimer = new QTimer(this);
            m_heldKeyTimer->setSingleShot(true);
            m_heldKeyTimer->setTimerType(Qt::PreciseTimer);
            connect(m_heldKeyTimer, &QTimer::timeout, this, &TavroVideo::replayNextHeldKey);
        }
        m_heldKeyTimer->start(m_pasteIntervalMs);
    }
}

void TavroVideo::replayNextHeldKey()
{
    if (m_keysAfterPaste.isEmpty())
        return;
    const HeldKeyEvent k = m_keysAfterPaste.takeFirst();
    QKeyEvent event(k.type, k.key, k.modifiers, k.nativeScanCode, k.nativeVirtualKey,
                    k.nativeModifiers, k.text, k.autoRepeat);
    // Sent as typed now; keys typed meanwhile queue behind it (holdKeyDuringPaste).
    const QList<HeldKeyEvent> later = std::exchange(m_keysAfterPaste, {});
    if (k.type == QEvent::KeyPress)
        keyPressEvent(&event);
    else
        keyReleaseEvent(&event);
    m_keysAfterPaste = later + m_keysAfterPaste;
    if (!m_keysAfterPaste.isEmpty())
        m_heldKeyTimer->start(m_pasteIntervalMs);
}

bool TavroVideo::holdKeyDuringPaste(const QKeyEvent *event)
{
    if (event->key() == Qt::Key_Escape && m_swallowEscapeRelease &&
        event->type() == QEvent::KeyRelease) {
        m_swallowEscapeRelease = false;
        return true;
    }
    if (!isPasting()) {
        if (m_keysAfterPaste.isEmpty())
            return false;
        m_keysAfterPaste.append({event->type(), event->key(), event->modifiers(), event->text(),
                                 event->isAutoRepeat(), event->nativeScanCode(),
                                 event->nativeVirtualKey(), event->nativeModifiers()});
        return true;
    }
    if (event->key() == Qt::Key_Escape) {
        if (event->type() == QEvent::KeyPress && !event->isAutoRepeat()) {
            m_swallowEscapeRelease = true;
            cancelPaste();
        }
        return true;
    }
    m_keysDuringPaste.append({event->type(), event->key(), event->modifiers(), event->text(),
                              event->isAutoRepeat(), event->nativeScanCode(),
                              event->nativeVirtualKey(), event->nativeModifiers()});
    return true;
}
