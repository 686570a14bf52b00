// The device page's preview grid: twelve tiles, each bound to the camera of its table row, and
// the hand-over of a camera between the grid and the console view. A camera is opened by one
// capture session at a time, so every move releases it on one side first: the console parks its
// camera before the grid shows, the tiles close before the console opens one of their cameras,
// and a tile never opens the camera the console holds.
#include <QApplication>
#include <QDebug>
#include <QGridLayout>
#include <QPointer>
#include <QStackedWidget>
#include <QTableWidget>
#include <QTimer>

#include "console/tavrovideo.h"
#include "devices/device.h"
#include "devices/devicelistrules.h"
#include "devices/tavrovideopreview.h"
#include "ui_device.h"

namespace {

constexpr int kParkSettleMs = 280;
constexpr int kMainCloseFallbackMs = 6000;
constexpr int kSyncAfterGridShownMs = 400;
constexpr qint64 kZoomThrottleMs = 350;
constexpr int kForcedResyncMs = 50;
constexpr int kStaggerStepMs = 100;
constexpr qint64 kPreviewHealthMaxAgeMs = 8000;

} // namespace

void device::buildPreviewGrid(QWidget *page)
{
    auto *grid = qobject_cast<QGridLayout *>(page->layout());
    for (int slot = 0; slot < kPreviewSlotCount; ++slot) {
        auto *tile = new TavroVideoPreview(slot, page);
        m_previewTiles[std::size_t(slot)] = tile;
        grid->addWidget(tile, slot / kPreviewColumns, slot % kPreviewColumns);
        connect(tile, &TavroVideoPreview::zoomRequested, this, &device::onPreviewZoomRequested);
    }
    for (int row = 0; row < kPreviewSlotCount / kPreviewColumns; ++row)
        grid->setRowStretch(row, 1);
    for (int column = 0; column < kPreviewColumns; ++column)
        grid->setColumnStretch(column, 1);
}

TavroVideoPreview *device::previewTile(int slot) const
{
    return slot >= 0 && slot < kPreviewSlotCount ? m_previewTiles[std::size_t(slot)] : nullptr;
}

bool device::isPreviewSlotSuppressed(int slot) const
{
    return slot >= 0 && slot < kPreviewSlotCount && m_previewSuppressed[std::size_t(slot)];
}

bool device::previewSyncAllowed() const
{
    return m_multiSameDisplay && isGridPageShowing() && !m_mainOpenPending;
}

// ---- Console view -> grid ------------------------------------------------------------------

void device::onPreviewGridRequested()
{
    if (!m_multiSameDisplay || !m_view || m_gridSwitchPending || m_mainOpenPending || m_leavingGrid)
        return;
    m_gridSwitchPending = true;
    const quint64 generation = ++m_gridSwitchGeneration;
    QApplication::setOverrideCursor(Qt::WaitCursor);
    m_view->closePopupWindows();
    m_view->stopKeyboardHookForLayoutSwitch();
    cancelPendingPreviewSync();
    closeAllPreviewSlots();

    QTimer::singleShot(0, this, [this, generation] {
        if (m_view)
            m_view->parkMainCameraForGridLayout();
        QTimer::singleShot(kParkSettleMs, this, [this, generation] {
            if (!m_gridSwitchPending || generation != m_gridSwitchGeneration)
                return;
            qDebug() << "[device::onPreviewGridRequested] 主路停放完成，切换九宫格";
            continuePreviewGridSwitchAfterMainClose();
        });
    });
    QTimer::singleShot(kMainCloseFallbackMs, this, [this, generation] {
        if (!m_gridSwitchPending || generation != m_gridSwitchGeneration)
            return;
        qDebug() << "[device::onPreviewGridRequested] 等待主路关闭超时，执行兜底切换";
        continuePreviewGridSwitchAfterMainClose();
    });
}

void device::onMainCameraClosedForPreviewGrid()
{
    if (m_gridSwitchPending)
        continuePreviewGridSwitchAfterMainClose();
}

void device::continuePreviewGridSwitchAfterMainClose()
{
    if (!m_gridSwitchPending)
        return;
    m_gridSwitchPending = false;
    qDebug() << "[device::continuePreviewGridSwitchAfterMainClose] 切到预览栈";
    QTimer::singleShot(0, this, [this] {
        QApplication::restoreOverrideCursor();
        if (m_view)
            m_view->hide();
        showPreviewGridPage();
        QTimer::singleShot(kSyncAfterGridShownMs, this, [this] {
            if (m_multiSameDisplay && isGridPageShowing())
                scheduleSyncPreviewCameras(true);
        });
    });
}

void device::showPreviewGridPage()
{
    m_stack->setCurrentIndex(1);
    m_currentRow = -1;
    ui->devicesTableWidget->clearSelection();
    syncExclusiveCheckboxesToCameraRow();
    updateGreenDotBlink();
}

// ---- Grid -> console view ------------------------------------------------------------------

void device::onPreviewZoomRequested(int slot)
{
    if (!m_multiSameDisplay || !m_view || slot < 0 || slot >= kPreviewSlotCount)
        return;
    if (m_gridSwitchPending || m_mainOpenPending || m_leavingGrid) {
        qDebug() << "[device::onPreviewZoomRequested] 切换进行中，忽略双击放大请求";
        return;
    }
    const qint64 now = nowMs();
    if (isThrottled(m_lastZoomMs, now, kZoomThrottleMs, false)) {
        qDebug() << "[device::onPreviewZoomRequested] 双击请求过于频繁，已节流";
        return;
    }
    m_lastZoomMs = now;

    cancelPendingPreviewSync();
    closeAllPreviewSlots();
    if (slot >= m_cameras.size()) {
        m_stack->setCurrentIndex(0);
        m_currentRow = -1;
        syncExclusiveCheckboxesToCameraRow();
        ui->devicesTableWidget->clearSelection();
        updateGreenDotBlink();
        return;
    }
    openMainAfterPreviewDrain(slot, m_cameras.at(slot).identity, true);
}

void device::closeAllPreviewSlots()
{
    for (int slot = 0; slot < kPreviewSlotCount; ++slot) {
        m_previewSuppressed[std::size_t(slot)] = false;
        if (TavroVideoPreview *tile = previewTile(slot)) {
            tile->setMainOccupiedPlaceholder(false);
            tile->closeCamera();
        }
    }
}

// ---- Binding slots to cameras --------------------------------------------------------------

void device::applyPreviewSlotSync(int slot, bool force, const QByteArray &mainUvcId)
{
    TavroVideoPreview *tile = previewTile(slot);
    if (!tile)
        return;
    const auto index = std::size_t(slot);
    PreviewSlotState state;
    state.slot = slot;
    state.cameraCount = int(m_cameras.size());
    state.cameraId = slot < m_cameras.size() ? m_cameras.at(slot).identity : QByteArray();
    state.boundId = tile->boundId();
    state.mainId = mainUvcId;
    state.mainHoldsCamera = m_view && m_view->isUvcHeldByExclusiveMainCanvas(state.cameraId);
    state.suppressed = m_previewSuppressed[index];
    state.streaming = tile->isPreviewStreaming();
    state.force = force;
    const PreviewSlotDecision decision = decidePreviewSlot(state);

    switch (decision.action) {
    case PreviewSlotAction::Close:
        m_previewSuppressed[index] = false;
        tile->setMainOccupiedPlaceholder(false);
        tile->closeCamera();
        return;
    case PreviewSlotAction::Suppress:
        if (decision.newlySuppressed)
            qDebug().noquote() << "[device::applyPreviewSlotSync][p3] 槽位" << slot
                               << "与主画布同 UVC，预览抑制:" << QString::fromUtf8(state.cameraId);
        m_previewSuppressed[index] = true;
        tile->setMainOccupiedPlaceholder(true);
        if (tile->isPreviewStreaming() || !tile->boundId().isEmpty())
            tile->closeCamera();
        return;
    case PreviewSlotAction::Keep:
    case PreviewSlotAction::Open:
        break;
    }
    if (decision.suppressionLifted) {
        qDebug().noquote() << "[device::applyPreviewSlotSync][p3] 槽位" << slot
                           << "解除主路独占抑制，恢复预览:" << QString::fromUtf8(state.cameraId);
        m_previewSuppressed[index] = false;
    }
    tile->setMainOccupiedPlaceholder(false);
    if (decision.action == PreviewSlotAction::Keep)
        return;
    if (decision.changed)
        qDebug().noquote() << "[device::applyPreviewSlotSync] 槽位" << slot << "设备变更"
                           << QString::fromUtf8(state.boundId) << "->"
                           << QString::fromUtf8(state.cameraId);
    // A box that moved to this slot (one before it was pulled out) is still streamed by the tile
    // of its old slot until that slot's turn comes: that tile lets it go first.
    for (int other = 0; other < kPreviewSlotCount; ++other) {
        TavroVideoPreview *holder = previewTile(other);
        if (other != slot && holder && holder->boundId() == state.cameraId)
            holder->closeCamera();
    }
    // By identity, from a fresh camera list: the row's entry may be stale by now.
    tile->openCamera(state.cameraId, decision.reopen);
}

void device::syncPreviewCameras(bool force)
{
    if (!previewSyncAllowed())
        return;
    const QByteArray mainId = m_view ? m_view->currentDeviceId() : QByteArray();
    for (int slot = 0; slot < kPreviewSlotCount; ++slot)
        applyPreviewSlotSync(slot, force, mainId);
}

void device::scheduleSyncPreviewCameras(bool force)
{
    if (!previewSyncAllowed())
        return;
    m_previewSyncForced = m_previewSyncForced || force;
    if (!m_previewSyncTimer) {
        m_previewSyncTimer = new QTimer(this);
        m_previewSyncTimer->setSingleShot(true);
        connect(m_previewSyncTimer, &QTimer::timeout, this, &device::onDeferredPreviewSync);
    }
    // Forced schedules in quick succession collapse into one sync after the last of them.
    m_previewSyncTimer->start(force && m_previewSyncTimer->isActive() ? kForcedResyncMs : 0);
}

void device::onDeferredPreviewSync()
{
    const bool forced = m_previewSyncForced;
    m_previewSyncForced = false;
    if (previewSyncAllowed()) {
        if (forced) {
            qDebug() << "[device::onDeferredPreviewSync] macOS 错峰强制重建预览流";
            // The refresh's wait cursor stays until the staggered sync is through.
            beginStaggeredPreviewSync(true, m_view ? m_view->currentDeviceId() : QByteArray());
            return;
        }
        syncPreviewCameras(false);
    }
    endRefreshWaitCursor();
}

void device::beginStaggeredPreviewSync(bool force, const QByteArray &mainUvcId)
{
    m_staggerMainId = mainUvcId;
    m_staggerForce = force;
    m_staggerIndex = 0;
    if (!m_staggerTimer) {
        m_staggerTimer = new QTimer(this);
        m_staggerTimer->setSingleShot(true);
        connect(m_staggerTimer, &QTimer::timeout, this, &device::advanceStaggeredPreviewSync);
    }
    m_staggerTimer->start(0);
}

void device::advanceStaggeredPreviewSync()
{
    // Re-opening twelve cameras at once overloads the USB host: one every 100 ms.
    if (previewSyncAllowed() && m_staggerIndex < kPreviewSlotCount) {
        applyPreviewSlotSync(m_staggerIndex, m_staggerForce, m_staggerMainId);
        ++m_staggerIndex;
        m_staggerTimer->start(kStaggerStepMs);
        return;
    }
    if (m_staggerIndex >= kPreviewSlotCount)
        qDebug() << "[device::advanceStaggeredPreviewSync] 错峰预览同步完成";
    m_staggerIndex = kPreviewSlotCount;
    endRefreshWaitCursor();
}

void device::cancelPendingPreviewSync()
{
    if (m_previewSyncTimer)
        m_previewSyncTimer->stop();
    m_previewSyncForced = false;
    if (m_staggerTimer)
        m_staggerTimer->stop();
    m_staggerIndex = kPreviewSlotCount;
    // No sync will end a refresh's wait now.
    endRefreshWaitCursor();
}

void device::syncPreviewGridAfterLeavingMain()
{
    if (m_multiSameDisplay && isGridPageShowing())
        scheduleSyncPreviewCameras(true);
}

void device::flashPreviewForRow(int row)
{
    if (TavroVideoPreview *tile = previewTile(row))
        tile->flashGreenBorderHint();
}

// ---- Periodic recovery ---------------------------------------------------------------------

void device::onPeriodicRecoverTick()
{
    if (!m_view || !m_stack)
        return;
    if (m_refreshing || m_updating) {
        qDebug() << "[device::onPeriodicRecoverTick] 刷新进行中，跳过本轮周期恢复";
        return;
    }
    if (!isGridPageShowing()) {
        int row = m_currentRow >= 0 && m_currentRow < m_cameras.size() ? m_currentRow : -1;
        const QByteArray currentId = m_view->currentDeviceId();
        for (int i = 0; row < 0 && !currentId.isEmpty() && i < m_cameras.size(); ++i) {
            if (m_cameras.at(i).identity == currentId)
                row = i;
        }
        if (row >= 0) {
            qDebug() << "[device::onPeriodicRecoverTick] 主画布模式：按双击当前设备行执行重开"
                     << row;
        } else if (!m_cameras.isEmpty()) {
            qDebug() << "[device::onPeriodicRecoverTick] "
                        "主画布模式：未定位到当前设备行，回退双击第一个设备";
            row = 0;
        } else {
            qDebug()
                << "[device::onPeriodicRecoverTick] 主画布模式：设备列表为空，跳过本轮双击重开";
            return;
        }
        // The re-open's cameraStarted does not rebuild the table; an open that does not
        // happen (throttled, or a switch running) leaves nothing to skip.
        const quint64 requestsBefore = m_mainOpenRequests;
        m_skipNextTableUpdate = true;
        onDevicesTableCellDoubleClicked(row, 0);
        if (m_mainOpenRequests == requestsBefore)
            m_skipNextTableUpdate = false;
        return;
    }

    bool anyBound = false;
    bool allAlive = true;
    for (int slot = 0; slot < kPreviewSlotCount; ++slot) {
        TavroVideoPreview *tile = previewTile(slot);
        if (!tile || tile->boundId().isEmpty())
            continue;
        anyBound = true;
        const bool healthy = tile->isPreviewStreamHealthy(kPreviewHealthMaxAgeMs);
        const bool blocked = m_previewSuppressed[std::size_t(slot)];
        qDebug().noquote() << "[device::onPeriodicRecoverTick][preview]"
                           << "slot=" << slot << "boundId=" << QString::fromUtf8(tile->boundId())
                           << "streaming=" << tile->isPreviewStreaming() << "healthy=" << healthy
                           << "blockedByMain=" << blocked;
        allAlive = allAlive && (healthy || blocked);
    }
    if (anyBound && allAlive) {
        qDebug() << "[device::onPeriodicRecoverTick] 预览模式：流状态健康，跳过本轮刷新";
        return;
    }
    qDebug() << "[device::onPeriodicRecoverTick] 预览模式：周期执行设备刷新";
    refreshDevices();
}
