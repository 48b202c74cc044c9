// Values as JSON that loses nothing.
#include "wire/Json.h"

#include "wire/Printable.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QLocale>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <new>

namespace wire {

namespace {

const char nanPrefix[] = "nan:";
constexpr int pieceSize = 16 * 1024;

QByteArray doubleToJson(double number) {
    if (std::isnan(number)) {
        quint64 bits = 0;
        std::memcpy(&bits, &number, sizeof bits);
        return '"' + (nanPrefix + QByteArray::number(bits, 16).rightJustified(16, '0')) + '"';
    }
    if (std::isinf(number))
        return number > 0 ? "\"inf\"" : "\"-inf\"";
    if (number == 0)
        return std::signbit(number) ? "\"-0\"" : "0";
    constexpr double beyondInt64 = 9223372036854775808.0; // 2^63
    if (number == std::floor(number) && std::fabs(number) < beyondInt64)
        return QByteArray::number(static_cast<qint64>(number));
    return QByteArray::number(number, 'g', QLocale::FloatingPointShortest);
}

// Walks values, of which libdbus has seen that they are nested no deeper than it allows.
class Writer {
public:
    explicit Writer(const Sink& sink) : m_sink(sink) {}
    ~Writer() = default;

    void value(DBusMessageIter* at) {
        const int type = dbus_message_iter_get_arg_type(at);
        switch (type) {
        case DBUS_TYPE_ARRAY:
            if (dbus_message_iter_get_element_type(at) == DBUS_TYPE_BYTE)
                return bytes(at);
            return members(at);
        case DBUS_TYPE_STRUCT:
        case DBUS_TYPE_DICT_ENTRY:
            return members(at);
        case DBUS_TYPE_VARIANT: {
            DBusMessageIter content;
            dbus_message_iter_recurse(at, &content);
            return typed(&content);
        }
        case DBUS_TYPE_UNIX_FD: // not read: that would make another descriptor, for nobody
            return put("null");
        default:
            return basic(type, at);
        }
    }

    void typed(DBusMessageIter* at) {
        const std::unique_ptr<char, void (*)(void*)> type(dbus_message_iter_get_signature(at), dbus_free);
        if (!type)
            throw std::bad_alloc();
        put("{\"type\":\"");
        put(type.get());
        put("\",\"value\":");
        value(at);
        put("}");
    }

    void text(const char* utf8, int length) {
        put("\"");
        for (int begin = 0; begin < length;) {
            int end = std::min(length, begin + pieceSize);
            while (end < length && (utf8[end] & 0xc0) == 0x80)
                ++end;
            put(escaped(QByteArray::fromRawData(utf8 + begin, end - begin)));
            begin = end;
        }
        put("\"");
    }

    void finish() {
        if (!m_pending.isEmpty())
            m_sink(m_pending);
        m_pending.clear();
    }

private:
    void put(const QByteArray& text) {
        m_pending += text;
        if (m_pending.size() >= pieceSize)
            finish();
    }

    static QByteArray escaped(const QByteArray& utf8) {
        QByteArray result;
        result.reserve(utf8.size());
        for (const char character : utf8) {
            if (character == '"' || character == '\\')
                (result += '\\') += character;
            else if (character == '\b')
                result += "\\b";
            else if (character == '\f')
                result += "\\f";
            else
                result += character;
        }
        return printable(result);
    }

    void basic(int type, DBusMessageIter* at) {
        DBusBasicValue value;
        dbus_message_iter_get_basic(at, &value);
        switch (type) {
        case DBUS_TYPE_BOOLEAN:
            return put(value.bool_val ? "true" : "false");
        case DBUS_TYPE_BYTE:
            return put(QByteArray::number(value.byt));
        case DBUS_TYPE_INT16:
            return put(QByteArray::number(value.i16));
        case DBUS_TYPE_UINT16:
            return put(QByteArray::number(value.u16));
        case DBUS_TYPE_INT32:
            return put(QByteArray::number(value.i32));
        case DBUS_TYPE_UINT32:
            return put(QByteArray::number(value.u32));
        case DBUS_TYPE_INT64:
            return put('"' + QByteArray::number(qint64(value.i64)) + '"');
        case DBUS_TYPE_UINT64:
            return put('"' + QByteArray::number(quint64(value.u64)) + '"');
        case DBUS_TYPE_DOUBLE:
            return put(doubleToJson(value.dbl));
        default:
            return text(value.str, static_cast<int>(std::strlen(value.str)));
        }
    }

    void bytes(DBusMessageIter* at) {
        DBusMessageIter content;
        dbus_message_iter_recurse(at, &content);
        const char* first = nullptr;
        int count = 0;
        dbus_message_iter_get_fixed_array(&content, &first, &count);
        put("\"");
        constexpr int step = pieceSize / 4 * 3; // whole groups of three bytes
        for (int begin = 0; begin < count; begin += step)
            put(QByteArray::fromRawData(first + begin, std::min(step, count - begin)).toBase64());
        put("\"");
    }

    void members(DBusMessageIter* at) {
        DBusMessageIter member;
        dbus_message_iter_recurse(at, &member);
        put("[");
        for (bool isFirst = true; dbus_message_iter_get_arg_type(&member) != DBUS_TYPE_INVALID; isFirst = false) {
            if (!isFirst)
                put(",");
            value(&member);
            dbus_message_iter_next(&member);
        }
        put("]");
    }

    const Sink& m_sink;
    QByteArray m_pending;
};

[[noreturn]] void refuse(const QByteArray& type, const QJsonValue& json) {
    throw Error(QString("%1 is no value of type %2").arg(jsonText(json), typeName(type)));
}

double doubleFromJson(const QJsonValue& json) {
    if (json.isDouble())
        return json.toDouble();
    const QString text = json.toString();
    bool isNumber = false;
    if (text.startsWith(nanPrefix)) {
        const quint64 bits = text.mid(int(sizeof nanPrefix) - 1).toULongLong(&isNumber, 16);
        double number = 0;
        std::memcpy(&number, &bits, sizeof number);
        if (isNumber && std::isnan(number))
            return number;
    } else if (json.isString()) {
        const double number = text.toDouble(&isNumber);
        if (isNumber)
            return number;
    }
    refuse("d", json);
}

template <typename Integer>
void appendInteger(Appender& to, char type, const QJsonValue& json) {
    const double number = json.toDouble(0.5);
    if (number != std::floor(number) || number < double(std::numeric_limits<Integer>::min()) ||
        number > double(std::numeric_limits<Integer>::max()))
        refuse(QByteArray(1, type), json);
    to.number(type, static_cast<Integer>(number));
}

void appendLongInteger(Appender& to, char type, const QJsonValue& json) {
    constexpr double exactUpTo = 9007199254740992; // 2^53
    QString digits = json.toString();
    if (json.isDouble() && std::fabs(json.toDouble()) <= exactUpTo && json.toDouble() == std::floor(json.toDouble()))
        digits = QString::number(json.toDouble(), 'f', 0);
    bool isNumber = false;
    if (type == DBUS_TYPE_INT64) {
        if (const qint64 number = digits.toLongLong(&isNumber); isNumber)
            to.number(type, number);
    } else if (const quint64 number = digits.toULongLong(&isNumber); isNumber) {
        to.number(type, number);
    }
    if (!isNumber)
        refuse(QByteArray(1, type), json);
}

void appendBasic(Appender& to, char type, const QJsonValue& json) {
    switch (type) {
    case 'b':
        if (!json.isBool())
            refuse("b", json);
        return to.truth(json.toBool());
    case 'y':
        return appendInteger<quint8>(to, type, json);
    case 'n':
        return appendInteger<qint16>(to, type, json);
    case 'q':
        return appendInteger<quint16>(to, type, json);
    case 'i':
        return appendInteger<qint32>(to, type, json);
    case 'u':
        return appendInteger<quint32>(to, type, json);
    case 'x':
    case 't':
        return appendLongInteger(to, type, json);
    case 'd':
        return to.number(type, doubleFromJson(json));
    case 'h':
        throw Error("a value of type h cannot be written as JSON");
    default:
        if (!json.isString())
            refuse(QByteArray(1, type), json);
        try {
            to.text(type, json.toString());
        } catch (const Error&) {
            refuse(QByteArray(1, type), json);
        }
    }
}

void appendBytes(Appender& to, const QJsonValue& json) {
    const QByteArray text = json.toString().toLatin1();
    const QByteArray bytes = QByteArray::fromBase64(text);
    if (!json.isString() || bytes.toBase64() != text)
        refuse("ay", json);
    to.bytes(bytes);
}

} // namespace

void writeJson(DBusMessageIter* value, const Sink& to) {
    Writer writer(to);
    writer.value(value);
    writer.finish();
}

void writeTypedJson(DBusMessageIter* value, const Sink& to) {
    Writer writer(to);
    writer.typed(value);
    writer.finish();
}

QJsonValue jsonOf(DBusMessageIter& value) {
    constexpr int longest = 16 << 20;
    QByteArray json = "[";
    writeJson(&value, [&json](const QByteArray& piece) {
        if (json.size() <= longest)
            json += piece;
    });
    return json.size() > longest ? QJsonValue() : QJsonDocument::fromJson(json + ']').array().at(0);
}

QByteArray jsonString(const QByteArray& utf8) {
    QByteArray result;
    const Sink sink = [&result](const QByteArray& piece) { result += piece; };
    Writer writer(sink);
    writer.text(utf8.constData(), utf8.size());
    writer.finish();
    return result;
}

void appendJson(Appender& to, const QByteArray& type, const QJsonValue& json) {
    if (type == "ay")
        return appendBytes(to, json);
    if (isBasic(type))
        return appendBasic(to, type.at(0), json);
    if (type == "v") {
        if (!json.isObject())
            throw Error(QString(R"(%1 is no {"type": ..., "value": ...})").arg(jsonText(json)));
        const QJsonObject object = json.toObject();
        return to.variant(typeIn(object), [&] { appendTypedJson(to, object); });
    }
    const QVector<QByteArray> types = typesIn(type);
    const QJsonArray array = json.toArray();
    if (!json.isArray() || (!isArray(type) && array.size() != types.size()))
        refuse(type, json);
    to.container(type, [&] {
        for (int index = 0; index < array.size(); ++index)
            appendJson(to, types.at(isArray(type) ? 0 : index), array.at(index));
    });
}

void appendTypedJson(Appender& to, const QJsonObject& json) {
    const QByteArray type = typeIn(json);
    if (!json.contains("value"))
        throw Error(jsonText(json) + " has no \"value\"");
    appendJson(to, type, json.value("value"));
}

QByteArray typeIn(const QJsonObject& json) {
    const QByteArray type = json.value("type").toString().toLatin1();
    if (!isCompleteType(type))
        throw Error(QString("%1 is no D-Bus type").arg(jsonText(json.value("type"))));
    return type;
}

QString jsonText(const QJsonValue& json) {
    constexpr int readLength = 200;
    // A document holds an array or an object only: the brackets of an array of one are taken off.
    const QString text = QString::fromUtf8(QJsonDocument(QJsonArray{json}).toJson(QJsonDocument::Compact));
    const QString inside = text.mid(1, text.size() - 2);
    return inside.size() <= readLength ? inside : inside.left(readLength) + "...";
}

} // namespace wire
