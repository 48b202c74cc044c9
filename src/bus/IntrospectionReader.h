// What a module's introspection data say of the types that its methods return.
#pragma once

#include <QList>
#include <QString>

namespace vel::bus {

struct ReturnType {
    QString method;
    QString signature;  ///< of the last out argument; empty without one
    QString descriptor; ///< "type:container:key", as getReturnType() gives it
};

/// The methods of the common interface, in the order of the text, overloads each for itself; none when the text is not
/// well-formed, or nested far deeper than a description is.
QList<ReturnType> returnTypesIn(const QString& introspection);

} // namespace vel::bus
