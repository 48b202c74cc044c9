// Walks over a JSON text that is known to be valid, and notes the line of every key and every element.
#include "JsonLines.h"

#include <QJsonArray>
#include <QJsonDocument>

#include <cstring>

JsonLines::JsonLines(const QByteArray& text) : m_text(text) {
    readValue(QString());
}

int JsonLines::lineAt(const QByteArray& text, int offset) {
    return 1 + text.left(offset).count('\n');
}

QString JsonLines::memberPath(const QString& parent, const QString& key) {
    return parent.isEmpty() ? key : parent + '.' + key;
}

QString JsonLines::elementPath(const QString& parent, int index) {
    return QString("%1[%2]").arg(parent).arg(index);
}

void JsonLines::skipBlanks() {
    while (m_at < m_text.size() && std::strchr(" \t\r\n", m_text.at(m_at)))
        ++m_at;
}

void JsonLines::readValue(const QString& path) {
    skipBlanks();
    switch (m_at < m_text.size() ? m_text.at(m_at) : '\0') {
    case '{':
        return readObject(path);
    case '[':
        return readArray(path);
    case '"':
        readString();
        return;
    default: // a number, true, false or null
        while (m_at < m_text.size() && !std::strchr(" \t\r\n,]}", m_text.at(m_at)))
            ++m_at;
    }
}

void JsonLines::readObject(const QString& path) {
    ++m_at;
    for (skipBlanks(); m_at < m_text.size() && m_text.at(m_at) != '}'; skipBlanks()) {
        const int line = lineAt(m_text, m_at);
        const QString member = memberPath(path, readString());
        if (m_lines.contains(member))
            m_repeated.append({member, line});
        m_lines.insert(member, line);
        skipBlanks();
        ++m_at; // the colon
        readValue(member);
        skipBlanks();
        if (m_at < m_text.size() && m_text.at(m_at) == ',')
            ++m_at;
    }
    ++m_at;
}

void JsonLines::readArray(const QString& path) {
    ++m_at;
    int index = 0;
    for (skipBlanks(); m_at < m_text.size() && m_text.at(m_at) != ']'; skipBlanks()) {
        const QString element = elementPath(path, index++);
        m_lines.insert(element, lineAt(m_text, m_at));
        readValue(element);
        skipBlanks();
        if (m_at < m_text.size() && m_text.at(m_at) == ',')
            ++m_at;
    }
    ++m_at;
}

QString JsonLines::readString() {
    const int start = m_at++;
    while (m_at < m_text.size() && m_text.at(m_at) != '"')
        m_at += m_text.at(m_at) == '\\' ? 2 : 1;
    ++m_at;
    // Escapes are read as QJsonDocument reads them, so that the paths are the same.
    const QByteArray token = m_text.mid(start, m_at - start);
    return QJsonDocument::fromJson('[' + token + ']').array().at(0).toString();
}
