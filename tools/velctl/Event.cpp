// An event as it was on the bus, complete enough to be put there again.
#include "Event.h"

#include "Failure.h"
#include "ModuleNames.h"
#include "Signature.h"
#include "Table.h"
#include "ValueJson.h"
#include "ValueText.h"

#include <QDBusObjectPath>
#include <QDateTime>
#include <QJsonArray>

#include <algorithm>

namespace velctl {

namespace {

const char eventForm[] = "(ssia{ss}a{sv})";

// Places in the structure.
enum Field { Name, Context, Count, Types, Arguments };

Value entry(const QByteArray& type, const QString& key, Value value) {
    Value result{type, {}, {}};
    result.children.push_back(textValue(key));
    result.children.push_back(std::move(value));
    return result;
}

using NamedValues = QList<QPair<QString, Value>>;

Value typesOf(const NamedValues& arguments) {
    Value types{"a{ss}", {}, {}};
    for (const auto& [name, value] : arguments)
        types.children.push_back(entry("{ss}", name, textValue(qtTypeName(value.type))));
    return types;
}

Value structureOf(const QString& name, const QString& context, int count, Value types, const NamedValues& arguments) {
    Value values{"a{sv}", {}, {}};
    for (const auto& [argument, value] : arguments)
        values.children.push_back(entry("{sv}", argument, variantOf(value)));
    Value event{eventForm, {}, {}};
    event.children = {textValue(name), textValue(context), intValue(count), std::move(types), std::move(values)};
    return event;
}

QJsonArray argumentsToJson(const Value& arguments) {
    QJsonArray array;
    for (const Value& argument : arguments.children) {
        QJsonObject object = toTypedJson(argument.children.at(1).children.at(0));
        object.insert("name", argument.children.at(0).basic.toString());
        array.append(object);
    }
    return array;
}

NamedValues argumentsFromJson(const QJsonValue& json) {
    if (!json.isArray() && !json.isUndefined())
        throw QString("\"arguments\" is no list");
    NamedValues arguments;
    for (const QJsonValue& argument : json.toArray()) {
        if (!argument.toObject().value("name").isString())
            throw QString("the argument %1 has no \"name\"").arg(jsonText(argument));
        const QString name = velctl::fromJson("s", argument.toObject().value("name")).basic.toString();
        arguments.append({name, fromTypedJson(argument.toObject())});
    }
    return arguments;
}

QString textIn(const QJsonObject& json, const QString& key, const QString& otherwise) {
    return velctl::fromJson("s", json.contains(key) ? json.value(key) : QJsonValue(otherwise)).basic.toString();
}

Value structureFromJson(const QJsonObject& json, const QString& member) {
    const NamedValues arguments = argumentsFromJson(json.value("arguments"));
    const int count =
        json.contains("count") ? velctl::fromJson("i", json.value("count")).basic.toInt() : arguments.size();
    Value types = json.contains("types") ? velctl::fromJson("a{ss}", json.value("types")) : typesOf(arguments);
    return structureOf(textIn(json, "name", member), textIn(json, "context", QString()), count, std::move(types),
                       arguments);
}

} // namespace

Event Event::make(const QString& publisher, const QString& name, const QString& context, const NamedValues& arguments) {
    // In the order of names, as an event that a module publishes has them.
    NamedValues sorted = arguments;
    std::sort(sorted.begin(), sorted.end(), [](const auto& one, const auto& other) { return one.first < other.first; });
    return {pathOf(publisher), name, {structureOf(name, context, sorted.size(), typesOf(sorted), sorted)}};
}

Event Event::fromMessage(const QDBusMessage& signal) {
    Event event{signal.path(), signal.member(), {}};
    for (const QVariant& argument : signal.arguments())
        event.body.push_back(valueOf(argument));
    return event;
}

QDBusMessage Event::toMessage() const {
    QDBusMessage signal = QDBusMessage::createSignal(path, commonInterface(), member);
    for (const Value& value : body) {
        try {
            signal << toSend(value);
        } catch (const QString& reason) {
            throw Failure{Failed, QString("cannot publish '%1': %2; it was not sent").arg(member, reason)};
        }
    }
    return signal;
}

bool Event::hasEventForm() const {
    return body.size() == 1 && body.front().type == eventForm;
}

QJsonObject Event::toJson() const {
    QJsonObject json{{"time", QDateTime::currentDateTime().toString(Qt::ISODateWithMs)},
                     {"module", moduleOfPath(path)},
                     {"path", path},
                     {"event", member}};
    if (hasEventForm()) {
        const std::vector<Value>& fields = body.front().children;
        json.insert("name", velctl::toJson(fields.at(Name)));
        json.insert("context", velctl::toJson(fields.at(Context)));
        json.insert("count", velctl::toJson(fields.at(Count)));
        json.insert("types", velctl::toJson(fields.at(Types)));
        json.insert("arguments", argumentsToJson(fields.at(Arguments)));
    } else {
        QJsonArray values;
        for (const Value& value : body)
            values.append(toTypedJson(value));
        json.insert("body", values);
    }
    return json;
}

Event Event::fromJson(const QJsonObject& json, const QString& publisher) {
    if (!json.contains("event"))
        throw QString("it has no \"event\"");
    Event event{textIn(json, "path", pathOf(publisher)), textIn(json, "event", QString()), {}};
    if (!isValidName(event.member))
        throw QString("%1 is no event's name").arg(jsonText(json.value("event")));
    if (QDBusObjectPath(event.path).path().isEmpty())
        throw QString("%1 is no path").arg(jsonText(json.value("path")));
    if (json.contains("body")) {
        for (const QJsonValue& value : json.value("body").toArray())
            event.body.push_back(fromTypedJson(value.toObject()));
    } else {
        event.body.push_back(structureFromJson(json, event.member));
    }
    return event;
}

QString Event::line() const {
    constexpr int moduleWidth = 16;
    constexpr int nameWidth = 20;
    QStringList words;
    if (hasEventForm()) {
        const std::vector<Value>& fields = body.front().children;
        if (const QString context = fields.at(Context).basic.toString(); !context.isEmpty())
            words += "--context " + shellWord(context);
        for (const Value& argument : fields.at(Arguments).children)
            words += argumentText(argument.children.at(0).basic.toString(), argument.children.at(1).children.at(0));
    } else {
        QStringList types;
        for (const Value& value : body)
            types += typeName(value.type) + ':' + plainText(value);
        words += "(not in the form of an event: " + types.join(", ") + ')';
    }
    return paint(Colour::Grey, QDateTime::currentDateTime().toString("HH:mm:ss.zzz")) + "  " +
           paint(Colour::Cyan, moduleOfPath(path).leftJustified(moduleWidth)) + ' ' +
           paint(Colour::Bold, words.isEmpty() ? member : member.leftJustified(nameWidth)) +
           (words.isEmpty() ? QString() : ' ' + words.join(' '));
}

} // namespace velctl
