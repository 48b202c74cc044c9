// Why an event was not published.
#pragma once

#include "events/OutgoingEvent.h"

class QDBusConnection;

namespace vel {

/// Looks for the reason and writes one error line; that there is no bus is said once in a process. To be asked only when
/// publishing has failed: looking costs more than publishing.
void logPublicationFault(const QDBusConnection& connection, const QString& path, const EventParts& event);

} // namespace vel
