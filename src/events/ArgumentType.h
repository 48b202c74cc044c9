// The type name that travels with an argument.
#pragma once

#include <QString>
#include <QVariant>

namespace vel {

/// The name of a value's type, as it is recorded with an argument.
QString typeNameOf(const QVariant& value);

} // namespace vel
