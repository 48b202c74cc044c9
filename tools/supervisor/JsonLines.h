// Where the values of a JSON text stand: what QJsonDocument does not tell.
#pragma once

#include <QByteArray>
#include <QMap>
#include <QString>
#include <QVector>

class JsonLines {
public:
    struct Repeated {
        QString path;
        int line;
    };

    /// `text` is one that QJsonDocument accepts.
    explicit JsonLines(const QByteArray& text);

    /// The line, from 1 on, of the key (in an array: the value) with that path, such as "modules[2].after[0]"; 1 for the
    /// empty path, and for one that is not there.
    int lineOf(const QString& path) const { return m_lines.value(path, 1); }

    /// Keys that an object has a second time. QJsonDocument keeps the last one and says nothing.
    const QVector<Repeated>& repeated() const { return m_repeated; }

    /// The line of a byte's offset.
    static int lineAt(const QByteArray& text, int offset);

    /// The path of a member or an element of what has the path `parent`.
    static QString memberPath(const QString& parent, const QString& key);
    static QString elementPath(const QString& parent, int index);

private:
    void skipBlanks();
    void readValue(const QString& path);
    void readObject(const QString& path);
    void readArray(const QString& path);
    QString readString();

    QByteArray m_text;
    int m_at = 0;
    QMap<QString, int> m_lines;
    QVector<Repeated> m_repeated;
};
