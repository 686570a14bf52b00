// Console view: the operator's mouse to the target. Positions inside the shown picture become
// absolute reports; presses, releases and wheel steps leave at once, moves are coalesced so that
// one report per throttle interval carries the newest position.
#include <QDebug>
#include <QGuiApplication>
#include <QMouseEvent>
#include <QTimer>
#include <QWheelEvent>
#include <algorithm>

#include "console/input/mouserules.h"
#include "console/tavrovideo.h"
#include "protocol/ch9329.h"
#include "serial/deviceuartmanager.h"

namespace {

constexpr int kMouseStatusIntervalMs = 33;
constexpr int kMouseReportBufferSize = 32;
constexpr int kPressDebugEvery = 500;
constexpr QPoint kNoMousePos{-1, -1};

int pressDebugCounter = 0;

bool insideTarget(const TargetPoint &p)
{
    return p.x >= 0 && p.x < p.width && p.y >= 0 && p.y < p.height;
}

} // namespace

void TavroVideo::createMouseTimers()
{
    m_mouseThrottleTimer = new QTimer(this);
    m_mouseThrottleTimer->setSingleShot(true);
    m_mouseThrottleTimer->setTimerType(Qt::PreciseTimer);
    connect(m_mouseThrottleTimer, &QTimer::timeout, this, &TavroVideo::processThrottledMouseEvent);
    m_mouseStatusTimer = new QTimer(this);
    m_mouseStatusTimer->setSingleShot(true);
    m_mouseStatusTimer->setInterval(kMouseStatusIntervalMs);
    connect(m_mouseStatusTimer, &QTimer::timeout, this, &TavroVideo::flushMouseStatusBarUpdate);
}

bool TavroVideo::convertMousePositionToVideoCoordinates(const QPoint &pos, int &x, int &y,
                                                        int &width, int &height)
{
    TargetPoint point;
    if (!mapEventToTarget(pos, point))
        return false;
    x = point.x;
    y = point.y;
    width = point.width;
    height = point.height;
    return true;
}

bool TavroVideo::mapEventToTarget(const QPointF &position, TargetPoint &point)
{
    // Widget positions are rounded half away from zero.
    return mapWidgetToTarget(position.toPoint(), getActualVideoDisplayRect(),
                             m_negotiatedResolution, m_blackBorderInfo, point);
}

bool TavroVideo::canSendMouse() const
{
    return !getCurrentDeviceDid().isEmpty() && isLinkOpen(currentLink());
}

bool TavroVideo::sendMouseCoordinates(int x, int y, unsigned char buttons, unsigned char wheel)
{
    if (getCurrentDeviceDid().isEmpty())
        return false;
    DeviceUartManager *link = currentLink();
    if (!isLinkOpen(link) || !isAppReallyInForeground())
        return false;
    return writeMouseFrame(link, x, y, buttons, wheel);
}

bool TavroVideo::writeMouseFrame(DeviceUartManager *link, int x, int y, quint8 buttons,
                                 quint8 wheel)
{
    quint16 size[2];
    mouseReportSize(m_negotiatedResolution, m_blackBorderInfo, size);
    const quint16 point[2] = {quint16(std::max(0, x)), quint16(std::max(0, y))};
    uint8_t buffer[kMouseReportBufferSize] = {};
    if (coord_convert(m_uartProtocol, m_coordMode, size, point, buttons, wheel, buffer) < 0)
        return false;
    if (!link->sendData(QByteArray(reinterpret_cast<const char *>(buffer), kCh9329MouseFrameSize)))
        return false;
    m_targetMouseButtons = buttons;
    m_lastReportPos = QPoint(x, y);
    return true;
}

void TavroVideo::releaseHeldMouseButtons()
{
    m_pendingMouseButtons = 0;
    if (m_targetMouseButtons == 0)
        return;
    DeviceUartManager *link = currentLink();
    // Sent without the foreground check: the view is just leaving the foreground.
    if (isLinkOpen(link) && m_lastReportPos.x() >= 0) {
        qDebug() << "[鼠标事件] 释放目标机仍按住的鼠标按键:" << m_targetMouseButtons;
        writeMouseFrame(link, m_lastReportPos.x(), m_lastReportPos.y(), 0, 0);
    }
    m_targetMouseButtons = 0;
}

void TavroVideo::flushPendingMouseMove()
{
    sendThrottledMouseCoordinates();
    m_lastSentMousePos = m_pendingMousePos;
    m_pendingMousePos = kNoMousePos;
    m_pendingMouseButtons = 0;
}

void TavroVideo::flushPendingMouseMoveBeforeButton()
{
    if (!m_mouseThrottleTimer->isActive())
        return;
    m_mouseThrottleTimer->stop();
    if (m_mouseThrottleEnabled && m_pendingMousePos != kNoMousePos)
        flushPendingMouseMove();
}

void TavroVideo::mousePressEvent(QMouseEvent *event)
{
    if (!isAppReallyInForeground()) {
        qDebug() << "[鼠标事件] 应用在后台，跳过鼠标按下处理";
        QWidget::mousePressEvent(event);
        return;
    }
    TargetPoint p;
    if (!mapEventToTarget(event->position(), p)) {
        QWidget::mousePressEvent(event);
        return;
    }
    if (pressDebugCounter++ >= kPressDebugEvery - 1) {
        const QSize res = m_negotiatedResolution.width() > 0 && m_negotiatedResolution.height() > 0
                              ? m_negotiatedResolution
                              : QSize(kMouseFallbackWidth, kMouseFallbackHeight);
        qDebug() << "[MousePress Debug] Res:" << res.width() << "x" << res.height()
                 << "| Border T:" << m_blackBorderInfo.top << "L:" << m_blackBorderInfo.left
                 << "B:" << m_blackBorderInfo.bottom << "R:" << m_blackBorderInfo.right
                 << "| Calc:" << p.width << "x" << p.height << "| Relative:" << p.x << "," << p.y;
        pressDebugCounter = 0;
    }
    // The press must not overtake the move that led to it.
    flushPendingMouseMoveBeforeButton();
    const Qt::MouseButton button = event->button();
    if (!insideTarget(p) || getCurrentDeviceDid().isEmpty()) {
        qDebug().noquote() << QStringLiteral(
                                  "[鼠标坐标] 坐标超出有效区域: (%1,%2) 有效区域: %3x%4，按键: %5")
                                  .arg(p.x)
                                  .arg(p.y)
                                  .arg(p.width)
                                  .arg(p.height)
                                  .arg(mouseButtonNameForLog(button));
    } else if (isLinkOpen(currentLink())) {
        sendMouseCoordinates(p.x, p.y, pressReportButtons(button, event->buttons()), 0);
    }
    m_lastMousePos = QPoint(p.x, p.y);
    updateWatermark();
    QWidget::mousePressEvent(event);
}

void TavroVideo::mouseReleaseEvent(QMouseEvent *event)
{
    if (!isAppReallyInForeground()) {
        qDebug() << "[鼠标事件] 应用在后台，跳过鼠标释放处理";
        QWidget::mouseReleaseEvent(event);
        return;
    }
    // The move that led here goes first: a move sent after the release would still carry the
    // released button and press it again on the target.
    flushPendingMouseMoveBeforeButton();
    const quint8 buttons = releaseReportButtons(event->button(), event->buttons());
    TargetPoint p;
    if (mapEventToTarget(event->position(), p) && insideTarget(p)) {
        if (canSendMouse())
            sendMouseCoordinates(p.x, p.y, buttons, 0);
        m_lastMousePos = QPoint(p.x, p.y);
    } else if ((m_targetMouseButtons & ~buttons) && m_lastMousePos.x() >= 0 && canSendMouse()) {
        // A drag that ends on the letterbox bar or outside the view still lets go of the
        // button, where the pointer last was on the picture.
        sendMouseCoordinates(m_lastMousePos.x(), m_lastMousePos.y(), buttons, 0);
    }
    QWidget::mouseReleaseEvent(event);
}

void TavroVideo::mouseMoveEvent(QMouseEvent *event)
{
    TargetPoint p;
    if (isAppReallyInForeground() && mapEventToTarget(event->position(), p) && insideTarget(p)) {
        m_lastMousePos = QPoint(p.x, p.y);
        if (!m_mouseStatusTimer->isActive())
            m_mouseStatusTimer->start();
        m_pendingMousePos = QPoint(p.x, p.y);
        m_pendingMouseButtons = heldReportButtons(event->buttons());
        if (!m_mouseThrottleTimer->isActive())
            m_mouseThrottleTimer->start(m_mouseThrottleIntervalMs);
    }
    QWidget::mouseMoveEvent(event);
}

void TavroVideo::wheelEvent(QWheelEvent *event)
{
    if (!isAppReallyInForeground()) {
        qDebug() << "[滚轮事件] 应用在后台，跳过滚轮处理";
        QWidget::wheelEvent(event);
        return;
    }
    TargetPoint p;
    if (mapEventToTarget(event->position(), p) && insideTarget(p) && canSendMouse()) {
        const qint8 wheel = wheelReportValue(event->angleDelta().y(), m_wheelStep);
        if (wheel != 0)
            sendMouseCoordinates(p.x, p.y, heldReportButtons(event->buttons()), quint8(wheel));
    }
    QWidget::wheelEvent(event);
}

void TavroVideo::processThrottledMouseEvent()
{
    if (m_mouseThrottleEnabled && m_pendingMousePos != kNoMousePos)
        flushPendingMouseMove();
}

void TavroVideo::sendThrottledMouseCoordinates()
{
    if (canSendMouse())
        sendMouseCoordinates(m_pendingMousePos.x(), m_pendingMousePos.y(), m_pendingMouseButtons,
                             0);
}

void TavroVideo::flushMouseStatusBarUpdate()
{
    updateWatermark();
}

void TavroVideo::updateMouseThrottleSettings(int intervalMs, int minDistance)
{
    m_mouseThrottleIntervalMs = std::max(1, intervalMs);
    m_mouseMinDistance = std::max(0, minDistance);
    qDebug().noquote() << QStringLiteral("[鼠标节流] 更新设置 - 间隔:%1ms, 最小距离:%2像素")
                              .arg(m_mouseThrottleIntervalMs)
                              .arg(m_mouseMinDistance);
}

void TavroVideo::enableMouseThrottle(bool enabled)
{
    m_mouseThrottleEnabled = enabled;
    if (!enabled && m_pendingMousePos != kNoMousePos)
        flushPendingMouseMove();
    qDebug().noquote() << QStringLiteral("[鼠标节流] %1")
                              .arg(enabled ? QStringLiteral("已启用") : QStringLiteral("已禁用"));
}

void TavroVideo::setMouseThrottleInterval(int intervalMs)
{
    m_mouseThrottleIntervalMs = std::max(1, intervalMs);
    qDebug().noquote()
        << QStringLiteral("[鼠标节流] 设置间隔为 %1ms").arg(m_mouseThrottleIntervalMs);
}

void TavroVideo::setMouseMinDistance(int minDistance)
{
    m_mouseMinDistance = std::max(0, minDistance);
    qDebug().noquote()
        << QStringLiteral("[鼠标节流] 设置最小距离为 %1像素").arg(m_mouseMinDistance);
}

void TavroVideo::resetMouseThrottleSettings()
{
    m_mouseThrottleEnabled = true;
    m_mouseThrottleIntervalMs = 1;
    m_mouseMinDistance = 0;
    qDebug().noquote() << "[鼠标节流] 已重置，间隔" << m_mouseThrottleIntervalMs << "ms";
}
