// The event as a program writes it that has Qt D-Bus and not this library: the same structure on the bus, (ssia{ss}a{sv}).
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

    HandWrittenEvent() = default;
    HandWrittenEvent(const QString& itsName, const QVariantMap& values)
        : name(itsName), count(values.size()), arguments(values) {
        for (auto value = values.cbegin(); value != values.cend(); ++value)
            types.insert(value.key(), QString::fromLatin1(value->typeName()));
    }
};
Q_DECLARE_METATYPE(HandWrittenEvent)

inline QDBusArgument& operator<<(QDBusArgument& to, const HandWrittenEvent& event) {
    to.beginStructure();
    to << event.name << event.context << event.count << event.types << event.arguments;
    to.endStructure();
    return to;
}

inline const QDBusArgument& operator>>(const QDBusArgument& from, HandWrittenEvent& event) {
    from.beginStructure();
    from >> event.name >> event.context >> event.count >> event.types >> event.arguments;
    from.endStructure();
    return from;
}

inline void registerHandWrittenEvent() {
    qDBusRegisterMetaType<QMap<QString, QString>>();
    qRegisterMetaType<HandWrittenEvent>("HandWrittenEvent");
    qDBusRegisterMetaType<HandWrittenEvent>();
}
