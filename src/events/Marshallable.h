// Whether values can go into a D-Bus message at all, and which one cannot.
#pragma once

#include "events/OutgoingEvent.h"

#include <QVariant>

namespace vel {

/// True when a call with these arguments can be sent: each value, and every value nested in it that can be looked into,
/// has a D-Bus form that the bus accepts: a known type, nested at most 63 levels deep, no array above 64 MiB, and all
/// of it in a message of at most 128 MiB.
///
/// Asked before a message is built: Qt notices a value without a D-Bus form only when it is half-way through the
/// message, and inside a container libdbus then aborts the process instead of reporting an error. A message that is too
/// large costs the connection.
bool isMarshallable(const QVariantList& arguments);

/// The same of an event.
bool isMarshallable(const EventParts& event);

/// Why arguments cannot be sent.
struct Misfit {
    QString reason; ///< in words, with the path to the value: "'list[3].x' is of type 'float', which has ..."
    QVariant value; ///< the value that has no D-Bus form
    bool hasNoForm; ///< false: it is too large or too deep
};

/// To be asked when isMarshallable() was false; costs about as much again for each level.
Misfit findMisfit(const QVariantList& arguments);
Misfit findMisfit(const EventParts& event);

} // namespace vel
