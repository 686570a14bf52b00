#pragma once

#include <QByteArray>
#include <QDialog>
#include <QIcon>
#include <QList>
#include <QMap>
#include <QRect>
#include <QStringList>

#include "platform/cameraidentity.h"

class QCheckBox;
class QStackedWidget;
class QTimer;
class TavroVideo;

namespace Ui {
class device;
}

// The device page: on the left the list of attached boxes (one row per box-like camera, an
// exclusive check box choosing the box the console shows), on the right the video area with the
// console view kept at the picture's aspect ratio. Keeps the database's device records in step
// with the cameras it sees, follows hot-plug, and closes the console when its box vanishes.
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

public slots:
    void updateDevicesTable();
    void refreshDevices();
    void checkAndProcessDevicesInDatabase();
    void updateGreenDotBlink();
    void onUvcInputsChanged();
    void onDeviceCheckboxClicked(bool checked);
    void onDevicesTableCellDoubleClicked(int row, int column);
    void openMainAfterPreviewDrain(int row, const QByteArray &uvcId, bool fromGrid);

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
    bool m_gridSwitchPending = false;
    bool m_mainOpenPending = false;
    bool m_leavingGrid = false;
    bool m_skipNextTableUpdate = false;
    bool m_previewSyncForcePending = false;
};
