// Reading on demand: an event that only handlers without a parameter hear is not read at all.
#include "typed/Delivery.h"

#include "bus/BusNames.h"
#include "events/VelDBusTypes.h"
#include "log/GuardedLog.h"
#include "platform/QtMetaTypes.h"
#include "typed/Record.h"

#include <algorithm>

namespace vel::typed {

Delivery::Delivery(const QDBusMessage& signal) : m_signal(signal) {}

Delivery::~Delivery() = default;

// The publisher by both its names: the path says which module it claims to be, the bus says who sent it.
QString Delivery::described() const {
    return QStringLiteral("cannot read the event '%1' of '%2' (%3): ")
        .arg(m_signal.member(), m_signal.path().mid(1), m_signal.service());
}

const VelEvent* Delivery::event() const {
    const QMutexLocker lock(&m_mutex);
    return readEvent();
}

const VelEvent* Delivery::readEvent() const {
    if (m_isRead)
        return m_event.get();
    m_isRead = true;
    const QDBusArgument argument = m_signal.arguments().value(0).value<QDBusArgument>();
    static const QLatin1String form(metatypes::signatureOf(qMetaTypeId<VelEvent>()));
    if (m_signal.arguments().isEmpty() || m_signal.arguments().at(0).userType() != qMetaTypeId<QDBusArgument>() ||
        argument.currentSignature() != form) {
        logError([&] {
            return described() +
                   QStringLiteral("it carries '%1', wanted '%2'; handlers with a parameter are not called")
                       .arg(m_signal.signature(), form);
        });
        return nullptr;
    }
    m_event = std::make_unique<VelEvent>();
    argument >> *m_event;
    return m_event.get();
}

const void* Delivery::as(const Form& form) const {
    const QMutexLocker lock(&m_mutex);
    const auto known = std::find_if(m_readings.cbegin(), m_readings.cend(),
                                    [&](const auto& reading) { return reading.first == &form; });
    if (known != m_readings.cend())
        return known->second.get();
    const VelEvent* event = readEvent();
    if (!event)
        return nullptr;
    std::shared_ptr<void> gadget = form.make();
    Mismatch mismatch;
    if (!form.record().read(event->getArguments(), gadget.get(), mismatch)) {
        logError([&] { return described() + mismatch.text() + QStringLiteral("; its handlers are not called"); });
        gadget.reset();
    }
    m_readings.emplace_back(&form, std::move(gadget));
    return m_readings.back().second.get();
}

} // namespace vel::typed
