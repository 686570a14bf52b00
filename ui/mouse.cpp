#include "ui/mouse.h"

#include <QAbstractItemView>
#include <QComboBox>
#include <QDebug>
#include <QGraphicsDropShadowEffect>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QMouseEvent>
#include <QPushButton>
#include <QSpinBox>
#include <QToolButton>
#include <QVBoxLayout>

#include <exception>

#include "console/input/pasteplan.h"
#include "console/tavrovideo.h"
#include "db/dbmanager.h"
#include "serial/deviceuartmanager.h"
#include "serial/uartmanager.h"
#include "ui/bundleicon.h"
#include "ui/serialpanelrules.h"

namespace {

const int kBaudRates[] = {9600,   14400,  19200,  38400,  57600,   115200,  128000, 230400,
                          256000, 460800, 500000, 921600, 1000000, 1500000, 2000000};

const char kTitleBarStyle[] = "background-color: rgb(50, 50, 50); border-top-left-radius: 10px; "
                              "border-top-right-radius: 10px;";
const char kTitleLabelStyle[] = "color: white; font-weight: bold; font-size: 14px; "
                                "background-color: transparent; border: none; min-height: 0px;";
const char kCloseButtonStyle[] =
    "QPushButton {    background-color: rgb(200, 50, 50);    color: white;    border: none;    "
    "border-radius: 6px;}QPushButton:hover {    background-color: rgb(255, 0, 0);}";
const char kConnectedStyle[] = "QLabel { color: #55FF55; font-size: 11px; background-color: "
                               "transparent; border: none; padding: 2px; }";
const char kDisconnectedStyle[] = "QLabel { color: #FF5555; font-size: 11px; background-color: "
                                  "transparent; border: none; padding: 2px; }";

// The panel's dark theme; the title bar, the close button and the status label carry their own.
const char kPanelStyle[] = R"(
QWidget#contentWidget {
    background-color: rgb(30, 30, 30);
    border-bottom-left-radius: 10px;
    border-bottom-right-radius: 10px;
    min-height: 200px;
}
QWidget#contentWidget QLabel {
    color: white;
    font-size: 12px;
    background-color: transparent;
}
QComboBox, QSpinBox {
    background-color: rgb(18, 18, 18);
    color: white;
    border: 1px solid #666666;
    border-radius: 4px;
    padding: 2px 6px;
    min-height: 20px;
    font-size: 12px;
}
QComboBox:disabled {
    color: #808080;
}
QComboBox::drop-down {
    subcontrol-origin: padding;
    subcontrol-position: top right;
    width: 18px;
    border: none;
}
QComboBox::down-arrow {
    image: url(:/images/keyboard_double_arrow_down_96dp_75FB4C_FILL0_wght400_GRAD0_opsz48.png);
    width: 14px;
    height: 14px;
}
QComboBox QAbstractItemView {
    background-color: rgb(18, 18, 18);
    color: white;
    border: 1px solid #666666;
    selection-background-color: #1565c0;
    selection-color: white;
    outline: none;
}
QToolButton {
    background-color: transparent;
    border: none;
    padding: 2px;
}
QToolButton:hover {
    background-color: rgb(60, 60, 60);
    border-radius: 4px;
}
)";

QString linkPortName(const QString &port)
{
    return UartManager::purePortNameFromDisplayItem(port);
}

} // namespace

mouse::mouse(QWidget *parent) : QWidget(parent), m_view(qobject_cast<TavroVideo *>(parent))
{
    setAttribute(Qt::WA_TranslucentBackground);
    setAttribute(Qt::WA_ShowWithoutActivating);
    setWindowOpacity(1.0);
    auto *shadow = new QGraphicsDropShadowEffect(this);
    shadow->setBlurRadius(8);
    shadow->setOffset(0, 0);
    setGraphicsEffect(shadow);
    buildUi();
    if (m_view) {
        connect(m_view, &TavroVideo::uartConfigLoaded, this, &mouse::onUartConfigLoaded);
        // The label follows the link while the panel is up.
        connect(m_view, &TavroVideo::uartStatusChanged, this, [this] {
            if (isVisible())
                updateUartStatusDisplay();
        });
    }
}

void mouse::buildUi()
{
    m_outerLayout = new QVBoxLayout(this);
    // No room around the panel for its shadow: without a compositor it would show as a black
    // frame.
    m_outerLayout->setContentsMargins(0, 0, 0, 0);
    m_outerLayout->setSpacing(0);

    m_titleBar = new QWidget(this);
    m_titleBar->setObjectName(QStringLiteral("titleBar"));
    m_titleBar->setAttribute(Qt::WA_StyledBackground);
    m_titleBar->setFixedHeight(25);
    m_titleBar->setStyleSheet(QLatin1String(kTitleBarStyle));
    m_titleLayout = new QHBoxLayout(m_titleBar);
    m_titleLayout->setContentsMargins(5, 0, 5, 0);
    m_titleLayout->setSpacing(0);
    m_titleLabel = new QLabel(tr("Mouse Control"), m_titleBar);
    m_titleLabel->setStyleSheet(QLatin1String(kTitleLabelStyle));
    m_closeButton = new QPushButton(QStringLiteral("X"), m_titleBar);
    m_closeButton->setObjectName(QStringLiteral("closeButton"));
    m_closeButton->setFixedSize(16, 16);
    m_closeButton->setStyleSheet(QLatin1String(kCloseButtonStyle));
    m_closeButton->setFocusPolicy(Qt::NoFocus);
    // hideEvent announces the closing, once, and only with a valid port chosen.
    connect(m_closeButton, &QPushButton::clicked, this, &QWidget::hide);
    m_titleLayout->addWidget(m_titleLabel);
    m_titleLayout->addStretch();
    m_titleLayout->addWidget(m_closeButton);
    m_outerLayout->addWidget(m_titleBar);

    auto *content = new QWidget(this);
    content->setObjectName(QStringLiteral("contentWidget"));
    content->setAttribute(Qt::WA_StyledBackground);
    auto *grid = new QGridLayout(content);
    grid->setContentsMargins(10, 10, 10, 10);
    grid->setHorizontalSpacing(10);
    grid->setVerticalSpacing(10);
    grid->setColumnStretch(1, 1);
    const Qt::Alignment labelAlignment = Qt::AlignLeft | Qt::AlignVCenter;

    m_comboBoxUart = new QComboBox(content);
    m_comboBoxUart->setObjectName(QStringLiteral("comboBoxUart"));
    m_comboBoxUart->setEditable(false);
    m_comboBoxUart->setMaxVisibleItems(10);
    m_comboBoxUart->setMinimumWidth(300);
    m_uartFreshBtn = new QToolButton(content);
    m_uartFreshBtn->setObjectName(QStringLiteral("uartFreshBtn"));
    m_uartFreshBtn->setIcon(bundleIcon(QStringLiteral(":/images/refresh_24dp_5F6368.png")));
    m_uartFreshBtn->setIconSize(QSize(16, 16));
    m_uartFreshBtn->setToolTip(tr("Refresh"));
    connect(m_uartFreshBtn, &QToolButton::clicked, this, &mouse::on_uartFreshBtn_clicked);
    grid->addWidget(new QLabel(tr("Port"), content), 0, 0, labelAlignment);
    grid->addWidget(m_comboBoxUart, 0, 1);
    grid->addWidget(m_uartFreshBtn, 0, 2);

    m_comboBoxBaudRate = new QComboBox(content);
    m_comboBoxBaudRate->setObjectName(QStringLiteral("comboBoxBaudRate"));
    for (int rate : kBaudRates)
        m_comboBoxBaudRate->addItem(QString::number(rate), rate);
    m_comboBoxBaudRate->setCurrentIndex(m_comboBoxBaudRate->findData(kSerialPanelDefaultBaud));
    grid->addWidget(new QLabel(tr("Baud rate"), content), 1, 0, labelAlignment);
    grid->addWidget(m_comboBoxBaudRate, 1, 1);

    m_comboBoxProtocol = new QComboBox(content);
    m_comboBoxProtocol->setObjectName(QStringLiteral("comboBoxProtocol"));
    m_comboBoxProtocol->addItem(QStringLiteral("ch9329"), 0);
    m_comboBoxProtocol->addItem(QStringLiteral("tavrokvm-v1"), 1);
    grid->addWidget(new QLabel(tr("protocol"), content), 2, 0, labelAlignment);
    grid->addWidget(m_comboBoxProtocol, 2, 1);

    // The target's keyboard layout decides which keys type a pasted text.
    m_comboBoxLayout = new QComboBox(content);
    m_comboBoxLayout->setObjectName(QStringLiteral("comboBoxLayout"));
    for (const QString &code : KeyboardLayout::knownLayouts())
        m_comboBoxLayout->addItem(KeyboardLayout::displayName(code), code);
    grid->addWidget(new QLabel(tr("target layout"), content), 3, 0, labelAlignment);
    grid->addWidget(m_comboBoxLayout, 3, 1);

    m_spinPasteInterval = new QSpinBox(content);
    m_spinPasteInterval->setObjectName(QStringLiteral("spinPasteInterval"));
    m_spinPasteInterval->setRange(0, kMaxPasteIntervalMs);
    m_spinPasteInterval->setSuffix(QStringLiteral(" ms"));
    m_spinPasteInterval->setSpecialValueText(tr("unpaced"));
    m_spinPasteInterval->setValue(kDefaultPasteIntervalMs);
    m_spinPasteInterval->setToolTip(
        tr("Time between the keyboard reports of a paste; a target that reads its keyboard "
           "every 8 ms needs at least 8"));
    grid->addWidget(new QLabel(tr("paste interval"), content), 4, 0, labelAlignment);
    grid->addWidget(m_spinPasteInterval, 4, 1);

    m_comboBoxCoordMode = new QComboBox(content);
    m_comboBoxCoordMode->setObjectName(QStringLiteral("comboBoxCoordMode"));
    m_comboBoxCoordMode->addItem(QStringLiteral("absolute"), 0);
    m_comboBoxCoordMode->addItem(QStringLiteral("relative"), 1);
    grid->addWidget(new QLabel(tr("coord mode"), content), 5, 0, labelAlignment);
    grid->addWidget(m_comboBoxCoordMode, 5, 1);

    m_uartStatusLabel = new QLabel(QStringLiteral("UART: Disconnected"), content);
    m_uartStatusLabel->setObjectName(QStringLiteral("uartStatusLabel"));
    m_uartStatusLabel->setStyleSheet(QLatin1String(kDisconnectedStyle));
    grid->addWidget(m_uartStatusLabel, 6, 0, 1, 2, labelAlignment);

    m_outerLayout->addWidget(content);
    setStyleSheet(QLatin1String(kPanelStyle));

    connectPortSelector();
    connect(m_comboBoxBaudRate, qOverload<int>(&QComboBox::currentIndexChanged), this,
            &mouse::onUartConfigChanged);
    connect(m_comboBoxProtocol, qOverload<int>(&QComboBox::currentIndexChanged), this,
            &mouse::onProtocolChosen);
    connect(m_comboBoxCoordMode, qOverload<int>(&QComboBox::currentIndexChanged), this,
            &mouse::onCoordModeChosen);
    connect(m_comboBoxLayout, qOverload<int>(&QComboBox::currentIndexChanged), this,
            &mouse::onLayoutChosen);
    connect(m_spinPasteInterval, qOverload<int>(&QSpinBox::valueChanged), this,
            &mouse::onPasteIntervalChosen);
}

void mouse::connectPortSelector()
{
    connect(m_comboBoxUart, qOverload<int>(&QComboBox::currentIndexChanged), this,
            &mouse::onUartConfigChanged, Qt::UniqueConnection);
}

void mouse::disconnectPortSelector()
{
    disconnect(m_comboBoxUart, qOverload<int>(&QComboBox::currentIndexChanged), this,
               &mouse::onUartConfigChanged);
}

DeviceUartManager *mouse::currentLink(const char *noDeviceLog) const
{
    const QString did = m_view ? m_view->getCurrentDeviceDid() : QString();
    if (did.isEmpty()) {
        if (noDeviceLog)
            qDebug() << noDeviceLog;
        return nullptr;
    }
    return UartManager::instance()->getDeviceUartManager(did);
}

void mouse::fillPortSelector(const QStringList &displayItems)
{
    const QSignalBlocker blocker(m_comboBoxUart);
    m_comboBoxUart->clear();
    int widest = 0;
    for (const QString &item : displayItems) {
        m_comboBoxUart->addItem(item, UartManager::purePortNameFromDisplayItem(item));
        m_comboBoxUart->setItemData(m_comboBoxUart->count() - 1, item, Qt::ToolTipRole);
        widest = qMax(widest, m_comboBoxUart->fontMetrics().horizontalAdvance(item));
    }
    // Long names (a device path with its description) are read in full in the open list.
    m_comboBoxUart->view()->setMinimumWidth(widest + 40);
    m_comboBoxUart->setCurrentIndex(-1);
}

QList<PortListItem> mouse::portItems() const
{
    QList<PortListItem> items;
    for (int i = 0; i < m_comboBoxUart->count(); ++i)
        items.append({m_comboBoxUart->itemText(i), m_comboBoxUart->itemData(i).toString()});
    return items;
}

void mouse::initializeComPorts()
{
    UartManager *uart = UartManager::instance();
    QStringList ports = uart->preloadedSerialPorts();
    if (ports.isEmpty())
        ports = uart->getAvailableSerialPorts();
    fillPortSelector(ports);
    m_portsInitialized = true;
    qDebug() << "[Windows] 串口设备列表初始化完成，共找到" << ports.size() << "个设备";
}

bool mouse::selectPort(const QString &port, const char *logTag)
{
    const QList<PortListItem> items = portItems();
    const PortItemMatch match = matchPortItem(items, port);
    if (match.index >= 0 && !match.exact) {
        qDebug().noquote() << logTag << "精确匹配失败，尝试部分匹配";
        qDebug().noquote() << logTag << "找到部分匹配:" << items[match.index].text
                           << "纯端口名:" << purePortNameFromDisplayItem(items[match.index].text);
    }
    m_comboBoxUart->setCurrentIndex(match.index);
    return match.index >= 0;
}

void mouse::selectBaud(int baud)
{
    const int index = m_comboBoxBaudRate->findData(baud);
    if (index < 0)
        return;
    m_comboBoxBaudRate->setCurrentIndex(index);
    qDebug() << "[Mouse] applyDatabaseConfig: 成功设置波特率选择:" << baud;
}

void mouse::showLinkModes()
{
    if (!m_view)
        return;
    const QSignalBlocker protocolBlocker(m_comboBoxProtocol);
    const QSignalBlocker coordBlocker(m_comboBoxCoordMode);
    m_comboBoxProtocol->setCurrentIndex(m_comboBoxProtocol->findData(m_view->uartProtocol()));
    m_comboBoxCoordMode->setCurrentIndex(m_comboBoxCoordMode->findData(m_view->coordMode()));

    const QSignalBlocker layoutBlocker(m_comboBoxLayout);
    const QSignalBlocker intervalBlocker(m_spinPasteInterval);
    const QVariantMap record = DBManager::instance()->getDeviceByDid(m_view->getCurrentDeviceDid());
    const int layout = m_comboBoxLayout->findData(record.value(QStringLiteral("keyboard_layout")));
    m_comboBoxLayout->setCurrentIndex(layout >= 0 ? layout : 0);
    const QVariant interval = record.value(QStringLiteral("paste_interval_ms"));
    m_spinPasteInterval->setValue(interval.isNull() ? kDefaultPasteIntervalMs : interval.toInt());
}

void mouse::applyDatabaseConfig()
{
    DeviceUartManager *link = currentLink("[Mouse] applyDatabaseConfig: 设备DID为空，无法加载配置");
    if (!link)
        return;
    const QSignalBlocker portBlocker(m_comboBoxUart);
    const QSignalBlocker baudBlocker(m_comboBoxBaudRate);
    const QString savedPort = link->portName();
    const int savedBaud = link->baudRate();
    if (!savedPort.isEmpty()) {
        qDebug().noquote() << "[Mouse] applyDatabaseConfig: 使用设备UART管理器配置 - 串口:"
                           << savedPort << "波特率:" << savedBaud;
        if (!selectPort(savedPort, "[Mouse] applyDatabaseConfig:")) {
            qDebug().noquote() << "[Mouse] applyDatabaseConfig: UartManager中保存的串口"
                               << savedPort << "不存在，清空选择";
            QStringList available;
            for (const PortListItem &item : portItems())
                available << item.text;
            qDebug().noquote() << "[Mouse] applyDatabaseConfig: 可用串口:" << available;
        }
    } else {
        const QString tkPort = UartManager::instance()->findFirstTkCdcPortName();
        const int index = tkPort.isEmpty() ? -1 : m_comboBoxUart->findData(tkPort);
        if (index >= 0) {
            m_comboBoxUart->setCurrentIndex(index);
            qDebug().noquote() << "[Mouse] applyDatabaseConfig: 无已存配置，自动选择 TK CDC:"
                               << tkPort;
            link->updateUartConfig(tkPort, kSerialPanelDefaultBaud);
        } else if (!tkPort.isEmpty()) {
            m_comboBoxUart->setCurrentIndex(-1);
            qDebug() << "[Mouse] applyDatabaseConfig: 检测到 TK CDC 端口但下拉列表未同步，等待刷新";
        } else {
            m_comboBoxUart->setCurrentIndex(-1);
            qDebug() << "[Mouse] applyDatabaseConfig: UartManager 中无串口配置且未找到 TK "
                        "CDC，等待用户选择";
        }
    }
    selectBaud(link->baudRate());
    showLinkModes();
}

void mouse::onUartConfigLoaded(const QString &port, int baud)
{
    qDebug().noquote() << "[Mouse] onUartConfigLoaded: UVC初始化时串口配置已加载:" << port
                       << "波特率:" << baud;
    const QSignalBlocker portBlocker(m_comboBoxUart);
    const QSignalBlocker baudBlocker(m_comboBoxBaudRate);
    if (!selectPort(port, "[Mouse] onUartConfigLoaded:"))
        qDebug().noquote() << "[Mouse] onUartConfigLoaded: 串口" << port << "不存在于当前列表中";
    const int baudIndex = m_comboBoxBaudRate->findData(baud);
    if (baudIndex >= 0)
        m_comboBoxBaudRate->setCurrentIndex(baudIndex);
    showLinkModes();
}

void mouse::on_uartFreshBtn_clicked()
{
    if (m_isRefreshing) {
        qDebug() << "[Mouse] 刷新操作正在进行中，忽略重复点击";
        return;
    }
    m_isRefreshing = true;
    qDebug() << "Refreshing available serial ports...";
    const QString previous = m_comboBoxUart->currentData().toString();
    disconnectPortSelector();
    m_comboBoxUart->clear();
    m_comboBoxUart->setEnabled(false);
    try {
        UartManager *uart = UartManager::instance();
        const QStringList ports = uart->getAvailableSerialPorts();
        uart->preloadSerialPorts();
        fillPortSelector(ports);
        const int index = previous.isEmpty() ? -1 : m_comboBoxUart->findData(previous);
        m_comboBoxUart->setCurrentIndex(index);
        if (index >= 0)
            qDebug().noquote() << "[Mouse] 刷新后恢复之前的选择:" << previous;
        else
            qDebug() << "[Mouse] 刷新后未找到之前的选择，不选择任何项目";
    } catch (const std::exception &e) {
        qWarning() << "[Mouse] 刷新串口列表时发生异常:" << e.what();
    } catch (...) {
        qWarning() << "[Mouse] 刷新串口列表时发生未知异常";
    }
    m_comboBoxUart->setEnabled(true);
    connectPortSelector();
    qDebug() << "[Mouse] 串口列表刷新完成";
    m_isRefreshing = false;
    updateUartStatusDisplay();
}

void mouse::onUartConfigChanged()
{
    if (m_isRefreshing) {
        qDebug() << "[UART] 刷新过程中，跳过配置更新";
        return;
    }
    if (!m_comboBoxUart || !m_comboBoxBaudRate || !m_view)
        return;
    if (m_comboBoxUart->currentIndex() < 0) {
        qDebug() << "[UART] 没有选择串口，跳过配置更新";
        return;
    }
    DeviceUartManager *link = currentLink("[UART] 设备DID为空，无法更新串口配置");
    if (!link)
        return;
    const QString chosen = m_comboBoxUart->currentData().toString();
    const QString item = chosen.isEmpty() ? m_comboBoxUart->currentText() : chosen;
    if (!link->isValidSerialPortName(item)) {
        qDebug().noquote() << "[UART] 无效的端口选择:" << item;
        return;
    }
    bool fellBack = false;
    const int baud = baudRateFromItemData(m_comboBoxBaudRate->currentData(), &fellBack);
    if (fellBack)
        qDebug().noquote() << "[UART] 无效的波特率:"
                           << m_comboBoxBaudRate->currentData().toString() + ", 使用默认 2M";
    const QString port = linkPortName(item);
    qDebug().noquote() << "[UART] 用户串口配置变化:" << port << "波特率:" << baud;
    link->updateUartConfigByUser(port, baud);
    updateUartStatusDisplay();
}

void mouse::onProtocolChosen(int index)
{
    if (m_view && index >= 0)
        m_view->setUartProtocolForCurrentDevice(m_comboBoxProtocol->itemData(index).toInt());
}

void mouse::onCoordModeChosen(int index)
{
    if (m_view && index >= 0)
        m_view->setCoordModeForCurrentDevice(m_comboBoxCoordMode->itemData(index).toInt());
}

void mouse::onLayoutChosen(int index)
{
    if (!m_view || index < 0)
        return;
    const QString code = m_comboBoxLayout->itemData(index).toString();
    if (DBManager::instance()->setDeviceKeyboardLayout(m_view->getCurrentDeviceDid(), code))
        qDebug().noquote() << "[Mouse] 目标键盘布局已保存:" << code;
    else
        qWarning().noquote() << "[Mouse] 目标键盘布局未能保存（无当前设备记录）:" << code;
}

void mouse::onPasteIntervalChosen(int ms)
{
    if (!m_view)
        return;
    if (DBManager::instance()->setDevicePasteInterval(m_view->getCurrentDeviceDid(), ms))
        qDebug() << "[Mouse] 粘贴间隔已保存:" << ms << "ms";
    else
        qWarning() << "[Mouse] 粘贴间隔未能保存（无当前设备记录）:" << ms;
}

void mouse::updateUartStatusDisplay()
{
    m_comboBoxUart->setToolTip(m_comboBoxUart->currentText());
    DeviceUartManager *link = currentLink(nullptr);
    const bool open = link && link->serialPort() && link->serialPort()->isOpen();
    if (open) {
        const QString port = linkPortName(link->portName());
        m_uartStatusLabel->setText(
            QStringLiteral("%1: connected").arg(port.isEmpty() ? QStringLiteral("UART") : port));
        m_uartStatusLabel->setStyleSheet(QLatin1String(kConnectedStyle));
    } else {
        m_uartStatusLabel->setText(QStringLiteral("UART: disconnected"));
        m_uartStatusLabel->setStyleSheet(QLatin1String(kDisconnectedStyle));
    }
    qDebug() << "[Mouse] UART状态显示已更新:" << (open ? "已连接" : "已断开");
}

void mouse::showEvent(QShowEvent *event)
{
    QWidget::showEvent(event);
    if (!m_portsInitialized || m_comboBoxUart->count() == 0)
        initializeComPorts();
    applyDatabaseConfig();
    updateUartStatusDisplay();
}

void mouse::hideEvent(QHideEvent *event)
{
    QWidget::hideEvent(event);
    m_dragging = false;
    if (m_comboBoxUart->currentIndex() < 0) {
        qDebug() << "[Mouse] 隐藏时没有选择串口，不触发串口配置更新";
        return;
    }
    const QString chosen = m_comboBoxUart->currentData().toString();
    if (!UartManager::isValidSerialPortName(chosen)) {
        qDebug().noquote() << "[Mouse] 隐藏时检测到无效串口名称，不触发串口配置更新:" << chosen;
        return;
    }
    emit hidden();
}

void mouse::mousePressEvent(QMouseEvent *event)
{
    if (event->button() == Qt::LeftButton) {
        m_dragging = true;
        m_dragOffset = event->globalPosition().toPoint() - frameGeometry().topLeft();
        event->accept();
        return;
    }
    QWidget::mousePressEvent(event);
}

void mouse::mouseMoveEvent(QMouseEvent *event)
{
    if (m_dragging && (event->buttons() & Qt::LeftButton)) {
        move(event->globalPosition().toPoint() - m_dragOffset);
        event->accept();
        return;
    }
    QWidget::mouseMoveEvent(event);
}

void mouse::mouseReleaseEvent(QMouseEvent *event)
{
    if (event->button() == Qt::LeftButton && m_dragging) {
        m_dragging = false;
        event->accept();
        return;
    }
    QWidget::mouseReleaseEvent(event);
}
