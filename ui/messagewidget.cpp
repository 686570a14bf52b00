#include "ui/messagewidget.h"

#include <QAbstractTextDocumentLayout>
#include <QDateTime>
#include <QFontMetrics>
#include <QHeaderView>
#include <QPainter>
#include <QStyledItemDelegate>
#include <QTableWidgetItem>
#include <QTextDocument>

#include <cmath>

#include "ui/stylesheet.h"
#include "ui_messagewidget.h"

namespace {

enum Column { TimeColumn, ContentColumn, ColumnCount };

// Padding around the laid-out text of a cell, in pixels.
constexpr int kCellPaddingX = 6;
constexpr int kCellPaddingY = 4;

constexpr char kTimeFormat[] = "yyyy-MM-dd hh:mm:ss.zzz";

QString messageHtml(const QString &text)
{
    if (Qt::mightBeRichText(text))
        return text;
    return text.toHtmlEscaped().replace(QLatin1Char('\n'), QStringLiteral("<br>"));
}

void layOut(QTextDocument &document, const QString &text, const QFont &font, int width)
{
    document.setDefaultFont(font);
    document.setDocumentMargin(0);
    document.setHtml(messageHtml(text));
    document.setTextWidth(qMax(1, width - 2 * kCellPaddingX));
}

// Draws a cell's text as rich text, wrapped at the cell's width.
class RichTextDelegate : public QStyledItemDelegate
{
public:
    using QStyledItemDelegate::QStyledItemDelegate;

    void paint(QPainter *painter, const QStyleOptionViewItem &option,
               const QModelIndex &index) const override
    {
        QStyleOptionViewItem opt = option;
        initStyleOption(&opt, index);
        const QString text = opt.text;
        opt.text.clear();
        const QWidget *widget = opt.widget;
        QStyle *style = widget ? widget->style() : nullptr;
        if (style)
            style->drawControl(QStyle::CE_ItemViewItem, &opt, painter, widget);

        QTextDocument document;
        layOut(document, text, opt.font, opt.rect.width());
        QAbstractTextDocumentLayout::PaintContext context;
        const bool selected = opt.state & QStyle::State_Selected;
        context.palette.setColor(
            QPalette::Text,
            opt.palette.color(selected ? QPalette::HighlightedText : QPalette::Text));
        painter->save();
        painter->translate(opt.rect.topLeft() + QPoint(kCellPaddingX, kCellPaddingY));
        painter->setClipRect(QRect(QPoint(0, 0), opt.rect.size()));
        document.documentLayout()->draw(painter, context);
        painter->restore();
    }

    QSize sizeHint(const QStyleOptionViewItem &option, const QModelIndex &index) const override
    {
        QTextDocument document;
        document.setDefaultFont(option.font);
        document.setDocumentMargin(0);
        document.setHtml(messageHtml(index.data(Qt::DisplayRole).toString()));
        return QSize(int(std::ceil(document.idealWidth())) + 2 * kCellPaddingX,
                     int(std::ceil(document.size().height())) + 2 * kCellPaddingY);
    }
};

} // namespace

MessageWidget::MessageWidget(QWidget *parent) : QWidget(parent), ui(new Ui::MessageWidget)
{
    setObjectName(QStringLiteral("messageWidget"));
    ui->setupUi(this);
    setStyleSheet(getQssString(QStringLiteral(":/res/qss/message_widget.css")));
    setupTable();
    connect(ui->clearBtn, &QPushButton::clicked, this, &MessageWidget::onClearClicked);
    connect(ui->msgTableWidget->horizontalHeader(), &QHeaderView::sectionResized, this,
            &MessageWidget::onSectionResized);
}

MessageWidget::~MessageWidget()
{
    delete ui;
}

void MessageWidget::setupTable()
{
    QTableWidget *table = ui->msgTableWidget;
    table->setColumnCount(ColumnCount);
    table->setHorizontalHeaderLabels({tr("时间"), tr("内容")});
    table->verticalHeader()->setVisible(false);
    table->setSelectionBehavior(QAbstractItemView::SelectRows);
    table->setEditTriggers(QAbstractItemView::NoEditTriggers);
    table->setShowGrid(true);
    table->setWordWrap(false);
    table->setAlternatingRowColors(true);
    // Both columns, so the time lines up with the first line of its message.
    table->setItemDelegate(new RichTextDelegate(table));
    // Every stamp has the same shape, so its column is sized once: sizing it to its contents
    // would measure every row again for each new message.
    QHeaderView *header = table->horizontalHeader();
    header->setSectionResizeMode(TimeColumn, QHeaderView::Fixed);
    header->setStretchLastSection(true);
    fitTimeColumn();
}

void MessageWidget::fitTimeColumn()
{
    QTableWidget *table = ui->msgTableWidget;
    const QFontMetrics metrics(table->font());
    QChar widestDigit = QLatin1Char('0');
    for (char digit = '1'; digit <= '9'; ++digit) {
        if (metrics.horizontalAdvance(QLatin1Char(digit)) > metrics.horizontalAdvance(widestDigit))
            widestDigit = QLatin1Char(digit);
    }
    QString widestStamp = QLatin1String(kTimeFormat);
    for (QChar &c : widestStamp) {
        if (c.isLetter())
            c = widestDigit;
    }
    const int stampWidth = metrics.horizontalAdvance(widestStamp) + 2 * kCellPaddingX;
    const int headerWidth = table->horizontalHeader()->sectionSizeHint(TimeColumn);
    table->setColumnWidth(TimeColumn, qMax(stampWidth, headerWidth) + 1); // + the grid line
}

void MessageWidget::appendMessage(const QString &text)
{
    QTableWidget *table = ui->msgTableWidget;
    const int row = table->rowCount();
    table->insertRow(row);
    auto *time =
        new QTableWidgetItem(QDateTime::currentDateTime().toString(QLatin1String(kTimeFormat)));
    time->setFlags(time->flags() & ~Qt::ItemIsEditable);
    auto *content = new QTableWidgetItem(text);
    content->setFlags(content->flags() & ~Qt::ItemIsEditable);
    table->setItem(row, TimeColumn, time);
    table->setItem(row, ContentColumn, content);
    fitRowHeight(row, ContentColumn);
    table->scrollToBottom();
}

void MessageWidget::clearMessages()
{
    ui->msgTableWidget->setRowCount(0);
}

void MessageWidget::onClearClicked()
{
    clearMessages();
}

void MessageWidget::onSectionResized(int logicalIndex, int oldSize, int newSize)
{
    Q_UNUSED(oldSize)
    Q_UNUSED(newSize)
    if (logicalIndex == ContentColumn)
        updateRichCellHeightsForColumn(ContentColumn);
}

void MessageWidget::updateRichCellHeightsForColumn(int column)
{
    for (int row = 0; row < ui->msgTableWidget->rowCount(); ++row)
        fitRowHeight(row, column);
}

void MessageWidget::fitRowHeight(int row, int column)
{
    QTableWidget *table = ui->msgTableWidget;
    const QTableWidgetItem *item = table->item(row, column);
    if (!item)
        return;
    QTextDocument document;
    layOut(document, item->text(), table->font(), table->columnWidth(column));
    const int textHeight = int(std::ceil(document.size().height())) + 2 * kCellPaddingY;
    table->setRowHeight(row, qMax(table->verticalHeader()->minimumSectionSize(), textHeight));
}

void MessageWidget::changeEvent(QEvent *event)
{
    QWidget::changeEvent(event);
    if (event->type() == QEvent::FontChange || event->type() == QEvent::StyleChange)
        fitTimeColumn();
}

void MessageWidget::resizeEvent(QResizeEvent *event)
{
    QWidget::resizeEvent(event);
    updateRichCellHeightsForColumn(ContentColumn);
}
