// An event as somebody would write it with Qt alone: the same structure on the bus, (ssia{ss}a{sv}).
#pragma once

#include <QDBusArgument>
#include <QDBusMetaType>
#include <QMap>
#include <QVariantMap>

struct PlainEvent {
    QString name;
    QString context;
    int count = 0;
    QMap<QString, QString> types;
    QVariantMap arguments;

    PlainEvent() = default;
    PlainEvent(const QString& itsName, const QVariantMap& values)
        : name(itsName), count(values.size()), arguments(values) {
        for (auto value = values.cbegin(); value != values.cend(); ++value)
            types.insert(value.key(), QString::fromLatin1(value->typeName()));
    }
};
Q_DECLARE_METATYPE(PlainEvent)

inline QDBusArgument& operator<<(QDBusArgument& to, const PlainEvent& event) {
    to.beginStructure();
    to << event.name << event.context << event.count << event.types << event.arguments;
    to.endStructure();
    return to;
}

inline const QDBusArgument& operator>>(const QDBusArgument& from, PlainEvent& event) {
    from.beginStructure();
    from >> event.name >> event.context >> event.count >> event.types >> event.arguments;
    from.endStructure();
    return from;
}

inline void registerPlainEvent() {
    qDBusRegisterMetaType<QMap<QString, QString>>();
    qRegisterMetaType<PlainEvent>("PlainEvent");
    qDBusRegisterMetaType<PlainEvent>();
}
