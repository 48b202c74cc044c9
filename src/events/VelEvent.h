// The record that modules exchange: a named event with a context text and named arguments.
#pragma once

#include "platform/VelExport.h"

#include <QMap>
#include <QMetaType>
#include <QObject>
#include <QString>
#include <QVariant>

/// A named event with a context text and named QVariant arguments.
///
/// An event is a value: each receiving slot gets its own copy. It has no parent and, like every QObject, no
/// assignment; it is copied by construction. Names are compared exactly, case included, and kept in ascending order.
///
/// To travel, an event's name must be a valid D-Bus member name (1 to 255 of A-Z a-z 0-9 _, not beginning with a
/// digit) and every argument must have a D-Bus form: the basic types, QString, QStringList, QByteArray, QVariantList,
/// QVariantMap, and what was registered with qDBusRegisterMetaType(); nested at most 63 levels deep (a map is three,
/// a list two), at most 64 MiB of arguments. Basic types and string lists come back as they were; lists, maps and structures
/// come back as a QDBusArgument that the receiver reads with qdbus_cast().
///
/// Thread:   one at a time; copies may go to other threads.
class VEL_EXPORT VelEvent : public QObject {
    Q_OBJECT
public:
    /// An event without name, context and arguments.
    VelEvent();

    /// An event with that name, those arguments (with their type names recorded) and that context.
    VelEvent(const QString& evtName, QVariantMap args, QString context);

    /// A copy of name, arguments, type names and context.
    VelEvent(const VelEvent& other);

    ~VelEvent() override;

    /// The event's name: the member of the D-Bus signal that carries it.
    const QString& getEvtName() const { return m_evtName; }
    void setEvtName(const QString& name) { m_evtName = name; } ///< Replaces the name.

    /// Free text that travels with the event; this library never interprets it.
    const QString& getContext() const { return m_context; }
    void setContext(const QString& context) { m_context = context; } ///< Replaces the context.

    /// All arguments, name -> value.
    const QVariantMap& getArguments() const { return m_arguments; }

    /// Type names by argument name, for people and tools; nothing converts or checks a value by them.
    const QMap<QString, QString>& getArgTypes() const { return m_argTypes; }

    /// The number of arguments.
    int argumentCount() const { return m_arguments.size(); }

    /// Stores `value` under `name`, replacing what was there; records its type name when `recordType` is true.
    void addArgument(const QVariant& value, const QString& name, bool recordType);

    /// The same, the type name recorded.
    void addArgument(const QVariant& value, const QString& name);

    /// The same under the name that generateIndexedArgumentName() makes: a list under one base name.
    void addArgument(const QVariant& value, int index, const QString& name);

    /// The value stored under `name`, or an invalid QVariant.
    QVariant getArgument(const QString& name) const;

    /// The same under the name that generateIndexedArgumentName() makes.
    QVariant getArgument(int index, const QString& name) const;

    /// The same, but an absent name is first added with an invalid value, so the event cannot be published as it is
    /// then. Ask a const event (or use qAsConst()) to leave it unchanged.
    QVariant getArgument(const QString& name);

    /// The same, with the same consequence, under the name that generateIndexedArgumentName() makes.
    QVariant getArgument(int index, const QString& name);

    /// Replaces all arguments by `args` and records their type names; earlier type names stay.
    void setArguments(const QVariantMap& args);

    /// `name`, an underscore and `index` in decimal: "line" and 2 give "line_2".
    static QString generateIndexedArgumentName(const QString& name, int index);

    /// Records a type name for an argument.
    void addArgType(const QString& name, const QString& type);

    /// Records the type names of all arguments.
    void addArgTypes();

    /// True when every argument of this event is in `other` with an equal value (by QVariant's comparison). Names,
    /// contexts, type names and arguments that only `other` has are not compared.
    bool operator==(const VelEvent& other) const;

protected:
    QString m_evtName;                 ///< what getEvtName() answers
    QString m_context;                 ///< what getContext() answers
    QVariantMap m_arguments;           ///< what getArguments() answers
    QMap<QString, QString> m_argTypes; ///< what getArgTypes() answers
};

Q_DECLARE_METATYPE(VelEvent)
