#pragma once

#include <QByteArray>
#include <QCameraDevice>
#include <QDateTime>
#include <QElapsedTimer>
#include <QEvent>
#include <QIcon>
#include <QImage>
#include <QMediaRecorder>
#include <QPointer>
#include <QRect>
#include <QSet>
#include <QSize>
#include <QVideoFrame>
#include <QVideoFrameFormat>
#include <QWidget>

#include "console/input/bordercheck.h"
#include "console/input/keyboardlayout.h"
#include "console/input/keyrules.h"
#include "console/input/mouserules.h"
#include "console/input/newsoftkeyboard.h"
#include "console/input/pasteplan.h"
#include "platform/keyboardlayout.h"
#include <atomic>
#include <functional>
#include <memory>

class QAbstractButton;
class QAudioDevice;
class QAudioInput;
class QAudioOutput;
class QAudioSink;
class QAudioSource;
class QCamera;
class QLabel;
class QMediaCaptureSession;
class QMediaDevices;
class QPushButton;
class QTimer;
class QVideoSink;
class VideoGlSurface;
class DeviceUartManager;
class FlowPanelDragHandle;
class mouse;
struct IdentifiedCamera;
struct FrameScratch;

// The console view: shows the target's picture, owns the capture session of the current box and
// is the hub through which keyboard and mouse reach it. Its implementation is split by concern:
// tavrovideo.cpp (construction, application state), tavrovideo_capture.cpp (cameras, open and
// close, formats, serial link at open), tavrovideo_permissions.cpp (camera and microphone
// permission), tavrovideo_resolution.cpp (the periodic resolution check),
// tavrovideo_display.cpp (frames on screen), tavrovideo_keyboard.cpp, tavrovideo_mouse.cpp,
// tavrovideo_hook.cpp and tavrovideo_keysequences.cpp (input to the target).
class TavroVideo : public QWidget
{
    Q_OBJECT
public:
    explicit TavroVideo(QWidget *parent = nullptr);
    ~TavroVideo() override;

    // Capture session lifecycle.
    void openCamera(const QByteArray &cameraId);
    void startCameraWithPermission();
    void closeCamera(bool closeUart);
    void parkMainCameraForGridLayout();
    // The multi-window button (tavrovideo_grid.cpp): with "multi_same_display" asks the device
    // page for the preview grid (previewGridRequested), otherwise hides the view.
    void onBtnMultiWindowClicked();
    bool isUvcHeldByExclusiveMainCanvas(const QByteArray &id) const;
    void showVideoDisplay();
    // Closes the floating windows that belong to the view (soft keyboard, panels): they sit at
    // window positions and are closed rather than moved when the window moves or pages change.
    void closePopupWindows();

    // Permissions.
    void requestCameraPermissionEarly();
    void requestMicrophonePermissionEarly();
    void showCameraPermissionDialog();

    // The current box.
    QString getCurrentDeviceDid() const;
    QByteArray currentDeviceId() const { return m_currentDeviceId; }
    bool isCameraActive() const { return m_cameraActive; }
    QSize negotiatedResolution() const { return m_negotiatedResolution; }
    double negotiatedFps() const { return m_negotiatedFps; }
    qint64 lastFrameTimeMs() const { return m_lastFrameTimeMs; }

    // Serial link of the current box.
    bool initializeUartSystem(const QString &portName, int baudRate);
    bool openSerialPort(const QString &portName, int baudRate);
    void closeSerialPort();

    // Keyboard to the target.
    bool isAppReallyInForeground() const;
    bool sendKeyEvent(int key, int action);
    bool key_pass(int key, int action);
    bool sendKeyValue(int key, int action);
    void printHexData(const QByteArray &data, const QString &prefix);
    bool sendSerialData(const QByteArray &data);
    bool sendRawUartData(const QByteArray &data);
    void setUartProtocol(int protocol);
    int uartProtocol() const { return m_uartProtocol; }
    void setFullScreenState(bool fullScreen) { m_isFullScreen = fullScreen; }
    // Sends a release for every key the target still holds from this view.
    void releaseHeldKeys();
    QList<int> heldKeys() const { return m_heldKeys; }

    // System keyboard hook (the process has one; this view may own it).
    static void stopSystemKeyboardHook();
    void stopKeyboardHookForLayoutSwitch();
    bool checkKeyboardCapturePermission() const;
    void requestKeyboardCapturePermission();
    void showPermissionDialog();
    bool isKeyboardHookActive() const { return m_keyboardHookActive; }

    // Key sequences and paste. The clipboard is typed on the box's keyboard layout, one report
    // every paste interval (both per box); an interval of 0 types it at once on a US layout.
    // While a paced paste runs, the same call (the toolbar's entry) or Escape cancels it, and
    // keys the operator types wait until it ends.
    void pasteTextAsKeyEvents();
    bool isPasting() const { return m_pasteNext >= 0; }
    void cancelPaste();

    // Soft keyboard.
    void onBtnKeyboardClicked();
    void toggleKeyboard();
    void showNewSoftKeyboard();
    NewSoftKeyboard *softKeyboard() const { return m_newSoftKeyboard; }

    // Mouse to the target.
    bool convertMousePositionToVideoCoordinates(const QPoint &pos, int &x, int &y, int &width,
                                                int &height);
    bool sendMouseCoordinates(int x, int y, unsigned char buttons, unsigned char wheel);
    QPoint lastMousePos() const { return m_lastMousePos; }
    QPoint pendingMousePos() const { return m_pendingMousePos; }
    bool isMouseThrottleEnabled() const { return m_mouseThrottleEnabled; }
    int mouseThrottleIntervalMs() const { return m_mouseThrottleIntervalMs; }
    int mouseMinDistance() const { return m_mouseMinDistance; }
    void setBlackBorderInfo(const image_blank_info &borders) { m_blackBorderInfo = borders; }
    image_blank_info blackBorderInfo() const { return m_blackBorderInfo; }

    // Cursor correction: the black margins of the picture are measured and left out of the
    // mouse mapping (tavrovideo_bordercheck.cpp).
    void loadCursorCorrectionSettingForCurrentDevice();
    void setCursorCorrectionEnabled(bool on);
    void persistCursorCorrectionSettingForCurrentDevice(bool on);
    void applyCursorCorrectionRuntime(bool on);
    bool isCursorCorrectionEnabled() const { return m_cursorCorrectionEnabled; }
    bool isBorderCheckInFlight() const { return m_borderCheckInFlight; }
    bool saveBlackBorderCheckImage();
    // Where the diagnostic crop and the measured frame are written.
    static QString borderCheckImagePath();
    static QString borderCheckFramePath();

    // The box's sound (tavrovideo_audio.cpp): the paired input is attached to the session for
    // recordings and played on the default output while frames flow.
    void reapplyUvcAudioForCurrentCamera();
    QByteArray savedAudioInputDeviceIdFromDb() const;
    void saveAudioInputDeviceBindingForCurrentDevice(const QByteArray &audioId);
    static bool isLikelyUsbUacAudioInputEndpoint(const QAudioDevice &device);
    void detachCaptureSessionAudioOutput();
    // Stops and drops the paired input, its copy to the speaker and the session's audio.
    void releaseCaptureAudio();
    QAudioInput *sessionAudioInput() const { return m_audioInput; }
    bool isAudioPassthroughOn() const { return m_audioPassthroughOn; }
    bool isAudioMonitorPlaying() const { return m_audioSink != nullptr; }

    // Device information and control over the vendor protocol (tavrovideo_devicecontrol.cpp).
    void onBtnSettingsClicked();
    void onBtnInfoClicked();
    void cancelPendingDeviceInfoRequest();
    bool isDeviceInfoRequestPending() const { return m_deviceInfoPending; }
    void onDeviceInfoPayloadReceived(const QString &did, const QByteArray &payload);
    void onDeviceGeneralReply(const QString &did, quint8 code, const QString &name);
    void onBtnUdiskSwitchClicked();
    void updateUdiskSwitchButtonIcon();
    int cachedMouseAutoMoveState() const;
    bool sendMouseAutoMoveCommand(bool enable);
    bool isDeviceUartConnected() const;
    bool sendDeviceRestartCommand();
    void refreshDeviceInfoOnce();
    void centerPopupWindow(QWidget *popup);
    // A warning box about the console's box; the text also goes to operatorMessageShown, so that
    // the message panel keeps it.
    void showWarning(QWidget *parent, const QString &title, const QString &text);

    // Cameras.
    void enumerateCameras(QList<QCameraDevice> &out);
    // The box-like cameras (the device list's rows), in enumeration order.
    QList<QCameraDevice> getUvcDeviceList();
    QList<IdentifiedCamera> getIdentifiedUvcDeviceList();
    static bool isUsbVideoLikeDevice(const QCameraDevice &device);
    static QByteArray pickPreferredInitialCameraId(const QList<QCameraDevice> &devices);

    // Format negotiation.
    QCameraFormat findBestSupportedFormat(const QCameraDevice &device);
    QSize getMaxSupportedResolution();
    bool switchToResolution(const QSize &target);
    void stopResolutionCheck();
    static QString getPixelFormatString(QVideoFrameFormat::PixelFormat format);
    int resolutionCheckIntervalMs() const;

    // Frame presentation.
    QSize videoContentSizeForLayout() const;
    QRect getActualVideoDisplayRect() const;
    void invalidateActualVideoDisplayRect();
    // The size in device pixels the CPU path converts frames to: the displayed rectangle's.
    QSize displayPictureSize() const;
    QImage convertedImage() const { return m_convertedImage; }
    QVideoFrame lastFrame() const { return m_lastFrame; }
    quint64 decodeJobsStarted() const { return m_decodeJobsStarted; }
    quint32 frameSequence() const { return m_frameSequence; }
    qint32 convertedSequence() const { return m_convertedSequence; }
    VideoGlSurface *videoGlSurface() const { return m_glSurface; }
    bool isGlSurfaceActive() const { return m_glSurfaceActive; }
    // The GPU surface is asked for by TAVROKVM_GPU_VIDEO, and used when OpenGL 3.3 is there too.
    static bool gpuVideoRequested();
    static bool gpuVideoUsable();

signals:
    void cameraStarted();
    void cameraClosed();
    void cameraPermissionGranted();
    void cameraPermissionDenied();
    void uvcInputsChanged();
    void uartConfigLoaded(const QString &portName, int baudRate);
    void newFrame(const QVideoFrame &frame);
    void aspectRatioChanged(double ratio);
    void uartStatusChanged(bool connected, const QString &status);
    void previewGridRequested();
    void statusBarMessageRequested(const QString &message);
    void mouseChanged(const QString &position);
    void calcChanged(const QString &activeSize);
    // A warning or information box the operator was shown, as one line.
    void operatorMessageShown(const QString &text);
    // The keyboard hook took the keyboard from the desktop, or it went back (the indicator).
    void keyboardGrabChanged(bool held);

public slots:
    void checkAndSwitchToMaxResolution();
    void processVideoFrame(const QVideoFrame &frame);
    void monitorMemoryUsage();

    bool eventFilter(QObject *watched, QEvent *event) override;

    void handleKeyboardInput(const QString &key);

    void updateMouseThrottleSettings(int intervalMs, int minDistance);
    void enableMouseThrottle(bool enabled);
    void setMouseThrottleInterval(int intervalMs);
    void setMouseMinDistance(int minDistance);
    void resetMouseThrottleSettings();

private slots:
    void processThrottledMouseEvent();
    void sendThrottledMouseCoordinates();
    void flushMouseStatusBarUpdate();

protected:
    void keyPressEvent(QKeyEvent *event) override;
    void keyReleaseEvent(QKeyEvent *event) override;
    void mousePressEvent(QMouseEvent *event) override;
    void mouseReleaseEvent(QMouseEvent *event) override;
    void mouseMoveEvent(QMouseEvent *event) override;
    void wheelEvent(QWheelEvent *event) override;
    void focusInEvent(QFocusEvent *event) override;
    void focusOutEvent(QFocusEvent *event) override;
    void changeEvent(QEvent *event) override;
    bool nativeEvent(const QByteArray &eventType, void *message, qintptr *result) override;
    // Tab belongs to the target while the view is in front, not to the window's focus chain.
    bool focusNextPrevChild(bool next) override;
    void paintEvent(QPaintEvent *event) override;
    void resizeEvent(QResizeEvent *event) override;

private:
    // Tests move the view's clock and hand it frames through this (tests/support).
    friend class TavroVideoTestAccess;

    // tavrovideo.cpp
    void setupConnections();
    void onApplicationStateChanged(Qt::ApplicationState state);
    void startSystemKeyboardHook();
    // Re-evaluates the current box's serial link and tells the status bar when its text changed.
    void refreshUartStatus();
    void cleanupPopupWindows();
    qint64 nowMs() const;
    qint64 startupElapsedMs() const;

    // tavrovideo_keyboard.cpp
    DeviceUartManager *currentLink() const;
    // Sends the event's key when the box's link is open; false, with the reason logged, when
    // nothing was sent and the event goes on to the base handler.
    bool forwardKeyEvent(const QKeyEvent *event, int action, const QString &shortcut);
    static bool isLinkOpen(const DeviceUartManager *link);
    // Encodes and writes one key frame; keeps the keys the target holds.
    bool writeKeyFrame(DeviceUartManager *link, int key, int action);
    // A release that cannot be sent: the key leaves the encoder's report and the view's record
    // all the same, so the two never disagree about what is held.
    void forgetKey(int key);
    // Sends what m_operatorKeys decided, and flushes a release it holds back once its pair
    // window has passed.
    void sendOperatorStrokes(const QList<KeyStroke> &strokes);
    // The keys the operator holds are let go of elsewhere (focus loss, a reopened link).
    void forgetOperatorKeys();
    // A key event for another widget of the view's window while the view is in front.
    bool takesKeysFrom(const QObject *watched) const;
    void pressModifiersHeldBy(const QKeyEvent *event);
    // When the current box's link (re)opens, the target holds no key and no button afterwards.
    QMetaObject::Connection followLinkOpens();
    void releaseAllOnTarget(const QString &deviceDid);

    // tavrovideo_hook.cpp
    void startKeyboardHookIfStopped();
    void stopKeyboardHookIfRunning();
    void stopKeyboardHookOnNextPass();
    void onWindowActivationChanged(bool active);
    void onWindowStateChanged(Qt::WindowStates oldState);
    friend void showAccessibilityPermissionDialog();

    // tavrovideo_keysequences.cpp
    void pasteFromShortcut();
    // tavrovideo_paste.cpp
    void pasteTextUnpaced(const QString &text);
    void sendNextPasteReport();
    void finishPaste(bool cancelled);
    // A key event of the operator's while a paste runs: Escape cancels it, others wait.
    bool holdKeyDuringPaste(const QKeyEvent *event);
    // The keys that waited follow the paste at its pace, one report each.
    void replayNextHeldKey();
    void placeSoftKeyboard();
    void followWithSoftKeyboard();

    // tavrovideo_mouse.cpp
    void createMouseTimers();
    void flushPendingMouseMove();
    // Sends the pending move now, so that no later report overtakes it.
    void flushPendingMouseMoveBeforeButton();
    // Encodes and writes one mouse frame; keeps the buttons the target holds.
    bool writeMouseFrame(DeviceUartManager *link, int x, int y, quint8 buttons, quint8 wheel);
    // Lets go of every button the target still holds from this view, at the last position.
    void releaseHeldMouseButtons();
    bool mapEventToTarget(const QPointF &position, TargetPoint &point);
    bool canSendMouse() const;
    void updateWatermark();

    // tavrovideo_capture.cpp
    // The cameras with their identities, enumerated once and logged.
    QList<IdentifiedCamera> enumerateIdentifiedCameras();
    void runDeferredFirstOpen();
    void onVideoInputsChangedDebounced();
    void onVideoInputsChangedForPreferred();
    void loadSerialLinkAtOpen(const QByteArray &cameraId);
    void negotiateFormat(const QCameraDevice &device);
    void showNegotiatedFormatInStatusBar();
    void setupUvcAudioPlayback(const QCameraDevice &device);
    void ensureUartInfoSignalConnected();
    void finishCloseCameraTeardown();

    // tavrovideo_devicecontrol.cpp
    // The box's link when a box is chosen and its port is open; otherwise null, after a warning
    // titled `title` that says which of the two is missing.
    DeviceUartManager *openLinkOrWarn(const QString &title, const QString &noDeviceText,
                                      const QString &noLinkText);

    // tavrovideo_bordercheck.cpp
    void onBorderCheckFinished(quint64 generation);
    void onBorderCheckResult(quint64 generation, const image_blank_info &info, int result,
                             bool withinLimits);
    void connectVideoSink();

    // tavrovideo_resolution.cpp
    bool resolutionCheckWanted() const;
    // Starts or stops the check as resolutionCheckWanted() says, logging the given line (if any)
    // when that changes it.
    void syncResolutionCheck(const char *startedLog, const char *stoppedLog);

    // tavrovideo_display.cpp
    void presentVideoFrame(const QVideoFrame &frame);
    void ensureVideoGlSurface();
    void releaseVideoGlSurface();
    void raiseOverlaysAboveVideo();
    void scheduleJpegBorderCheckAsync(const QVideoFrame &frame);
    void syncAudioPassthroughState();
    void startAsyncFrameDecodeWorker();
    void onFrameDecoded(quint32 generation, quint32 sequence, const QSize &size,
                        const QImage &image);
    void scheduleVideoPaintUpdate();
    void performMemoryCleanup();
    void forceGarbageCollection();
    void clearDisplayState();
    quint32 bumpFrameGeneration();

    QMediaCaptureSession *m_captureSession = nullptr;
    QVideoSink *m_videoSink = nullptr;
    QCamera *m_camera = nullptr;
    QByteArray m_currentDeviceId;
    QByteArray m_pendingCameraId;
    bool m_cameraActive = false;
    qint64 m_lastFrameTimeMs = 0;
    QSize m_negotiatedResolution{-1, -1};
    double m_negotiatedFps = 0;
    bool m_fullClose = false;
    bool m_sessionNeedsRenewal = false;
    quint64 m_captureGeneration = 0;
    bool m_multiSameDisplay = false;
    QElapsedTimer m_startupClock;
    qint64 m_clockOffsetMs = 0;
    bool m_appActive = true;
    int m_uartProtocol = 0;
    bool m_isFullScreen = false;
    bool m_globalKeyCaptureEnabled = true;
    bool m_keyboardHookActive = false;
    bool m_permissionDialogShowing = false;
    QList<int> m_heldKeys; // pressed on the target by this view, in order
    // The running paste: its reports, the next one to send (-1: none running) and the keys the
    // operator typed meanwhile.
    PastePlan m_pastePlan;
    int m_pasteNext = -1;
    int m_pasteIntervalMs = 0;
    QTimer *m_pasteTimer = nullptr;
    KeyboardLayout m_pasteLayout;
    struct HeldKeyEvent
    {
        QEvent::Type type;
        int key;
        Qt::KeyboardModifiers modifiers;
        QString text;
        bool autoRepeat;
        quint32 nativeScanCode;
        quint32 nativeVirtualKey;
        quint32 nativeModifiers;
    };
    QList<HeldKeyEvent> m_keysDuringPaste;
    QList<HeldKeyEvent> m_keysAfterPaste; // waiting for their turn after the paste ended
    QTimer *m_heldKeyTimer = nullptr;
    bool m_swallowEscapeRelease = false;
    OperatorKeys m_operatorKeys{keyReleasesMayBeRepeats()}; // the local keyboard's keys down
    QTimer *m_releaseFlushTimer = nullptr;
    QSet<int> m_lackingKeysLogged; // keys the target has no usage for, logged once each
    // Made while the view is constructed, before its first camera open can open a link.
    QMetaObject::Connection m_linkOpenedConnection = followLinkOpens();
    QPointer<NewSoftKeyboard> m_newSoftKeyboard;
    QMediaDevices *m_mediaDevices = nullptr;
    QTimer *m_videoInputsDebounceTimer = nullptr;
    QTimer *m_memoryMonitorTimer = nullptr;
    QTimer *m_uartStatusTimer = nullptr;
    QString m_uartStatusText; // last text sent with uartStatusChanged

    // Resolution check.
    QTimer *m_resolutionCheckTimer = nullptr;
    bool m_autoResolutionSwitchEnabled = true;
    int m_resolutionSwitchCount = 0;
    int m_maxResolutionSwitches = 3;
    QSize m_lastSwitchedResolution;

    // Audio (paired with the camera).
    QAudioInput *m_audioInput = nullptr;
    QAudioOutput *m_audioOutput = nullptr;
    QAudioSource *m_audioSource = nullptr;
    QAudioSink *m_audioSink = nullptr;
    bool m_audioPassthroughOn = false;
    QTimer *m_audioPassthroughTimer = nullptr; // notices frames that stopped coming
    QIODevice *m_audioSourceDevice = nullptr;  // pull side of m_audioSource
    QIODevice *m_audioSinkDevice = nullptr;    // push side of m_audioSink

    // Display.
    QVideoFrame m_lastFrame;
    quint32 m_frameSequence = 0;
    QImage m_convertedImage;
    qint32 m_convertedSequence = -1;
    QVideoFrame m_pendingDecodeFrame;
    bool m_decodeBusy = false;
    // Made by the first decode job and held by every job too; dropped on close, so a job still
    // running from before never shares it with the next.
    std::shared_ptr<FrameScratch> m_displayScratch;
    quint32 m_frameGeneration = 0;
    std::shared_ptr<std::atomic<quint32>> m_sharedFrameGeneration =
        std::make_shared<std::atomic<quint32>>(0);
    bool m_paintScheduled = false;
    bool m_glSurfaceActive = false;
    VideoGlSurface *m_glSurface = nullptr;
    quint64 m_decodeJobsStarted = 0;
    QElapsedTimer m_frameAgeClock;
    int m_framesInWindow = 0;
    qint64 m_fpsWindowStartMs = 0; // nowMs() at the start of the rate window; 0 before a frame
    double m_measuredFps = 0;
    mutable QRect m_displayRectCache;
    mutable bool m_displayRectCacheValid = false;
    mutable QSize m_displayRectCacheViewSize;

    // Mouse.
    int m_coordMode = 0;
    QPoint m_lastMousePos{-1, -1};
    QPoint m_pendingMousePos{-1, -1};
    quint8 m_pendingMouseButtons = 0;
    QPoint m_lastSentMousePos{-1, -1};
    QPoint m_lastReportPos{-1, -1};  // target position of the last report sent
    quint8 m_targetMouseButtons = 0; // buttons the target holds from this view's reports
    bool m_mouseThrottleEnabled = true;
    int m_mouseThrottleIntervalMs = 1;
    int m_mouseMinDistance = 0;
    qint8 m_wheelStep = 1;
    QTimer *m_mouseThrottleTimer = nullptr;
    QTimer *m_mouseStatusTimer = nullptr;

    // Cursor correction (border measurement).
    bool m_cursorCorrectionEnabled = false;
    bool m_borderCheckRequested = false;
    bool m_borderCheckInFlight = false;
    bool m_watermarkDebugInfoVisible = false;

    // Device information query and the USB-disk button.
    bool m_deviceInfoPending = false;
    QTimer *m_deviceInfoReplyTimer = nullptr;
    int m_deviceInfoTimeoutMs = 4000;
    QPointer<DeviceUartManager> m_infoSignalLink;
    QPointer<QAbstractButton> m_btnUdiskSwitch; // on the toolbar, when there is one
    image_blank_info m_blackBorderInfo;

    // Floating toolbar, tool switch, watermark and full screen (tavrovideo_toolbar.cpp).
public:
    void initFlowPanel();
    void setupUI();
    void setupToolSwitchButtonIcon();
    void loadToolSwitchRelativePosition();
    void saveToolSwitchRelativePosition();
    void applyToolSwitchPosition();
    void positionToolSwitchClamped(const QPoint &topLeft);
    void onBtnToolSwitchClicked();
    void positionFlowPanelAtToolSwitchAnchor();
    void positionFlowPanelClamped(const QPoint &topLeft);
    void syncToolSwitchAnchorFromFlowPanel();
    QPoint flowPanelTopLeftForDrag() const;
    void showFlowPanel();
    void setFlowPanelVisible(bool visible);
    void setFlowEnable(bool enable);
    bool isFlowEnabled() const { return m_flowEnabled; }
    void polishToolbarIconButton(QPushButton *button);
    // The icon at `path`, or a standard icon of the style, with a log line, when it cannot be
    // loaded.
    static QIcon toolbarIcon(const QString &path, bool cancelButton);
    void setWatermarkDebugInfoVisible(bool visible);
    void onBtnFullScreenClicked();
    void toggleFullScreen(QWidget *widget);
    void handleFullScreenExit();
    bool isViewFullScreen() const { return m_isFullScreen; }
    QWidget *flowPanel() const { return m_flowPanel; }
    QPushButton *toolSwitchButton() const { return m_btnToolSwitch; }

    // Serial settings panel and device settings dialog (tavrovideo_serialpanel.cpp).
    void onBtnMouseClicked();
    void showMouseControl();
    void handleMouseDialogClosed();
    void showDeviceSettingsDialog();
    mouse *mouseControl() const;
    // The box's protocol (0 CH9329, 1 vendor protocol) and coordinate mode (0 absolute, 1
    // relative) for the encoder: read from its record when its camera opens (defaults 0). The
    // ...ForCurrentDevice setters apply at once and store; false when nothing was stored.
    void loadLinkModesForCurrentDevice();
    bool setUartProtocolForCurrentDevice(int protocol);
    bool setCoordModeForCurrentDevice(int mode);
    void setCoordMode(int mode);
    int coordMode() const { return m_coordMode; }

protected:
    void showEvent(QShowEvent *event) override;
    void moveEvent(QMoveEvent *event) override;

private:
    void updateChildWidgetsPosition();
    // Places the switch, the watermark, a visible toolbar and soft keyboard for the view's size.
    void layoutOverlays();
    // Press, drag and click of the tool switch; true when the event was taken.
    bool handleToolSwitchEvent(QEvent *event);
    void showUnavailableFeature(const QString &title, const QString &text);

    QWidget *m_flowPanel = nullptr;
    FlowPanelDragHandle *m_flowDragHandle = nullptr;
    QPushButton *m_btnToolSwitch = nullptr;
    QLabel *m_watermarkLabel = nullptr;
    double m_toolSwitchRelX = 0.5;
    double m_toolSwitchRelY = 0.0;
    bool m_toolSwitchHasCustomPos = false;
    bool m_toolSwitchDragging = false;
    QPoint m_toolSwitchPressPos;   // global, where the left button went down
    QPoint m_toolSwitchGrabOffset; // switch position minus the cursor, in view coordinates
    bool m_toolSwitchPressed = false;
    bool m_flowPanelWanted = false;
    bool m_flowEnabled = true;
    QString m_lastCalcText;
    QString m_lastMouseText;
    qint64 m_lastStatusSectionsMs = -1; // nowMs() of the last write to status sections 1 and 2
    qint64 m_lastUartEvaluationMs = -1;
    QPointer<QWidget> m_fullScreenPreviousParent;
    QRect m_fullScreenPreviousGeometry;
    QPointer<mouse> m_mouseControl;
    QString m_mousePrevPort;
    int m_mousePrevBaud = 0;

    // Screenshot and recording (tavrovideo_recording.cpp)
public:
    void onBtnCaptureClicked();
    void performScreenshotSave();
    void onBtnRecordClicked();
    void beginScreenRecordingFromUvc();
    void ensureMediaRecorder();
    void onMediaRecorderStateChanged(QMediaRecorder::RecorderState state);
    void onMediaRecorderError(QMediaRecorder::Error error, const QString &errorString);
    void finalizeRecordingSaveToDisk();
    void cleanupRecordingUi();
    void onRecordBlinkTick();
    void onRecordElapsedTick();
    bool isRecording() const { return m_isRecording; }
    // What the elapsed label shows (1 during the first second); 0 when not recording.
    int recordElapsedSeconds() const { return m_recordElapsedShown; }
    // The picture of the last frame at the size it was captured; null when there is none or it
    // cannot be converted.
    QImage fullSizeImageOfLastFrame() const;
    // An information box about the console's box, also sent to operatorMessageShown.
    void showInformation(QWidget *parent, const QString &title, const QString &text);
    // Asks where to save a screenshot or recording: (caption, suggested path, filter) → the path
    // chosen, empty when cancelled. Default: QFileDialog::getSaveFileName.
    using SavePathChooser =
        std::function<QString(const QString &caption, const QString &path, const QString &filter)>;
    void setSavePathChooser(SavePathChooser chooser) { m_savePathChooser = std::move(chooser); }

signals:
    // A recording started, or its elapsed label's seconds changed (recording true), or it ended.
    void recordingProgressChanged(bool recording, int elapsedLabelSeconds);

private:
    void createRecordingTimers();
    void onRecordingLimitReached();
    // Part of every camera close: a running recording is stopped and thrown away, no dialog.
    void discardRecordingOnClose();
    void releaseMediaRecorder();
    void removeRecordingTempFile();
    // Stops the recorder once the recording's sound (if it has any) has begun, or after a limit.
    void stopMediaRecorderAfterFirstSound(int waitedMs);
    QString chooseSavePath(const QString &caption, const QString &path, const QString &filter);

    QMediaRecorder *m_mediaRecorder = nullptr;
    quint64 m_mediaRecorderSerial = 0; // tells a queued state change of a deleted recorder apart
    QString m_recordingTempPath;
    bool m_isRecording = false;
    bool m_saveRecordingOnStop = false;
    bool m_discardRecordingOnStop = false;
    bool m_recordingLimitReached = false;
    bool m_recordBlinkOn = false;
    QElapsedTimer m_recordingClock;
    qint64 m_recordedMs = -1; // the clock when the stop was asked for; -1 until then
    int m_recordElapsedShown = 0;
    QTimer *m_recordBlinkTimer = nullptr;
    QTimer *m_recordElapsedTimer = nullptr;
    QTimer *m_recordStopTimer = nullptr;
    int m_recordingLimitMs = 30 * 60 * 1000;
    QPointer<QPushButton> m_btnRecord;     // on the toolbar, when there is one
    QPointer<QLabel> m_recordElapsedLabel; // "recordElapsedLabel", on the toolbar
    QIcon m_recordIcon;                    // the record button's normal icon
    QIcon m_recordingIcon;                 // and its blinking one
    SavePathChooser m_savePathChooser;
};
