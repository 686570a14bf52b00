#pragma once

#include <QByteArray>
#include <QMutex>
#include <QOpenGLFunctions_3_3_Core>
#include <QOpenGLWidget>
#include <QVideoFrame>
#include <QVideoFrameFormat>

class QOpenGLShaderProgram;

// GPU surface of the console view: an OpenGL child widget that converts NV12, YUYV and UYVY
// frames to RGB in fragment shaders (full-range BT.601) and letterboxes the picture into its
// rectangle. It lets mouse events through to the view underneath. Frames are copied under a mutex
// by setVideoFrame and uploaded as textures by paintGL; nothing is converted on the CPU.
class VideoGlSurface : public QOpenGLWidget, protected QOpenGLFunctions_3_3_Core
{
    Q_OBJECT
public:
    explicit VideoGlSurface(QWidget *parent = nullptr);
    ~VideoGlSurface() override;

    // True exactly for the formats the shaders convert: UYVY, YUYV and NV12.
    static bool canFastUpload(QVideoFrameFormat::PixelFormat format);

    // Whether this platform can make the OpenGL 3.3 core context the surface needs. Asked once
    // per process, on the GUI thread; a surface must not be made when this is false (the
    // offscreen platform, a display without OpenGL).
    static bool openGlAvailable();

    // Copies the frame's planes for the next paint. An invalid or unmappable frame, or one of a
    // format the shaders do not convert, leaves nothing to draw (the surface shows black).
    void setVideoFrame(const QVideoFrame &frame);

protected:
    void initializeGL() override;
    void resizeGL(int w, int h) override;
    void paintGL() override;

private:
    QOpenGLShaderProgram *buildProgram(const char *name, const char *fragmentSource);
    void releaseGlResources();
    void uploadTexture(GLuint texture, GLint internalFormat, GLenum format, int width, int height,
                       int alignment, int rowLength, const QByteArray &pixels);

    // Frame data, guarded by m_frameMutex.
    QMutex m_frameMutex;
    QVideoFrameFormat::PixelFormat m_pixelFormat = QVideoFrameFormat::Format_Invalid;
    int m_frameWidth = 0;
    int m_frameHeight = 0;
    QByteArray m_plane0;
    QByteArray m_plane1;
    int m_stride0 = 0;
    int m_stride1 = 0;

    // GL objects, valid between initializeGL and releaseGlResources.
    bool m_glReady = false;
    GLuint m_vao = 0;
    GLuint m_vbo = 0;
    GLuint m_ebo = 0;
    GLuint m_textures[2] = {0, 0};
    QOpenGLShaderProgram *m_nv12Program = nullptr;
    QOpenGLShaderProgram *m_yuyvProgram = nullptr;
    QOpenGLShaderProgram *m_uyvyProgram = nullptr;

    // Widget size in pixels as last given to resizeGL, each side at least 1.
    int m_viewWidth = 1;
    int m_viewHeight = 1;
};
