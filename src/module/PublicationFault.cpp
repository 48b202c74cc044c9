// Why an event was not published.
#include "module/PublicationFault.h"

#include "bus/BusNames.h"
#include "events/Marshallable.h"
#include "log/GuardedLog.h"
#include "log/SafeText.h"

#include <QDBusConnection>
#include <QDBusError>

#include <atomic>

namespace {

QString reasonOf(const QDBusConnection& connection, const QString& path, const vel::EventParts& event) {
    if (!vel::bus::isValidMemberName(event.name))
        return vel::bus::memberNameRule();
    if (!vel::bus::isValidObjectPath(path))
        return QStringLiteral("the module's own name makes no object path");
    if (!vel::isMarshallable(event))
        return vel::findMisfit(event).reason;
    return connection.lastError().message();
}

} // namespace

void vel::logPublicationFault(const QDBusConnection& connection, const QString& path, const EventParts& event) {
    static std::atomic<bool> absenceIsTold{false};
    if (connection.isConnected()) {
        logError([&] {
            return QStringLiteral("cannot publish %1: %2; nothing was sent")
                .arg(quoted(event.name), reasonOf(connection, path, event));
        });
    } else if (!absenceIsTold.exchange(true)) {
        // A module may publish a hundred times a second: without a bus it is in trouble enough.
        logError([&] {
            return QStringLiteral("cannot publish %1: there is no bus; neither it nor any later event is sent")
                .arg(quoted(event.name));
        });
    }
}
