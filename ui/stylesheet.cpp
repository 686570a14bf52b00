#include "ui/stylesheet.h"

#include <QDebug>
#include <QFile>

QString getQssString(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly | QIODevice::Text)) {
        qWarning().noquote() << "[UI] 读取样式表失败" << path << file.errorString();
        return QString();
    }
    return QString::fromUtf8(file.readAll());
}

QString getCheckboxQssString()
{
    return getQssString(QStringLiteral(":/res/qss/checkbox.css"));
}
