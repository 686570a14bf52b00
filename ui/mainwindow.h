#pragma once

#include <QMainWindow>
#include <QPointer>
#include <QRect>

#include "update/appversionmanifest.h"

class AppUpdateChecker;
class CustomTitleBar;
class MessageWidget;
class QFrame;
class QLabel;
class QMenu;
class QMenuBar;
class QTimer;
class QToolButton;
class TavroVideo;
class device;
class tools;

namespace Ui {
class MainWindow;
}

// The application's single window: frameless with its own title bar, a button bar on the left,
// the menu bar, a status bar of five sections and a transient tip, and one content area in
// which exactly one page shows at a time (the device page with the console view today).
class MainWindow : public QMainWindow
{
    Q_OBJECT
public:
    explicit MainWindow(QWidget *parent = nullptr);
    ~MainWindow() override;

    TavroVideo *videoView() const { return m_video; }
    device *devicePage() const { return m_device; }
    CustomTitleBar *titleBar() const { return m_titleBar; }
    QMenu *deviceMenu() const { return m_deviceMenu; }
    tools *toolPage() const;
    MessageWidget *messagePanel() const;
    bool hasUpdate() const { return m_hasUpdate; }

    void ensureMessageWidgetCreated();
    void appendMessage(const QString &text);
    void updateSettingBadgeGeometry();
    void hideAllChildWindows();
    QFrame *createStatusBarSeparator();
    void initSerialPort();
    void applyDarkTheme();

    Qt::Edges getResizeEdges(const QPoint &pos) const;
    void updateCursor(const Qt::Edges &edges);

public slots:
    void onDeviceBtnClicked();
    void onLogToolBtnClicked();
    void onHomeBtnClicked();
    void onHelpBtnClicked();
    void onMailBtnClicked();
    void onSettingBtnClicked();
    void showAboutDialog();
    void rebuildDeviceMenu();
    void centerWindowOnScreen();
    void showTransientStatusMessage(const QString &text);
    void onUpdateCheckFinished(bool hasUpdate, const AppVersionManifest &manifest);

protected:
    void keyPressEvent(QKeyEvent *event) override;
    void keyReleaseEvent(QKeyEvent *event) override;
    void paintEvent(QPaintEvent *event) override;
    void changeEvent(QEvent *event) override;
    void showEvent(QShowEvent *event) override;
    void hideEvent(QHideEvent *event) override;
    void resizeEvent(QResizeEvent *event) override;
    void moveEvent(QMoveEvent *event) override;
    bool eventFilter(QObject *watched, QEvent *event) override;
    void mousePressEvent(QMouseEvent *event) override;
    void mouseMoveEvent(QMouseEvent *event) override;
    void mouseReleaseEvent(QMouseEvent *event) override;

private:
    void buildLeftButtonBar();
    void buildStatusBar();
    void buildMenuBar();
    void createDevicePage();
    void connectButtons();
    void connectConsoleView();
    void installPressFeedback();
    void createSettingBadge();
    void disableUntilAvailable(QWidget *widget, const QString &missing);
    void onToolBtnClicked();
    bool ensureToolPageCreated();
    void applyFontFallback();
    void handleResize(const QPoint &globalPos);
    // Frame edges of real pointer events anywhere in the window: the pages cover it to its
    // border, so the window itself would never see a press on an edge.
    bool handleFrameMouseEvent(QWidget *target, QMouseEvent *event);
    bool beginFrameResize(const QPoint &globalPos, Qt::Edges edges);
    bool handleMenuBarEvent(QEvent *event);
    void rememberVisiblePages();
    void restoreRememberedPages();

    Ui::MainWindow *ui = nullptr;
    CustomTitleBar *m_titleBar = nullptr;
    TavroVideo *m_video = nullptr;
    device *m_device = nullptr;
    QPointer<tools> m_tools;
    QPointer<MessageWidget> m_messageWidget;
    AppUpdateChecker *m_updateChecker = nullptr;
    AppVersionManifest m_manifest;

    QLabel *m_statusSection1Label = nullptr;
    QLabel *m_statusSection2Label = nullptr;
    QLabel *m_statusSection3Label = nullptr;
    QLabel *m_statusSection4Label = nullptr;
    QLabel *m_statusSection5Label = nullptr;
    QLabel *m_statusTipLabel = nullptr;
    QTimer *m_statusTipTimer = nullptr;
    QTimer *m_idleTimer = nullptr;

    QMenuBar *m_menuBar = nullptr;
    QMenu *m_deviceMenu = nullptr;

    bool m_hasUpdate = false;
    QLabel *m_settingBadge = nullptr;

    bool m_resizing = false;
    QPoint m_resizeStartGlobal;
    QRect m_resizeStartGeometry;
    Qt::Edges m_resizeEdges;
    Qt::Edges m_cursorEdges;

    bool m_menuDragging = false;
    bool m_menuSystemMove = false;
    QPoint m_menuDragOffset;

    bool m_pagesRemembered = false;
    bool m_deviceWasVisible = false;
    bool m_toolsWasVisible = false;
    bool m_messageWasVisible = false;
};
