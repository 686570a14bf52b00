#pragma once

#include <QPoint>
#include <QWidget>

class TavroVideo;

// The grip at the start of the console view's floating toolbar: dragging it moves the toolbar
// over the picture, and the tool switch's stored place follows.
class FlowPanelDragHandle : public QWidget
{
public:
    FlowPanelDragHandle(TavroVideo *view, QWidget *parent);

protected:
    void mousePressEvent(QMouseEvent *event) override;
    void mouseMoveEvent(QMouseEvent *event) override;
    void mouseReleaseEvent(QMouseEvent *event) override;
    void paintEvent(QPaintEvent *event) override;

private:
    TavroVideo *m_view;
    QPoint m_pressGlobal;
    QPoint m_grabOffset; // toolbar position minus the cursor, in the view's coordinates
    bool m_pressed = false;
    bool m_dragging = false;
};
