#include "ui/devicesettingsdialog.h"

#include <QAudioDevice>
#include <QDebug>
#include <QHBoxLayout>
#include <QLabel>
#include <QListWidget>
#include <QMediaDevices>
#include <QPushButton>
#include <QSerialPort>
#include <QVBoxLayout>

#include "console/tavrovideo.h"
#include "platform/cameraidentity.h"
#include "serial/deviceuartmanager.h"
#include "serial/uartmanager.h"
#include "ui/serialpanelrules.h"
#include "ui/stylesheet.h"

const char DeviceSettingsDialog::kAudioAutoMarker[] = "__audio_auto__";

namespace {

enum Section { VideoSection = 0, AudioSection = 1, SerialSection = 2, BaudSection = 3 };

const char *const kSectionTitles[DeviceSettingsDialog::kSectionCount] = {
    QT_TRANSLATE_NOOP("DeviceSettingsDialog", "1. 视频设备列表"),
    QT_TRANSLATE_NOOP("DeviceSettingsDialog", "2. 输入音频设备列表"),
    QT_TRANSLATE_NOOP("DeviceSettingsDialog", "3. 串口设备列表"),
    QT_TRANSLATE_NOOP("DeviceSettingsDialog", "4. 波特率")};

const int kBaudRates[] = {9600,   14400,  19200,   38400,   57600,   115200, 230400,
                          460800, 921600, 1000000, 1152000, 1500000, 2000000};

const char kNoDeviceText[] =
    QT_TRANSLATE_NOOP("DeviceSettingsDialog", "请先连接并选择 UVC 视频设备。");

const char kDialogStyle[] =
    R"(QDialog#deviceSettingsDialog { background-color: #232323; color: #e0e0e0; }
QDialog#deviceSettingsDialog QLabel { color: #e0e0e0; background-color: transparent; }
QFrame#accordionSection { border: 1px solid #5a5a5a; border-radius: 8px; background-color: #252525; }
QPushButton#accordionHeader { text-align: left; font-weight: bold; color: white; background-color: transparent; border: none; border-radius: 8px; padding: 6px 12px; }
QPushButton#accordionHeader:hover { background-color: #303030; color: #88c0ff; }
QWidget#accordionBody { background-color: transparent; }
QListWidget { background-color: #2a2a2a; color: #e0e0e0; border: 1px solid #3c3c3c; border-radius: 4px; outline: none; }
QListWidget::item { padding: 5px 6px; }
QListWidget::item:hover { background-color: #333333; }
QListWidget::item:selected { background-color: #1565c0; color: white; }
QListWidget::item:selected:!active { background-color: #0d47a1; color: white; }
QListWidget::item:selected:hover { background-color: #1976d2; color: white; }
QPushButton { min-height: 30px; }
QPushButton#closeButton { background-color: #3a3a3a; color: #e0e0e0; border: 1px solid #5a5a5a; border-radius: 6px; padding: 0 18px; }
QPushButton#closeButton:hover { background-color: #454545; color: #88c0ff; }
)";

// A list line that stands for nothing: shown, never chosen.
void addPlaceholder(QListWidget *list, const QString &text)
{
    auto *item = new QListWidgetItem(text, list);
    item->setFlags(Qt::ItemIsEnabled);
    item->setForeground(QColor(0x9e, 0x9e, 0x9e));
}

QListWidgetItem *addChoice(QListWidget *list, const QString &text, const QVariant &data)
{
    auto *item = new QListWidgetItem(text, list);
    item->setData(Qt::UserRole, data);
    return item;
}

bool isPlaceholder(const QListWidgetItem *item)
{
    return !item || !(item->flags() & Qt::ItemIsSelectable);
}

bool isTkCdcPortItem(const QString &item)
{
    return item.contains(QLatin1String("TK"), Qt::CaseInsensitive) &&
           item.contains(QLatin1String("CDC"), Qt::CaseInsensitive);
}

bool linkIsOpen(const DeviceUartManager *link)
{
    return link && link->serialPort() && link->serialPort()->isOpen();
}

} // namespace

DeviceSettingsDialog::DeviceSettingsDialog(QWidget *parent, TavroVideo *view)
    : QDialog(parent), m_view(view)
{
    setObjectName(QStringLiteral("deviceSettingsDialog"));
    setWindowTitle(tr("设备设置"));
    setModal(true);
    resize(598, 676);
    buildUi();
    setStyleSheet(QLatin1String(kDialogStyle) + getCheckboxQssString());
    updateAccordion();
}

void DeviceSettingsDialog::buildUi()
{
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(14, 14, 14, 14);
    layout->setSpacing(10);

    auto *heading = new QLabel(tr("设备设置"), this);
    heading->setStyleSheet(QStringLiteral("font-size: 16px; font-weight: bold;"));
    layout->addWidget(heading);

    auto *accordion = new QWidget(this);
    accordion->setObjectName(QStringLiteral("accordionArea"));
    accordion->setMinimumHeight(390);
    auto *accordionLayout = new QVBoxLayout(accordion);
    accordionLayout->setContentsMargins(0, 0, 0, 0);
    accordionLayout->setSpacing(4);
    for (int i = 0; i < kSectionCount; ++i) {
        auto *section = new QFrame(accordion);
        section->setObjectName(QStringLiteral("accordionSection"));
        auto *sectionLayout = new QVBoxLayout(section);
        sectionLayout->setContentsMargins(0, 0, 0, 0);
        sectionLayout->setSpacing(0);

        auto *header = new QPushButton(section);
        header->setObjectName(QStringLiteral("accordionHeader"));
        header->setCursor(Qt::PointingHandCursor);
        header->setMinimumHeight(36);
        header->setAutoDefault(false);
        header->setFocusPolicy(Qt::NoFocus);
        connect(header, &QPushButton::clicked, this, [this, i] { toggleAccordion(i); });
        m_headers[i] = header;

        auto *body = new QWidget(section);
        body->setObjectName(QStringLiteral("accordionBody"));
        auto *bodyLayout = new QVBoxLayout(body);
        bodyLayout->setContentsMargins(8, 4, 8, 10);
        auto *list = new QListWidget(body);
        list->setMinimumHeight(182);
        bodyLayout->addWidget(list);
        m_bodies[i] = body;
        m_lists[i] = list;

        sectionLayout->addWidget(header);
        sectionLayout->addWidget(body);
        accordionLayout->addWidget(section);
    }
    accordionLayout->addStretch(1);
    layout->addWidget(accordion, 1);

    connect(m_lists[VideoSection], &QListWidget::itemClicked, this,
            &DeviceSettingsDialog::onVideoItemClicked);
    connect(m_lists[AudioSection], &QListWidget::itemClicked, this,
            &DeviceSettingsDialog::onAudioInputItemClicked);
    connect(m_lists[SerialSection], &QListWidget::itemClicked, this,
            &DeviceSettingsDialog::onSerialItemClicked);
    connect(m_lists[BaudSection], &QListWidget::itemClicked, this,
            &DeviceSettingsDialog::onBaudItemClicked);

    m_hintLabel = new QLabel(this);
    m_hintLabel->setObjectName(QStringLiteral("hintLabel"));
    m_hintLabel->setWordWrap(true);
    m_hintLabel->setStyleSheet(QStringLiteral("color: #88c0ff; font-size: 12px;"));
    layout->addWidget(m_hintLabel);

    auto *buttons = new QHBoxLayout;
    buttons->addStretch(1);
    auto *close = new QPushButton(tr("关闭"), this);
    close->setObjectName(QStringLiteral("closeButton"));
    close->setDefault(true);
    connect(close, &QPushButton::clicked, this, &QDialog::accept);
    buttons->addWidget(close);
    layout->addLayout(buttons);
}

void DeviceSettingsDialog::toggleAccordion(int index)
{
    if (index < 0 || index >= kSectionCount)
        return;
    m_openIndex = index;
    updateAccordion();
}

void DeviceSettingsDialog::updateAccordion()
{
    for (int i = 0; i < kSectionCount; ++i) {
        const bool open = i == m_openIndex;
        m_bodies[i]->setVisible(open);
        m_headers[i]->setText((open ? QStringLiteral("▼ ") : QStringLiteral("▶ ")) +
                              tr(kSectionTitles[i]));
    }
}

void DeviceSettingsDialog::showEvent(QShowEvent *event)
{
    QDialog::showEvent(event);
    refreshAll();
}

void DeviceSettingsDialog::refreshAll()
{
    refreshVideoList();
    refreshAudioInputList();
    refreshSerialList();
    refreshBaudList();
    refreshConnectionHint();
}

QString DeviceSettingsDialog::currentDid() const
{
    return m_view ? m_view->getCurrentDeviceDid() : QString();
}

void DeviceSettingsDialog::refreshVideoList()
{
    QListWidget *list = m_lists[VideoSection];
    list->clear();
    const QList<IdentifiedCamera> cameras =
        m_view ? m_view->getIdentifiedUvcDeviceList() : QList<IdentifiedCamera>();
    if (cameras.isEmpty()) {
        addPlaceholder(list, tr("(未检测到符合 *usb*video* 的 UVC 设备)"));
        return;
    }
    for (const IdentifiedCamera &camera : cameras) {
        // Identical boxes share a description: the identity tells them apart.
        QListWidgetItem *item =
            addChoice(list,
                      QStringLiteral("%1  [%2]")
                          .arg(camera.device.description(), QString::fromUtf8(camera.identity)),
                      camera.identity);
        if (camera.identity == m_view->currentDeviceId())
            list->setCurrentItem(item);
    }
}

void DeviceSettingsDialog::refreshAudioInputList()
{
    QListWidget *list = m_lists[AudioSection];
    list->clear();
    QListWidgetItem *automatic =
        addChoice(list, tr("（自动）按 usb*video 与 usb*audio 序号顺序配对（清除手动绑定）"),
                  QByteArray(kAudioAutoMarker));
    const QByteArray bound = m_view ? m_view->savedAudioInputDeviceIdFromDb() : QByteArray();
    QListWidgetItem *chosen = automatic;
    bool any = false;
    for (const QAudioDevice &device : QMediaDevices::audioInputs()) {
        if (!TavroVideo::isLikelyUsbUacAudioInputEndpoint(device))
            continue;
        any = true;
        // Identical boxes' inputs share a description: the id tells them apart.
        QListWidgetItem *item = addChoice(
            list,
            QStringLiteral("%1  [%2]").arg(device.description(), QString::fromUtf8(device.id())),
            device.id());
        if (!bound.isEmpty() && device.id() == bound)
            chosen = item;
    }
    if (!any)
        addPlaceholder(list, tr("(未检测到同时含 usb 与 audio 的输入设备)"));
    list->setCurrentItem(chosen);
}

void DeviceSettingsDialog::refreshSerialList()
{
    QListWidget *list = m_lists[SerialSection];
    list->clear();
    const QString did = currentDid();
    const QString current =
        did.isEmpty() ? QString()
                      : UartManager::purePortNameFromDisplayItem(
                            UartManager::instance()->getDeviceUartManager(did)->portName());
    bool any = false;
    for (const QString &port : UartManager::instance()->getAvailableSerialPorts()) {
        if (!isTkCdcPortItem(port))
            continue;
        any = true;
        const QString name = UartManager::purePortNameFromDisplayItem(port);
        QListWidgetItem *item = addChoice(list, port, name);
        if (!current.isEmpty() && name == current)
            list->setCurrentItem(item);
    }
    if (!any)
        addPlaceholder(list, tr("(未检测到符合 TK…CDC 的串口)"));
}

void DeviceSettingsDialog::refreshBaudList()
{
    QListWidget *list = m_lists[BaudSection];
    list->clear();
    const QString did = currentDid();
    const int rate = did.isEmpty() ? kSerialPanelDefaultBaud
                                   : UartManager::instance()->getDeviceUartManager(did)->baudRate();
    for (int baud : kBaudRates) {
        QListWidgetItem *item = addChoice(list, QString::number(baud), baud);
        if (baud == rate)
            list->setCurrentItem(item);
    }
}

void DeviceSettingsDialog::refreshConnectionHint()
{
    ConnectionHintFacts facts;
    facts.hasView = m_view != nullptr;
    const QString did = currentDid();
    facts.hasDevice = !did.isEmpty();
    if (facts.hasDevice) {
        facts.boundAudioId = m_view->savedAudioInputDeviceIdFromDb();
        const DeviceUartManager *link = UartManager::instance()->getDeviceUartManager(did);
        facts.portOpen = linkIsOpen(link);
        facts.port = UartManager::purePortNameFromDisplayItem(link->portName());
        facts.baud = link->baudRate();
    }
    m_hintLabel->setText(connectionHintText(facts));
}

bool DeviceSettingsDialog::requireDevice(const QString &title)
{
    if (!currentDid().isEmpty())
        return true;
    if (m_view)
        m_view->showWarning(this, title, tr(kNoDeviceText));
    else
        qWarning().noquote() << "[DeviceSettingsDialog]" << title << kNoDeviceText;
    return false;
}

void DeviceSettingsDialog::requestStatus(const QString &message)
{
    qDebug().noquote() << "[DeviceSettingsDialog]" << message;
    if (m_view)
        emit m_view->statusBarMessageRequested(message);
}

void DeviceSettingsDialog::onVideoItemClicked(QListWidgetItem *item)
{
    if (!m_view || isPlaceholder(item))
        return;
    const QByteArray identity = item->data(Qt::UserRole).toByteArray();
    if (identity.isEmpty())
        return;
    // The camera shown already stays as it is.
    if (identity != m_view->currentDeviceId() || !m_view->isCameraActive()) {
        m_view->closeCamera(true);
        m_view->openCamera(identity);
    }
    requestStatus(tr("已切换视频设备"));
    refreshAudioInputList();
    refreshSerialList();
    refreshBaudList();
    refreshConnectionHint();
}

void DeviceSettingsDialog::onAudioInputItemClicked(QListWidgetItem *item)
{
    if (isPlaceholder(item))
        return;
    if (!requireDevice(tr("输入音频")))
        return;
    const QByteArray id = item->data(Qt::UserRole).toByteArray();
    if (id == kAudioAutoMarker) {
        m_view->saveAudioInputDeviceBindingForCurrentDevice(QByteArray());
        m_view->reapplyUvcAudioForCurrentCamera();
        // The re-attach keeps its automatic choice as the box's binding; the operator asked for
        // none, so the next open pairs by order again.
        m_view->saveAudioInputDeviceBindingForCurrentDevice(QByteArray());
        requestStatus(tr("已改为自动配对，监听已立即重挂，请听声确认"));
    } else {
        m_view->saveAudioInputDeviceBindingForCurrentDevice(id);
        m_view->reapplyUvcAudioForCurrentCamera();
        requestStatus(tr("已保存并立即重挂监听，请听声确认是否为该路输入音频"));
    }
    refreshConnectionHint();
}

void DeviceSettingsDialog::onSerialItemClicked(QListWidgetItem *item)
{
    if (isPlaceholder(item))
        return;
    const QString title = tr("串口");
    if (!requireDevice(title))
        return;
    DeviceUartManager *link = UartManager::instance()->getDeviceUartManager(currentDid());
    if (!link) {
        m_view->showWarning(this, title, tr("无法获取 UART 管理器。"));
        return;
    }
    link->loadUartConfigFromDb();
    const QString port = UartManager::purePortNameFromDisplayItem(item->text());
    link->updateUartConfigByUser(port, link->baudRate());
    requestStatus(tr("串口已设为: %1").arg(port));
    refreshConnectionHint();
}

void DeviceSettingsDialog::onBaudItemClicked(QListWidgetItem *item)
{
    if (isPlaceholder(item))
        return;
    const QString title = tr("波特率");
    if (!requireDevice(title)) {
        refreshBaudList();
        return;
    }
    DeviceUartManager *link = UartManager::instance()->getDeviceUartManager(currentDid());
    const QString port = UartManager::purePortNameFromDisplayItem(link->portName());
    if (port.isEmpty()) {
        m_view->showWarning(this, title, tr("请先在「串口设备列表」中选择串口。"));
        refreshBaudList();
        return;
    }
    const int rate = item->data(Qt::UserRole).toInt();
    link->updateUartConfigByUser(port, rate);
    requestStatus(tr("波特率: %1").arg(rate));
    refreshConnectionHint();
}
