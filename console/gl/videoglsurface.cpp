// GPU surface of the console view: NV12, YUYV and UYVY frames become textures, the fragment
// shaders convert them with full-range BT.601 and the quad is letterboxed into the widget.
#include "console/gl/videoglsurface.h"

#include <QDebug>
#include <QMutexLocker>
#include <QOffscreenSurface>
#include <QOpenGLContext>
#include <QOpenGLFunctions>
#include <QOpenGLShaderProgram>
#include <QSurfaceFormat>
#include <algorithm>
#include <cstring>

namespace {

const char *const kVertexShader = R"(#version 330 core
layout(location = 0) in vec2 a_pos;
layout(location = 1) in vec2 a_uv;
out vec2 v_uv;
void main()
{
    v_uv = a_uv;
    gl_Position = vec4(a_pos, 0.0, 1.0);
}
)";

// Shared head of the fragment shaders. Full-range BT.601: no offset on Y, chroma centred on 0.5.
// Every fragment shader flips the picture vertically, so that the first row of the frame is drawn
// at the top.
const char *const kFragmentPrologue = R"(#version 330 core
in vec2 v_uv;
out vec4 fragColor;
vec4 yuv2rgb_full(float y, float u, float v)
{
    float U = u - 0.5;
    float V = v - 0.5;
    return vec4(y + 1.402 * V, y - 0.344136 * U - 0.714136 * V, y + 1.772 * U, 1.0);
}
)";

const char *const kNv12FragmentShader = R"(uniform sampler2D texY;
uniform sampler2D texUV;
void main()
{
    vec2 tc = vec2(v_uv.x, 1.0 - v_uv.y);
    float y = texture(texY, tc).r;
    vec2 uv = texture(texUV, tc).rg;
    fragColor = yuv2rgb_full(y, uv.r, uv.g);
}
)";

// Each texel holds two pixels (Y0, U, Y1, V); the pixel's column parity picks its luma.
const char *const kYuyvFragmentShader = R"(uniform sampler2D yuyvTex;
uniform int imageWidth;
void main()
{
    vec2 tc = vec2(v_uv.x, 1.0 - v_uv.y);
    float width = float(imageWidth);
    float xi = floor(tc.x * width);
    vec4 texel = texture(yuyvTex, vec2((xi + 0.5) / width, tc.y));
    float y = ((int(xi) & 1) == 0) ? texel.r : texel.b;
    fragColor = yuv2rgb_full(y, texel.g, texel.a);
}
)";

// Each texel holds two pixels (U, Y0, V, Y1); the pixel's column parity picks its luma.
const char *const kUyvyFragmentShader = R"(uniform sampler2D uyvyTex;
uniform int imageWidth;
void main()
{
    vec2 tc = vec2(v_uv.x, 1.0 - v_uv.y);
    float width = float(imageWidth);
    float xi = floor(tc.x * width);
    vec4 texel = texture(uyvyTex, vec2((xi + 0.5) / width, tc.y));
    float y = ((int(xi) & 1) == 0) ? texel.g : texel.a;
    fragColor = yuv2rgb_full(y, texel.r, texel.b);
}
)";

const GLuint kQuadIndices[6] = {0, 1, 2, 2, 3, 0};

// Copies `size` bytes of a mapped plane; a plane shorter than its layout promises is padded with
// zeros so that the texture upload never reads past the copy.
QByteArray copyPlane(const QVideoFrame &frame, int plane, qsizetype size)
{
    const qsizetype available = std::clamp<qsizetype>(frame.mappedBytes(plane), 0, size);
    QByteArray bytes(size, '\0');
    if (available > 0)
        std::memcpy(bytes.data(), frame.bits(plane), size_t(available));
    return bytes;
}

} // namespace

VideoGlSurface::VideoGlSurface(QWidget *parent) : QOpenGLWidget(parent)
{
    setAttribute(Qt::WA_TransparentForMouseEvents);
    setUpdateBehavior(QOpenGLWidget::NoPartialUpdate);

    QSurfaceFormat surfaceFormat = format();
    surfaceFormat.setVersion(3, 3);
    surfaceFormat.setProfile(QSurfaceFormat::CoreProfile);
    setFormat(surfaceFormat);
}

VideoGlSurface::~VideoGlSurface()
{
    releaseGlResources();
    // The base class destroys the context after this destructor; nothing of ours may run then.
    if (QOpenGLContext *glContext = context())
        disconnect(glContext, nullptr, this, nullptr);
}

bool VideoGlSurface::openGlAvailable()
{
    static const bool available = [] {
        QSurfaceFormat format;
        format.setVersion(3, 3);
        format.setProfile(QSurfaceFormat::CoreProfile);
        QOpenGLContext context;
        context.setFormat(format);
        if (!context.create() || context.format().version() < qMakePair(3, 3))
            return false;
        QOffscreenSurface surface;
        surface.setFormat(context.format());
        surface.create();
        if (!surface.isValid() || !context.makeCurrent(&surface))
            return false;
        context.doneCurrent();
        return true;
    }();
    return available;
}

bool VideoGlSurface::canFastUpload(QVideoFrameFormat::PixelFormat format)
{
    return format == QVideoFrameFormat::Format_UYVY || format == QVideoFrameFormat::Format_YUYV ||
           format == QVideoFrameFormat::Format_NV12;
}

void VideoGlSurface::setVideoFrame(const QVideoFrame &frame)
{
    if (!frame.isValid()) {
        {
            QMutexLocker lock(&m_frameMutex);
            m_pixelFormat = QVideoFrameFormat::Format_Invalid;
            m_frameWidth = 0;
            m_frameHeight = 0;
        }
        update();
        return;
    }

    QVideoFrame mapped(frame);
    if (!mapped.map(QVideoFrame::ReadOnly)) {
        {
            QMutexLocker lock(&m_frameMutex);
            m_pixelFormat = QVideoFrameFormat::Format_Invalid;
        }
        update();
        return;
    }

    QVideoFrameFormat::PixelFormat pixelFormat = mapped.pixelFormat();
    const int width = mapped.width();
    const int height = mapped.height();
    int stride0 = 0;
    int stride1 = 0;
    QByteArray plane0;
    QByteArray plane1;

    if (width < 1 || height < 1) {
        pixelFormat = QVideoFrameFormat::Format_Invalid;
    } else if (pixelFormat == QVideoFrameFormat::Format_NV12) {
        stride0 = mapped.bytesPerLine(0);
        stride1 = mapped.bytesPerLine(1);
        // Each row of either plane holds at least `width` bytes (luma, or interleaved U/V pairs).
        if (mapped.planeCount() < 2 || stride0 < width || stride1 < width) {
            pixelFormat = QVideoFrameFormat::Format_Invalid;
        } else {
            plane0 = copyPlane(mapped, 0, qsizetype(stride0) * height);
            plane1 = copyPlane(mapped, 1, qsizetype(stride1) * (height / 2));
        }
    } else if (pixelFormat == QVideoFrameFormat::Format_YUYV ||
               pixelFormat == QVideoFrameFormat::Format_UYVY) {
        stride0 = mapped.bytesPerLine(0);
        if (stride0 < 2 * width)
            pixelFormat = QVideoFrameFormat::Format_Invalid;
        else
            plane0 = copyPlane(mapped, 0, qsizetype(stride0) * height);
    } else {
        pixelFormat = QVideoFrameFormat::Format_Invalid;
    }
    mapped.unmap();

    {
        QMutexLocker lock(&m_frameMutex);
        m_pixelFormat = pixelFormat;
        m_frameWidth = width;
        m_frameHeight = height;
        m_plane0.swap(plane0);
        m_plane1.swap(plane1);
        m_stride0 = stride0;
        m_stride1 = stride1;
    }
    update();
}

void VideoGlSurface::initializeGL()
{
    QOpenGLContext *glContext = context();
    if (glContext)
        connect(glContext, &QOpenGLContext::aboutToBeDestroyed, this,
                &VideoGlSurface::releaseGlResources, Qt::UniqueConnection);

    if (!initializeOpenGLFunctions()) {
        qWarning() << "[VideoGlSurface] OpenGL 3.3 core functions unavailable, context format:"
                   << (glContext ? glContext->format() : QSurfaceFormat());
        return;
    }

    glDisable(GL_DEPTH_TEST);
    glDisable(GL_BLEND);

    glGenVertexArrays(1, &m_vao);
    glGenTextures(2, m_textures);
    glGenBuffers(1, &m_vbo);
    glGenBuffers(1, &m_ebo);

    m_nv12Program = buildProgram("NV12", kNv12FragmentShader);
    m_yuyvProgram = buildProgram("YUYV", kYuyvFragmentShader);
    m_uyvyProgram = buildProgram("UYVY", kUyvyFragmentShader);

    // The element buffer binding is part of the vertex array's state.
    glBindVertexArray(m_vao);
    glBindBuffer(GL_ELEMENT_ARRAY_BUFFER, m_ebo);
    glBufferData(GL_ELEMENT_ARRAY_BUFFER, sizeof(kQuadIndices), kQuadIndices, GL_STATIC_DRAW);
    glBindVertexArray(0);

    m_glReady = true;
}

QOpenGLShaderProgram *VideoGlSurface::buildProgram(const char *name, const char *fragmentSource)
{
    auto *program = new QOpenGLShaderProgram;
    const bool linked =
        program->addShaderFromSourceCode(QOpenGLShader::Vertex, kVertexShader) &&
        program->addShaderFromSourceCode(QOpenGLShader::Fragment,
                                         QByteArray(kFragmentPrologue) + fragmentSource) &&
        program->link();
    if (!linked)
        qWarning().noquote() << "[VideoGlSurface]" << name << "shader:" << program->log();
    return program;
}

void VideoGlSurface::resizeGL(int w, int h)
{
    m_viewWidth = std::max(1, w);
    m_viewHeight = std::max(1, h);
    if (m_glReady)
        glViewport(0, 0, m_viewWidth, m_viewHeight);
}

void VideoGlSurface::uploadTexture(GLuint texture, GLint internalFormat, GLenum format, int width,
                                   int height, int alignment, int rowLength,
                                   const QByteArray &pixels)
{
    glBindTexture(GL_TEXTURE_2D, texture);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_LINEAR);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GL_LINEAR);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_S, GL_CLAMP_TO_EDGE);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_T, GL_CLAMP_TO_EDGE);
    glPixelStorei(GL_UNPACK_ALIGNMENT, alignment);
    glPixelStorei(GL_UNPACK_ROW_LENGTH, rowLength);
    glTexImage2D(GL_TEXTURE_2D, 0, internalFormat, width, height, 0, format, GL_UNSIGNED_BYTE,
                 pixels.constData());
    glPixelStorei(GL_UNPACK_ROW_LENGTH, 0);
}

void VideoGlSurface::paintGL()
{
    if (!m_glReady) {
        // Without the 3.3 functions the surface can still show black.
        if (QOpenGLContext *current = QOpenGLContext::currentContext()) {
            current->functions()->glClearColor(0.0f, 0.0f, 0.0f, 1.0f);
            current->functions()->glClear(GL_COLOR_BUFFER_BIT);
        }
        return;
    }

    glClearColor(0.0f, 0.0f, 0.0f, 1.0f);
    glClear(GL_COLOR_BUFFER_BIT);

    QMutexLocker lock(&m_frameMutex);
    if (m_frameWidth < 1 || m_frameHeight < 1 || m_pixelFormat == QVideoFrameFormat::Format_Invalid)
        return;

    QOpenGLShaderProgram *program = nullptr;
    switch (m_pixelFormat) {
    case QVideoFrameFormat::Format_NV12:
        program = m_nv12Program;
        break;
    case QVideoFrameFormat::Format_YUYV:
        program = m_yuyvProgram;
        break;
    case QVideoFrameFormat::Format_UYVY:
        program = m_uyvyProgram;
        break;
    default:
        break;
    }
    if (!program || !program->isLinked())
        return;

    // Letterbox: the largest rectangle of the picture's aspect ratio, centred, in clip space.
    const float viewWidth = float(m_viewWidth);
    const float viewHeight = float(m_viewHeight);
    const float scale =
        std::min(viewWidth / float(m_frameWidth), viewHeight / float(m_frameHeight));
    const float dw = float(m_frameWidth) * scale;
    const float dh = float(m_frameHeight) * scale;
    const float x0 = (viewWidth - dw) / viewWidth - 1.0f;
    const float y0 = (viewHeight - dh) / viewHeight - 1.0f;
    const float x1 = x0 + 2.0f * dw / viewWidth;
    const float y1 = y0 + 2.0f * dh / viewHeight;
    const GLfloat vertices[16] = {
        x0, y0, 0.0f, 0.0f, //
        x1, y0, 1.0f, 0.0f, //
        x1, y1, 1.0f, 1.0f, //
        x0, y1, 0.0f, 1.0f, //
    };
    static_assert(sizeof(vertices) == 64, "four vertices of (x, y, u, v) floats");

    glBindVertexArray(m_vao);
    glBindBuffer(GL_ARRAY_BUFFER, m_vbo);
    glBufferData(GL_ARRAY_BUFFER, sizeof(vertices), vertices, GL_DYNAMIC_DRAW);
    glEnableVertexAttribArray(0);
    glVertexAttribPointer(0, 2, GL_FLOAT, GL_FALSE, 4 * sizeof(GLfloat), nullptr);
    glEnableVertexAttribArray(1);
    glVertexAttribPointer(1, 2, GL_FLOAT, GL_FALSE, 4 * sizeof(GLfloat),
                          reinterpret_cast<const void *>(2 * sizeof(GLfloat)));

    program->bind();
    if (m_pixelFormat == QVideoFrameFormat::Format_NV12) {
        glActiveTexture(GL_TEXTURE0);
        uploadTexture(m_textures[0], GL_R8, GL_RED, m_frameWidth, m_frameHeight, 1, m_stride0,
                      m_plane0);
        glActiveTexture(GL_TEXTURE1);
        uploadTexture(m_textures[1], GL_RG8, GL_RG, m_frameWidth / 2, m_frameHeight / 2, 1,
                      m_stride1 / 2, m_plane1);
        program->setUniformValue("texY", 0);
        program->setUniformValue("texUV", 1);
    } else {
        glActiveTexture(GL_TEXTURE0);
        uploadTexture(m_textures[0], GL_RGBA, GL_RGBA, m_frameWidth / 2, m_frameHeight, 4,
                      m_stride0 / 4, m_plane0);
        program->setUniformValue(
            m_pixelFormat == QVideoFrameFormat::Format_YUYV ? "yuyvTex" : "uyvyTex", 0);
        program->setUniformValue("imageWidth", m_frameWidth);
    }

    glDrawElements(GL_TRIANGLES, 6, GL_UNSIGNED_INT, nullptr);

    program->release();
    glBindVertexArray(0);
    glActiveTexture(GL_TEXTURE0);
}

void VideoGlSurface::releaseGlResources()
{
    if (!m_glReady && !m_nv12Program && !m_yuyvProgram && !m_uyvyProgram)
        return;
    if (!context())
        return;

    makeCurrent();
    delete m_nv12Program;
    delete m_yuyvProgram;
    delete m_uyvyProgram;
    m_nv12Program = nullptr;
    m_yuyvProgram = nullptr;
    m_uyvyProgram = nullptr;
    if (m_glReady) {
        glDeleteTextures(2, m_textures);
        glDeleteBuffers(1, &m_vbo);
        glDeleteBuffers(1, &m_ebo);
        glDeleteVertexArrays(1, &m_vao);
        m_textures[0] = m_textures[1] = 0;
        m_vbo = m_ebo = m_vao = 0;
        m_glReady = false;
    }
    doneCurrent();
}
