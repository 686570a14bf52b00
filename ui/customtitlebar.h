#pragma once

#include <QPoint>
#include <QRect>
#include <QWidget>

class QPushButton;

// The frameless main window's own title bar: close, minimise and maximise buttons on the left,
// dragging the window, double-click to maximise or restore.
class CustomTitleBar : public QWidget
{
    Q_OBJECT
public:
    explicit CustomTitleBar(QWidget *parent = nullptr);

    void setupUi();
    void updateMaximizeButtonIcon();
    void toggleMaximizeRestore();
    bool isMaximized() const { return m_maximized; }

public slots:
    void onMaximizeRestoreButtonClicked();
    void onMinimizeButtonClicked();
    void onCloseButtonClicked();

protected:
    void mousePressEvent(QMouseEvent *event) override;
    void mouseMoveEvent(QMouseEvent *event) override;
    void mouseReleaseEvent(QMouseEvent *event) override;
    void mouseDoubleClickEvent(QMouseEvent *event) override;

private:
    QPushButton *m_minimizeButton = nullptr;
    QPushButton *m_maximizeButton = nullptr;
    QPushButton *m_closeButton = nullptr;
    bool m_dragging = false;
    bool m_systemMoveStarted = false; // the window system moves the window until release
    bool m_manualMove = false;        // this bar moves it (no system move available)
    QPoint m_pressGlobal;
    QPoint m_dragOffset;
    bool m_maximized = false;
    QRect m_normalGeometry;
};
