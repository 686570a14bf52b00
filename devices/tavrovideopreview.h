#pragma once

#include <QByteArray>
#include <QCameraDevice>
#include <QWidget>

#include "devices/previewrules.h"

class QCamera;
class QFrame;
class QLabel;
class QMediaCaptureSession;
class QTimer;
class QVideoFrame;
class QVideoSink;

// One tile of the preview grid: a box's picture at low cost. The tile owns its own capture
// session on one camera (independent of the console view's), asks for a small, slow format,
// paints at most ten frames a second, says whether its stream is alive, can flash a green border,
// can show that the console view holds its camera, and asks to be zoomed on a double-click.
// Cameras are named by their identity (platform/cameraidentity.h), never by the toolkit's id.
class TavroVideoPreview : public QWidget
{
    Q_OBJECT
public:
    explicit TavroVideoPreview(int slot, QWidget *parent = nullptr);
    ~TavroVideoPreview() override;

    int slot() const { return m_slot; }

    // Opens the camera with this identity from a fresh camera list; an empty identity, or one no
    // camera has ("UVC not found"), closes the tile. Without `forceReopen` a tile already running
    // that camera is left as it is, and one bound to it but stopped is restarted in place.
    void openCamera(const QByteArray &uvcId, bool forceReopen);
    // The same with a device of the current camera list; a null device closes the tile.
    void openCamera(const QCameraDevice &device, bool forceReopen);
    void closeCamera();

    // The identity of the camera the tile is bound to; empty when closed.
    QByteArray boundId() const { return m_boundId; }
    // The camera exists and runs.
    bool isPreviewStreaming() const;
    // Streaming, and a frame arrived at most `maxAgeMs` ago (false until the first frame).
    bool isPreviewStreamHealthy(qint64 maxAgeMs) const;
    // Milliseconds since the epoch of the last frame received; 0 = none since the open.
    qint64 lastFrameTimeMs() const { return m_lastFrameMs; }
    // Frames received and frames painted since the tile was made.
    quint64 receivedFrameCount() const { return m_receivedFrames; }
    quint64 paintedFrameCount() const { return m_paintedFrames; }

    // Give the camera up without losing the binding, and take it back.
    void attachPreviewSession();
    void detachPreviewSession();
    void suspendVideoSurface();
    // "主画面占用该设备": the console view holds this tile's camera.
    void setMainOccupiedPlaceholder(bool on);
    bool isMainOccupiedPlaceholderShown() const;
    // Green border for about half a second, blinking three times; points out a row's tile.
    void flashGreenBorderHint();
    void applyNormalChrome();
    QLabel *videoInteractionTarget() const { return m_videoLabel; }

public slots:
    void onPreviewVideoFrame(const QVideoFrame &frame);

signals:
    // The tile was double-clicked: show its box in the console view.
    void zoomRequested(int slot);

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;
    void resizeEvent(QResizeEvent *event) override;
    void mouseDoubleClickEvent(QMouseEvent *event) override;

private:
    // Tests move the tile's clock and step its flash through this (tests/support).
    friend class TavroVideoPreviewTestAccess;

    void openDevice(const QCameraDevice &device, const QByteArray &identity, bool forceReopen);
    void applyPreviewFormat(const QCameraDevice &device);
    void showVideoLabel();
    void applyHighlightedChrome();
    void onFlashTick();
    void fitPlaceholder();
    qint64 nowMs() const;

    const int m_slot;
    QFrame *m_surface = nullptr;
    QLabel *m_videoLabel = nullptr;
    QLabel *m_placeholder = nullptr;
    QVideoSink *m_sink = nullptr;
    QCamera *m_camera = nullptr;
    QMediaCaptureSession *m_session = nullptr;
    QByteArray m_boundId;
    qint64 m_lastFrameMs = 0;
    PreviewPaintClock m_paintClock;
    quint64 m_receivedFrames = 0;
    quint64 m_paintedFrames = 0;
    QTimer *m_flashTimer = nullptr;
    int m_flashCounter = 0;
    bool m_highlighted = false;
    qint64 m_clockOffsetMs = 0;
};
