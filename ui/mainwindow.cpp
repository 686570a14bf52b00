#include "ui/mainwindow.h"

#include <QApplication>
#include <QDebug>
#include <QDesktopServices>
#include <QFontDatabase>
#include <QFrame>
#include <QHBoxLayout>
#include <QKeyEvent>
#include <QLabel>
#include <QMenu>
#include <QMenuBar>
#include <QPainter>
#include <QScreen>
#include <QStatusBar>
#include <QStyle>
#include <QTimer>
#include <QToolButton>
#include <QUrl>
#include <QVBoxLayout>
#include <QWindow>

#include "console/tavrovideo.h"
#include "devices/device.h"
#include "devices/devicelistrules.h"
#include "ui/bundleicon.h"
#include "ui/customtitlebar.h"
#include "ui/messagewidget.h"
#include "ui/stylesheet.h"
#include "ui/tools.h"
#include "ui/windowrules.h"
#include "ui_mainwindow.h"
#include "update/aboutdialog.h"
#include "update/appupdatechecker.h"
#include "update/newversiondialog.h"

namespace {

const QColor kWindowBackground(0x23, 0x23, 0x23);
constexpr int kTipDurationMs = 6000;
constexpr int kLeftBarIconSize = 22;
constexpr int kPressGrowth = 4;

// Each left-bar button, its icon and what it does when its page or dialog is not there yet.
struct LeftBarButton
{
    QToolButton *Ui::MainWindow::*member;
    const char *icon;
};

const LeftBarButton kLeftBarButtons[] = {
    {&Ui::MainWindow::deviceBtn, ":/images/leftbar/device.png"},
    {&Ui::MainWindow::toolBtn, ":/images/leftbar/tool.png"},
    {&Ui::MainWindow::homeBtn, ":/images/leftbar/home.png"},
    {&Ui::MainWindow::mailBtn, ":/images/leftbar/mail.png"},
    {&Ui::MainWindow::notifyBtn, ":/images/leftbar/notify.png"},
    {&Ui::MainWindow::groupBtn, ":/images/leftbar/group.png"},
    {&Ui::MainWindow::helpBtn, ":/images/leftbar/help.png"},
    {&Ui::MainWindow::settingBtn, ":/images/leftbar/setting.png"},
};

bool isKeyInRange(int key, int first, int last)
{
    return key >= first && key <= last;
}

QString keyKindText(int key)
{
    if (isKeyInRange(key, Qt::Key_F1, Qt::Key_F35))
        return QStringLiteral("功能键");
    if (isKeyInRange(key, 0x01000061, 0x0100011D))
        return QStringLiteral("多媒体键");
    if (isKeyInRange(key, 0x01001250, 0x01001262))
        return QStringLiteral("Dead键");
    return QString();
}

QString modifierText(Qt::KeyboardModifiers modifiers)
{
    QStringList parts;
    if (modifiers & Qt::ShiftModifier)
        parts << QStringLiteral("Shift");
    if (modifiers & Qt::ControlModifier)
        parts << QStringLiteral("Control");
    if (modifiers & Qt::AltModifier)
        parts << QStringLiteral("Alt");
    if (modifiers & Qt::MetaModifier)
        parts << QStringLiteral("Meta/Command");
    return parts.join(QLatin1Char('+'));
}

} // namespace

MainWindow::MainWindow(QWidget *parent) : QMainWindow(parent), ui(new Ui::MainWindow)
{
    m_video = new TavroVideo(this);
    m_video->setObjectName(QStringLiteral("tavroVideo"));

    m_statusSection1Label = new QLabel(QStringLiteral("..."), this);
    m_statusSection2Label = new QLabel(QStringLiteral("Mouse: N/A"), this);
    m_statusSection3Label = new QLabel(QStringLiteral("Freq: N/A"), this);
    m_statusSection4Label = new QLabel(QStringLiteral("Delta: 0, 0"), this);
    m_statusSection5Label = new QLabel(QStringLiteral("UART: unknown"), this);
    m_statusTipLabel = new QLabel(this);
    m_statusTipTimer = new QTimer(this);
    m_statusTipTimer->setObjectName(QStringLiteral("statusTipTimer"));
    m_statusTipTimer->setSingleShot(true);
    // Kept for the same start-up order as before; nothing listens to it.
    m_idleTimer = new QTimer(this);
    m_idleTimer->start(100);

    setWindowFlags(Qt::Window | Qt::FramelessWindowHint);
    ui->setupUi(this);
    setWindowTitle(QStringLiteral("TavroKVM"));
    ui->centralwidget->installEventFilter(this);

    m_titleBar = new CustomTitleBar(this);
    buildLeftButtonBar();
    buildStatusBar();
    buildMenuBar();
    setStyleSheet(getQssString(QStringLiteral(":/res/qss/mainwindow.css")) +
                  getCheckboxQssString());

    createDevicePage();
    if (m_device)
        connect(m_deviceMenu, &QMenu::aboutToShow, this, &MainWindow::rebuildDeviceMenu);
    resize(1500, 800);
    setMinimumSize(800, 500);

    connectButtons();
    m_updateChecker = new AppUpdateChecker(this);
    connect(m_updateChecker, &AppUpdateChecker::checkFinished, this,
            &MainWindow::onUpdateCheckFinished);
    QTimer::singleShot(400, m_updateChecker, &AppUpdateChecker::startCheck);
    QTimer::singleShot(100, this, &MainWindow::centerWindowOnScreen);
    QTimer::singleShot(200, this, &MainWindow::applyFontFallback);
    installPressFeedback();
    createSettingBadge();
    connectConsoleView();
    qApp->installEventFilter(this);
}

MainWindow::~MainWindow()
{
    qApp->removeEventFilter(this);
    delete ui;
}

tools *MainWindow::toolPage() const
{
    return m_tools;
}

MessageWidget *MainWindow::messagePanel() const
{
    return m_messageWidget;
}

// ---- Construction --------------------------------------------------------------------------

void MainWindow::buildLeftButtonBar()
{
    auto *bar = new QWidget(ui->centralwidget);
    bar->setObjectName(QStringLiteral("leftButtonBar"));
    bar->setAttribute(Qt::WA_StyledBackground);
    auto *column = new QVBoxLayout(bar);
    column->setContentsMargins(4, 4, 2, 4);
    column->setSpacing(2);
    for (const LeftBarButton &entry : kLeftBarButtons) {
        QToolButton *button = ui->*entry.member;
        button->setIcon(bundleIcon(QString::fromLatin1(entry.icon)));
        button->setIconSize(QSize(kLeftBarIconSize, kLeftBarIconSize));
        button->setAutoRaise(true);
        button->setFocusPolicy(Qt::NoFocus);
        column->addWidget(button);
        if (entry.member == &Ui::MainWindow::toolBtn)
            column->addStretch();
    }
    ui->settingBtn->setToolTip(tr("关于与版本更新"));
    bar->setFixedWidth(40);

    ui->multiDialogWidget->setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Expanding);
    auto *row = new QHBoxLayout;
    row->setContentsMargins(0, 0, 0, 0);
    row->setSpacing(0);
    row->addWidget(bar);
    row->addWidget(ui->multiDialogWidget, 1);

    auto *central = new QVBoxLayout(ui->centralwidget);
    central->setContentsMargins(0, 0, 0, 0);
    central->setSpacing(0);
    central->addWidget(m_titleBar);
    central->addLayout(row, 1);
}

QFrame *MainWindow::createStatusBarSeparator()
{
    auto *line = new QFrame(this);
    line->setObjectName(QStringLiteral("statusSeparator"));
    line->setFrameShape(QFrame::VLine);
    line->setFrameShadow(QFrame::Sunken);
    line->setFixedHeight(18);
    return line;
}

void MainWindow::buildStatusBar()
{
    m_statusSection1Label->setObjectName(QStringLiteral("statusSection1"));
    m_statusSection2Label->setObjectName(QStringLiteral("statusSection2"));
    m_statusSection3Label->setObjectName(QStringLiteral("statusSection3"));
    m_statusSection4Label->setObjectName(QStringLiteral("statusSection4"));
    m_statusSection5Label->setObjectName(QStringLiteral("statuSection5"));
    QStatusBar *bar = statusBar();
    bar->addWidget(m_statusSection1Label);
    bar->addWidget(createStatusBarSeparator());
    bar->addWidget(m_statusSection2Label);
    bar->addWidget(createStatusBarSeparator());
    bar->addWidget(m_statusSection3Label);
    bar->addWidget(createStatusBarSeparator());
    bar->addWidget(m_statusSection4Label);
    bar->addWidget(createStatusBarSeparator());
    bar->addWidget(m_statusSection5Label);

    m_statusTipLabel->setObjectName(QStringLiteral("statusTipLabel"));
    m_statusTipLabel->setMinimumWidth(160);
    m_statusTipLabel->setMaximumWidth(520);
    m_statusTipLabel->setAlignment(Qt::AlignRight | Qt::AlignVCenter);
    m_statusTipLabel->setSizePolicy(QSizePolicy::MinimumExpanding, QSizePolicy::Preferred);
    bar->addPermanentWidget(m_statusTipLabel, 1);
    connect(m_statusTipTimer, &QTimer::timeout, m_statusTipLabel, &QLabel::clear);

    // Shown while the console holds the keyboard, so that the operator knows why desktop
    // shortcuts do nothing and how to get them back.
    auto *grab = new QLabel(tr("⌨ 键盘已捕获（Ctrl+Alt+Shift+Esc 释放）"), this);
    grab->setObjectName(QStringLiteral("keyboardGrabIndicator"));
    grab->hide();
    bar->addPermanentWidget(grab);
    connect(m_video, &TavroVideo::keyboardGrabChanged, grab, &QLabel::setVisible);
}

void MainWindow::buildMenuBar()
{
    // The menu bar sits in the title bar, right of the window buttons: outside macOS there is no
    // global menu bar, and a second bar above the title would make the title bar a middle strip.
    m_menuBar = new QMenuBar(m_titleBar);
    m_menuBar->setObjectName(QStringLiteral("menuBar"));
    m_menuBar->setNativeMenuBar(false);
    if (auto *row = qobject_cast<QHBoxLayout *>(m_titleBar->layout()))
        row->insertWidget(3, m_menuBar, 0, Qt::AlignVCenter);

    QMenu *app = m_menuBar->addMenu(QStringLiteral("TavroKVM"));
    QAction *about = app->addAction(bundleIcon(QStringLiteral(":/images/menu/info.png")),
                                    tr("关于"), this, &MainWindow::showAboutDialog);
    about->setObjectName(QStringLiteral("aboutAction"));
    about->setMenuRole(QAction::AboutRole);
    app->addSeparator();
    app->addAction(style()->standardIcon(QStyle::SP_TitleBarMinButton), tr("最小化"), this,
                   &QWidget::showMinimized);
    app->addAction(style()->standardIcon(QStyle::SP_TitleBarMaxButton), tr("最大化"), this, [this] {
        if (isMaximized())
            showNormal();
        else
            showMaximized();
    });
    app->addSeparator();
    QAction *quit = app->addAction(style()->standardIcon(QStyle::SP_TitleBarCloseButton),
                                   tr("关闭"), this, &QWidget::close);
    quit->setMenuRole(QAction::QuitRole);

    m_deviceMenu = m_menuBar->addMenu(tr("设备(&D)"));
    m_deviceMenu->setObjectName(QStringLiteral("deviceMenu"));
    m_deviceMenu->setToolTipsVisible(true);

    QMenu *toolsMenu = m_menuBar->addMenu(tr("工具(&T)"));
    toolsMenu->setToolTipsVisible(true);
    QAction *showLog = toolsMenu->addAction(bundleIcon(QStringLiteral(":/images/tool/log.png")),
                                            tr("显示日志"), this, &MainWindow::onLogToolBtnClicked);
    showLog->setObjectName(QStringLiteral("showLogAction"));

    m_menuBar->installEventFilter(this);
}

void MainWindow::createDevicePage()
{
    if (m_device) {
        qWarning() << "[MainWindow] 警告：device已经存在，跳过创建！device指针:" << m_device;
        return;
    }
    QWidget *host = ui->multiDialogWidget;
    if (!host) {
        qCritical() << "[MainWindow] 错误：ui->multiDialogWidget 不存在！";
        m_device = new device(this, m_video);
        m_device->show();
        return;
    }
    m_device = new device(host, m_video);
    auto *layout = qobject_cast<QVBoxLayout *>(host->layout());
    if (!layout) {
        delete host->layout();
        layout = new QVBoxLayout(host);
    }
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(0);
    if (layout->indexOf(m_device) < 0)
        layout->addWidget(m_device);
    m_device->show();
    qDebug() << "[MainWindow] device 已添加到 multiDialogWidget, device visible:"
             << m_device->isVisible();
}

void MainWindow::disableUntilAvailable(QWidget *widget, const QString &missing)
{
    widget->setEnabled(false);
    widget->setToolTip(missing);
}

void MainWindow::connectButtons()
{
    disconnect(ui->deviceBtn, &QToolButton::clicked, nullptr, nullptr);
    disconnect(ui->toolBtn, &QToolButton::clicked, nullptr, nullptr);
    disconnect(ui->settingBtn, &QToolButton::clicked, nullptr, nullptr);
    connect(ui->deviceBtn, &QToolButton::clicked, this, &MainWindow::onDeviceBtnClicked);
    connect(ui->homeBtn, &QToolButton::clicked, this, &MainWindow::onHomeBtnClicked);
    connect(ui->helpBtn, &QToolButton::clicked, this, &MainWindow::onHelpBtnClicked);
    connect(ui->mailBtn, &QToolButton::clicked, this, &MainWindow::onMailBtnClicked);
    connect(ui->toolBtn, &QToolButton::clicked, this, &MainWindow::onToolBtnClicked);
    connect(ui->settingBtn, &QToolButton::clicked, this, &MainWindow::onSettingBtnClicked);

    if (QUrl(QStringLiteral(TAVROKVM_HOME_URL)).isEmpty())
        disableUntilAvailable(ui->homeBtn, tr("此版本未配置主页地址"));
    if (QUrl(QStringLiteral(TAVROKVM_HELP_URL)).isEmpty())
        disableUntilAvailable(ui->helpBtn, tr("此版本未配置在线帮助地址"));
    disableUntilAvailable(ui->notifyBtn, tr("通知功能尚未提供"));
    disableUntilAvailable(ui->groupBtn, tr("设备分组尚未提供"));
}

void MainWindow::installPressFeedback()
{
    for (const LeftBarButton &entry : kLeftBarButtons) {
        QToolButton *button = ui->*entry.member;
        const QSize normal = button->iconSize();
        connect(button, &QToolButton::pressed, button, [button, normal] {
            button->setIconSize(normal + QSize(kPressGrowth, kPressGrowth));
        });
        connect(button, &QToolButton::released, button,
                [button, normal] { button->setIconSize(normal); });
    }
}

void MainWindow::createSettingBadge()
{
    m_settingBadge = new QLabel(QStringLiteral("🔴"), ui->settingBtn);
    m_settingBadge->setObjectName(QStringLiteral("settingBadge"));
    QFont font = m_settingBadge->font();
    font.setPixelSize(qMax(m_settingBadge->fontMetrics().height() / 2, 5));
    m_settingBadge->setFont(font);
    m_settingBadge->setAttribute(Qt::WA_TransparentForMouseEvents);
    m_settingBadge->hide();
    ui->settingBtn->installEventFilter(this);
    QTimer::singleShot(0, this, &MainWindow::updateSettingBadgeGeometry);
}

void MainWindow::connectConsoleView()
{
    connect(m_video, &TavroVideo::calcChanged, this, [this](const QString &text) {
        qDebug().noquote() << "[MainWindow] 收到 calcChanged:" << text;
        m_statusSection3Label->setText(text);
        statusBar()->update();
    });
    connect(m_video, &TavroVideo::mouseChanged, this, [this](const QString &text) {
        m_statusSection4Label->setText(text);
        statusBar()->update();
    });
    connect(m_video, &TavroVideo::uartStatusChanged, this,
            [this](bool connected, const QString &text) {
                qDebug().noquote() << "[MainWindow] 收到TavroVideo的UART状态变化信号:"
                                   << (connected ? "已连接" : "已断开") << text;
                if (!m_statusSection5Label) {
                    qCritical() << "[MainWindow] 错误：m_statusSection5Label为空！";
                    return;
                }
                // The view's text names the port ("/dev/ttyACM0: connected") or already
                // starts with "UART:" ("UART: disconnected"): never "UART: UART: …".
                m_statusSection5Label->setText(text.startsWith(QLatin1String("UART:"))
                                                   ? text
                                                   : QStringLiteral("UART: %1").arg(text));
                qDebug().noquote()
                    << "[MainWindow] 状态栏UART状态已更新:" << m_statusSection5Label->text();
                statusBar()->update();
            });
    connect(m_video, &TavroVideo::statusBarMessageRequested, this,
            &MainWindow::showTransientStatusMessage);
    // What the console told the operator in a box stays readable in the message panel.
    connect(m_video, &TavroVideo::operatorMessageShown, this, &MainWindow::appendMessage);
}

void MainWindow::applyFontFallback()
{
    static const char *const kFamilies[] = {"Fira Mono",   "Consolas",    "Menlo",    "Monaco",
                                            "Andale Mono", "Courier New", "monospace"};
    QFont font = QApplication::font();
    const QStringList installed = QFontDatabase::families();
    for (const char *family : kFamilies) {
        if (installed.contains(QLatin1String(family), Qt::CaseInsensitive)) {
            font.setFamily(QLatin1String(family));
            break;
        }
    }
    font.setStyleHint(QFont::Monospace);
    font.setFixedPitch(true);
    QApplication::setFont(font);
    qDebug() << "[MainWindow] 字体加载完成";
}

void MainWindow::initSerialPort()
{
    qDebug() << "MainWindow::initSerialPort - 串口操作已移至Camera类";
}

void MainWindow::applyDarkTheme() {}

// ---- Pages ---------------------------------------------------------------------------------

void MainWindow::onDeviceBtnClicked()
{
    if (m_tools && m_tools->isVisible())
        m_tools->hide();
    if (m_messageWidget && m_messageWidget->isVisible())
        m_messageWidget->hide();
    if (!m_device) {
        qWarning() << "[MainWindow] deviceBtn点击：device指针为空！";
        return;
    }
    if (m_device->isVisible()) {
        m_device->raise();
        m_device->activateWindow();
    } else {
        m_device->show();
        m_device->raise();
    }
}

bool MainWindow::ensureToolPageCreated()
{
    if (m_tools)
        return true;
    if (QWidget *host = ui->multiDialogWidget) {
        m_tools = new tools(host);
        if (host->layout())
            host->layout()->addWidget(m_tools);
        else
            qWarning() << "[MainWindow] multiDialogWidget的布局不存在！";
        qDebug() << "[MainWindow] tools 延迟创建并添加到 multiDialogWidget, tools指针:"
                 << m_tools.data();
    } else {
        m_tools = new tools(this);
        qDebug() << "[MainWindow] tools 延迟创建（父窗口为MainWindow）, tools指针:"
                 << m_tools.data();
    }
    m_tools->hide();
    return m_tools;
}

void MainWindow::onToolBtnClicked()
{
    if (m_video)
        m_video->closePopupWindows();
    if (m_messageWidget && !m_messageWidget->isHidden())
        m_messageWidget->hide();
    if (!ensureToolPageCreated()) {
        qWarning() << "[MainWindow] tools 创建失败！";
        return;
    }
    if (m_tools->isHidden()) {
        if (m_device)
            m_device->hide();
        m_tools->show();
        m_tools->raise();
    }
}

void MainWindow::onLogToolBtnClicked()
{
    if (m_tools)
        qDebug() << "[MainWindow] tools 已存在，跳过创建, tools指针:" << m_tools.data();
    else
        qDebug() << "[MainWindow] 开始创建tools（通过菜单或按钮）...";
    if (!ensureToolPageCreated()) {
        qWarning() << "[MainWindow] tools 创建失败！";
        return;
    }
    if (m_device)
        m_device->hide();
    if (m_messageWidget)
        m_messageWidget->hide();
    m_tools->show();
    m_tools->raise();
    m_tools->showLogMngPage();
}

void MainWindow::onMailBtnClicked()
{
    if (m_video)
        m_video->closePopupWindows();
    ensureMessageWidgetCreated();
    if (!m_messageWidget) {
        qWarning() << "[MainWindow] 消息面板创建失败";
        return;
    }
    if (m_device)
        m_device->hide();
    if (m_tools)
        m_tools->hide();
    m_messageWidget->show();
    m_messageWidget->raise();
}

void MainWindow::ensureMessageWidgetCreated()
{
    if (m_messageWidget)
        return;
    if (QWidget *host = ui->multiDialogWidget) {
        m_messageWidget = new MessageWidget(host);
        if (host->layout())
            host->layout()->addWidget(m_messageWidget);
        else
            qWarning() << "[MainWindow] multiDialogWidget 无布局，无法嵌入消息面板";
    } else {
        m_messageWidget = new MessageWidget(this);
    }
    m_messageWidget->hide();
}

void MainWindow::appendMessage(const QString &text)
{
    ensureMessageWidgetCreated();
    if (m_messageWidget)
        m_messageWidget->appendMessage(text);
}

void MainWindow::onHomeBtnClicked()
{
    QDesktopServices::openUrl(QUrl(QStringLiteral(TAVROKVM_HOME_URL)));
}

void MainWindow::onHelpBtnClicked()
{
    QDesktopServices::openUrl(QUrl(QStringLiteral(TAVROKVM_HELP_URL)));
}

void MainWindow::onSettingBtnClicked()
{
    showAboutDialog();
}

void MainWindow::showAboutDialog()
{
    AboutDialog about(this, m_hasUpdate);
    if (about.exec() != AboutDialog::UpdateRequested)
        return;
    NewVersionDialog newVersion(this, m_manifest);
    newVersion.exec();
}

void MainWindow::onUpdateCheckFinished(bool hasUpdate, const AppVersionManifest &manifest)
{
    m_hasUpdate = hasUpdate;
    m_manifest = hasUpdate ? manifest : AppVersionManifest();
    updateSettingBadgeGeometry();
}

void MainWindow::rebuildDeviceMenu()
{
    if (!m_deviceMenu || !m_device)
        return;
    m_deviceMenu->clear();
    QAction *settings =
        m_deviceMenu->addAction(bundleIcon(QStringLiteral(":/images/device/cable.png")),
                                tr("设备设置…"), m_video, &TavroVideo::showDeviceSettingsDialog);
    settings->setObjectName(QStringLiteral("deviceSettingsAction"));
    settings->setToolTip(tr("视频设备、输入音频、串口、波特率"));
    m_deviceMenu->addSeparator();

    const QStringList texts = deviceMenuItemTexts(m_device->deviceDescriptionMenuLabels());
    if (texts.isEmpty()) {
        m_deviceMenu->addAction(tr("（无可用设备）"))->setEnabled(false);
        return;
    }
    const QIcon icon = bundleIcon(QStringLiteral(":/images/menu/video-device.png"));
    for (int row = 0; row < texts.size(); ++row) {
        m_deviceMenu->addAction(icon, texts.at(row), this, [this, row] {
            if (m_device)
                m_device->activateRowLikeDoubleClick(row);
        });
    }
}

// ---- Status bar ----------------------------------------------------------------------------

void MainWindow::showTransientStatusMessage(const QString &text)
{
    const QString trimmed = text.trimmed();
    if (trimmed.isEmpty())
        return;
    m_statusTipLabel->setText(trimmed);
    m_statusTipTimer->start(kTipDurationMs);
    statusBar()->update();
    appendMessage(trimmed);
}

void MainWindow::updateSettingBadgeGeometry()
{
    if (!m_settingBadge)
        return;
    m_settingBadge->adjustSize();
    m_settingBadge->move(settingBadgePosition(ui->settingBtn->width(), m_settingBadge->width()));
    m_settingBadge->setVisible(m_hasUpdate);
}

// ---- Window placement and painting ---------------------------------------------------------

void MainWindow::centerWindowOnScreen()
{
    QScreen *screen = QGuiApplication::primaryScreen();
    if (!screen)
        return;
    const QRect area = screen->geometry();
    const CentredPlacement placement = centredPlacement(area, size(), pos());
    qDebug() << "【主窗口】准备居中窗口:"
             << "屏幕尺寸=" << area.size() << "窗口尺寸=" << size() << "当前位置=" << pos()
             << "目标位置=" << placement.target;
    if (!placement.move) {
        qDebug() << "【主窗口】窗口位置已接近中心，不进行调整";
        return;
    }
    move(placement.target);
    qDebug() << "【主窗口】窗口已居中: 新位置=" << pos();
}

void MainWindow::paintEvent(QPaintEvent *)
{
    QPainter painter(this);
    painter.fillRect(rect(), kWindowBackground);
}

void MainWindow::resizeEvent(QResizeEvent *event)
{
    qDebug() << "[MainWindow::resizeEvent] 窗口大小变化:" << event->size()
             << "旧大小:" << event->oldSize();
    QMainWindow::resizeEvent(event);
    if (m_video && ui->multiDialogWidget && ui->multiDialogWidget->layout())
        ui->multiDialogWidget->layout()->update();
}

void MainWindow::moveEvent(QMoveEvent *event)
{
    qDebug().nospace() << "******** mainwindow moveEvent position: " << event->pos().x() << ", "
                       << event->pos().y();
    if (event->pos() != event->oldPos() && m_video) {
        qDebug() << "[MainWindow::moveEvent] 窗口移动，关闭所有浮动窗口:" << event->oldPos() << "->"
                 << event->pos();
        m_video->closePopupWindows();
    }
    QMainWindow::moveEvent(event);
}

// ---- Minimise and restore ------------------------------------------------------------------

void MainWindow::rememberVisiblePages()
{
    // Whether each page is shown within the window: a hidden window hides them all from
    // isVisible() already.
    const bool deviceVisible = m_device && !m_device->isHidden();
    const bool toolsVisible = m_tools && !m_tools->isHidden();
    const bool messageVisible = m_messageWidget && !m_messageWidget->isHidden();
    // A second notice of the same minimise finds the pages hidden already: keep the first.
    if (m_pagesRemembered && !deviceVisible && !toolsVisible && !messageVisible)
        return;
    m_deviceWasVisible = deviceVisible;
    m_toolsWasVisible = toolsVisible;
    m_messageWasVisible = messageVisible;
    m_pagesRemembered = true;
    qDebug() << "[MainWindow::changeEvent] 记录的状态 - device:" << deviceVisible
             << ", tools:" << toolsVisible << ", message:" << messageVisible;
}

void MainWindow::restoreRememberedPages()
{
    if (!m_pagesRemembered)
        return;
    m_pagesRemembered = false;
    if (m_deviceWasVisible && m_device) {
        qDebug() << "[MainWindow::changeEvent] 恢复 device 显示";
        m_device->show();
        m_device->raise();
    }
    if (m_toolsWasVisible && m_tools) {
        qDebug() << "[MainWindow::changeEvent] 恢复 tools 显示";
        m_tools->show();
        m_tools->raise();
    }
    if (m_messageWasVisible && m_messageWidget) {
        qDebug() << "[MainWindow::changeEvent] 恢复消息面板显示";
        m_messageWidget->show();
        m_messageWidget->raise();
    }
}

void MainWindow::changeEvent(QEvent *event)
{
    if (event->type() == QEvent::WindowStateChange) {
        const auto *change = static_cast<QWindowStateChangeEvent *>(event);
        const bool wasMinimized = change->oldState() & Qt::WindowMinimized;
        if (isMinimized() && !wasMinimized) {
            qDebug() << "[MainWindow::changeEvent] 窗口最小化，记录子窗口状态并隐藏";
            rememberVisiblePages();
            hideAllChildWindows();
        } else if (!isMinimized() && wasMinimized) {
            qDebug() << "[MainWindow::changeEvent] 窗口从最小化恢复，恢复子窗口显示状态";
            update();
            ui->centralwidget->update();
            QTimer::singleShot(100, this, &MainWindow::restoreRememberedPages);
        }
    }
    QMainWindow::changeEvent(event);
}

void MainWindow::hideEvent(QHideEvent *event)
{
    qDebug() << "[MainWindow::changeEvent] 窗口隐藏事件，隐藏所有子窗口";
    // Some window systems report the minimise only after the window was unmapped: the pages
    // are remembered here too, so that they come back however the window returns.
    rememberVisiblePages();
    hideAllChildWindows();
    QMainWindow::hideEvent(event);
}

void MainWindow::showEvent(QShowEvent *event)
{
    qDebug() << "[MainWindow::changeEvent] 窗口显示事件";
    QMainWindow::showEvent(event);
    // Shown again without a state change out of minimised (a window manager that unmaps
    // instead): bring back what was there.
    if (m_pagesRemembered && !isMinimized())
        QTimer::singleShot(100, this, &MainWindow::restoreRememberedPages);
}

void MainWindow::hideAllChildWindows()
{
    qDebug() << "[MainWindow::hideAllChildWindows] 开始隐藏所有子窗口";
    if (m_video)
        m_video->closePopupWindows();
    if (m_device && !m_device->isHidden()) {
        m_device->hide();
        qDebug() << "[MainWindow::hideAllChildWindows] device 窗口已隐藏";
    }
    if (m_tools && !m_tools->isHidden()) {
        m_tools->hide();
        qDebug() << "[MainWindow::hideAllChildWindows] tools 窗口已隐藏";
    }
    if (m_messageWidget && !m_messageWidget->isHidden()) {
        m_messageWidget->hide();
        qDebug() << "[MainWindow::hideAllChildWindows] 消息面板已隐藏";
    }
    qDebug() << "[MainWindow::hideAllChildWindows] 所有子窗口已隐藏";
}

// ---- Keys ----------------------------------------------------------------------------------

void MainWindow::keyPressEvent(QKeyEvent *event)
{
    if (QApplication::activeWindow())
        qDebug().noquote() << QStringLiteral("Key Pressed: %1 (0x%2) Text: '%3'")
                                  .arg(event->key())
                                  .arg(event->key(), 0, 16)
                                  .arg(event->text());
    QMainWindow::keyPressEvent(event);
}

void MainWindow::keyReleaseEvent(QKeyEvent *event)
{
    if (QApplication::activeWindow())
        qDebug().noquote() << QStringLiteral("Key Released: %1 (0x%2) Text: '%3'")
                                      .arg(event->key())
                                      .arg(event->key(), 0, 16)
                                      .arg(event->text()) +
                                  QStringLiteral(" Modifiers: ") +
                                  modifierText(event->modifiers()) + QStringLiteral(" 类型: ") +
                                  keyKindText(event->key());
    QMainWindow::keyReleaseEvent(event);
}

// ---- Frameless resizing and dragging -------------------------------------------------------

Qt::Edges MainWindow::getResizeEdges(const QPoint &pos) const
{
    const bool titleVisible = m_titleBar && m_titleBar->isVisible();
    QRect titleRect;
    if (m_titleBar)
        titleRect = QRect(m_titleBar->mapTo(this, QPoint(0, 0)), m_titleBar->size());
    return frameResizeEdges(pos, size(), titleRect, titleVisible);
}

void MainWindow::updateCursor(const Qt::Edges &edges)
{
    const Qt::CursorShape shape = cursorForEdges(edges);
    if (shape == Qt::ArrowCursor)
        unsetCursor();
    else
        setCursor(shape);
}

bool MainWindow::beginFrameResize(const QPoint &globalPos, Qt::Edges edges)
{
    if (edges == Qt::Edges() || isMaximized() || isFullScreen())
        return false;
    // The window system resizes where it can (the only way under Wayland); the manual
    // geometry code below is the fallback.
    if (QWindow *handle = windowHandle(); handle && handle->startSystemResize(edges))
        return true;
    m_resizing = true;
    m_resizeEdges = edges;
    m_resizeStartGlobal = globalPos;
    m_resizeStartGeometry = geometry();
    return true;
}

void MainWindow::handleResize(const QPoint &globalPos)
{
    setGeometry(resizedGeometry(m_resizeStartGeometry, m_resizeEdges,
                                globalPos - m_resizeStartGlobal, minimumSize()));
}

void MainWindow::mousePressEvent(QMouseEvent *event)
{
    QWidget *under = childAt(event->position().toPoint());
    const Qt::Edges edges = getResizeEdges(event->position().toPoint());
    if ((!under || under == this) && event->button() == Qt::LeftButton &&
        beginFrameResize(event->globalPosition().toPoint(), edges)) {
        event->accept();
        return;
    }
    QMainWindow::mousePressEvent(event);
}

void MainWindow::mouseMoveEvent(QMouseEvent *event)
{
    if (m_resizing) {
        handleResize(event->globalPosition().toPoint());
        return;
    }
    updateCursor(getResizeEdges(event->position().toPoint()));
    QMainWindow::mouseMoveEvent(event);
}

void MainWindow::mouseReleaseEvent(QMouseEvent *event)
{
    if (event->button() == Qt::LeftButton && m_resizing) {
        m_resizing = false;
        m_resizeEdges = {};
        updateCursor({});
        event->accept();
        return;
    }
    QMainWindow::mouseReleaseEvent(event);
}

bool MainWindow::handleFrameMouseEvent(QWidget *target, QMouseEvent *event)
{
    if (target == this || target->window() != this || !event->spontaneous())
        return false;
    const QPoint pos = mapFromGlobal(event->globalPosition().toPoint());
    switch (event->type()) {
    case QEvent::MouseButtonPress:
        return event->button() == Qt::LeftButton &&
               beginFrameResize(event->globalPosition().toPoint(), getResizeEdges(pos));
    case QEvent::MouseMove:
        if (m_resizing) {
            handleResize(event->globalPosition().toPoint());
            return true;
        }
        if (event->buttons() == Qt::NoButton) {
            const Qt::Edges edges = isMaximized() ? Qt::Edges() : getResizeEdges(pos);
            if (edges != m_cursorEdges) {
                m_cursorEdges = edges;
                updateCursor(edges);
            }
        }
        return false;
    case QEvent::MouseButtonRelease:
        if (m_resizing && event->button() == Qt::LeftButton) {
            m_resizing = false;
            m_resizeEdges = {};
            updateCursor({});
            return true;
        }
        return false;
    default:
        return false;
    }
}

bool MainWindow::handleMenuBarEvent(QEvent *event)
{
    auto *mouse = static_cast<QMouseEvent *>(event);
    switch (event->type()) {
    case QEvent::MouseButtonPress:
        if (mouse->button() == Qt::LeftButton &&
            !m_menuBar->actionAt(mouse->position().toPoint())) {
            m_menuDragging = true;
            m_menuSystemMove = false;
            m_menuDragOffset = mouse->globalPosition().toPoint() - frameGeometry().topLeft();
            return true;
        }
        return false;
    case QEvent::MouseMove:
        if (!m_menuDragging || !(mouse->buttons() & Qt::LeftButton) || m_menuSystemMove)
            return false;
        if (QWindow *handle = windowHandle(); handle && handle->startSystemMove()) {
            m_menuSystemMove = true;
            return true;
        }
        move(mouse->globalPosition().toPoint() - m_menuDragOffset);
        return true;
    case QEvent::MouseButtonRelease:
        if (mouse->button() == Qt::LeftButton && m_menuDragging) {
            m_menuDragging = false;
            m_menuSystemMove = false;
            return true;
        }
        return false;
    case QEvent::MouseButtonDblClick:
        if (mouse->button() == Qt::LeftButton && m_titleBar &&
            !m_menuBar->actionAt(mouse->position().toPoint())) {
            m_titleBar->toggleMaximizeRestore();
            return true;
        }
        return false;
    default:
        return false;
    }
}

bool MainWindow::eventFilter(QObject *watched, QEvent *event)
{
    switch (event->type()) {
    case QEvent::MouseButtonPress:
    case QEvent::MouseMove:
    case QEvent::MouseButtonRelease:
    case QEvent::MouseButtonDblClick:
        if (watched == m_menuBar && handleMenuBarEvent(event))
            return true;
        if (watched->isWidgetType() && handleFrameMouseEvent(static_cast<QWidget *>(watched),
                                                             static_cast<QMouseEvent *>(event)))
            return true;
        break;
    case QEvent::Paint:
        if (watched == ui->centralwidget) {
            QPainter painter(ui->centralwidget);
            painter.fillRect(ui->centralwidget->rect(), kWindowBackground);
            return true;
        }
        break;
    case QEvent::Resize:
        if (watched == ui->settingBtn)
            QTimer::singleShot(0, this, &MainWindow::updateSettingBadgeGeometry);
        break;
    default:
        break;
    }
    return QMainWindow::eventFilter(watched, event);
}
