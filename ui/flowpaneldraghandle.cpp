#include "ui/flowpaneldraghandle.h"

#include "console/tavrovideo.h"

FlowPanelDragHandle::FlowPanelDragHandle(TavroVideo *view, QWidget *parent)
    : QWidget(parent), m_view(view)
{}

void FlowPanelDragHandle::mousePressEvent(QMouseEvent *) {}
void FlowPanelDragHandle::mouseMoveEvent(QMouseEvent *) {}
void FlowPanelDragHandle::mouseReleaseEvent(QMouseEvent *) {}
void FlowPanelDragHandle::paintEvent(QPaintEvent *) {}
