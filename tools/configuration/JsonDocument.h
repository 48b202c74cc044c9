// A JSON text with the places of its values: what people need who have to correct it.
#pragma once

#include <QByteArray>
#include <QHash>
#include <QJsonValue>
#include <QString>
#include <QVector>

/// Reads a text in UTF-8, with or without a byte-order mark, in time proportional to its length.
class JsonDocument {
public:
    /// A place and what is wrong there.
    struct Mistake {
        int line;
        QString text;
    };

    explicit JsonDocument(const QByteArray& text);

    /// The value; undefined when the text is no JSON. Of a key that an object has twice, the last one.
    const QJsonValue& root() const { return m_root; }

    /// What makes the text no JSON, or one "PATH: is given twice" for each such key.
    const QVector<Mistake>& mistakes() const { return m_mistakes; }

    /// The line, from 1 on, of the key (in an array: the value) with that path, such as "modules[2].waitsFor[0]"; 1 for
    /// the empty path, and for one that is not there.
    int lineOf(const QString& path) const { return m_lines.value(path, 1); }

    /// The path of a member or an element of what has the path `parent`.
    static QString memberPath(const QString& parent, const QString& key);
    static QString elementPath(const QString& parent, int index);

private:
    friend class JsonHandler;

    QJsonValue m_root{QJsonValue::Undefined};
    QHash<QString, int> m_lines;
    QVector<Mistake> m_mistakes;
};
