// The black-margin measurement on JPEG files written here: stable bands, the confirmation in
// the opposite corner, damaged and too-small files.

#include <QBuffer>
#include <QFile>
#include <QImage>
#include <QPainter>
#include <QTemporaryDir>
#include <QTest>

#include "console/input/bordercheck.h"

namespace {

// A black 640 x 360 frame; `draw` lights what the row needs.
QImage frame(const std::function<void(QImage &)> &draw)
{
    QImage image(640, 360, QImage::Format_RGB32);
    image.fill(Qt::black);
    draw(image);
    return image;
}

void lightColumn(QImage &image, int x, int fromRow, int toRow)
{
    for (int y = fromRow; y <= toRow; ++y)
        image.setPixel(x, y, qRgb(255, 255, 255));
}

// A grey picture from (left, top) to the mirrored corner: a target inside black borders.
void picture(QImage &image, int left, int top)
{
    QPainter painter(&image);
    painter.fillRect(QRect(left, top, image.width() - 2 * left, image.height() - 2 * top),
                     QColor(180, 180, 180));
}

} // namespace

Q_DECLARE_METATYPE(image_blank_info)

class TestBorderCheck : public QObject
{
    Q_OBJECT
private slots:
    void margins_data();
    void margins();
    void unreadableFiles_data();
    void unreadableFiles();

private:
    QTemporaryDir m_dir;
};

void TestBorderCheck::margins_data()
{
    QTest::addColumn<QImage>("image");
    QTest::addColumn<int>("top");
    QTest::addColumn<int>("left");
    QTest::addColumn<int>("bottom");
    QTest::addColumn<int>("right");
    QTest::newRow("all black: the whole corner")
        << frame([](QImage &) {}) << 128 << 256 << 128 << 256;
    QTest::newRow("4:3-like picture inside borders")
        << frame([](QImage &i) { picture(i, 100, 50); }) << 50 << 100 << 50 << 100;
    QTest::newRow("lit column 40 in rows 0-100")
        << frame([](QImage &i) { lightColumn(i, 40, 0, 100); }) << 0 << 40 << 0 << 40;
    // The narrowest band first seen at row 120 is not stable: no left margin. Along the top the
    // lit rows 120-127 of column 40 are the narrowest band, stable over the other columns.
    QTest::newRow("minimum first reached at row 120")
        << frame([](QImage &i) { lightColumn(i, 40, 120, 127); }) << 120 << 0 << 120 << 0;
    QTest::newRow("lit pixel in the right strip of the last 128 rows") << frame([](QImage &i) {
        picture(i, 100, 50);
        i.setPixel(600, 300, qRgb(255, 255, 255));
    }) << 50 << 0 << 50 << 0;
    QTest::newRow("lit pixel in the bottom strip") << frame([](QImage &i) {
        picture(i, 100, 50);
        i.setPixel(500, 340, qRgb(255, 255, 255));
    }) << 0 << 100 << 0 << 100;
}

void TestBorderCheck::margins()
{
    QFETCH(QImage, image);
    QFETCH(int, top);
    QFETCH(int, left);
    QFETCH(int, bottom);
    QFETCH(int, right);
    const QString path = m_dir.filePath(QStringLiteral("frame.jpg"));
    QVERIFY(image.save(path, "JPG", 100));
    image_blank_info info;
    QCOMPARE(jpeg_check(QFile::encodeName(path).constData(), &info), 0);
    QCOMPARE(info.width, 640);
    QCOMPARE(info.height, 360);
    QCOMPARE(info.top, top);
    QCOMPARE(info.left, left);
    QCOMPARE(info.bottom, bottom);
    QCOMPARE(info.right, right);
    QVERIFY(blankInfoWithinLimits(info));
}

void TestBorderCheck::unreadableFiles_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<int>("width"); // what the header told, 0 when nothing was read
    QImage black(640, 360, QImage::Format_RGB32);
    black.fill(Qt::black);
    QByteArray jpeg;
    {
        QBuffer buffer(&jpeg);
        buffer.open(QIODevice::WriteOnly);
        black.save(&buffer, "JPG", 90);
    }
    QImage small(200, 100, QImage::Format_RGB32);
    small.fill(Qt::black);
    QByteArray smallJpeg;
    {
        QBuffer buffer(&smallJpeg);
        buffer.open(QIODevice::WriteOnly);
        small.save(&buffer, "JPG", 90);
    }
    QTest::newRow("not a JPEG") << QByteArray("this is no picture at all") << 0;
    QTest::newRow("empty") << QByteArray() << 0;
    QTest::newRow("truncated") << jpeg.left(jpeg.size() / 2) << 640;
    QByteArray corrupt = jpeg;
    for (int i = corrupt.size() / 3; i < corrupt.size() - 2; i += 7)
        corrupt[i] = char(0xff);
    QTest::newRow("corrupt entropy data") << corrupt << 640;
    QTest::newRow("smaller than the scanned corner") << smallJpeg << 200;
}

void TestBorderCheck::unreadableFiles()
{
    QFETCH(QByteArray, bytes);
    QFETCH(int, width);
    const QString path = m_dir.filePath(QStringLiteral("bad.jpg"));
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
    file.write(bytes);
    file.close();
    image_blank_info info;
    QCOMPARE(jpeg_check(QFile::encodeName(path).constData(), &info), 1);
    QCOMPARE(info.width, width);
    QCOMPARE(info.left, 0);
    QCOMPARE(info.top, 0);
    QCOMPARE(info.right, 0);
    QCOMPARE(info.bottom, 0);

    image_blank_info missing;
    QCOMPARE(jpeg_check(QFile::encodeName(m_dir.filePath("none.jpg")).constData(), &missing), 1);
}

QTEST_GUILESS_MAIN(TestBorderCheck)
#include "tst_bordercheck.moc"
