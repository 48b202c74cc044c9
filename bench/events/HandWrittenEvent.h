// The event's structure as a program writes it that has Qt D-Bus and not this library.
#pragma once

#include <QDBusArgument>
#include <QDBusMetaType>
#include <QMap>
#include <QVariantMap>

struct HandWrittenEvent {
    QString name;
    QString context;
    int count = 0;
    QMap<QString, QString> types;
    QVariantMap arguments;
};
Q_DECLARE_METATYPE(HandWrittenEvent)

inline QDBusArgument& operator<<(QDBusArgument& argument, const HandWrittenEvent& event) {
    argument.beginStructure();
    argument << event.name << event.context << event.count << event.types << event.arguments;
    argument.endStructure();
    return argument;
}

inline const QDBusArgument& operator>>(const QDBusArgument& argument, HandWrittenEvent& event) {
    argument.beginStructure();
    argument >> event.name >> event.context >> event.count >> event.types >> event.arguments;
    argument.endStructure();
    return argument;
}
