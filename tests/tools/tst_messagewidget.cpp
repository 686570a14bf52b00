#include <QDateTime>
#include <QPointer>
#include <QPushButton>
#include <QStyledItemDelegate>
#include <QTableWidget>
#include <QTest>

#include "ui/messagewidget.h"

class TestMessageWidget : public QObject
{
    Q_OBJECT
private slots:
    void rowsCarryTimeAndText();
    void richTextRowsFitTheirColumn();
    void clearEmptiesThePanel();
    void appendingLaysOutOnlyTheNewRow();
};

namespace {

// Forwards to the panel's own delegate and counts how many cells were measured.
class CountingDelegate : public QStyledItemDelegate
{
public:
    CountingDelegate(QAbstractItemDelegate *inner, QObject *parent)
        : QStyledItemDelegate(parent), m_inner(inner)
    {}
    void paint(QPainter *painter, const QStyleOptionViewItem &option,
               const QModelIndex &index) const override
    {
        m_inner->paint(painter, option, index);
    }
    QSize sizeHint(const QStyleOptionViewItem &option, const QModelIndex &index) const override
    {
        ++measured;
        return m_inner->sizeHint(option, index);
    }
    mutable int measured = 0;

private:
    QPointer<QAbstractItemDelegate> m_inner;
};

} // namespace

void TestMessageWidget::rowsCarryTimeAndText()
{
    MessageWidget panel(nullptr);
    QCOMPARE(panel.objectName(), QStringLiteral("messageWidget"));
    auto *table = panel.findChild<QTableWidget *>("msgTableWidget");
    QCOMPARE(table->horizontalHeaderItem(0)->text(), QStringLiteral("时间"));
    QCOMPARE(table->horizontalHeaderItem(1)->text(), QStringLiteral("内容"));

    const QDateTime before = QDateTime::currentDateTime().addMSecs(-1);
    panel.appendMessage(QStringLiteral("串口已连接"));
    panel.appendMessage(QStringLiteral("<b>等待设备回复超时</b>"));
    const QDateTime after = QDateTime::currentDateTime().addMSecs(1);

    QCOMPARE(table->rowCount(), 2);
    QCOMPARE(table->item(0, 1)->text(), QStringLiteral("串口已连接"));
    QCOMPARE(table->item(1, 1)->text(), QStringLiteral("<b>等待设备回复超时</b>"));
    for (int row = 0; row < 2; ++row) {
        const QString stamp = table->item(row, 0)->text();
        QVERIFY2(QRegularExpression("^\\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d\\.\\d{3}$")
                     .match(stamp)
                     .hasMatch(),
                 qPrintable(stamp));
        const QDateTime when =
            QDateTime::fromString(stamp, QStringLiteral("yyyy-MM-dd hh:mm:ss.zzz"));
        QVERIFY(when >= before && when <= after);
    }
}

void TestMessageWidget::richTextRowsFitTheirColumn()
{
    MessageWidget panel(nullptr);
    panel.resize(900, 400);
    panel.show();
    auto *table = panel.findChild<QTableWidget *>("msgTableWidget");
    panel.appendMessage(QStringLiteral("short"));
    panel.appendMessage(QStringLiteral("<p>%1</p>").arg(QString("long words ").repeated(40)));
    const int shortRow = table->rowHeight(0);
    const int wideLongRow = table->rowHeight(1);
    QVERIFY(wideLongRow > shortRow);

    panel.resize(400, 400); // the content column narrows: more lines
    QTRY_VERIFY(table->rowHeight(1) > wideLongRow);
    QCOMPARE(table->rowHeight(0), shortRow);
    panel.resize(900, 400);
    QTRY_COMPARE(table->rowHeight(1), wideLongRow);
}

void TestMessageWidget::clearEmptiesThePanel()
{
    MessageWidget panel(nullptr);
    panel.appendMessage("a");
    panel.appendMessage("b");
    QTest::mouseClick(panel.findChild<QPushButton *>("clearBtn"), Qt::LeftButton);
    auto *table = panel.findChild<QTableWidget *>("msgTableWidget");
    QCOMPARE(table->rowCount(), 0);
    panel.appendMessage("c");
    QCOMPARE(table->rowCount(), 1);
    panel.clearMessages();
    QCOMPARE(table->rowCount(), 0);
}

// A long paste reports its progress once per character: the panel must not measure every earlier
// row again for each new one.
void TestMessageWidget::appendingLaysOutOnlyTheNewRow()
{
    MessageWidget panel(nullptr);
    panel.resize(900, 400);
    panel.show();
    auto *table = panel.findChild<QTableWidget *>("msgTableWidget");
    auto *counting = new CountingDelegate(table->itemDelegate(), table);
    table->setItemDelegate(counting);
    for (int n = 1; n <= 300; ++n)
        panel.appendMessage(QStringLiteral("%1 / 300").arg(n));
    QCoreApplication::processEvents();

    counting->measured = 0;
    panel.appendMessage(QStringLiteral("<b>粘贴完成</b>"));
    QCoreApplication::processEvents();
    QVERIFY2(counting->measured <= 2, qPrintable(QString::number(counting->measured)));

    // The time column still shows its whole stamp.
    const QString stamp = table->item(300, 0)->text();
    QVERIFY(table->columnWidth(0) >= table->fontMetrics().horizontalAdvance(stamp));
}

QTEST_MAIN(TestMessageWidget)
#include "tst_messagewidget.moc"
