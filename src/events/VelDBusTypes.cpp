// Marshalling of events: VelEvent <-> the D-Bus structure (ssia{ss}a{sv}).
//
//     s      name
//     s      context
//     i      number of arguments
//     a{ss}  argument name -> type name; informative, a reader accepts any
//     a{sv}  argument name -> value
//
// What must always hold: a peer may send anything under any event's name. Qt hands every structure, array or
// dictionary that it did not convert itself to a slot that takes a VelEvent, without comparing signatures, and
// libdbus aborts the process when a reader recurses into what is not there. So the reader looks at the signature
// before it takes the first field, and stops at a dictionary's end whatever the count says. Once the signature is
// right, libdbus has validated every byte below it.
#include "events/VelDBusTypes.h"

#include "events/ArgumentType.h"
#include "events/OutgoingEvent.h"
#include "platform/QtMetaTypes.h"

#include <QDBusVariant>

namespace {

const QLatin1String eventSignature("(ssia{ss}a{sv})");

} // namespace

void vel::writeEvent(QDBusArgument& argument, const EventParts& event) {
    argument.beginStructure();
    argument << event.name << event.context << int(event.arguments.size());

    argument.beginMap(QMetaType::QString, QMetaType::QString);
    const auto writeType = [&argument](const QString& name, const QString& type) {
        argument.beginMapEntry();
        argument << name << type;
        argument.endMapEntry();
    };
    if (event.types) {
        for (auto type = event.types->cbegin(); type != event.types->cend(); ++type)
            writeType(type.key(), type.value());
    } else {
        for (auto value = event.arguments.cbegin(); value != event.arguments.cend(); ++value)
            writeType(value.key(), typeNameOf(value.value()));
    }
    argument.endMap();

    argument.beginMap(QMetaType::QString, qMetaTypeId<QDBusVariant>());
    for (auto value = event.arguments.cbegin(); value != event.arguments.cend(); ++value) {
        argument.beginMapEntry();
        argument << value.key() << QDBusVariant(value.value());
        argument.endMapEntry();
    }
    argument.endMap();

    argument.endStructure();
}

QDBusArgument& operator<<(QDBusArgument& argument, const VelEvent& event) {
    vel::writeEvent(argument, {event.getEvtName(), event.getContext(), event.getArguments(), &event.getArgTypes()});
    return argument;
}

QDBusArgument& vel::operator<<(QDBusArgument& argument, const OutgoingEvent& event) {
    if (const EventParts* parts = event.parts())
        writeEvent(argument, *parts);
    else
        argument << VelEvent();
    return argument;
}

const QDBusArgument& vel::operator>>(const QDBusArgument& argument, OutgoingEvent&) {
    return argument;
}

const QDBusArgument& operator>>(const QDBusArgument& argument, VelEvent& event) {
    if (argument.currentSignature() != eventSignature)
        return argument;

    QString name;
    QString context;
    int count = 0;
    argument.beginStructure();
    argument >> name >> context >> count;
    event.setEvtName(name);
    event.setContext(context);

    argument.beginMap();
    while (!argument.atEnd()) {
        QString typeName;
        argument.beginMapEntry();
        argument >> name >> typeName;
        argument.endMapEntry();
        event.addArgType(name, typeName);
    }
    argument.endMap();

    argument.beginMap();
    for (int read = 0; read < count && !argument.atEnd(); ++read) {
        QDBusVariant value;
        argument.beginMapEntry();
        argument >> name >> value;
        argument.endMapEntry();
        event.addArgument(value.variant(), name, false);
    }
    argument.endMap();

    argument.endStructure();
    return argument;
}

int registerCoreDBusTypes() {
    qRegisterMetaType<VelEvent>("VelEvent");
    qDBusRegisterMetaType<vel::OutgoingEvent>();
    return vel::metatypes::idOf(qDBusRegisterMetaType<VelEvent>());
}
