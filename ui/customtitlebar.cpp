#include "ui/customtitlebar.h"

#include <QApplication>
#include <QHBoxLayout>
#include <QMouseEvent>
#include <QPushButton>
#include <QTimer>
#include <QWindow>

#include "ui/stylesheet.h"

CustomTitleBar::CustomTitleBar(QWidget *parent) : QWidget(parent)
{
    setObjectName(QStringLiteral("customTitleBar"));
    setFixedHeight(35);
    setAttribute(Qt::WA_StyledBackground);
    setupUi();
    setStyleSheet(getQssString(QStringLiteral(":/res/qss/customtitlebar.css")));
    if (QWidget *top = window(); top && top != this)
        m_maximized = top->isMaximized();
    updateMaximizeButtonIcon();
}

void CustomTitleBar::setupUi()
{
    auto *layout = new QHBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(0);

    auto makeButton = [this](const char *name, const QString &text, const QString &tip) {
        auto *button = new QPushButton(text, this);
        button->setObjectName(QLatin1String(name));
        button->setFixedSize(30, 30);
        button->setFocusPolicy(Qt::NoFocus);
        button->setToolTip(tip);
        return button;
    };
    m_closeButton = makeButton("closeButton", QStringLiteral("x"), tr("关闭"));
    m_minimizeButton = makeButton("minimizeButton", QStringLiteral("-"), tr("最小化"));
    m_maximizeButton = makeButton("maximizeButton", QStringLiteral("[]"), tr("最大化 / 还原"));
    layout->addWidget(m_closeButton);
    layout->addWidget(m_minimizeButton);
    layout->addWidget(m_maximizeButton);
    layout->addStretch();

    connect(m_closeButton, &QPushButton::clicked, this, &CustomTitleBar::onCloseButtonClicked);
    connect(m_minimizeButton, &QPushButton::clicked, this,
            &CustomTitleBar::onMinimizeButtonClicked);
    connect(m_maximizeButton, &QPushButton::clicked, this,
            &CustomTitleBar::onMaximizeRestoreButtonClicked);
}

void CustomTitleBar::updateMaximizeButtonIcon()
{
    if (m_maximizeButton)
        m_maximizeButton->setText(m_maximized ? QStringLiteral("▫") : QStringLiteral("□"));
}

void CustomTitleBar::toggleMaximizeRestore()
{
    onMaximizeRestoreButtonClicked();
}

void CustomTitleBar::onMaximizeRestoreButtonClicked()
{
    QWidget *top = window();
    if (!m_maximized) {
        m_normalGeometry = top->normalGeometry();
        m_maximized = true;
        updateMaximizeButtonIcon();
        top->showMaximized();
        QTimer::singleShot(10, top, [top] {
            if (top->layout())
                top->layout()->activate();
        });
        return;
    }
    m_maximized = false;
    updateMaximizeButtonIcon();
    top->showNormal();
    const QRect saved = m_normalGeometry;
    QTimer::singleShot(10, top, [top, saved] {
        if (saved.isValid())
            top->setGeometry(saved);
        if (top->layout())
            top->layout()->activate();
    });
}

void CustomTitleBar::onMinimizeButtonClicked()
{
    window()->showMinimized();
}

void CustomTitleBar::onCloseButtonClicked()
{
    window()->close();
}

void CustomTitleBar::mousePressEvent(QMouseEvent *event)
{
    if (event->button() != Qt::LeftButton) {
        QWidget::mousePressEvent(event);
        return;
    }
    m_dragging = true;
    m_systemMoveStarted = false;
    m_pressGlobal = event->globalPosition().toPoint();
    m_dragOffset = m_pressGlobal - window()->frameGeometry().topLeft();
    event->accept();
}

void CustomTitleBar::mouseMoveEvent(QMouseEvent *event)
{
    if (!m_dragging || m_systemMoveStarted || !(event->buttons() & Qt::LeftButton)) {
        QWidget::mouseMoveEvent(event);
        return;
    }
    const QPoint global = event->globalPosition().toPoint();
    if (!m_manualMove) {
        if ((global - m_pressGlobal).manhattanLength() < QApplication::startDragDistance())
            return;
        // The window system moves the window where it can: Wayland allows nothing else, and X11
        // window managers keep their own idea of where a window is. Started on the first move
        // rather than the press, so that a double-click still reaches this bar.
        QWindow *handle = window()->windowHandle();
        if (handle && handle->startSystemMove()) {
            m_systemMoveStarted = true;
            return;
        }
        m_manualMove = true;
    }
    QWidget *top = window();
    if (m_maximized || top->isMaximized()) {
        m_maximized = false;
        updateMaximizeButtonIcon();
        top->showNormal();
        m_dragOffset = QPoint(width() / 2, height() / 2);
    }
    top->move(global - m_dragOffset);
    event->accept();
}

void CustomTitleBar::mouseReleaseEvent(QMouseEvent *event)
{
    if (event->button() == Qt::LeftButton) {
        m_dragging = false;
        m_systemMoveStarted = false;
        m_manualMove = false;
    }
    QWidget::mouseReleaseEvent(event);
}

void CustomTitleBar::mouseDoubleClickEvent(QMouseEvent *event)
{
    if (event->button() == Qt::LeftButton) {
        onMaximizeRestoreButtonClicked();
        event->accept();
        return;
    }
    QWidget::mouseDoubleClickEvent(event);
}
