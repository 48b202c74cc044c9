// velctl publish: an event from the command line, or events from the lines of `velctl watch --json`.
#include "Bus.h"
#include "Commands.h"
#include "Event.h"
#include "Failure.h"
#include "ModuleNames.h"
#include "Signature.h"
#include "Subscribers.h"
#include "ValueText.h"

#include <QJsonDocument>

#include <iostream>
#include <string>

namespace velctl {

namespace {

[[noreturn]] void refuse(const QString& argument, const QString& reason) {
    throw Failure{Usage,
                  QString("cannot publish '%1': %2; right is NAME=VALUE or NAME:=TYPE:VALUE").arg(argument, reason)};
}

// NAME=VALUE or NAME:=TYPE:VALUE
QPair<QString, Value> argumentOf(const QString& text) {
    const int equals = text.indexOf('=');
    if (equals < 0)
        refuse(text, "there is no '=' in it");
    const bool isTyped = equals > 0 && text.at(equals - 1) == ':';
    const QString name = text.left(isTyped ? equals - 1 : equals);
    const QString written = text.mid(equals + 1);
    if (name.isEmpty())
        refuse(text, "it has no name");
    if (!isTyped)
        return {name, byForm(written)};
    const int colon = written.indexOf(':');
    if (colon < 0)
        refuse(text, "there is no type before a ':'");
    const QByteArray type = typeByName(written.left(colon));
    if (type.isEmpty())
        refuse(text, QString("there is no type '%1', there are %2").arg(written.left(colon), knownTypeNames()));
    try {
        return {name, byType(type, written.mid(colon + 1))};
    } catch (const QString& reason) {
        refuse(text, reason);
    }
}

int publishOne(const Request& request) {
    const QString name = request.arguments.first();
    requireValidName("publish", "an event", name);
    requireValidName("publish as", "a module", request.publisher);
    QList<QPair<QString, Value>> arguments;
    for (const QString& text : request.arguments.mid(1)) {
        const QPair<QString, Value> argument = argumentOf(text);
        for (const auto& earlier : arguments) {
            if (earlier.first == argument.first)
                refuse(text, QString("'%1' is given twice").arg(argument.first));
        }
        arguments += argument;
    }
    const Event event = Event::make(request.publisher, name, request.context, arguments);
    Bus bus(request.limit);
    const bool isHeard = mayBeHeard(bus, event);
    bus.send(event.toMessage());
    if (!isHeard)
        throw Failure{Unknown, QString("cannot reach anybody with '%1': nobody has subscribed that event; it was "
                                       "published all the same")
                                   .arg(name)};
    return Ok;
}

bool readLine(const TimeLimit& limit, std::string& line) {
    const TimeLimit::Guard guard(
        limit, QString("cannot read standard input to its end: the rest did not come within %1; what came is "
                       "published")
                   .arg(limit.text()));
    return static_cast<bool>(std::getline(std::cin, line));
}

int publishLines(const Request& request) {
    Bus bus(request.limit);
    std::string line;
    for (int number = 1; readLine(request.limit, line); ++number) {
        const QByteArray text = QByteArray::fromStdString(line).trimmed();
        if (text.isEmpty())
            continue;
        try {
            QJsonParseError error;
            const QJsonDocument document = QJsonDocument::fromJson(text, &error);
            if (error.error != QJsonParseError::NoError)
                throw error.errorString();
            if (!document.isObject())
                throw QString("it is no JSON object");
            bus.send(Event::fromJson(document.object(), request.publisher).toMessage());
        } catch (const QString& reason) {
            throw Failure{
                Failed,
                QString("cannot publish line %1: %2; what stands before it is published").arg(number).arg(reason)};
        }
    }
    return Ok;
}

} // namespace

int runPublish(const Request& request) {
    const bool readsInput = request.arguments == QStringList("-");
    if (readsInput && request.json)
        return publishLines(request);
    if (readsInput)
        throw Failure{Usage, "cannot publish '-': standard input is read as JSON; right is: velctl publish --json -"};
    return publishOne(request);
}

} // namespace velctl
