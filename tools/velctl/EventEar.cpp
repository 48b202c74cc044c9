// Hears events: subscriptions that the bus filters.
#include "EventEar.h"

#include "Failure.h"
#include "ModuleNames.h"

namespace velctl {

EventEar::EventEar(Bus& bus, const QStringList& names, std::function<void(const Event&)> heard)
    : m_heard(std::move(heard)) {
    const QStringList members = names.isEmpty() ? QStringList(QString()) : names;
    for (const QString& member : members) {
        // The slot takes the message, so that signals of every form arrive; a missing subscription is Qt's refusal.
        if (!bus.connection().connect(QString(), QString(), commonInterface(), member, this, SLOT(take(QDBusMessage))))
            throw Failure{Failed, QString("cannot subscribe '%1': the bus library refuses it").arg(member)};
    }
    bus.flush();
}

void EventEar::take(const QDBusMessage& signal) {
    m_heard(Event::fromMessage(signal));
}

} // namespace velctl
