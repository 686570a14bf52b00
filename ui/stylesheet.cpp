#include "ui/stylesheet.h"

#include <QDebug>
#include <QFile>

QString getQssString(const QString &resourcePath)
{
    QFile file(resourcePath);
    if (!file.open(QIODevice::ReadOnly | QIODevice::Text)) {
        qWarning().noquote() << "[UI] 样式表无法打开:" << resourcePath;
        return QString();
    }
    return QString::fromUtf8(file.readAll());
}
