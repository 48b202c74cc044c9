// RapidJSON reads and tells where it is; this keeps the lines, and makes Qt's values of what it reads. Qt's own reader was
// rejected: it tells no places, and says nothing about a key that is given twice.
#include "configuration/JsonDocument.h"

#include <QJsonArray>
#include <QJsonObject>

#include <algorithm>
#include <rapidjson/error/en.h>
#include <rapidjson/memorystream.h>
#include <rapidjson/reader.h>
#include <vector>

namespace {

constexpr std::size_t deepestNesting = 64;

} // namespace

/// Takes what the parser finds, in the order of the text.
class JsonHandler {
public:
    JsonHandler(JsonDocument& document, const rapidjson::MemoryStream& stream)
        : m_document(document), m_stream(stream) {}

    // What the parser calls; false ends it.
    bool Null() { return add(QJsonValue::Null); }
    bool Bool(bool value) { return add(value); }
    bool Int(int value) { return add(value); }
    bool Uint(unsigned value) { return add(static_cast<double>(value)); }
    bool Int64(qint64 value) { return add(static_cast<double>(value)); }
    bool Uint64(quint64 value) { return add(static_cast<double>(value)); }
    bool Double(double value) { return add(value); }
    bool RawNumber(const char*, unsigned, bool) { return false; } // only for a parser that is told to ask for it
    bool String(const char* text, unsigned length, bool) {
        return add(QString::fromUtf8(text, static_cast<int>(length)));
    }
    bool StartObject() { return begin(); }
    bool EndObject(unsigned) { return end(m_open.back().object); }
    bool StartArray() {
        if (!begin())
            return false;
        m_open.back().isArray = true;
        return true;
    }
    bool EndArray(unsigned) { return end(m_open.back().array); }
    bool Key(const char* text, unsigned length, bool) {
        Container& object = m_open.back();
        object.key = QString::fromUtf8(text, static_cast<int>(length));
        const QString path = JsonDocument::memberPath(object.path, object.key);
        if (object.object.contains(object.key))
            m_document.m_mistakes.append({lineHere(), path + ": is given twice"});
        m_document.m_lines.insert(path, lineHere());
        return true;
    }

    int lineHere() {
        const char* const here = m_stream.src_;
        m_line += static_cast<int>(std::count(m_counted, here, '\n'));
        m_counted = here;
        return m_line;
    }

private:
    struct Container {
        QString path;
        bool isArray = false;
        QString key; // of the member that is being read
        QJsonObject object;
        QJsonArray array;
    };

    // Where the value that comes next stands. An element has no key, so its place is noted here.
    QString beginValue() {
        if (m_open.empty())
            return QString();
        const Container& parent = m_open.back();
        if (!parent.isArray)
            return JsonDocument::memberPath(parent.path, parent.key);
        const QString path = JsonDocument::elementPath(parent.path, parent.array.size());
        m_document.m_lines.insert(path, lineHere());
        return path;
    }

    bool begin() {
        if (m_open.size() == deepestNesting)
            return false;
        Container container;
        container.path = beginValue();
        m_open.push_back(container);
        return true;
    }

    bool end(QJsonValue value) {
        m_open.pop_back();
        store(value);
        return true;
    }

    bool add(const QJsonValue& value) {
        beginValue();
        store(value);
        return true;
    }

    void store(const QJsonValue& value) {
        if (m_open.empty())
            m_document.m_root = value;
        else if (m_open.back().isArray)
            m_open.back().array.append(value);
        else
            m_open.back().object.insert(m_open.back().key, value);
    }

    JsonDocument& m_document;
    const rapidjson::MemoryStream& m_stream;
    const char* m_counted = m_stream.begin_;
    int m_line = 1;
    std::vector<Container> m_open; // from the outermost to the one that is being read
};

JsonDocument::JsonDocument(const QByteArray& text) {
    const auto zero = text.indexOf('\0'); // for the parser it would be the end
    if (zero >= 0) {
        m_mistakes.append({1 + int(text.left(zero).count('\n')), "is no JSON: there is a zero byte in it"});
        return;
    }
    const int start = text.startsWith("\xEF\xBB\xBF") ? 3 : 0; // a byte-order mark
    rapidjson::MemoryStream stream(text.constData() + start, static_cast<std::size_t>(text.size() - start));
    JsonHandler handler(*this, stream);
    rapidjson::Reader reader;
    const rapidjson::ParseResult result =
        reader.Parse<rapidjson::kParseValidateEncodingFlag | rapidjson::kParseFullPrecisionFlag |
                     rapidjson::kParseIterativeFlag>(stream, handler);
    if (!result.IsError())
        return;
    m_root = QJsonValue(QJsonValue::Undefined);
    const char* const place = text.constData() + start + result.Offset();
    const int line = 1 + static_cast<int>(std::count(text.constData(), place, '\n'));
    m_mistakes.append({line, result.Code() == rapidjson::kParseErrorTermination
                                 ? QString("is nested deeper than %1 levels").arg(deepestNesting)
                                 : QString("is no JSON: ") + rapidjson::GetParseError_En(result.Code())});
}

QString JsonDocument::memberPath(const QString& parent, const QString& key) {
    return parent.isEmpty() ? key : parent + '.' + key;
}

QString JsonDocument::elementPath(const QString& parent, int index) {
    return QString("%1[%2]").arg(parent).arg(index);
}
