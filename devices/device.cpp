#include "devices/device.h"

#include <QApplication>
#include <QCheckBox>
#include <QCloseEvent>
#include <QDateTime>
#include <QDebug>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QKeyEvent>
#include <QLabel>
#include <QMediaDevices>
#include <QMouseEvent>
#include <QStackedWidget>
#include <QTableWidget>
#include <QTimer>
#include <QToolButton>
#include <QToolTip>

#include "console/tavrovideo.h"
#include "db/dbmanager.h"
#include "devices/devicelistrules.h"
#include "ui/bundleicon.h"
#include "ui/stylesheet.h"
#include "ui_device.h"

namespace {

enum Column { NumberColumn, CheckColumn, DotColumn, UsbColumn, DescriptionColumn, IdColumn };
constexpr int kColumnCount = 6;
constexpr int kTablePointSize = 7;
constexpr int kRowHeight = 11;
constexpr int kIconPixels = 11;
constexpr int kBlinkIntervalMs = 500;
constexpr int kDatabaseCheckIntervalMs = 1000;
constexpr int kPeriodicRecoverIntervalMs = 60000;
constexpr qint64 kUserActionThrottleMs = 999;
constexpr qint64 kRefreshThrottleMs = 800;
constexpr int kDrainBeforeOpenMs = 180;
constexpr int kLeaveGridLockMs = 3000;
constexpr int kButtonIconSize = 24;
constexpr int kButtonPressGrowth = 8;

QLabel *labelInCell(QTableWidget *table, int row, int column)
{
    QWidget *cell = table->cellWidget(row, column);
    if (!cell)
        return nullptr;
    if (auto *label = qobject_cast<QLabel *>(cell))
        return label;
    if (cell->layout()) {
        for (int i = 0; i < cell->layout()->count(); ++i) {
            if (auto *label = qobject_cast<QLabel *>(cell->layout()->itemAt(i)->widget()))
                return label;
        }
    }
    return cell->findChild<QLabel *>();
}

// A cell widget holding one centred widget.
QWidget *centredCell(QWidget *content)
{
    auto *cell = new QWidget;
    auto *layout = new QHBoxLayout(cell);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(0);
    layout->addWidget(content, 0, Qt::AlignCenter);
    return cell;
}

QLabel *iconLabel(const QIcon &icon)
{
    auto *label = new QLabel;
    label->setFixedSize(kIconPixels, kIconPixels);
    label->setPixmap(icon.pixmap(kIconPixels, kIconPixels));
    return label;
}

QString positionText(QCameraDevice::Position position)
{
    switch (position) {
    case QCameraDevice::FrontFace:
        return QStringLiteral("Front");
    case QCameraDevice::BackFace:
        return QStringLiteral("Back");
    default:
        return QStringLiteral("Unspecified");
    }
}

void addPressFeedback(QToolButton *button)
{
    button->setIconSize(QSize(kButtonIconSize, kButtonIconSize));
    QObject::connect(button, &QToolButton::pressed, button, [button] {
        button->setProperty("releasedIconSize", button->iconSize());
        button->setIconSize(button->iconSize() + QSize(kButtonPressGrowth, kButtonPressGrowth));
    });
    QObject::connect(button, &QToolButton::released, button, [button] {
        const QSize previous = button->property("releasedIconSize").toSize();
        if (previous.isValid())
            button->setIconSize(previous);
    });
}

} // namespace

device::device(QWidget *parent, TavroVideo *view)
    : QDialog(parent), ui(new Ui::device), m_view(view)
{
    // A dialog by class, a plain child widget of the main window's content area by its flags
    // (the dialog constructor would make it a window of its own).
    setWindowFlags(Qt::Widget);
    setStyleSheet(getQssString(QStringLiteral(":/res/qss/device.css")) + getCheckboxQssString());
    ui->setupUi(this);
    setContentsMargins(0, 0, 0, 0);
    ui->centralwidget->setContentsMargins(0, 0, 0, 0);

    setupVideoAreaStack();
    connect(ui->devicesTableWidget, &QTableWidget::cellClicked, this, [this](int row, int) {
        if (isGridPageShowing() && row < kPreviewSlotCount)
            flashPreviewForRow(row);
    });
    setupButtons();

    if (!m_view)
        qWarning() << "TavroVideo object is null in device constructor!";
    m_greenIcon = QIcon(QStringLiteral(":/images/dot_green.png"));
    m_grayIcon = QIcon(QStringLiteral(":/images/dot_gray.png"));
    m_usbIcon = QIcon(QStringLiteral(":/images/usb.png"));
    if (m_usbIcon.pixmap(kIconPixels, kIconPixels).isNull()) {
        qWarning() << "Warning: :/images/usb.png not found. Using default icon.";
        m_usbIcon = QIcon(QStringLiteral(":/images/transparent.png"));
    }

    DBManager *db = DBManager::instance();
    {
        const QSignalBlocker block(ui->checkBoxShowMode);
        ui->checkBoxShowMode->setChecked(
            db->getAppSetting(QStringLiteral("multi_same_display"), QStringLiteral("0")) ==
            QLatin1String("1"));
    }
    connect(ui->checkBoxShowMode, &QCheckBox::clicked, this, [](bool checked) {
        QTimer::singleShot(0, DBManager::instance(), [checked] {
            DBManager::instance()->setAppSetting(QStringLiteral("multi_same_display"),
                                                 checked ? QStringLiteral("1")
                                                         : QStringLiteral("0"));
        });
    });
    ui->checkBoxShowMode->setToolTip(tr("重启后生效"));

    m_blinkPhase = true;
    m_currentRow = -1;
    connectView();
    getSysUvc();

    m_blinkTimer = new QTimer(this);
    connect(m_blinkTimer, &QTimer::timeout, this, &device::updateGreenDotBlink);
    m_blinkTimer->start(kBlinkIntervalMs);
    m_dbCheckTimer = new QTimer(this);
    connect(m_dbCheckTimer, &QTimer::timeout, this, &device::checkAndProcessDevicesInDatabase);
    m_dbCheckTimer->start(kDatabaseCheckIntervalMs);
    m_periodicRecoverTimer = new QTimer(this);
    m_periodicRecoverTimer->setInterval(kPeriodicRecoverIntervalMs);
    connect(m_periodicRecoverTimer, &QTimer::timeout, this, &device::onPeriodicRecoverTick);
    m_periodicRecoverTimer->start();

    setupTable();
    updateDevicesTable();
}

device::~device()
{
    m_blinkTimer->stop();
    m_dbCheckTimer->stop();
    m_blinkTimer->disconnect();
    m_dbCheckTimer->disconnect();
    delete m_customNames;
    delete ui;
}

qint64 device::nowMs() const
{
    return QDateTime::currentMSecsSinceEpoch() + m_clockOffsetMs;
}

// ---- Construction --------------------------------------------------------------------------

void device::setupVideoAreaStack()
{
    DBManager *db = DBManager::instance();
    m_multiSameDisplay =
        db->isInitialized() && db->getAppSetting(QStringLiteral("multi_same_display"),
                                                 QStringLiteral("0")) == QLatin1String("1");
    m_stack = new QStackedWidget(ui->centralwidget);
    m_stack->setObjectName(QStringLiteral("videoAreaStack"));
    m_stack->setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Expanding);
    ui->gridLayout->removeWidget(ui->videoWidget);
    m_stack->addWidget(ui->videoWidget);

    m_previewGridPage = new QWidget(m_stack);
    m_previewGridPage->setObjectName(QStringLiteral("previewGridPage"));
    m_previewGridPage->setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Expanding);
    auto *grid = new QGridLayout(m_previewGridPage);
    grid->setContentsMargins(2, 2, 2, 2);
    grid->setSpacing(2);
    buildPreviewGrid(m_previewGridPage);
    m_stack->addWidget(m_previewGridPage);

    ui->gridLayout->addWidget(m_stack, 0, 1);
    ui->gridLayout->setColumnStretch(1, 1);
    m_stack->setCurrentIndex(m_multiSameDisplay ? 1 : 0);
    qDebug() << "[device::setupVideoAreaStack] multi_same_display startup:" << m_multiSameDisplay
             << "stackIndex:" << m_stack->currentIndex();
}

void device::setupButtons()
{
    ui->btnAddDevice->setIcon(bundleIcon(QStringLiteral(":/images/device/add.png")));
    ui->btnFreshDevice->setIcon(bundleIcon(QStringLiteral(":/images/device/refresh.png")));
    ui->btnDelDevice->setIcon(bundleIcon(QStringLiteral(":/images/device/delete.png")));
    ui->btnHideDeviceList->setIcon(bundleIcon(QStringLiteral(":/images/device/arrow_left.png")));
    for (QToolButton *button :
         {ui->btnFreshDevice, ui->btnAddDevice, ui->btnDelDevice, ui->btnHideDeviceList}) {
        button->setAutoRaise(true);
        button->setFocusPolicy(Qt::NoFocus);
        addPressFeedback(button);
    }
    connect(ui->btnFreshDevice, &QToolButton::clicked, this, &device::refreshDevices);
    connect(ui->btnHideDeviceList, &QToolButton::clicked, this, &device::toggleDeviceList);
    // Boxes join the list by being plugged in and leave it by being unplugged.
    ui->btnAddDevice->setEnabled(false);
    ui->btnAddDevice->setToolTip(tr("插入盒子后自动出现在列表中"));
    ui->btnDelDevice->setEnabled(false);
    ui->btnDelDevice->setToolTip(tr("拔下盒子后自动从列表中移除"));
    connect(ui->deviceListSearchEdit, &QLineEdit::textChanged, this, &device::applySearchFilter);
}

void device::connectView()
{
    if (!m_view)
        return;
    connect(m_view, &TavroVideo::cameraStarted, this, [this] {
        ++m_cameraStarts;
        m_mainOpenPending = false;
        m_leavingGrid = false;
        if (m_skipNextTableUpdate)
            m_skipNextTableUpdate = false;
        else
            updateDevicesTable();
    });
    connect(m_view, &TavroVideo::previewGridRequested, this, &device::onPreviewGridRequested,
            Qt::UniqueConnection);
    connect(m_view, &TavroVideo::cameraClosed, this, &device::onMainCameraClosedForPreviewGrid,
            Qt::QueuedConnection);
    connect(m_view, &TavroVideo::uvcInputsChanged, this, &device::onUvcInputsChanged,
            Qt::QueuedConnection);
}

void device::setupTable()
{
    QTableWidget *table = ui->devicesTableWidget;
    table->setColumnCount(kColumnCount);
    QFont font = table->font();
    font.setPointSize(kTablePointSize);
    table->setFont(font);
    table->horizontalHeader()->setFont(font);
    table->verticalHeader()->setFont(font);
    table->horizontalHeader()->hide();
    table->verticalHeader()->hide();
    table->setSortingEnabled(false);
    table->horizontalHeader()->setMinimumSectionSize(8);
    table->horizontalHeader()->setStretchLastSection(false);
    table->horizontalHeader()->setSectionResizeMode(QHeaderView::Fixed);
    table->verticalHeader()->setMinimumSectionSize(kRowHeight);
    table->verticalHeader()->setDefaultSectionSize(kRowHeight);
    table->verticalHeader()->setSectionResizeMode(QHeaderView::Fixed);
    table->setHorizontalScrollMode(QAbstractItemView::ScrollPerPixel);
    table->setVerticalScrollMode(QAbstractItemView::ScrollPerPixel);
    table->setAutoScroll(false);
    table->setMouseTracking(true);
    table->setEditTriggers(QAbstractItemView::NoEditTriggers);
    table->setSelectionBehavior(QAbstractItemView::SelectRows);
    table->setSelectionMode(QAbstractItemView::SingleSelection);
    table->setHorizontalScrollBarPolicy(Qt::ScrollBarAsNeeded);
    table->setVerticalScrollBarPolicy(Qt::ScrollBarAsNeeded);
    table->setShowGrid(false);
    table->viewport()->installEventFilter(this);
}

// ---- The table -----------------------------------------------------------------------------

void device::clearTableRows()
{
    QTableWidget *table = ui->devicesTableWidget;
    for (int row = 0; row < table->rowCount(); ++row) {
        for (int column : {CheckColumn, DotColumn, UsbColumn}) {
            if (QWidget *cell = table->cellWidget(row, column)) {
                table->removeCellWidget(row, column);
                cell->deleteLater();
            }
        }
    }
    table->clearContents();
    table->setRowCount(0);
}

QString device::displayNameFor(const IdentifiedCamera &camera) const
{
    if (m_customNames && m_customNames->contains(camera.identity))
        return m_customNames->value(camera.identity);
    return camera.device.description();
}

void device::loadStoredNameIfUnknown(const QByteArray &id, const QVariantMap &record)
{
    // A name given in an earlier run lives in the record: the table shows it again.
    const QString stored = record.value(QStringLiteral("device_name")).toString();
    if (stored.isEmpty() || stored == QLatin1String(kDefaultDeviceName))
        return;
    if (m_customNames && m_customNames->contains(id))
        return;
    if (!m_customNames)
        m_customNames = new QMap<QByteArray, QString>;
    m_customNames->insert(id, stored);
}

void device::appendCameraRow(int row, const IdentifiedCamera &camera)
{
    QTableWidget *table = ui->devicesTableWidget;
    table->insertRow(row);

    auto *number = new QTableWidgetItem(QString::number(row + 1));
    number->setTextAlignment(Qt::AlignCenter);
    number->setFlags(number->flags() & ~Qt::ItemIsEditable);
    table->setItem(row, NumberColumn, number);

    auto *check = new QCheckBox;
    check->setFocusPolicy(Qt::NoFocus);
    connect(check, &QCheckBox::clicked, this, &device::onDeviceCheckboxClicked);
    table->setCellWidget(row, CheckColumn, centredCell(check));
    table->setCellWidget(row, DotColumn, centredCell(iconLabel(m_greenIcon)));
    table->setCellWidget(row, UsbColumn, centredCell(iconLabel(m_usbIcon)));

    auto *description = new QTableWidgetItem(displayNameFor(camera));
    description->setTextAlignment(Qt::AlignLeft | Qt::AlignVCenter);
    description->setFlags(description->flags() & ~Qt::ItemIsEditable);
    table->setItem(row, DescriptionColumn, description);

    auto *id = new QTableWidgetItem(QString::fromUtf8(camera.identity));
    id->setTextAlignment(Qt::AlignLeft | Qt::AlignVCenter);
    id->setFlags(id->flags() & ~Qt::ItemIsEditable);
    table->setItem(row, IdColumn, id);

    qDebug().noquote().nospace() << "Table Row: " << row
                                 << ", Desc: " << camera.device.description()
                                 << ", ID: " << QString::fromUtf8(camera.identity);
}

void device::updateDevicesTable()
{
    QTableWidget *table = ui->devicesTableWidget;
    if (m_updating) {
        qDebug() << "[device::updateDevicesTable] 正在更新中，跳过重复调用";
        return;
    }
    m_updating = true;
    qDebug() << "[device::updateDevicesTable] 被调用，当前行数:" << table->rowCount();
    clearTableRows();

    m_cameras = m_view ? m_view->getIdentifiedUvcDeviceList() : QList<IdentifiedCamera>();
    if (m_cameras.isEmpty())
        qDebug() << "No camera devices detected.";
    else
        qDebug() << "Detected" << m_cameras.size() << "camera devices.";

    DBManager *db = DBManager::instance();
    const QByteArray currentId = m_view ? m_view->currentDeviceId() : QByteArray();
    QList<QVariantMap> newRecords;
    int foundRow = -1;
    for (int i = 0; i < m_cameras.size(); ++i) {
        const IdentifiedCamera &camera = m_cameras.at(i);
        if (db->isInitialized()) {
            const QVariantMap record = db->getDeviceByDid(deviceDidForCameraId(camera.identity));
            if (record.isEmpty()) {
                newRecords.append(newDeviceRecord(camera.identity, camera.device.description(),
                                                  getCustomDeviceNameOrEmpty(camera.identity)));
                qDebug().noquote() << "[Database] 新设备首次创建:" << camera.device.description();
            } else {
                loadStoredNameIfUnknown(camera.identity, record);
            }
        } else {
            qDebug() << "[Database] 数据库尚未初始化，跳过设备信息处理";
        }
        appendCameraRow(i, camera);
        if (!currentId.isEmpty() && camera.identity == currentId)
            foundRow = i;
    }
    reopenReturnedBox(foundRow, currentId);

    if (!newRecords.isEmpty() && db->isInitialized()) {
        qDebug() << "[Database] 首次创建" << newRecords.size() << "个新设备";
        if (!db->insertOrUpdateDevices(newRecords))
            qWarning() << "[Database] 创建新设备失败";
    }

    if (foundRow >= 0) {
        m_currentRow = foundRow;
        table->selectRow(foundRow);
    } else {
        table->clearSelection();
        m_currentRow = -1;
        if (!currentId.isEmpty()) {
            qDebug().noquote() << "[device::updateDevicesTable] 当前主路设备已断开，关闭主路资源:"
                               << QString::fromUtf8(currentId);
            QPointer<TavroVideo> view = m_view;
            QTimer::singleShot(0, this, [this, view, currentId] {
                if (!view || view->currentDeviceId() != currentId ||
                    m_vanishedCurrentId == currentId)
                    return;
                view->closeCamera(true);
                m_vanishedCurrentId = currentId;
            });
        }
    }

    m_updating = false;
    syncExclusiveCheckboxesToCameraRow();
    applySearchFilter();
    QTimer::singleShot(0, this, &device::applyDevicesTableColumnWidths);
    if (!m_refreshing && m_multiSameDisplay && isGridPageShowing()) {
        const bool force = m_previewSyncForcePending;
        m_previewSyncForcePending = false;
        scheduleSyncPreviewCameras(force);
    }
}

void device::reopenReturnedBox(int row, const QByteArray &currentId)
{
    if (m_vanishedCurrentId.isEmpty())
        return;
    // The grid shows every box already; the console stays where the operator left it.
    if (isGridPageShowing()) {
        m_vanishedCurrentId.clear();
        return;
    }
    // The operator chose another box meanwhile: the one that left is no longer wanted.
    if (currentId != m_vanishedCurrentId) {
        m_vanishedCurrentId.clear();
        return;
    }
    if (row < 0 || !m_view || m_view->isCameraActive())
        return;
    m_vanishedCurrentId.clear();
    qDebug().noquote() << "[device::updateDevicesTable] 主路设备已重新插入，重新打开:"
                       << QString::fromUtf8(currentId);
    QTimer::singleShot(0, this, [this, row, currentId] {
        if (row < m_cameras.size() && m_cameras.at(row).identity == currentId)
            activateRowLikeDoubleClick(row);
    });
}

QString device::getCustomDeviceNameOrEmpty(const QByteArray &id) const
{
    return m_customNames ? m_customNames->value(id) : QString();
}

void device::applyDevicesTableColumnWidths()
{
    QTableWidget *table = ui->devicesTableWidget;
    if (table->rowCount() == 0)
        return;
    table->setColumnWidth(CheckColumn, table->fontMetrics().height() + 10);
    table->setColumnWidth(DotColumn, 19);
    table->setColumnWidth(UsbColumn, 19);
    for (int column : {NumberColumn, DescriptionColumn, IdColumn})
        table->resizeColumnToContents(column);
}

void device::applySearchFilter()
{
    const QString needle = ui->deviceListSearchEdit->text().trimmed();
    QTableWidget *table = ui->devicesTableWidget;
    for (int row = 0; row < table->rowCount(); ++row) {
        bool match = needle.isEmpty();
        for (int column : {DescriptionColumn, IdColumn}) {
            if (!match && table->item(row, column))
                match = table->item(row, column)->text().contains(needle, Qt::CaseInsensitive);
        }
        table->setRowHidden(row, !match);
    }
}

QStringList device::deviceDescriptionMenuLabels() const
{
    QStringList labels;
    const QTableWidget *table = ui->devicesTableWidget;
    for (int row = 0; row < table->rowCount(); ++row) {
        const QTableWidgetItem *item = table->item(row, DescriptionColumn);
        labels.append(item ? item->text() : QString());
    }
    return labels;
}

QCheckBox *device::checkboxAtRow(int row) const
{
    QWidget *cell = ui->devicesTableWidget->cellWidget(row, CheckColumn);
    if (!cell)
        return nullptr;
    if (auto *check = qobject_cast<QCheckBox *>(cell))
        return check;
    return cell->findChild<QCheckBox *>();
}

void device::syncExclusiveCheckboxesToCameraRow()
{
    for (int row = 0; row < ui->devicesTableWidget->rowCount(); ++row) {
        if (QCheckBox *check = checkboxAtRow(row)) {
            const QSignalBlocker block(check);
            check->setChecked(row == m_currentRow);
        }
    }
}

void device::updateGreenDotBlink()
{
    m_blinkPhase = !m_blinkPhase;
    QTableWidget *table = ui->devicesTableWidget;
    for (int row = 0; row < table->rowCount(); ++row) {
        QLabel *label = labelInCell(table, row, DotColumn);
        if (!label) {
            qWarning() << "[device::updateGreenDotBlink] 警告：第" << row << "行找不到状态标签";
            continue;
        }
        const QIcon &icon =
            statusDotIsGreen(row, m_currentRow, m_blinkPhase) ? m_greenIcon : m_grayIcon;
        label->setPixmap(icon.pixmap(kIconPixels, kIconPixels));
    }
}

// ---- Refresh, hot-plug, database -----------------------------------------------------------

void device::refreshDevices()
{
    const qint64 now = nowMs();
    const bool byUser = sender() != nullptr;
    if (byUser) {
        if (isThrottled(m_lastUserRefreshMs, now, kUserActionThrottleMs, true)) {
            qDebug() << "[device::refreshDevices] 用户刷新点击过于频繁，已节流";
            return;
        }
        m_lastUserRefreshMs = now;
    }
    if (m_refreshing) {
        qDebug() << "[device::refreshDevices] 正在刷新中，忽略重入请求";
        return;
    }
    if (isThrottled(m_lastRefreshMs, now, kRefreshThrottleMs, false)) {
        qDebug() << "[device::refreshDevices] 刷新请求过于频繁，已节流";
        return;
    }
    m_refreshing = true;
    m_lastRefreshMs = now;
    const bool recoveryWasRunning = m_periodicRecoverTimer && m_periodicRecoverTimer->isActive();
    if (recoveryWasRunning)
        m_periodicRecoverTimer->stop();
    const bool gridMode = isGridPageShowing();
    if (byUser && gridMode) {
        QApplication::setOverrideCursor(Qt::WaitCursor);
        m_waitCursorShown = true;
    }

    qDebug() << "Refreshing device list...";
    updateDevicesTable();

    if (gridMode) {
        if (!m_cameras.isEmpty()) {
            qDebug() << "[device::refreshDevices] 当前为预览模式，已排队强制重建预览流";
            m_previewSyncForcePending = false;
            scheduleSyncPreviewCameras(true);
        } else {
            qDebug() << "[device::refreshDevices] 当前为预览模式，但无设备，跳过重建预览流";
        }
        // The cursor goes when the rebuild it waits for has run, or now when none was queued.
        if (!m_previewSyncTimer || !m_previewSyncTimer->isActive())
            endRefreshWaitCursor();
    }
    m_refreshing = false;
    if (recoveryWasRunning)
        m_periodicRecoverTimer->start();
}

void device::endRefreshWaitCursor()
{
    if (!m_waitCursorShown)
        return;
    m_waitCursorShown = false;
    QApplication::restoreOverrideCursor();
}

void device::onUvcInputsChanged()
{
    if (m_multiSameDisplay && isGridPageShowing())
        m_previewSyncForcePending = true;
    if (!m_updating && !m_refreshing) {
        qDebug() << "[device::onUvcInputsChanged] 热插拔/枚举变化，刷新设备列表";
        updateDevicesTable();
    } else {
        qDebug() << "[device::onUvcInputsChanged] 表格更新进行中，延后至 updateDevicesTable "
                    "末尾同步预览";
    }
}

void device::checkAndProcessDevicesInDatabase()
{
    DBManager *db = DBManager::instance();
    if (!db->isInitialized() || m_cameras.isEmpty())
        return;
    QList<QVariantMap> missing;
    for (const IdentifiedCamera &camera : std::as_const(m_cameras)) {
        if (!db->getDeviceByDid(deviceDidForCameraId(camera.identity)).isEmpty())
            continue;
        missing.append(newDeviceRecord(camera.identity, camera.device.description(),
                                       getCustomDeviceNameOrEmpty(camera.identity)));
        qDebug().noquote() << "[Database] 延迟处理：新设备首次创建:" << camera.device.description();
    }
    if (missing.isEmpty()) {
        qDebug() << "[Database] 延迟处理：所有设备已存在于数据库中，停止检查";
        m_dbCheckTimer->stop();
        return;
    }
    qDebug() << "[Database] 延迟处理：首次创建" << missing.size() << "个新设备";
    if (db->insertOrUpdateDevices(missing)) {
        qDebug() << "[Database] 延迟处理：设备信息插入成功";
        m_dbCheckTimer->stop();
    } else {
        qWarning() << "[Database] 延迟处理：创建新设备失败";
    }
}

void device::getSysUvc()
{
    qDebug() << "[device::getSysUvc] --- Independent UVC Device Enumeration (System Call, "
                "*usb*video* only) ---";
    QList<QCameraDevice> found;
    for (const QCameraDevice &camera : QMediaDevices::videoInputs()) {
        if (TavroVideo::isUsbVideoLikeDevice(camera))
            found.append(camera);
    }
    if (found.isEmpty()) {
        qDebug() << "[device::getSysUvc] No *usb*video* camera devices found by system call.";
    } else {
        qDebug() << "[device::getSysUvc] Found" << found.size() << "camera devices by system call.";
        for (int i = 0; i < found.size(); ++i)
            qDebug().noquote().nospace()
                << "[device::getSysUvc] Device " << i << ": Description='" << found[i].description()
                << "', ID='" << QString::fromUtf8(found[i].id()) << "', Position='"
                << positionText(found[i].position()) << "'";
    }
    qDebug() << "[device::getSysUvc] --- End Independent UVC Device Enumeration ---";
}

// ---- Custom names --------------------------------------------------------------------------

QString device::getCustomDeviceName(const QByteArray &id) const
{
    if (!m_customNames || !m_customNames->contains(id))
        return QString::fromLatin1(kDefaultDeviceName);
    return m_customNames->value(id);
}

void device::setCustomDeviceName(const QByteArray &id, const QString &name)
{
    if (!m_customNames)
        m_customNames = new QMap<QByteArray, QString>;
    if (name.isEmpty())
        m_customNames->remove(id);
    else
        m_customNames->insert(id, name);

    DBManager *db = DBManager::instance();
    QVariantMap record = db->getDeviceByDid(deviceDidForCameraId(id));
    if (!record.isEmpty()) {
        const QString stored = getCustomDeviceName(id);
        record.insert(QStringLiteral("device_name"), stored);
        if (db->insertOrUpdateDevice(record))
            qDebug().noquote() << "[Database] 用户自定义设备名称已更新:" << stored;
        else
            qWarning().noquote() << "[Database] 更新设备名称失败:" << stored;
    }
    updateDevicesTable();
}

void device::removeCustomDeviceName(const QByteArray &id)
{
    if (m_customNames)
        m_customNames->remove(id);
    updateDevicesTable();
}

// ---- Row actions ---------------------------------------------------------------------------

void device::onDeviceCheckboxClicked(bool checked)
{
    const qint64 now = nowMs();
    if (isThrottled(m_lastUserRowActionMs, now, kUserActionThrottleMs, true)) {
        qDebug() << "[device::onDeviceCheckboxClicked] 用户设备点击过于频繁，已节流";
        syncExclusiveCheckboxesToCameraRow();
        return;
    }
    m_lastUserRowActionMs = now;
    if (!m_view)
        return;
    if (m_gridSwitchPending || m_mainOpenPending || m_leavingGrid) {
        qDebug() << "[device::onDeviceCheckboxClicked] 切换进行中，忽略复选框点击";
        syncExclusiveCheckboxesToCameraRow();
        return;
    }
    QTableWidget *table = ui->devicesTableWidget;
    int row = -1;
    for (int r = 0; r < table->rowCount() && row < 0; ++r) {
        if (checkboxAtRow(r) == sender())
            row = r;
    }
    if (row < 0 || !table->item(row, IdColumn))
        return;
    const QByteArray id = table->item(row, IdColumn)->text().toUtf8();
    const bool isCurrentId = id == m_view->currentDeviceId();

    if (checked) {
        if (isCurrentId && row == m_currentRow)
            m_view->showVideoDisplay();
        else
            activateDeviceRowExclusive(row);
        return;
    }
    if (!isCurrentId) {
        syncExclusiveCheckboxesToCameraRow();
        return;
    }
    // The user closes the box that is open.
    m_view->closePopupWindows();
    m_view->closeCamera(true);
    m_currentRow = -1;
    table->clearSelection();
    syncExclusiveCheckboxesToCameraRow();
    m_view->update();
    updateGreenDotBlink();
    if (m_multiSameDisplay) {
        m_stack->setCurrentIndex(1);
        syncPreviewCameras(false);
    } else {
        m_view->hide();
    }
}

void device::onDevicesTableCellDoubleClicked(int row, int)
{
    if (sender()) {
        const qint64 now = nowMs();
        if (isThrottled(m_lastUserRowActionMs, now, kUserActionThrottleMs, true)) {
            qDebug() << "[device::onDevicesTableCellDoubleClicked] 用户设备双击过于频繁，已节流";
            return;
        }
        m_lastUserRowActionMs = now;
    }
    if (row < 0 || row >= m_cameras.size())
        return;
    activateDeviceRowExclusive(row);
}

void device::activateRowLikeDoubleClick(int row)
{
    if (row < 0 || row >= m_cameras.size())
        return;
    activateDeviceRowExclusive(row);
}

void device::activateDeviceRowExclusive(int row)
{
    QTableWidget *table = ui->devicesTableWidget;
    if (row < 0 || row >= table->rowCount() || !table->item(row, IdColumn))
        return;
    const bool cameFromGrid = m_multiSameDisplay && isGridPageShowing();
    if (cameFromGrid) {
        // The tiles let go of their cameras before the console opens one of them.
        cancelPendingPreviewSync();
        closeAllPreviewSlots();
    }
    for (int r = 0; r < table->rowCount(); ++r) {
        if (QCheckBox *check = checkboxAtRow(r)) {
            const QSignalBlocker block(check);
            check->setChecked(r == row);
        }
    }
    const QByteArray id = table->item(row, IdColumn)->text().toUtf8();
    qDebug().noquote() << "activateDeviceRowExclusive row:" << row
                       << "uvcId:" << QString::fromUtf8(id);
    openMainAfterPreviewDrain(row, id, cameFromGrid);
}

void device::openMainAfterPreviewDrain(int row, const QByteArray &uvcId, bool fromGrid)
{
    if (!m_view || m_mainOpenPending || m_leavingGrid)
        return;
    m_mainOpenPending = true;
    ++m_mainOpenRequests;
    const quint64 generation = ++m_mainOpenGeneration;
    QTimer::singleShot(kDrainBeforeOpenMs, this, [this, row, uvcId, fromGrid, generation] {
        if (generation != m_mainOpenGeneration)
            return;
        m_leavingGrid = fromGrid;
        if (fromGrid) {
            m_skipNextTableUpdate = true;
            m_stack->setCurrentIndex(0);
        }
        m_view->showVideoDisplay();
        m_view->show();
        const quint64 startsBefore = m_cameraStarts;
        m_view->openCamera(uvcId);
        // The camera was running already and is left as it is: no cameraStarted comes, and no
        // table rebuild may be skipped on its account later.
        if (!fromGrid && m_cameraStarts == startsBefore)
            m_skipNextTableUpdate = false;
        if (m_stack->currentIndex() == 0)
            adjustTavroVideoGeometry();
        m_currentRow = row;
        syncExclusiveCheckboxesToCameraRow();
        if (row < ui->devicesTableWidget->rowCount())
            ui->devicesTableWidget->selectRow(row);
        updateGreenDotBlink();
        if (!fromGrid) {
            m_mainOpenPending = false;
            return;
        }
        QTimer::singleShot(kLeaveGridLockMs, this, [this, generation] {
            if (!m_leavingGrid || generation != m_mainOpenGeneration)
                return;
            qDebug() << "[device::openMainAfterPreviewDrain] 等待 cameraStarted "
                        "超时，解除切换锁";
            m_mainOpenPending = false;
            m_leavingGrid = false;
            m_skipNextTableUpdate = false;
        });
    });
}

// ---- Layout --------------------------------------------------------------------------------

void device::toggleDeviceList()
{
    if (!ui->gridLayout || !ui->horizontalLayout_2)
        return;
    QToolButton *button = ui->btnHideDeviceList;
    if (m_listVisible) {
        ui->deviceList->hide();
        ui->horizontalLayout_2->removeWidget(button);
        button->setParent(ui->centralwidget);
        ui->gridLayout->addWidget(button, 0, 0, 2, 1, Qt::AlignLeft | Qt::AlignVCenter);
        button->setIconSize(QSize(kButtonIconSize, kButtonIconSize));
        button->setIcon(bundleIcon(QStringLiteral(":/images/device/arrow_right.png")));
        button->show();
    } else {
        ui->gridLayout->removeWidget(button);
        ui->deviceList->show();
        button->setIcon(bundleIcon(QStringLiteral(":/images/device/arrow_left.png")));
        button->setParent(ui->deviceList);
        ui->horizontalLayout_2->insertWidget(0, button, 0, Qt::AlignVCenter);
        button->show();
    }
    m_listVisible = !m_listVisible;
}

bool device::isGridPageShowing() const
{
    return m_stack && m_stack->currentIndex() == 1;
}

void device::setupVideoWidget()
{
    if (!ui->videoWidget || !m_view) {
        qWarning() << "[device::setupVideoWidget] 错误：videoWidget 或 TavroVideo 不存在！";
        return;
    }
    m_view->setParent(ui->videoWidget);
    m_view->setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Ignored);
    m_lastVideoGeometry = QRect();
    adjustTavroVideoGeometry();
    m_view->show();
    disconnect(m_view, &TavroVideo::aspectRatioChanged, this, nullptr);
    connect(m_view, &TavroVideo::aspectRatioChanged, this, [this](double ratio) {
        if (ratio > 0)
            m_aspectRatio = ratio;
        adjustTavroVideoGeometry();
    });
    ui->videoWidget->installEventFilter(this);
    qDebug() << "[device::setupVideoWidget] TavroVideo 已嵌入 videoWidget（直接控制，保持宽高比）";
}

void device::adjustTavroVideoGeometry()
{
    if (!m_view || !m_stack || m_stack->currentWidget() != ui->videoWidget)
        return;
    const QRect target = fitAspectRect(ui->videoWidget->size(), m_aspectRatio);
    if (target.isEmpty() || target == m_lastVideoGeometry)
        return;
    m_view->setGeometry(target);
    m_lastVideoGeometry = target;
    qDebug() << "[device::adjustTavroVideoGeometry] TavroVideo 几何尺寸已更新: 位置:" << target.x()
             << "," << target.y() << "尺寸:" << target.width() << "x" << target.height()
             << "宽高比:" << m_aspectRatio;
}

void device::showEvent(QShowEvent *event)
{
    QDialog::showEvent(event);
    if (m_firstShowDone)
        return;
    m_firstShowDone = true;
    setupVideoWidget();
    connect(ui->devicesTableWidget, &QTableWidget::cellDoubleClicked, this,
            &device::onDevicesTableCellDoubleClicked, Qt::UniqueConnection);
}

void device::closeEvent(QCloseEvent *event)
{
    m_mainOpenPending = false;
    if (m_gridSwitchPending) {
        m_gridSwitchPending = false;
        QApplication::restoreOverrideCursor();
    }
    event->ignore();
    hide();
}

void device::keyPressEvent(QKeyEvent *event)
{
    QWidget::keyPressEvent(event);
}

void device::resizeEvent(QResizeEvent *event)
{
    QDialog::resizeEvent(event);
    adjustTavroVideoGeometry();
}

void device::showRowTooltip(const QPoint &viewportPos)
{
    QTableWidget *table = ui->devicesTableWidget;
    const int row = table->rowAt(viewportPos.y());
    if (row < 0 || row >= m_cameras.size()) {
        QToolTip::hideText();
        return;
    }
    const QCameraDevice &camera = m_cameras.at(row).device;
    QToolTip::showText(table->viewport()->mapToGlobal(viewportPos),
                       QStringLiteral("ID: %1\nDescription: %2\nPosition: %3")
                           .arg(QString::fromUtf8(m_cameras.at(row).identity), camera.description(),
                                positionText(camera.position())),
                       table->viewport());
}

bool device::eventFilter(QObject *watched, QEvent *event)
{
    if (watched == ui->devicesTableWidget->viewport()) {
        if (event->type() == QEvent::MouseMove)
            showRowTooltip(static_cast<QMouseEvent *>(event)->position().toPoint());
        else if (event->type() == QEvent::Leave)
            QToolTip::hideText();
    } else if (watched == ui->videoWidget && event->type() == QEvent::Resize) {
        adjustTavroVideoGeometry();
    }
    return QDialog::eventFilter(watched, event);
}
