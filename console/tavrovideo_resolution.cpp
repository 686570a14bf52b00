// Console view: the periodic check for a larger capture resolution than the one in effect. It
// runs while a camera is open and the application is in front and not minimised.
#include "console/tavrovideo.h"

#include <QCamera>
#include <QDebug>
#include <QGuiApplication>
#include <QTimer>

#include "console/captureformat.h"
#include "platform/cameraidentity.h"

namespace {

constexpr int kExtendedResolutionCheckIntervalMs = 30000;

} // namespace

int TavroVideo::resolutionCheckIntervalMs() const
{
    return m_resolutionCheckTimer->interval();
}

bool TavroVideo::resolutionCheckWanted() const
{
    return m_camera && QGuiApplication::applicationState() == Qt::ApplicationActive &&
           !window()->isMinimized() && m_resolutionSwitchCount < m_maxResolutionSwitches;
}

// The one place that starts and stops the check. It reads the application's state itself rather
// than following state changes, so a first activation at launch is never missed.
void TavroVideo::syncResolutionCheck(const char *startedLog, const char *stoppedLog)
{
    const bool wanted = resolutionCheckWanted();
    if (wanted == m_resolutionCheckTimer->isActive())
        return;
    if (wanted) {
        m_resolutionCheckTimer->start();
        if (startedLog)
            qDebug() << startedLog;
    } else {
        m_resolutionCheckTimer->stop();
        if (stoppedLog)
            qDebug() << stoppedLog;
    }
}

void TavroVideo::checkAndSwitchToMaxResolution()
{
    if (!m_appActive) {
        qDebug() << "[分辨率检查] 应用在后台，跳过分辨率检查";
        return;
    }
    if (window()->isMinimized()) {
        qDebug() << "[分辨率检查] 窗口最小化，跳过分辨率检查";
        return;
    }
    if (!m_autoResolutionSwitchEnabled) {
        qDebug() << "[分辨率检查] 自动切换已禁用，跳过检查";
        return;
    }
    if (m_resolutionSwitchCount >= m_maxResolutionSwitches) {
        qDebug() << "[分辨率检查] 已达到最大切换次数限制，停止自动检查";
        stopResolutionCheck();
        return;
    }
    qDebug() << "[分辨率检查] 开始检查当前分辨率和最大可用分辨率...";
    if (findCameraByIdentity(m_currentDeviceId).isNull()) {
        qDebug() << "[分辨率检查] 无法找到当前设备，跳过检查";
        return;
    }
    const QSize maximum = getMaxSupportedResolution();
    if (!maximum.isValid()) {
        qDebug() << "[分辨率检查] 无法获取最大支持分辨率";
        return;
    }
    const ResolutionCheckVerdict verdict = judgeResolutionCheck(m_negotiatedResolution, maximum);
    if (verdict.switchWanted) {
        qDebug() << "[分辨率检查] 检测到更高分辨率可用，准备切换...";
        qDebug() << "  当前像素数:"
                 << qint64(m_negotiatedResolution.width()) * m_negotiatedResolution.height();
        qDebug() << "  最大像素数:" << qint64(maximum.width()) * maximum.height();
        qDebug().noquote() << "  提升幅度:"
                           << QStringLiteral("%1%").arg(verdict.gainPercent, 0, 'f', 1);
        if (switchToResolution(maximum)) {
            m_lastSwitchedResolution = maximum;
            ++m_resolutionSwitchCount;
            qDebug() << "[分辨率检查] 成功切换到更高分辨率，切换次数:" << m_resolutionSwitchCount;
        } else {
            qDebug() << "[分辨率检查] 切换到更高分辨率失败";
        }
        return;
    }
    qDebug() << "[分辨率检查] 当前分辨率已是最佳或接近最佳";
    if (verdict.extendInterval) {
        m_resolutionCheckTimer->setInterval(kExtendedResolutionCheckIntervalMs);
        qDebug() << "[分辨率检查] 当前分辨率已接近最佳，延长检查间隔到30秒";
    }
}

bool TavroVideo::switchToResolution(const QSize &target)
{
    if (target.width() < 0 || target.height() < 0) {
        qDebug() << "[分辨率切换] 目标分辨率无效";
        return false;
    }
    if (!m_camera || !m_camera->isActive()) {
        qDebug() << "[分辨率切换] 相机未打开，无法切换分辨率";
        return false;
    }
    qDebug() << "[分辨率切换] 准备切换到分辨率:" << target;
    qDebug() << "[分辨率切换] 尝试直接切换分辨率";
    // A running camera is never switched: the change would interrupt the picture.
    qDebug() << "[分辨率切换] 当前平台不支持直接分辨率切换";
    return false;
}

void TavroVideo::stopResolutionCheck()
{
    if (m_resolutionCheckTimer->isActive()) {
        m_resolutionCheckTimer->stop();
        qDebug() << "[分辨率检查] 停止定时检查";
    }
}
