#include "jsonline.h"

#include <QJsonArray>
#include <QJsonDocument>

JsonLine::JsonLine(const char *event) : m_text("{")
{
    add("event", event);
}

void JsonLine::addKey(const char *key)
{
    if (m_text.size() > 1)
        m_text += ',';
    m_text += quoted(QString::fromUtf8(key));
    m_text += ':';
}

JsonLine &JsonLine::add(const char *key, const QString &value)
{
    addKey(key);
    m_text += quoted(value);
    return *this;
}

JsonLine &JsonLine::add(const char *key, const char *value)
{
    return add(key, QString::fromUtf8(value));
}

JsonLine &JsonLine::add(const char *key, qint64 value)
{
    addKey(key);
    m_text += QByteArray::number(value);
    return *this;
}

JsonLine &JsonLine::add(const char *key, const QStringList &values)
{
    addKey(key);
    m_text += '[';
    for (int i = 0; i < values.size(); ++i) {
        if (i > 0)
            m_text += ',';
        m_text += quoted(values.at(i));
    }
    m_text += ']';
    return *this;
}

QByteArray JsonLine::toLine() const
{
    return m_text + "}\n";
}

QByteArray JsonLine::quoted(const QString &text)
{
    // Let Qt do the escaping of quotes, backslashes and control characters.
    const QByteArray array = QJsonDocument(QJsonArray{text}).toJson(QJsonDocument::Compact);
    return array.mid(1, array.size() - 2);
}
