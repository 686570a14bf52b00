#include "console/frameimage.h"

#include <QtConcurrent/QtConcurrentRun>

#include "console/yuvconvert.h"

namespace {

// The YUV layouts the capture pipeline delivers, converted here on the CPU. The toolkit's own
// toImage() renders through OpenGL where a display offers it and reads the result back, which on
// a software or busy GPU costs more than the conversion itself.
bool describeYuv(const QVideoFrame &frame, YuvPicture &picture)
{
    switch (frame.pixelFormat()) {
    case QVideoFrameFormat::Format_YUV420P:
        picture.layout = YuvLayout::Yuv420p;
        break;
    case QVideoFrameFormat::Format_NV12:
        picture.layout = YuvLayout::Nv12;
        break;
    case QVideoFrameFormat::Format_NV21:
        picture.layout = YuvLayout::Nv21;
        break;
    case QVideoFrameFormat::Format_YUYV:
        picture.layout = YuvLayout::Yuyv;
        break;
    case QVideoFrameFormat::Format_UYVY:
        picture.layout = YuvLayout::Uyvy;
        break;
    default:
        return false;
    }
    picture.width = frame.width();
    picture.height = frame.height();
    const int planes = picture.layout == YuvLayout::Yuv420p ? 3
                       : (picture.layout == YuvLayout::Yuyv || picture.layout == YuvLayout::Uyvy)
                           ? 1
                           : 2;
    if (frame.planeCount() < planes || picture.width < 2 || picture.height < 2)
        return false;
    for (int i = 0; i < planes; ++i) {
        picture.planes[i] = frame.bits(i);
        picture.strides[i] = frame.bytesPerLine(i);
        if (!picture.planes[i])
            return false;
    }
    return true;
}

} // namespace

QImage imageOfMappedFrame(const QVideoFrame &frame)
{
    YuvPicture picture;
    if (!describeYuv(frame, picture))
        return frame.toImage();
    QImage image(picture.width, picture.height, QImage::Format_RGB32);
    if (image.isNull())
        return image;
    auto *pixels = reinterpret_cast<quint32 *>(image.bits());
    const int stride = int(image.bytesPerLine());
    const int middle = (picture.height / 2) & ~1;
    QFuture<void> lowerHalf =
        QtConcurrent::run([&] { convertYuvRows(picture, pixels, stride, middle, picture.height); });
    convertYuvRows(picture, pixels, stride, 0, middle);
    lowerHalf.waitForFinished();
    return image;
}

QImage displayImageOfMappedFrame(const QVideoFrame &frame, const QSize &size, FrameScratch &scratch)
{
    if (size.isEmpty())
        return imageOfMappedFrame(frame);
    YuvPicture picture;
    if (!describeYuv(frame, picture)) {
        const QImage full = frame.toImage().convertToFormat(QImage::Format_RGB32);
        if (full.isNull() || full.size() == size)
            return full;
        QImage scaled(size, QImage::Format_RGB32);
        if (scaled.isNull() ||
            !scaleRgb32(full.constBits(), int(full.bytesPerLine()), full.width(), full.height(),
                        reinterpret_cast<quint32 *>(scaled.bits()), int(scaled.bytesPerLine()),
                        size.width(), size.height()))
            return QImage();
        return scaled;
    }
    QImage image(size, QImage::Format_RGB32);
    if (image.isNull())
        return image;
    uchar *pixels = image.bits();
    const int stride = int(image.bytesPerLine());
    const YuvBandCut cut = yuvBandCut(picture.height, size.height());
    if (cut.destinationRow == 0) {
        if (!convertYuvToSize(picture, reinterpret_cast<quint32 *>(pixels), stride, size.width(),
                              size.height(), scratch.upper))
            return QImage();
        return image;
    }
    QFuture<bool> lowerBand = QtConcurrent::run([&] {
        return convertYuvToSize(
            yuvRows(picture, cut.sourceRow, picture.height),
            reinterpret_cast<quint32 *>(pixels + qsizetype(cut.destinationRow) * stride), stride,
            size.width(), size.height() - cut.destinationRow, scratch.lower);
    });
    const bool upperDone =
        convertYuvToSize(yuvRows(picture, 0, cut.sourceRow), reinterpret_cast<quint32 *>(pixels),
                         stride, size.width(), cut.destinationRow, scratch.upper);
    const bool lowerDone = lowerBand.result();
    return upperDone && lowerDone ? image : QImage();
}
