// Values as they came in a message, and what is said of those that do not fit.
#pragma once

#include <QString>
#include <QVariant>

namespace vel::typed {

struct Type;

/// Why a value could not be taken over.
struct Mismatch {
    QString field;  ///< a path: "stations[2].name"; empty for the value itself
    QString came;   ///< what was there, made safe to be shown: "text 'abc'", "nothing"
    QString wanted; ///< "int", "Light::Mode"

    QString text() const; ///< "field 'x' is ..., wanted ..."
};

/// The value itself: of a variant in a variant, and of arrays and dictionaries that Qt has not read. libdbus has looked at
/// every byte, and at the depth. Invalid for a dictionary whose keys are no texts.
QVariant unwrapped(const QVariant& received);

/// Says in `mismatch` that this came where a value of that type was wanted. Result: false.
bool isNo(const Type& type, const QVariant& received, Mismatch& mismatch);

} // namespace vel::typed
