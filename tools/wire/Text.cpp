// Values as people write them on a command line, and as they are shown to them.
#include "wire/Text.h"

#include "wire/Json.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QRegularExpression>
#include <QStringList>

#include <algorithm>
#include <cmath>

namespace wire {

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
        else if (!isQuoted && character == '[' && ++depth > deepestNesting)
            throw Error(QString("it is nested deeper than %1 levels").arg(deepestNesting));
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

// What stands between quotes, written as in JSON.
bool isQuotedText(const QString& text, QString& content) {
    if (text.size() < 2 || !text.startsWith('"') || !text.endsWith('"'))
        return false;
    const QJsonValue json = QJsonDocument::fromJson(('[' + text + ']').toUtf8()).array().at(0);
    content = json.toString();
    return json.isString();
}

QByteArray typeOfList(const QStringList& elements) {
    QString content;
    const bool allTexts = std::all_of(elements.begin(), elements.end(), [&](const QString& element) {
        return isQuotedText(element, content) || (!looksLikeList(element) && typeByForm(element) == "s");
    });
    return allTexts ? "as" : "av";
}

void appendList(Appender& to, const QStringList& elements) {
    const QByteArray type = typeOfList(elements);
    to.container(type, [&] {
        for (const QString& element : elements) {
            QString content;
            const bool isQuoted = isQuotedText(element, content);
            const auto append = [&] { isQuoted ? to.text('s', content) : appendByForm(to, element); };
            if (type == "as")
                append();
            else
                to.variant(isQuoted ? "s" : typeByForm(element), append);
        }
    });
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

[[noreturn]] void refuse(const QByteArray& type, const QString& text, const QString& reason = QString()) {
    constexpr int readLength = 200;
    const QString shown = text.size() <= readLength ? text : text.left(readLength) + "...";
    throw Error(QString("'%1' is no %2").arg(shown, typeName(type)) + (reason.isEmpty() ? reason : ": " + reason));
}

void appendContainer(Appender& to, const QByteArray& type, const QString& text) {
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(text.toUtf8(), &error);
    const bool canBeAPlainList = isArray(type) && !isDictionary(type) && looksLikeList(text);
    QString whyNotJson = error.error == QJsonParseError::NoError ? "it is no JSON array" : error.errorString();
    if (document.isArray()) {
        try {
            // Elsewhere first: a message in which an attempt failed cannot be taken up again.
            const Message attempt = made(dbus_message_new(DBUS_MESSAGE_TYPE_SIGNAL));
            Appender toAttempt(attempt.get());
            appendJson(toAttempt, type, document.array());
            return appendJson(to, type, document.array());
        } catch (const Error& wrong) {
            whyNotJson = wrong.reason;
        }
    }
    if (!canBeAPlainList)
        refuse(type, text, whyNotJson);
    to.container(type, [&] {
        const QByteArray element = typesIn(type).first();
        for (const QString& written : elementsOf(text)) {
            QString content;
            appendByType(to, element, isQuotedText(written, content) ? content : written);
        }
    });
}

} // namespace

QByteArray typeByForm(const QString& text) {
    static const QRegularExpression wholeNumber("\\A[+-]?[0-9]+\\z");
    static const QRegularExpression otherNumber(
        "\\A[+-]?([0-9]+\\.[0-9]*|\\.[0-9]+|[0-9]+(?=[eE]))([eE][+-]?[0-9]+)?\\z");
    if (text == "true" || text == "false")
        return "b";
    bool fits = true;
    if (wholeNumber.match(text).hasMatch()) {
        if (text.toInt(&fits); fits)
            return "i";
        if (text.toLongLong(&fits); fits)
            return "x";
        if (text.toULongLong(&fits); fits)
            return "t";
    } else if (otherNumber.match(text).hasMatch()) {
        if (const double number = text.toDouble(&fits); fits && std::isfinite(number))
            return "d";
        fits = false;
    }
    if (!fits)
        throw Error(QString("no type of a number can hold '%1'").arg(text.left(40)));
    return looksLikeList(text) ? typeOfList(elementsOf(text)) : QByteArray("s");
}

void appendByForm(Appender& to, const QString& text) {
    if (looksLikeList(text))
        return appendList(to, elementsOf(text));
    appendByType(to, typeByForm(text), text);
}

void appendByType(Appender& to, const QByteArray& type, const QString& text) {
    if (isBasic(type)) {
        try {
            return appendJson(to, type, basicJson(type, text));
        } catch (const Error&) {
            refuse(type, text);
        }
    }
    if (type == "v") {
        const QJsonObject typed = QJsonDocument::fromJson(text.toUtf8()).object();
        if (typed.contains("type"))
            return appendJson(to, type, typed);
        return to.variant(typeByForm(text), [&] { appendByForm(to, text); });
    }
    if (type == "ay")
        return appendJson(to, type, text);
    appendContainer(to, type, text);
}

void writeText(DBusMessageIter* value, const Sink& to) {
    const int type = dbus_message_iter_get_arg_type(value);
    if (type == DBUS_TYPE_STRING || type == DBUS_TYPE_OBJECT_PATH || type == DBUS_TYPE_SIGNATURE) {
        const char* text = nullptr;
        dbus_message_iter_get_basic(value, &text);
        return to(text);
    }
    if (type == DBUS_TYPE_UNIX_FD)
        return to("(a file descriptor)");
    const bool isOneWord = dbus_type_is_basic(type) ||
                           (type == DBUS_TYPE_ARRAY && dbus_message_iter_get_element_type(value) == DBUS_TYPE_BYTE);
    if (!isOneWord)
        return writeJson(value, to);
    // Digits, base64 and the like: nothing in them needs JSON's quotes.
    writeJson(value, [&to](QByteArray piece) { to(piece.replace('"', "")); });
}

} // namespace wire
