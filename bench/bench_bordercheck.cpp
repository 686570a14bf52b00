// Cost of one black-margin measurement, as the console pays it on a pool thread: the frame
// written as a JPEG file, then decoded and scanned. At 1080p and 4K.
#include <QElapsedTimer>
#include <QFile>
#include <QImage>
#include <QPainter>
#include <QTemporaryDir>
#include <QTextStream>

#include <algorithm>
#include <vector>

#include "bench/bench.h"
#include "console/input/bordercheck.h"

namespace {

// A desktop-like picture inside black borders, with detail for the JPEG encoder to work on.
QImage borderedFrame(int width, int height)
{
    QImage image(width, height, QImage::Format_RGB32);
    image.fill(Qt::black);
    QPainter painter(&image);
    const QRect inner(160, 96, width - 320, height - 192);
    QLinearGradient gradient(inner.topLeft(), inner.bottomRight());
    gradient.setColorAt(0, QColor(30, 90, 160));
    gradient.setColorAt(1, QColor(220, 220, 200));
    painter.fillRect(inner, gradient);
    painter.setPen(Qt::white);
    for (int y = inner.top() + 20; y < inner.bottom(); y += 24)
        painter.drawText(inner.left() + 10, y, QStringLiteral("root@target:~# ls -la /var/log"));
    return image;
}

void benchBorderCheck()
{
    // The measurement logs every step; the figures are what matters here.
    const QtMessageHandler previous =
        qInstallMessageHandler([](QtMsgType type, const QMessageLogContext &, const QString &text) {
            if (type >= QtWarningMsg)
                QTextStream(stderr) << text << Qt::endl;
        });
    QTextStream out(stdout);
    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("stream.tmp"));
    const QByteArray encodedPath = QFile::encodeName(path);
    for (const QSize size : {QSize(1920, 1080), QSize(3840, 2160)}) {
        const QImage frame = borderedFrame(size.width(), size.height());
        std::vector<double> writeMs, checkMs;
        image_blank_info info;
        for (int run = 0; run < 15; ++run) {
            QElapsedTimer timer;
            timer.start();
            frame.save(path, "JPG");
            writeMs.push_back(timer.nsecsElapsed() / 1e6);
            timer.restart();
            info = image_blank_info();
            jpeg_check(encodedPath.constData(), &info);
            checkMs.push_back(timer.nsecsElapsed() / 1e6);
        }
        std::sort(writeMs.begin(), writeMs.end());
        std::sort(checkMs.begin(), checkMs.end());
        const double write = writeMs[writeMs.size() / 2];
        const double check = checkMs[checkMs.size() / 2];
        out << QString::asprintf("  %4dx%-4d  write JPEG %6.1f ms  decode+scan %6.1f ms  total "
                                 "%6.1f ms  (margins L%d T%d)",
                                 size.width(), size.height(), write, check, write + check,
                                 info.left, info.top)
            << Qt::endl;
    }
    out << "  every 90th frame while no margin is known: at 60 fps one measurement per 1.5 s"
        << Qt::endl;
    qInstallMessageHandler(previous);
}

} // namespace

TAVROKVM_BENCH("border measurement per frame (median of 15)", benchBorderCheck);
