// Values as JSON that loses nothing.
#include "ValueJson.h"

#include "Signature.h"

#include <QDBusObjectPath>
#include <QDBusSignature>
#include <QJsonArray>
#include <QJsonDocument>

#include <cmath>
#include <cstring>
#include <limits>

namespace velctl {

namespace {

quint64 bitsOf(double number) {
    quint64 bits = 0;
    std::memcpy(&bits, &number, sizeof bits);
    return bits;
}

double doubleOf(quint64 bits) {
    double number = 0;
    std::memcpy(&number, &bits, sizeof number);
    return number;
}

const char nanPrefix[] = "nan:";

QJsonValue doubleToJson(double number) {
    if (std::isnan(number))
        return nanPrefix + QString("%1").arg(bitsOf(number), 16, 16, QLatin1Char('0'));
    if (std::isinf(number))
        return number > 0 ? "inf" : "-inf";
    if (number == 0 && std::signbit(number))
        return "-0";
    return number;
}

[[noreturn]] void refuse(const QByteArray& type, const QJsonValue& json) {
    throw QString("%1 is no value of type %2").arg(jsonText(json), typeName(type));
}

double doubleFromJson(const QJsonValue& json) {
    if (json.isDouble())
        return json.toDouble();
    const QString text = json.toString();
    bool isNumber = false;
    if (text.startsWith(nanPrefix)) {
        const double number = doubleOf(text.mid(int(sizeof nanPrefix) - 1).toULongLong(&isNumber, 16));
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
QVariant integer(const QByteArray& type, const QJsonValue& json) {
    const double number = json.toDouble(0.5);
    if (number != std::floor(number) || number < double(std::numeric_limits<Integer>::min()) ||
        number > double(std::numeric_limits<Integer>::max()))
        refuse(type, json);
    return QVariant::fromValue(static_cast<Integer>(number));
}

QVariant longInteger(const QByteArray& type, const QJsonValue& json) {
    constexpr double exactUpTo = 9007199254740992; // 2^53
    QString digits = json.toString();
    if (json.isDouble() && std::fabs(json.toDouble()) <= exactUpTo)
        digits = QString::number(json.toDouble(), 'f', 0);
    if (json.isDouble() && json.toDouble() != std::floor(json.toDouble()))
        refuse(type, json);
    bool isNumber = false;
    const QVariant number =
        type == "x" ? QVariant(digits.toLongLong(&isNumber)) : QVariant(digits.toULongLong(&isNumber));
    if (!isNumber)
        refuse(type, json);
    return number;
}

QVariant textLike(const QByteArray& type, const QJsonValue& json) {
    if (!json.isString() || !isSendableText(json.toString()))
        refuse(type, json);
    const QString text = json.toString();
    if (type == "s")
        return text;
    // Qt empties a path or a signature that is not valid.
    const QVariant value =
        type == "o" ? QVariant::fromValue(QDBusObjectPath(text)) : QVariant::fromValue(QDBusSignature(text));
    if (type == "o" ? value.value<QDBusObjectPath>().path() != text : value.value<QDBusSignature>().signature() != text)
        refuse(type, json);
    return value;
}

QVariant basicFromJson(const QByteArray& type, const QJsonValue& json) {
    switch (type.at(0)) {
    case 'b':
        if (!json.isBool())
            refuse(type, json);
        return json.toBool();
    case 'y':
        return integer<uchar>(type, json);
    case 'n':
        return integer<short>(type, json);
    case 'q':
        return integer<ushort>(type, json);
    case 'i':
        return integer<int>(type, json);
    case 'u':
        return integer<uint>(type, json);
    case 'x':
    case 't':
        return longInteger(type, json);
    case 'd':
        return doubleFromJson(json);
    case 's':
    case 'o':
    case 'g':
        return textLike(type, json);
    }
    throw QString("a value of type %1 cannot be written as JSON").arg(typeName(type));
}

QByteArray bytesFromJson(const QJsonValue& json) {
    const QByteArray text = json.toString().toLatin1();
    const QByteArray bytes = QByteArray::fromBase64(text);
    if (!json.isString() || bytes.toBase64() != text)
        refuse("ay", json);
    return bytes;
}

Value membersFromJson(const QByteArray& type, const QList<QByteArray>& members, const QJsonValue& json) {
    const QJsonArray array = json.toArray();
    if (!json.isArray() || array.size() != members.size())
        refuse(type, json);
    Value value{type, {}, {}};
    for (int index = 0; index < members.size(); ++index)
        value.children.push_back(fromJson(members.at(index), array.at(index)));
    return value;
}

} // namespace

bool isSendableText(const QString& text) {
    return text.isValidUtf16() && !text.contains(QChar(0));
}

QString jsonText(const QJsonValue& json) {
    // A document holds an array or an object only: the brackets of an array of one are taken off.
    const QString text = QString::fromUtf8(QJsonDocument(QJsonArray{json}).toJson(QJsonDocument::Compact));
    return text.mid(1, text.size() - 2);
}

QJsonValue toJson(const Value& value) {
    if (value.type == "ay")
        return QString::fromLatin1(value.basic.toByteArray().toBase64());
    if (value.type == "v")
        return toTypedJson(value.children.at(0));
    if (!isBasic(value.type)) {
        QJsonArray array;
        for (const Value& child : value.children)
            array.append(toJson(child));
        return array;
    }
    switch (value.type.at(0)) {
    case 'b':
        return value.basic.toBool();
    case 'd':
        return doubleToJson(value.basic.toDouble());
    case 'y':
    case 'n':
    case 'q':
    case 'i':
    case 'u':
        return value.basic.toLongLong();
    case 'x':
        return QString::number(value.basic.toLongLong());
    case 't':
        return QString::number(value.basic.toULongLong());
    case 'o':
        return value.basic.value<QDBusObjectPath>().path();
    case 'g':
        return value.basic.value<QDBusSignature>().signature();
    case 's':
        return value.basic.toString();
    }
    return QJsonValue::Null; // a file descriptor: nothing that another program could use
}

QJsonObject toTypedJson(const Value& value) {
    return {{"type", QString::fromLatin1(value.type)}, {"value", toJson(value)}};
}

Value fromJson(const QByteArray& type, const QJsonValue& json) {
    if (type == "ay")
        return {type, bytesFromJson(json), {}};
    if (type == "v") {
        if (!json.isObject())
            throw QString("%1 is no {\"type\": ..., \"value\": ...}").arg(jsonText(json));
        return variantOf(fromTypedJson(json.toObject()));
    }
    if (type.startsWith('(') || type.startsWith('{'))
        return membersFromJson(type, memberTypes(type), json);
    if (!isArray(type))
        return {type, basicFromJson(type, json), {}};
    if (!json.isArray())
        refuse(type, json);
    Value value{type, {}, {}};
    for (const QJsonValue& element : json.toArray())
        value.children.push_back(fromJson(elementType(type), element));
    return value;
}

Value fromTypedJson(const QJsonObject& json) {
    const QByteArray type = json.value("type").toString().toLatin1();
    if (!isCompleteType(type))
        throw QString("%1 is no D-Bus type").arg(jsonText(json.value("type")));
    if (!json.contains("value"))
        throw QString("%1 has no \"value\"").arg(jsonText(json));
    return fromJson(type, json.value("value"));
}

} // namespace velctl
