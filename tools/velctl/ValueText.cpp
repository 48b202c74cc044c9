// Values as people write them on a command line, and as they are shown to them.
#include "ValueText.h"

#include "Signature.h"
#include "ValueJson.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QRegularExpression>
#include <QStringList>

#include <algorithm>

namespace velctl {

namespace {

bool looksLikeList(const QString& text) {
    return text.startsWith('[') && text.endsWith(']');
}

// At the commas that stand outside of quotes and inner brackets.
QStringList elementsOf(const QString& list) {
    QStringList elements;
    QString element;
    int depth = 0;
    bool isQuoted = false;
    const QString inside = list.mid(1, list.size() - 2);
    for (int at = 0; at < inside.size(); ++at) {
        const QChar character = inside.at(at);
        if (isQuoted && character == '\\' && at + 1 < inside.size()) {
            element += character;
            element += inside.at(++at);
            continue;
        }
        if (character == '"')
            isQuoted = !isQuoted;
        else if (!isQuoted && character == '[')
            ++depth;
        else if (!isQuoted && character == ']')
            --depth;
        if (character == ',' && !isQuoted && depth == 0) {
            elements += element.trimmed();
            element.clear();
        } else {
            element += character;
        }
    }
    if (!elements.isEmpty() || !element.trimmed().isEmpty())
        elements += element.trimmed();
    return elements;
}

bool isQuotedText(const QString& text, QString& content) {
    if (text.size() < 2 || !text.startsWith('"') || !text.endsWith('"'))
        return false;
    const QJsonValue json = QJsonDocument::fromJson(('[' + text + ']').toUtf8()).array().at(0);
    content = json.toString();
    return json.isString() && isSendableText(content);
}

Value elementByForm(const QString& text) {
    QString content;
    return isQuotedText(text, content) ? textValue(content) : byForm(text);
}

Value listByForm(const QString& text) {
    std::vector<Value> elements;
    for (const QString& element : elementsOf(text))
        elements.push_back(elementByForm(element));
    const bool allTexts =
        std::all_of(elements.begin(), elements.end(), [](const Value& element) { return element.type == "s"; });
    Value list{allTexts ? "as" : "av", {}, {}};
    for (Value& element : elements)
        list.children.push_back(allTexts ? std::move(element) : variantOf(std::move(element)));
    return list;
}

Value arrayByType(const QByteArray& type, const QString& text) {
    Value array{type, {}, {}};
    for (const QString& element : elementsOf(text)) {
        QString content;
        array.children.push_back(byType(elementType(type), isQuotedText(element, content) ? content : element));
    }
    return array;
}

// The JSON of a basic value that a text stands for.
QJsonValue basicJson(const QByteArray& type, const QString& text) {
    if (type == "s" || type == "o" || type == "g" || type == "x" || type == "t")
        return text;
    if (type == "b")
        return text == "true" ? QJsonValue(true) : text == "false" ? QJsonValue(false) : QJsonValue(text);
    bool isNumber = false;
    const double number = text.toDouble(&isNumber);
    return isNumber && type != "d" ? QJsonValue(number) : QJsonValue(text);
}

} // namespace

Value byForm(const QString& text) {
    static const QRegularExpression wholeNumber("\\A[+-]?[0-9]+\\z");
    static const QRegularExpression otherNumber(
        "\\A[+-]?([0-9]+\\.[0-9]*|\\.[0-9]+|[0-9]+(?=[eE]))([eE][+-]?[0-9]+)?\\z");
    if (text == "true" || text == "false")
        return boolValue(text == "true");
    if (wholeNumber.match(text).hasMatch()) {
        bool fits = false;
        if (const int number = text.toInt(&fits); fits)
            return intValue(number);
        if (const qlonglong number = text.toLongLong(&fits); fits)
            return {"x", number, {}};
        if (const qulonglong number = text.toULongLong(&fits); fits)
            return {"t", number, {}};
    }
    if (otherNumber.match(text).hasMatch())
        return {"d", text.toDouble(), {}};
    return looksLikeList(text) ? listByForm(text) : textValue(text);
}

Value byType(const QByteArray& type, const QString& text) {
    if (isBasic(type)) {
        try {
            return fromJson(type, basicJson(type, text));
        } catch (const QString&) {
            throw QString("'%1' is no %2").arg(text, typeName(type));
        }
    }
    if (type == "v") {
        const QJsonObject typed = QJsonDocument::fromJson(text.toUtf8()).object();
        return typed.contains("type") ? fromJson(type, typed) : variantOf(byForm(text));
    }
    if (type == "ay")
        return fromJson(type, text);
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(text.toUtf8(), &error);
    QString whyNotJson;
    if (document.isArray()) {
        try {
            return fromJson(type, document.array());
        } catch (const QString& reason) {
            whyNotJson = reason;
        }
    } else {
        whyNotJson = error.error == QJsonParseError::NoError ? "it is no JSON array" : error.errorString();
    }
    const bool canBeAPlainList = isArray(type) && !isDictionary(type) && looksLikeList(text);
    if (canBeAPlainList)
        return arrayByType(type, text);
    throw QString("'%1' is no %2: %3").arg(text, typeName(type), whyNotJson);
}

QString plainText(const Value& value) {
    const QJsonValue json = toJson(value);
    if (json.isString())
        return json.toString();
    return json.isNull() ? QStringLiteral("(a file descriptor)") : jsonText(json);
}

QString shellWord(const QString& text) {
    QString visible;
    for (const QChar character : text) {
        if (character.category() == QChar::Other_Control)
            visible += QString("\\u%1").arg(character.unicode(), 4, 16, QLatin1Char('0'));
        else
            visible += character;
    }
    static const QRegularExpression plain("\\A[A-Za-z0-9_:=.,/@%+-]+\\z");
    if (plain.match(visible).hasMatch())
        return visible;
    return '\'' + visible.replace('\'', "'\\''") + '\'';
}

QString argumentText(const QString& name, const Value& value) {
    return shellWord(name + ":=" + typeName(value.type) + ':' + plainText(value));
}

} // namespace velctl
