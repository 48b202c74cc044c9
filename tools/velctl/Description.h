// What a program says of its events and calls when it is started with --describe.
#pragma once

#include <QStringList>
#include <QVector>

namespace velctl {

struct DescribedField {
    QString name;
    QString type;
    bool isOptional = false;
    QStringList keys;               ///< of an enumeration, or of one in a container
    QVector<DescribedField> fields; ///< of a struct, or of one in a container

    bool operator==(const DescribedField& other) const;
};
using DescribedFields = QVector<DescribedField>;

struct DescribedEvent {
    QString name;
    DescribedFields fields;
    QString problem; ///< what the program itself says is wrong with the struct
};

struct DescribedCall {
    QString name; ///< "Tuner.tune"
    QStringList arguments;
    QStringList answers;
};

struct Description {
    QString program;
    QVector<DescribedEvent> publishes;
    QVector<DescribedEvent> hears;
    QVector<DescribedCall> calls;
    QStringList namesAtRunTime; ///< which of the three lists are not complete

    bool isEmpty() const {
        return publishes.isEmpty() && hears.isEmpty() && calls.isEmpty() && namesAtRunTime.isEmpty();
    }
};

/// Reads what a program printed. Throws a QString with the reason when that is no description.
Description readDescription(const QByteArray& json);

/// "percent int, mode LampChanged::Mode (Day | Night), station optional Station {name QString}"
QString textOf(const DescribedFields& fields);

/// How the fields of an event differ between who publishes it and who hears it, a text each: what the subscriber would
/// refuse, or could refuse. A field that only the publisher has is no difference.
QStringList differences(const DescribedFields& published, const QString& publisher, const DescribedFields& heard,
                        const QString& subscriber);

} // namespace velctl
