// A struct's fields, read from and written to the arguments of an event: what stands between C++ types and the bus.
#pragma once

#include "typed/Received.h"

#include <QMetaObject>
#include <QVariant>
#include <QVector>

#include <memory>
#include <vector>

namespace vel::typed {

struct Type;

class Record {
public:
    explicit Record(const QMetaObject& gadget);

    /// What is wrong with the struct itself; empty when nothing is. Such a struct is not written and not read.
    const QString& problem() const { return m_problem; }

    /// Adds each field under its name; an optional one without a value is left out.
    ///
    /// Result:   false when a field's value has no form on the bus.
    [[nodiscard]] bool write(const void* gadget, QVariantMap& arguments, Mismatch& mismatch) const;

    /// Fills the fields. What is not a field is ignored: it may be of a newer publisher.
    ///
    /// Result:   false when a field is missing that is not optional, or a value does not convert without loss.
    [[nodiscard]] bool read(const QVariantMap& arguments, void* gadget, Mismatch& mismatch) const;

    struct Field {
        QString name;
        const QMetaObject* owner; // the struct, or the base that has the field
        int index;                // within its owner
        const Type* type;
    };
    const QVector<Field>& fields() const { return m_fields; }

private:
    QVector<Field> m_fields;
    std::vector<std::shared_ptr<const Type>> m_flags; // types of fields, which belong to no other struct
    QString m_problem;
};

/// The record of a struct; made once, and kept for the life of the process. Thread: any.
const Record& recordOf(const QMetaObject& gadget);

} // namespace vel::typed
