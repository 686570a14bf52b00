#include "ui/paramcontroldialog.h"

#include <QCheckBox>
#include <QCloseEvent>
#include <QDebug>
#include <QFrame>
#include <QHBoxLayout>
#include <QLabel>
#include <QMessageBox>
#include <QPushButton>
#include <QTimer>
#include <QVBoxLayout>

#include "console/tavrovideo.h"
#include "ui/stylesheet.h"

namespace {

constexpr int kMprIntervalMs = 2;
constexpr int kMprFramesPerSecond = 1000 / kMprIntervalMs;

const char kDialogStyle[] =
    "QDialog#paramControlDialog { background-color: #232323; color: #e0e0e0; }"
    "QFrame#paramSection { border: 1px solid #5a5a5a; border-radius: 8px; background-color: "
    "#252525; }"
    "QLabel#sectionTitle { color: #ffffff; font-size: 14px; font-weight: bold; }"
    "QCheckBox { color: #f0f0f0; spacing: 8px; }"
    "QPushButton { min-height: 32px; background-color: #2d2d2d; color: #ffffff; border: 1px "
    "solid #555555; border-radius: 4px; padding: 6px 12px; }"
    "QPushButton:hover { background-color: #3d3d3d; border-color: #666666; }"
    "QPushButton:pressed { background-color: #1a1a1a; }";

QVBoxLayout *addSection(QVBoxLayout *parent, QWidget *owner, const QString &title, bool last)
{
    auto *frame = new QFrame(owner);
    frame->setObjectName(QStringLiteral("paramSection"));
    auto *layout = new QVBoxLayout(frame);
    layout->setContentsMargins(12, 10, 12, last ? 16 : 10);
    layout->setSpacing(8);
    auto *heading = new QLabel(title, frame);
    heading->setObjectName(QStringLiteral("sectionTitle"));
    layout->addWidget(heading);
    parent->addWidget(frame);
    return layout;
}

} // namespace

const QList<QByteArray> &ParamControlDialog::mprFrames()
{
    static const QList<QByteArray> frames = {
        QByteArray::fromHex("57AB0004070201400115020068"), // press, left at 320,533
        QByteArray::fromHex("57AB0004070200400115020067"), // release
        QByteArray::fromHex("57AB0004070201190C6B0A00AA"), // press2, left at 3097,2667
        QByteArray::fromHex("57AB0004070200190C6B0A00A9"), // release2
    };
    return frames;
}

ParamControlDialog::ParamControlDialog(QWidget *parent, TavroVideo *view)
    : QDialog(parent), m_view(view)
{
    setObjectName(QStringLiteral("paramControlDialog"));
    setWindowTitle(tr("参数及控制"));
    setModal(true);
    resize(520, 420);
    setStyleSheet(QString::fromLatin1(kDialogStyle) + getCheckboxQssString());

    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(14, 14, 14, 14);
    layout->setSpacing(10);
    auto *heading = new QLabel(tr("参数及控制"), this);
    heading->setStyleSheet(QStringLiteral("font-size:16px;font-weight:bold;"));
    layout->addWidget(heading);

    QVBoxLayout *parameters = addSection(layout, this, tr("设备参数"), false);
    m_autoMoveBox = new QCheckBox(tr("鼠标微动"), this);
    parameters->addWidget(m_autoMoveBox);
    auto *correctionRow = new QHBoxLayout;
    correctionRow->setSpacing(8);
    m_cursorCorrectionBox = new QCheckBox(tr("光标矫正"), this);
    m_testButton = new QPushButton(tr("测试"), this);
    correctionRow->addWidget(m_cursorCorrectionBox);
    correctionRow->addStretch();
    correctionRow->addWidget(m_testButton, 0, Qt::AlignRight);
    parameters->addLayout(correctionRow);

    QVBoxLayout *control = addSection(layout, this, tr("设备控制"), false);
    m_restartButton = new QPushButton(tr("设备重启"), this);
    control->addWidget(m_restartButton, 0, Qt::AlignLeft);

    QVBoxLayout *performance = addSection(layout, this, tr("性能测试"), true);
    auto *description = new QLabel(
        tr("MPR 测试将循环发送 CH9329 鼠标包：press → release → press2 → release2（%1 Hz）。")
            .arg(kMprFramesPerSecond),
        this);
    description->setWordWrap(true);
    description->setStyleSheet(QStringLiteral("color: #a8a8a8; font-size: 12px;"));
    performance->addWidget(description);
    m_mprButton = new QPushButton(this);
    performance->addWidget(m_mprButton, 0, Qt::AlignLeft);
    performance->addSpacing(4);

    auto *close = new QPushButton(tr("关闭"), this);
    layout->addStretch();
    layout->addWidget(close, 0, Qt::AlignRight);

    m_mprTimer = new QTimer(this);
    m_mprTimer->setTimerType(Qt::PreciseTimer);
    m_mprTimer->setInterval(kMprIntervalMs);
    connect(m_mprTimer, &QTimer::timeout, this, &ParamControlDialog::onMprTestTimerTick);
    updateMprTestButtonText();

    // The state comes first, the handlers after: setting it must not send anything.
    initStateFromDevice();
    connect(m_autoMoveBox, &QCheckBox::toggled, this, [this](bool checked) {
        if (m_view && m_view->sendMouseAutoMoveCommand(checked))
            return;
        const QSignalBlocker block(m_autoMoveBox);
        m_autoMoveBox->setChecked(!checked);
    });
    connect(m_cursorCorrectionBox, &QCheckBox::toggled, this, [this](bool checked) {
        if (m_view)
            m_view->setCursorCorrectionEnabled(checked);
    });
    connect(m_testButton, &QPushButton::clicked, this, [this] {
        if (m_view)
            m_view->saveBlackBorderCheckImage();
    });
    connect(m_restartButton, &QPushButton::clicked, this, [this] {
        if (m_view)
            m_view->sendDeviceRestartCommand();
    });
    connect(m_mprButton, &QPushButton::clicked, this, [this] {
        if (m_mprRunning)
            stopMprTest();
        else
            startMprTest();
    });
    connect(close, &QPushButton::clicked, this, &QDialog::close);
}

ParamControlDialog::~ParamControlDialog()
{
    stopMprTest();
}

void ParamControlDialog::initStateFromDevice()
{
    if (!m_view)
        return;
    m_view->refreshDeviceInfoOnce();
    const QSignalBlocker blockAutoMove(m_autoMoveBox);
    const QSignalBlocker blockCorrection(m_cursorCorrectionBox);
    m_autoMoveBox->setChecked(m_view->cachedMouseAutoMoveState() == 1);
    m_cursorCorrectionBox->setChecked(m_view->isCursorCorrectionEnabled());
}

void ParamControlDialog::updateMprTestButtonText()
{
    m_mprButton->setText(m_mprRunning ? QStringLiteral("MPR test stop")
                                      : QStringLiteral("MPR test start"));
}

void ParamControlDialog::startMprTest()
{
    if (!m_view) {
        QMessageBox::warning(this, tr("MPR 测试"), tr("视频未就绪。"));
        return;
    }
    if (!m_view->isDeviceUartConnected()) {
        m_view->showWarning(this, tr("MPR 测试"), tr("请先连接串口。"));
        return;
    }
    m_mprIndex = 0;
    m_mprRunning = true;
    updateMprTestButtonText();
    m_mprTimer->start();
}

void ParamControlDialog::stopMprTest()
{
    if (!m_mprRunning && !m_mprTimer->isActive())
        return;
    m_mprTimer->stop();
    m_mprRunning = false;
    m_mprIndex = 0;
    updateMprTestButtonText();
}

void ParamControlDialog::onMprTestTimerTick()
{
    if (!m_mprRunning)
        return;
    if (!m_view || !m_view->isDeviceUartConnected()) {
        stopMprTest();
        if (m_view)
            m_view->showWarning(this, tr("MPR 测试"), tr("串口已断开，测试已停止。"));
        else
            QMessageBox::warning(this, tr("MPR 测试"), tr("串口已断开，测试已停止。"));
        return;
    }
    if (!m_view->sendRawUartData(mprFrames().at(m_mprIndex))) {
        stopMprTest();
        m_view->showWarning(this, tr("MPR 测试"), tr("发送失败，测试已停止。"));
        return;
    }
    m_mprIndex = (m_mprIndex + 1) % mprFrames().size();
}

void ParamControlDialog::reject()
{
    stopMprTest();
    QDialog::reject();
}

void ParamControlDialog::closeEvent(QCloseEvent *event)
{
    stopMprTest();
    QDialog::closeEvent(event);
}
