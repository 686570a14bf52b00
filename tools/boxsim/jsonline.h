#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>

// One compact JSON object on one line, keys in the order they are added ("event" first), so
// the simulator's output reads the same way every time and can be matched by prefix.
class JsonLine
{
public:
    explicit JsonLine(const char *event);

    JsonLine &add(const char *key, const QString &value);
    JsonLine &add(const char *key, const char *value);
    JsonLine &add(const char *key, qint64 value);
    JsonLine &add(const char *key, int value) { return add(key, qint64(value)); }
    JsonLine &add(const char *key, const QStringList &values);

    // The object followed by a line feed, UTF-8.
    QByteArray toLine() const;

    static QByteArray quoted(const QString &text);

private:
    void addKey(const char *key);

    QByteArray m_text;
};
