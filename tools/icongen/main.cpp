// Draws the program's own icons into PNG files at build time, so the resource bundle needs
// no binary files in the repository. The few drawn in code are below; the rest are SVG drawings
// under resources/icons, rendered here to PNG files of the same relative path.
// Usage: tavrokvm-icongen <output-folder> [<svg-folder>]
//        tavrokvm-icongen --app-icon <name> <hicolor-folder>: the program's icon at the desktop's
//        usual sizes, as <hicolor-folder>/<N>x<N>/apps/<name>.png
#include <QDir>
#include <QDirIterator>
#include <QFileInfo>
#include <QGuiApplication>
#include <QImage>
#include <QPainter>
#include <QPainterPath>
#include <QString>
#include <QSvgRenderer>

#include <cstdio>
#include <functional>

namespace {

const QColor kGreen(0x00, 0xc8, 0x53);
const QColor kLight(0xe0, 0xe0, 0xe0);

bool drawIcon(const QString &path, int size, const std::function<void(QPainter &, int)> &draw)
{
    QImage image(size, size, QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::transparent);
    {
        QPainter painter(&image);
        painter.setRenderHint(QPainter::Antialiasing);
        draw(painter, size);
    }
    if (!image.save(path, "PNG")) {
        std::fprintf(stderr, "icongen: cannot write %s\n", qPrintable(path));
        return false;
    }
    return true;
}

// A monitor with a keyboard in front of it: the console of a remote machine.
void drawKvm(QPainter &p, int s)
{
    const qreal u = s / 128.0;
    p.setPen(Qt::NoPen);
    p.setBrush(QColor(0x23, 0x23, 0x23));
    p.drawRoundedRect(QRectF(4 * u, 4 * u, 120 * u, 120 * u), 24 * u, 24 * u);
    p.setBrush(kLight);
    p.drawRoundedRect(QRectF(20 * u, 20 * u, 88 * u, 58 * u), 6 * u, 6 * u);
    p.setBrush(kGreen);
    p.drawRect(QRectF(26 * u, 26 * u, 76 * u, 46 * u));
    p.setBrush(kLight);
    p.drawRect(QRectF(58 * u, 78 * u, 12 * u, 8 * u));
    p.drawRoundedRect(QRectF(22 * u, 90 * u, 84 * u, 20 * u), 4 * u, 4 * u);
    p.setBrush(QColor(0x23, 0x23, 0x23));
    for (int row = 0; row < 2; ++row)
        for (int col = 0; col < 8; ++col)
            p.drawRect(QRectF((27 + col * 10) * u, (93 + row * 8) * u, 7 * u, 5 * u));
}

void drawUsb(QPainter &p, int s)
{
    const qreal u = s / 48.0;
    QPen pen(kLight, 3 * u, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin);
    p.setPen(pen);
    p.drawLine(QPointF(24 * u, 8 * u), QPointF(24 * u, 40 * u));
    p.drawPolyline(
        QPolygonF({QPointF(24 * u, 30 * u), QPointF(14 * u, 22 * u), QPointF(14 * u, 16 * u)}));
    p.drawPolyline(
        QPolygonF({QPointF(24 * u, 26 * u), QPointF(34 * u, 18 * u), QPointF(34 * u, 14 * u)}));
    p.setPen(Qt::NoPen);
    p.setBrush(kLight);
    p.drawEllipse(QPointF(24 * u, 40 * u), 4 * u, 4 * u);
    p.drawEllipse(QPointF(14 * u, 14 * u), 3 * u, 3 * u);
    p.drawRect(QRectF(31 * u, 9 * u, 6 * u, 6 * u));
    QPainterPath arrow;
    arrow.moveTo(24 * u, 2 * u);
    arrow.lineTo(19 * u, 10 * u);
    arrow.lineTo(29 * u, 10 * u);
    arrow.closeSubpath();
    p.drawPath(arrow);
}

std::function<void(QPainter &, int)> dot(const QColor &colour)
{
    return [colour](QPainter &p, int s) {
        p.setPen(Qt::NoPen);
        p.setBrush(colour);
        p.drawEllipse(QRectF(s * 0.2, s * 0.2, s * 0.6, s * 0.6));
    };
}

// Every icon is drawn at this size; the bundle's users scale down from it.
constexpr int kSvgIconSize = 64;

bool renderSvgTree(const QString &svgFolder, const QString &outFolder)
{
    bool ok = true;
    QDirIterator it(svgFolder, {QStringLiteral("*.svg")}, QDir::Files,
                    QDirIterator::Subdirectories);
    while (it.hasNext()) {
        const QString source = it.next();
        QString relative = QDir(svgFolder).relativeFilePath(source);
        relative.chop(4);
        const QString target = outFolder + '/' + relative + QStringLiteral(".png");
        QDir().mkpath(QFileInfo(target).absolutePath());
        QSvgRenderer renderer(source);
        if (!renderer.isValid()) {
            std::fprintf(stderr, "icongen: not a valid SVG drawing: %s\n", qPrintable(source));
            ok = false;
            continue;
        }
        ok &= drawIcon(target, kSvgIconSize, [&renderer](QPainter &p, int s) {
            renderer.render(&p, QRectF(0, 0, s, s));
        });
    }
    return ok;
}

} // namespace

// The desktop's icon theme sizes the launcher, menus and panels ask for.
const int kAppIconSizes[] = {16, 22, 24, 32, 48, 64, 128, 256};

int main(int argc, char **argv)
{
    if (argc == 4 && qstrcmp(argv[1], "--app-icon") == 0) {
        qputenv("QT_QPA_PLATFORM", "offscreen");
        QGuiApplication app(argc, argv);
        const QString name = QString::fromLocal8Bit(argv[2]);
        const QString root = QString::fromLocal8Bit(argv[3]);
        bool ok = true;
        for (int size : kAppIconSizes) {
            const QString folder = QStringLiteral("%1/%2x%2/apps").arg(root).arg(size);
            QDir().mkpath(folder);
            ok &=
                drawIcon(folder + QLatin1Char('/') + name + QStringLiteral(".png"), size, drawKvm);
        }
        return ok ? 0 : 1;
    }
    if (argc != 2 && argc != 3) {
        std::fprintf(stderr, "usage: tavrokvm-icongen <output-folder> [<svg-folder>]\n");
        return 2;
    }
    // QSvgRenderer needs a GUI application for its fonts; no window is ever shown.
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QGuiApplication app(argc, argv);
    const QString folder = QString::fromLocal8Bit(argv[1]);
    QDir().mkpath(folder);

    bool ok = true;
    ok &= drawIcon(folder + "/kvm.png", 256, drawKvm);
    ok &= drawIcon(folder + "/usb.png", 48, drawUsb);
    ok &= drawIcon(folder + "/dot_green.png", 16, dot(kGreen));
    ok &= drawIcon(folder + "/dot_gray.png", 16, dot(QColor(0x80, 0x80, 0x80)));
    ok &= drawIcon(folder + "/transparent.png", 16, [](QPainter &, int) {});
    if (argc == 3)
        ok &= renderSvgTree(QString::fromLocal8Bit(argv[2]), folder);
    return ok ? 0 : 1;
}
