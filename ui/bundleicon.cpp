#include "ui/bundleicon.h"

#include <QPainter>
#include <QPixmap>

QIcon bundleIcon(const QString &path)
{
    const QPixmap normal(path);
    if (normal.isNull())
        return QIcon(path);
    QPixmap faded(normal.size());
    faded.fill(Qt::transparent);
    {
        QPainter painter(&faded);
        painter.setOpacity(0.3);
        painter.drawPixmap(0, 0, normal);
    }
    QIcon icon;
    icon.addPixmap(normal, QIcon::Normal);
    icon.addPixmap(faded, QIcon::Disabled);
    return icon;
}
