// An event of the bus: making one, writing it down, and making it again from what was written.
//
// An event is a signal of the common interface with one structure: its name, its context, the number of its
// arguments, their types by name and their values by name.
#include "Event.h"

#include "ModuleNames.h"

#include "wire/Json.h"
#include "wire/Printable.h"
#include "wire/Text.h"

#include <QDateTime>
#include <QJsonArray>
#include <QRegularExpression>

#include <algorithm>

namespace velctl {

namespace {

const char eventForm[] = "(ssia{ss}a{sv})";
constexpr int longestWord = 128 * 1024; // the kernel's limit for one argument of a command

// Places in the structure.
enum Field { Name, Context, Count, Types, Arguments };

bool hasEventForm(DBusMessage* signal) {
    return dbus_message_has_signature(signal, eventForm);
}

DBusMessageIter fieldOf(DBusMessage* event, Field field) {
    DBusMessageIter structure, member;
    dbus_message_iter_init(event, &structure);
    dbus_message_iter_recurse(&structure, &member);
    for (int skipped = 0; skipped < field; ++skipped)
        dbus_message_iter_next(&member);
    return member;
}

// Calls `use` with each argument's name and value until it answers false.
template <typename Use>
void forEachArgument(DBusMessage* event, Use use) {
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

wire::Message newSignal(const QString& path, const QString& member) {
    return wire::made(dbus_message_new_signal(path.toUtf8().constData(), commonInterface().toUtf8().constData(),
                                              member.toUtf8().constData()));
}

void appendTypes(wire::Appender& to, const std::vector<EventArgument>& arguments) {
    to.container("a{ss}", [&] {
        for (const EventArgument& argument : arguments)
            to.container("{ss}", [&] {
                to.text('s', argument.name);
                to.text('s', wire::qtTypeName(argument.type));
            });
    });
}

void appendArguments(wire::Appender& to, const std::vector<EventArgument>& arguments) {
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
        throw wire::Error("\"arguments\" is no list");
    std::vector<EventArgument> arguments;
    for (const QJsonValue& argument : json.toArray()) {
        const QJsonObject object = argument.toObject();
        if (!object.value("name").isString())
            throw wire::Error(QString("the argument %1 has no \"name\"").arg(wire::jsonText(argument)));
        arguments.push_back({object.value("name").toString(), wire::typeIn(object),
                             [object](wire::Appender& to) { wire::appendTypedJson(to, object); }});
    }
    return arguments;
}

void appendStructure(wire::Appender& to, const QJsonObject& json) {
    const std::vector<EventArgument> arguments = argumentsIn(json.value("arguments"));
    const auto valueOf = [&json](const char* key, const QJsonValue& otherwise) {
        return json.contains(QLatin1String(key)) ? json.value(QLatin1String(key)) : otherwise;
    };
    to.container(eventForm, [&] {
        wire::appendJson(to, "s", valueOf("name", json.value("event")));
        wire::appendJson(to, "s", valueOf("context", QString()));
        wire::appendJson(to, "i", valueOf("count", static_cast<int>(arguments.size())));
        if (json.contains("types"))
            wire::appendJson(to, "a{ss}", json.value("types"));
        else
            appendTypes(to, arguments);
        appendArguments(to, arguments);
    });
}

void writeBody(DBusMessage* signal, const wire::Sink& to) {
    to("[");
    DBusMessageIter value;
    if (dbus_message_iter_init(signal, &value)) {
        do {
            wire::writeTypedJson(&value, to);
            if (dbus_message_iter_has_next(&value))
                to(",");
        } while (dbus_message_iter_next(&value));
    }
    to("]");
}

void writeArguments(DBusMessage* event, const wire::Sink& to) {
    to("[");
    bool isFirst = true;
    forEachArgument(event, [&](const char* name, DBusMessageIter& value) {
        to((isFirst ? R"({"name":)" : R"(,{"name":)") + wire::jsonString(QByteArray(name)));
        to(R"(,"type":")" + typeOf(value) + R"(","value":)");
        wire::writeJson(&value, to);
        to("}");
        isFirst = false;
        return true;
    });
    to("]");
}

// Quoted for the shell when it has to be. Made safe first: what becomes visible may have to be quoted.
QString shellWord(const QString& text) {
    QString visible = wire::printable(text);
    static const QRegularExpression plain("\\A[A-Za-z0-9_:=.,/@%+-]+\\z");
    if (plain.match(visible).hasMatch())
        return visible;
    return '\'' + visible.replace('\'', "'\\''") + '\'';
}

QString wordsOf(DBusMessage* signal) {
    QStringList words;
    if (hasEventForm(signal)) {
        DBusMessageIter context = fieldOf(signal, Context);
        if (const QString text = textOf(context); !text.isEmpty())
            words += "--context " + shellWord(text);
        int length = 0;
        forEachArgument(signal, [&](const char* name, DBusMessageIter& value) {
            words += shellWord(QString::fromUtf8(name).left(longestWord) + ":=" + wire::typeName(typeOf(value)) + ':' +
                               textOf(value));
            length += words.last().size();
            if (length > longestWord)
                words += "...";
            return length <= longestWord;
        });
        return words.join(' ');
    }
    DBusMessageIter value;
    if (dbus_message_iter_init(signal, &value)) {
        do
            words += wire::typeName(typeOf(value)) + ':' + textOf(value);
        while (dbus_message_iter_next(&value));
    }
    return "(not in the form of an event: " + words.join(", ").left(longestWord) + ')';
}

QString memberOf(DBusMessage* signal) {
    return QString::fromUtf8(dbus_message_get_member(signal));
}

QString publisherOf(DBusMessage* signal) {
    return moduleOfPath(QString::fromUtf8(dbus_message_get_path(signal)));
}

} // namespace

EventArgument textArgument(const QString& name, const QString& text) {
    return {name, "s", [text](wire::Appender& to) { to.text('s', text); }};
}

EventArgument intArgument(const QString& name, int number) {
    return {name, "i", [number](wire::Appender& to) { to.number('i', number); }};
}

wire::Message makeEvent(const QString& publisher, const QString& name, const QString& context,
                        std::vector<EventArgument> arguments) {
    // In the order of names, as an event that a module publishes has them.
    std::sort(arguments.begin(), arguments.end(),
              [](const EventArgument& one, const EventArgument& other) { return one.name < other.name; });
    wire::Message event = newSignal(pathOf(publisher), name);
    wire::Appender to(event.get());
    to.container(eventForm, [&] {
        to.text('s', name);
        to.text('s', context);
        to.number('i', static_cast<int>(arguments.size()));
        appendTypes(to, arguments);
        appendArguments(to, arguments);
    });
    return event;
}

wire::Message eventFromJson(const QJsonObject& json, const QString& publisher) {
    constexpr int longestPath = 64 * 1024;
    if (!json.contains("event"))
        throw wire::Error("it has no \"event\"");
    const QString member = json.value("event").toString();
    if (!isValidName(member))
        throw wire::Error(QString("%1 is no event's name").arg(wire::jsonText(json.value("event"))));
    const QString path = json.contains("path") ? json.value("path").toString() : pathOf(publisher);
    if (path.size() > longestPath || !vel::bus::isValidObjectPath(path))
        throw wire::Error(QString("%1 is no path").arg(wire::jsonText(json.value("path"))));
    wire::Message event = newSignal(path, member);
    wire::Appender to(event.get());
    if (json.contains("body")) {
        for (const QJsonValue& value : json.value("body").toArray())
            wire::appendTypedJson(to, value.toObject());
    } else {
        appendStructure(to, json);
    }
    return event;
}

// The keys stand in the order of the alphabet.
void writeEventJson(DBusMessage* signal, const wire::Sink& to) {
    const auto writeField = [&](const char* key, Field field) {
        DBusMessageIter value = fieldOf(signal, field);
        to(QByteArray(",\"") + key + "\":");
        wire::writeJson(&value, to);
    };
    const bool isEventForm = hasEventForm(signal);
    to(isEventForm ? "{\"arguments\":" : "{\"body\":");
    isEventForm ? writeArguments(signal, to) : writeBody(signal, to);
    if (isEventForm) {
        writeField("context", Context);
        writeField("count", Count);
    }
    to(",\"event\":" + wire::jsonString(memberOf(signal)) + ",\"module\":" + wire::jsonString(publisherOf(signal)));
    if (isEventForm)
        writeField("name", Name);
    to(",\"path\":" + wire::jsonString(QByteArray(dbus_message_get_path(signal))) +
       ",\"time\":" + wire::jsonString(QDateTime::currentDateTime().toString(Qt::ISODateWithMs)));
    if (isEventForm)
        writeField("types", Types);
    to("}");
}

Row eventLine(DBusMessage* signal) {
    constexpr int moduleWidth = 16;
    constexpr int nameWidth = 20;
    const QString words = wordsOf(signal);
    const QString member = memberOf(signal);
    return {{QDateTime::currentDateTime().toString("HH:mm:ss.zzz"), Colour::Grey},
            {"  "},
            {publisherOf(signal).leftJustified(moduleWidth), Colour::Cyan},
            {" "},
            {words.isEmpty() ? member : member.leftJustified(nameWidth), Colour::Bold},
            {words.isEmpty() ? QString() : ' ' + words}};
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

QString textOf(DBusMessageIter& value) {
    QByteArray text;
    bool isCut = false;
    wire::writeText(&value, [&](const QByteArray& piece) {
        if (text.size() < longestWord)
            text += piece.left(longestWord);
        else
            isCut = true;
    });
    return QString::fromUtf8(text) + (isCut || text.size() >= longestWord ? "..." : "");
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
        rule += QString(",path='%1'").arg(pathOf(module));
    return rule;
}

} // namespace velctl
