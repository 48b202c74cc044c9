// An event of the bus: making one, writing it down, and making it again from what was written.
//
// An event is a signal of the common interface with one structure: its name, its context, the number of its
// arguments, their types by name and their values by name.
#include "wire/Event.h"

#include "wire/Json.h"

#include "bus/BusNames.h"

#include <QDateTime>
#include <QJsonArray>

#include <algorithm>

namespace wire {

using vel::bus::commonInterface;

namespace {

const char eventForm[] = "(ssia{ss}a{sv})";

Message newSignal(const QString& path, const QString& member) {
    return made(dbus_message_new_signal(path.toUtf8().constData(), commonInterface().toUtf8().constData(),
                                        member.toUtf8().constData()));
}

void appendTypes(Appender& to, const std::vector<EventArgument>& arguments) {
    to.container("a{ss}", [&] {
        for (const EventArgument& argument : arguments)
            to.container("{ss}", [&] {
                to.text('s', argument.name);
                to.text('s', qtTypeName(argument.type));
            });
    });
}

void appendArguments(Appender& to, const std::vector<EventArgument>& arguments) {
    to.container("a{sv}", [&] {
        for (const EventArgument& argument : arguments)
            to.container("{sv}", [&] {
                to.text('s', argument.name);
                to.variant(argument.type, [&] { argument.append(to); });
            });
    });
}

std::vector<EventArgument> argumentsIn(const QJsonValue& json) {
    if (!json.isArray() && !json.isUndefined())
        throw Error("\"arguments\" is no list");
    std::vector<EventArgument> arguments;
    for (const QJsonValue& argument : json.toArray()) {
        const QJsonObject object = argument.toObject();
        if (!object.value("name").isString())
            throw Error(QString("the argument %1 has no \"name\"").arg(jsonText(argument)));
        arguments.push_back(
            {object.value("name").toString(), typeIn(object), [object](Appender& to) { appendTypedJson(to, object); }});
    }
    return arguments;
}

void appendStructure(Appender& to, const QJsonObject& json) {
    const std::vector<EventArgument> arguments = argumentsIn(json.value("arguments"));
    const auto valueOf = [&json](const char* key, const QJsonValue& otherwise) {
        return json.contains(QLatin1String(key)) ? json.value(QLatin1String(key)) : otherwise;
    };
    to.container(eventForm, [&] {
        appendJson(to, "s", valueOf("name", json.value("event")));
        appendJson(to, "s", valueOf("context", QString()));
        appendJson(to, "i", valueOf("count", static_cast<int>(arguments.size())));
        if (json.contains("types"))
            appendJson(to, "a{ss}", json.value("types"));
        else
            appendTypes(to, arguments);
        appendArguments(to, arguments);
    });
}

void writeBody(DBusMessage* signal, const Sink& to) {
    to("[");
    DBusMessageIter value;
    if (dbus_message_iter_init(signal, &value)) {
        do {
            writeTypedJson(&value, to);
            if (dbus_message_iter_has_next(&value))
                to(",");
        } while (dbus_message_iter_next(&value));
    }
    to("]");
}

void writeArguments(DBusMessage* event, const Sink& to) {
    to("[");
    bool isFirst = true;
    forEachArgument(event, [&](const char* name, DBusMessageIter& value) {
        to((isFirst ? R"({"name":)" : R"(,{"name":)") + jsonString(QByteArray(name)));
        to(R"(,"type":")" + typeOf(value) + R"(","value":)");
        writeJson(&value, to);
        to("}");
        isFirst = false;
        return true;
    });
    to("]");
}

QString memberOf(DBusMessage* signal) {
    return QString::fromUtf8(dbus_message_get_member(signal));
}

QString publisherOf(DBusMessage* signal) {
    return vel::bus::moduleNameOfPath(QString::fromUtf8(dbus_message_get_path(signal)));
}

} // namespace

bool hasEventForm(DBusMessage* signal) {
    return dbus_message_has_signature(signal, eventForm);
}

DBusMessageIter fieldOf(DBusMessage* event, EventField field) {
    DBusMessageIter structure, member;
    dbus_message_iter_init(event, &structure);
    dbus_message_iter_recurse(&structure, &member);
    for (int skipped = 0; skipped < field; ++skipped)
        dbus_message_iter_next(&member);
    return member;
}

void forEachArgument(DBusMessage* event, const std::function<bool(const char* name, DBusMessageIter& value)>& use) {
    DBusMessageIter arguments = fieldOf(event, Arguments), entry;
    dbus_message_iter_recurse(&arguments, &entry);
    for (; dbus_message_iter_get_arg_type(&entry) == DBUS_TYPE_DICT_ENTRY; dbus_message_iter_next(&entry)) {
        DBusMessageIter key, value;
        dbus_message_iter_recurse(&entry, &key);
        const char* name = nullptr;
        dbus_message_iter_get_basic(&key, &name);
        dbus_message_iter_next(&key);
        dbus_message_iter_recurse(&key, &value);
        if (!use(name, value))
            return;
    }
}

QByteArray typeOf(DBusMessageIter& value) {
    const std::unique_ptr<char, void (*)(void*)> type(dbus_message_iter_get_signature(&value), dbus_free);
    return type.get();
}

EventArgument textArgument(const QString& name, const QString& text) {
    return {name, "s", [text](Appender& to) { to.text('s', text); }};
}

EventArgument intArgument(const QString& name, int number) {
    return {name, "i", [number](Appender& to) { to.number('i', number); }};
}

Message makeEvent(const QString& publisher, const QString& name, const QString& context,
                  std::vector<EventArgument> arguments) {
    // In the order of names, as an event that a module publishes has them.
    std::sort(arguments.begin(), arguments.end(),
              [](const EventArgument& one, const EventArgument& other) { return one.name < other.name; });
    Message event = newSignal(vel::bus::objectPath(publisher), name);
    Appender to(event.get());
    to.container(eventForm, [&] {
        to.text('s', name);
        to.text('s', context);
        to.number('i', static_cast<int>(arguments.size()));
        appendTypes(to, arguments);
        appendArguments(to, arguments);
    });
    return event;
}

Message eventFromJson(const QJsonObject& json, const QString& publisher) {
    constexpr int longestPath = 64 * 1024;
    if (!json.contains("event"))
        throw Error("it has no \"event\"");
    const QString member = json.value("event").toString();
    if (!vel::bus::isValidMemberName(member))
        throw Error(QString("%1 is no event's name").arg(jsonText(json.value("event"))));
    const QString path = json.contains("path") ? json.value("path").toString() : vel::bus::objectPath(publisher);
    if (path.size() > longestPath || !vel::bus::isValidObjectPath(path))
        throw Error(QString("%1 is no path").arg(jsonText(json.value("path"))));
    Message event = newSignal(path, member);
    Appender to(event.get());
    if (json.contains("body")) {
        for (const QJsonValue& value : json.value("body").toArray())
            appendTypedJson(to, value.toObject());
    } else {
        appendStructure(to, json);
    }
    return event;
}

// The keys stand in the order of the alphabet.
void writeEventJson(DBusMessage* signal, const Sink& to) {
    const auto writeField = [&](const char* key, EventField field) {
        DBusMessageIter value = fieldOf(signal, field);
        to(QByteArray(",\"") + key + "\":");
        writeJson(&value, to);
    };
    const bool isEventForm = hasEventForm(signal);
    to(isEventForm ? "{\"arguments\":" : "{\"body\":");
    isEventForm ? writeArguments(signal, to) : writeBody(signal, to);
    if (isEventForm) {
        writeField("context", Context);
        writeField("count", Count);
    }
    to(",\"event\":" + jsonString(memberOf(signal)) + ",\"module\":" + jsonString(publisherOf(signal)));
    if (isEventForm)
        writeField("name", Name);
    to(",\"path\":" + jsonString(QByteArray(dbus_message_get_path(signal))) +
       ",\"time\":" + jsonString(QDateTime::currentDateTime().toString(Qt::ISODateWithMs)));
    if (isEventForm)
        writeField("types", Types);
    to("}");
}

bool findArgument(DBusMessage* signal, const QByteArray& name, DBusMessageIter& value) {
    bool isFound = false;
    if (!hasEventForm(signal))
        return false;
    forEachArgument(signal, [&](const char* found, DBusMessageIter& at) {
        isFound = name == found;
        if (isFound)
            value = at;
        return !isFound;
    });
    return isFound;
}

bool isEvent(DBusMessage* message) {
    return dbus_message_get_type(message) == DBUS_MESSAGE_TYPE_SIGNAL && dbus_message_get_path(message) &&
           dbus_message_has_interface(message, commonInterface().toUtf8().constData());
}

QString eventRule(const QString& name, const QString& module) {
    QString rule = QString("type='signal',interface='%1'").arg(commonInterface());
    if (!name.isEmpty())
        rule += QString(",member='%1'").arg(name);
    if (!module.isEmpty())
        rule += QString(",path='%1'").arg(vel::bus::objectPath(module));
    return rule;
}

} // namespace wire
