#include "console/input/newsoftkeyboard.h"

#include <QDebug>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QMouseEvent>
#include <QPushButton>
#include <QVBoxLayout>

namespace {

constexpr int kKeyUnitWidth = 32;
constexpr int kKeyHeight = 35;
constexpr int kGridColumns = 15;
constexpr int kRowBreak = -1;
constexpr int kFunctionRowGap = 15;

const QString kPowerSymbol = QString(QChar(0x23FB));
const QString kUpArrow = QString(QChar(0x2191));
const QString kDownArrow = QString(QChar(0x2193));
const QString kLeftArrow = QString(QChar(0x2190));
const QString kRightArrow = QString(QChar(0x2192));

struct KeyEntry
{
    QString label;
    int span;
};

// The keys in grid order; a span of -1 ends a row.
QList<KeyEntry> keyEntries()
{
    QList<KeyEntry> keys{{"ctrl+alt+del", 3}, {"", kRowBreak}, {"", kRowBreak}};
    for (const char *key :
         {"ESC", "F1", "F2", "F3", "F4", "F5", "F6", "F7", "F8", "F9", "F10", "F11", "F12"})
        keys.append({key, 1});
    keys.append({kPowerSymbol, 1});
    keys.append({"", kRowBreak});
    for (const char *key : {"`", "1", "2", "3", "4", "5", "6", "7", "8", "9", "0", "-", "="})
        keys.append({key, 1});
    keys.append({"Backspace", 2});
    keys.append({"", kRowBreak});
    keys.append({"Tab", 2});
    for (const char *key : {"Q", "W", "E", "R", "T", "Y", "U", "I", "O", "P", "[", "]", "\\"})
        keys.append({key, 1});
    keys.append({"", kRowBreak});
    keys.append({"Caps", 2});
    for (const char *key : {"A", "S", "D", "F", "G", "H", "J", "K", "L", ";", "'"})
        keys.append({key, 1});
    keys.append({"Enter", 2});
    keys.append({"", kRowBreak});
    keys.append({"Shift", 2});
    for (const char *key : {"Z", "X", "C", "V", "B", "N", "M", ",", ".", "/"})
        keys.append({key, 1});
    keys.append({"Shift", 1});
    keys.append({kUpArrow, 1});
    keys.append({"", kRowBreak});
    keys += QList<KeyEntry>{{"Fn", 2},       {"Ctrl", 1},      {"Alt", 1},     {"Cmd", 1},
                            {"Space", 5},    {"Cmd", 1},       {"Alt", 1},     {kLeftArrow, 1},
                            {kDownArrow, 1}, {kRightArrow, 1}, {"", kRowBreak}};
    return keys;
}

} // namespace

NewSoftKeyboard::NewSoftKeyboard(QWidget *parent) : QWidget(parent)
{
    setWindowFlags(Qt::Tool | Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint);
    setAttribute(Qt::WA_ShowWithoutActivating);
    qDebug() << "[NewSoftKeyboard] 创建软键盘窗口，窗口标志:" << int(windowFlags());

    m_titleBar = new QWidget(this);
    m_titleBar->setFixedHeight(25);
    m_titleBar->setStyleSheet(
        QStringLiteral("background-color: rgb(50, 50, 50); border-top-left-radius: 10px; "
                       "border-top-right-radius: 10px;"));
    m_titleLayout = new QHBoxLayout(m_titleBar);
    m_titleLayout->setContentsMargins(5, 0, 5, 0);
    m_titleLayout->setSpacing(0);
    m_titleLabel = new QLabel(tr("Soft Keyboard"), m_titleBar);
    m_titleLabel->setStyleSheet(QStringLiteral(
        "color: white; font-weight: bold; font-size: 14px; background-color: transparent; "
        "border: none; min-height: 0px;"));
    m_closeButton = new QPushButton(QStringLiteral("X"), m_titleBar);
    m_closeButton->setFixedSize(16, 16);
    m_closeButton->setStyleSheet(QStringLiteral(
        "QPushButton {    background-color: rgb(200, 50, 50);    color: white;    border: none;   "
        " border-radius: 6px;    font-weight: bold;    font-size: 12px;}QPushButton:hover {    "
        "background-color: rgb(255, 0, 0);}"));
    connect(m_closeButton, &QPushButton::clicked, this, &QWidget::hide);
    m_titleLayout->addWidget(m_titleLabel);
    m_titleLayout->addStretch();
    m_titleLayout->addWidget(m_closeButton);

    auto *content = new QWidget(this);
    content->setObjectName(QStringLiteral("contentWidget"));
    auto *contentLayout = new QVBoxLayout(content);
    contentLayout->setContentsMargins(5, 5, 5, 5);
    m_keyLayout = new QGridLayout;
    m_keyLayout->setContentsMargins(5, 5, 5, 5);
    m_keyLayout->setSpacing(6);
    m_keyLayout->setAlignment(Qt::AlignLeft | Qt::AlignTop);
    contentLayout->addLayout(m_keyLayout);
    createButtons();

    m_mainLayout = new QVBoxLayout(this);
    m_mainLayout->setContentsMargins(0, 0, 0, 0);
    m_mainLayout->setSpacing(0);
    m_mainLayout->addWidget(m_titleBar);
    m_mainLayout->addWidget(content);

    setStyleSheet(QStringLiteral(
        "QWidget#contentWidget {    background-color: rgb(40, 40, 40);    "
        "border-bottom-left-radius: 10px;    border-bottom-right-radius: 10px;    min-height: "
        "300px;}QPushButton {    background-color: rgb(60, 60, 60);    color: white;    border: "
        "1px solid rgb(100, 100, 100);    border-radius: 6px;    font-weight: bold;    "
        "font-size: 10px;}QPushButton:hover {    background-color: rgb(80, 80, 80);    border: "
        "1px solid rgb(120, 120, 120);}QPushButton:pressed {    background-color: rgb(100, 100, "
        "100);    border: 1px solid rgb(140, 140, 140);}"));
}

void NewSoftKeyboard::createButtons()
{
    int row = 0;
    int column = 0;
    for (const KeyEntry &entry : keyEntries()) {
        if (entry.span == kRowBreak) {
            column = 0;
            if (row + 1 == 2) {
                // A gap between the Control+Alt+Delete key and the function row.
                auto *gap = new QWidget;
                gap->setFixedHeight(kFunctionRowGap);
                m_keyLayout->addWidget(gap, 2, 0);
                row = 3;
            } else {
                ++row;
            }
            continue;
        }
        if (entry.label.isEmpty()) {
            column += entry.span;
            continue;
        }
        auto *button = new QPushButton(entry.label);
        button->setFixedSize(entry.span * kKeyUnitWidth, kKeyHeight);
        QFont font = button->font();
        font.setPointSize(entry.span == 1 ? 10 : 9);
        button->setFont(font);
        if (entry.label == QLatin1String("ctrl+alt+del")) {
            button->setText(QStringLiteral("CTRL+ALT+DEL"));
            QFont larger = button->font();
            if (larger.pointSize() > 0)
                larger.setPointSize(larger.pointSize() + 2);
            else if (larger.pixelSize() > 0)
                larger.setPixelSize(larger.pixelSize() + 2);
            else
                larger.setPointSize(12);
            button->setFont(larger);
        }
        connect(button, &QPushButton::clicked, this, &NewSoftKeyboard::buttonClicked);
        m_keyLayout->addWidget(button, row, column, 1, entry.span);
        column += entry.span;
        if (column >= kGridColumns) {
            column = 0;
            ++row;
        }
    }
}

QString NewSoftKeyboard::keyNameForButtonText(const QString &text)
{
    static const QHash<QString, QString> names = {
        {QStringLiteral("Space"), QStringLiteral(" ")},
        {QStringLiteral("Enter"), QStringLiteral("\n")},
        {QStringLiteral("Backspace"), QString(QChar(0x08))},
        {QStringLiteral("Tab"), QStringLiteral("\t")},
        {kPowerSymbol, QStringLiteral("POWER")},
        {QStringLiteral("Caps"), QStringLiteral("CAPS_LOCK")},
        {QStringLiteral("Shift"), QStringLiteral("SHIFT")},
        {QStringLiteral("Ctrl"), QStringLiteral("CTRL")},
        {QStringLiteral("Alt"), QStringLiteral("ALT")},
        {QStringLiteral("Cmd"), QStringLiteral("CMD")},
        {QStringLiteral("Fn"), QStringLiteral("FN")},
        {kUpArrow, QStringLiteral("UP_ARROW")},
        {kDownArrow, QStringLiteral("DOWN_ARROW")},
        {kLeftArrow, QStringLiteral("LEFT_ARROW")},
        {kRightArrow, QStringLiteral("RIGHT_ARROW")},
    };
    if (text.compare(QLatin1String("CTRL+ALT+DEL"), Qt::CaseInsensitive) == 0)
        return QStringLiteral("ctrl+alt+del");
    return names.value(text, text);
}

void NewSoftKeyboard::buttonClicked()
{
    auto *button = qobject_cast<QPushButton *>(sender());
    if (!button)
        return;
    emit keyPressed(keyNameForButtonText(button->text()));
}

bool NewSoftKeyboard::inTitleBar(const QPoint &pos) const
{
    return m_titleBar->geometry().contains(pos);
}

void NewSoftKeyboard::mousePressEvent(QMouseEvent *event)
{
    if (event->button() == Qt::LeftButton && inTitleBar(event->position().toPoint())) {
        m_dragging = true;
        m_dragOffset = event->globalPosition().toPoint() - frameGeometry().topLeft();
        event->accept();
        setAttribute(Qt::WA_MouseTracking, true);
        grabMouse();
        return;
    }
    QWidget::mousePressEvent(event);
}

void NewSoftKeyboard::mouseMoveEvent(QMouseEvent *event)
{
    if (m_dragging && (event->buttons() & Qt::LeftButton)) {
        move(event->globalPosition().toPoint() - m_dragOffset);
        event->accept();
        return;
    }
    QWidget::mouseMoveEvent(event);
}

void NewSoftKeyboard::mouseReleaseEvent(QMouseEvent *event)
{
    if (event->button() == Qt::LeftButton && m_dragging) {
        m_dragging = false;
        releaseMouse();
        setAttribute(Qt::WA_MouseTracking, false);
        event->accept();
    }
    QWidget::mouseReleaseEvent(event);
}

void NewSoftKeyboard::mouseDoubleClickEvent(QMouseEvent *event)
{
    // A double click on the title bar would maximise a framed window; this one stays as it is.
    if (inTitleBar(event->position().toPoint())) {
        event->accept();
        return;
    }
    QWidget::mouseDoubleClickEvent(event);
}

void NewSoftKeyboard::showEvent(QShowEvent *event)
{
    QWidget *parent = parentWidget();
    if (!parent) {
        qDebug() << "[NewSoftKeyboard] 错误：没有父窗口！";
        QWidget::showEvent(event);
        return;
    }
    const QPoint parentGlobal = parent->mapToGlobal(QPoint(0, 0));
    const QPoint centre = parent->mapToGlobal(QPoint(parent->width() / 2, parent->height() / 2));
    qDebug() << "\n=== [NewSoftKeyboard] 开始定位窗口 ===";
    qDebug() << "[NewSoftKeyboard] 父窗口:" << parent->metaObject()->className()
             << "几何:" << parent->geometry() << "全局位置:" << parentGlobal
             << "尺寸:" << parent->size() << "中心:" << centre;
    const QPoint topLeft(centre.x() - width() / 2, centre.y() + 50 - height() / 2);
    qDebug() << "[NewSoftKeyboard] 软键盘尺寸:" << size() << "目标位置:" << topLeft;
    move(topLeft);
    qDebug() << "=== [NewSoftKeyboard] 定位完成 ===\n";
    QWidget::showEvent(event);
}

void NewSoftKeyboard::hideEvent(QHideEvent *event)
{
    // Handlers of `hidden` may hide the keyboard again; they get one signal.
    static bool emitting = false;
    QWidget::hideEvent(event);
    if (emitting)
        return;
    emitting = true;
    emit hidden();
    emitting = false;
}

void NewSoftKeyboard::changeEvent(QEvent *event)
{
    if (event->type() == QEvent::ActivationChange) {
        qDebug() << "[NewSoftKeyboard] 窗口激活状态变化:" << (isActiveWindow() ? "true" : "false");
        QWidget *parent = parentWidget();
        if (!isActiveWindow() && parent && !parent->isActiveWindow()) {
            qDebug() << "[NewSoftKeyboard] 父窗口非激活，隐藏软键盘";
            hide();
        }
    }
    QWidget::changeEvent(event);
}
