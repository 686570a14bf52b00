#include "ui/flowpaneldraghandle.h"

#include <QApplication>
#include <QMouseEvent>
#include <QPainter>

#include "console/tavrovideo.h"
#include "ui/toolbarrules.h"

FlowPanelDragHandle::FlowPanelDragHandle(TavroVideo *view, QWidget *parent)
    : QWidget(parent), m_view(view)
{}

void FlowPanelDragHandle::mousePressEvent(QMouseEvent *event)
{
    if (event->button() != Qt::LeftButton) {
        QWidget::mousePressEvent(event);
        return;
    }
    m_pressed = true;
    m_dragging = false;
    m_pressGlobal = event->globalPosition().toPoint();
    m_grabOffset = m_view->flowPanelTopLeftForDrag() - m_view->mapFromGlobal(m_pressGlobal);
    event->accept();
}

void FlowPanelDragHandle::mouseMoveEvent(QMouseEvent *event)
{
    if (!m_pressed || !(event->buttons() & Qt::LeftButton)) {
        QWidget::mouseMoveEvent(event);
        return;
    }
    const QPoint global = event->globalPosition().toPoint();
    if (!m_dragging &&
        reachedDragDistance(m_pressGlobal, global, QApplication::startDragDistance())) {
        m_dragging = true;
        setCursor(Qt::ClosedHandCursor);
        grabMouse();
    }
    if (m_dragging)
        m_view->positionFlowPanelClamped(m_view->mapFromGlobal(global) + m_grabOffset);
    event->accept();
}

void FlowPanelDragHandle::mouseReleaseEvent(QMouseEvent *event)
{
    if (event->button() != Qt::LeftButton || !m_pressed) {
        QWidget::mouseReleaseEvent(event);
        return;
    }
    m_pressed = false;
    if (m_dragging) {
        m_dragging = false;
        releaseMouse();
        setCursor(Qt::OpenHandCursor);
        m_view->syncToolSwitchAnchorFromFlowPanel();
    }
    event->accept();
}

void FlowPanelDragHandle::paintEvent(QPaintEvent *)
{
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(Qt::NoPen);
    painter.setBrush(QColor(30, 30, 30, 190));
    painter.drawRoundedRect(QRectF(rect()).adjusted(0.5, 0.5, -0.5, -0.5), 4, 4);
    // The grip: two columns of dots down the middle.
    painter.setBrush(QColor(200, 200, 200, 200));
    const int rows = 4;
    const double spacing = 4.0;
    const double top = height() / 2.0 - (rows - 1) * spacing / 2.0;
    for (int row = 0; row < rows; ++row) {
        for (double x : {width() / 2.0 - 2.0, width() / 2.0 + 2.0})
            painter.drawEllipse(QPointF(x, top + row * spacing), 1.1, 1.1);
    }
}
