#pragma once

#include <QByteArray>
#include <QDialog>
#include <QIcon>
#include <QList>
#include <QMap>
#include <QRect>
#include <QStringList>

#include <array>

#include "devices/previewrules.h"
#include "platform/cameraidentity.h"

class QCheckBox;
class QStackedWidget;
class QTimer;
class TavroVideo;
class TavroVideoPreview;

namespace Ui {
class device;
}

// The device page: on the left the list of attached boxes (one row per box-like camera, an
// exclusive check box choosing the box the console shows), on the right the video area: the
// console view kept at the picture's aspect ratio, or (with "multi_same_display") the grid of
// twelve live previews. Keeps the database's device records in step with the cameras it sees,
// follows hot-plug, and closes the console when its box vanishes. device.cpp holds the list and
// the console side, device_grid.cpp the grid and the hand-over of cameras between the two: a
// camera is released on one side before the other side opens it.
class device : public QDialog
{
    Q_OBJECT
public:
    device(QWidget *parent, TavroVideo *view);
    ~device() override;

    // Row i of the table is camera i of this list (box-like cameras, enumeration order).
    const QList<IdentifiedCamera> &cameras() const { return m_cameras; }
    int currentRow() const { return m_currentRow; }
    QCheckBox *checkboxAtRow(int row) const;
    QStringList deviceDescriptionMenuLabels() const;

    void setCustomDeviceName(const QByteArray &id, const QString &name);
    QString getCustomDeviceName(const QByteArray &id) const;
    void removeCustomDeviceName(const QByteArray &id);

    void activateDeviceRowExclusive(int row);
    void activateRowLikeDoubleClick(int row);
    void syncExclusiveCheckboxesToCameraRow();
    void toggleDeviceList();
    bool isDeviceListVisible() const { return m_listVisible; }
    void setupVideoWidget();
    void adjustTavroVideoGeometry();
    void applyDevicesTableColumnWidths();
    void endRefreshWaitCursor();
    void getSysUvc();
    QStackedWidget *videoAreaStack() const { return m_stack; }
    // The grid is on: "multi_same_display" was "1" when the page was made.
    bool multiSameDisplay() const { return m_multiSameDisplay; }
    // Tile of a grid slot (0..11); null outside.
    TavroVideoPreview *previewTile(int slot) const;
    // The slot shows that the console view holds its camera.
    bool isPreviewSlotSuppressed(int slot) const;

public slots:
    void updateDevicesTable();
    void refreshDevices();
    void checkAndProcessDevicesInDatabase();
    void updateGreenDotBlink();
    void onUvcInputsChanged();
    void onDeviceCheckboxClicked(bool checked);
    void onDevicesTableCellDoubleClicked(int row, int column);
    void openMainAfterPreviewDrain(int row, const QByteArray &uvcId, bool fromGrid);

    // The preview grid (device_grid.cpp).
    void onPreviewGridRequested();
    void onMainCameraClosedForPreviewGrid();
    void continuePreviewGridSwitchAfterMainClose();
    void onPreviewZoomRequested(int slot);
    void closeAllPreviewSlots();
    void syncPreviewCameras(bool force);
    void applyPreviewSlotSync(int slot, bool force, const QByteArray &mainUvcId);
    void scheduleSyncPreviewCameras(bool force);
    void onDeferredPreviewSync();
    void beginStaggeredPreviewSync(bool force, const QByteArray &mainUvcId);
    void advanceStaggeredPreviewSync();
    void cancelPendingPreviewSync();
    void syncPreviewGridAfterLeavingMain();
    void flashPreviewForRow(int row);
    void onPeriodicRecoverTick();

protected:
    void showEvent(QShowEvent *event) override;
    void closeEvent(QCloseEvent *event) override;
    void resizeEvent(QResizeEvent *event) override;
    // Escape is the target's key, or nobody's: it never closes the page as it would a dialog.
    void keyPressEvent(QKeyEvent *event) override;
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    // Tests move the page's clock through this (tests/support).
    friend class DeviceTestAccess;

    void setupVideoAreaStack();
    void setupTable();
    void setupButtons();
    void connectView();
    void clearTableRows();
    void appendCameraRow(int row, const IdentifiedCamera &camera);
    QString displayNameFor(const IdentifiedCamera &camera) const;
    // The name the user gave, empty when none (getCustomDeviceName answers the default then).
    QString getCustomDeviceNameOrEmpty(const QByteArray &id) const;
    void loadStoredNameIfUnknown(const QByteArray &id, const QVariantMap &record);
    void applySearchFilter();
    // The box shown in the console was pulled out and is listed again: show it again.
    void reopenReturnedBox(int row, const QByteArray &currentId);
    bool isGridPageShowing() const;
    // Tiles may open cameras: grid mode, the grid shows, and no open of the console is pending
    // (its camera is about to be taken by the console).
    bool previewSyncAllowed() const;
    void buildPreviewGrid(QWidget *page);
    // The grid shows again: no row is the console's, the dots and check boxes say so.
    void showPreviewGridPage();
    void showRowTooltip(const QPoint &viewportPos);
    qint64 nowMs() const;

    Ui::device *ui = nullptr;
    TavroVideo *m_view = nullptr;
    QList<IdentifiedCamera> m_cameras;
    QIcon m_greenIcon;
    QIcon m_grayIcon;
    QIcon m_usbIcon;
    double m_aspectRatio = 16.0 / 9.0;
    QRect m_lastVideoGeometry;
    bool m_listVisible = true;
    bool m_blinkPhase = true;
    int m_currentRow = -1;
    bool m_updating = false;
    bool m_refreshing = false;
    qint64 m_lastRefreshMs = 0;
    qint64 m_lastUserRefreshMs = 0;
    qint64 m_lastUserRowActionMs = 0;
    bool m_waitCursorShown = false;
    QMap<QByteArray, QString> *m_customNames = nullptr;
    QTimer *m_blinkTimer = nullptr;
    QTimer *m_dbCheckTimer = nullptr;
    QTimer *m_periodicRecoverTimer = nullptr; // started with the preview grid
    bool m_firstShowDone = false;
    QByteArray m_vanishedCurrentId; // the console's box, closed because it was pulled out
    qint64 m_clockOffsetMs = 0;

    // The two-page video area: page 0 the console view, page 1 the preview grid.
    bool m_multiSameDisplay = false;
    QStackedWidget *m_stack = nullptr;
    QWidget *m_previewGridPage = nullptr;
    std::array<TavroVideoPreview *, kPreviewSlotCount> m_previewTiles{};
    std::array<bool, kPreviewSlotCount> m_previewSuppressed{};
    bool m_gridSwitchPending = false;
    quint64 m_gridSwitchGeneration = 0; // time-outs of an earlier switch find a newer one
    bool m_mainOpenPending = false;
    quint64 m_mainOpenGeneration = 0;
    quint64 m_mainOpenRequests = 0; // opens of the console accepted so far
    quint64 m_cameraStarts = 0;     // cameraStarted signals seen so far
    bool m_leavingGrid = false;
    bool m_skipNextTableUpdate = false;
    bool m_previewSyncForcePending = false; // left by hot-plug or a refresh for the next sync
    qint64 m_lastZoomMs = 0;
    QTimer *m_previewSyncTimer = nullptr;
    bool m_previewSyncForced = false;
    QTimer *m_staggerTimer = nullptr;
    int m_staggerIndex = kPreviewSlotCount;
    bool m_staggerForce = false;
    QByteArray m_staggerMainId;
};
