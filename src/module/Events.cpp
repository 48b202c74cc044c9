// Events: broadcast D-Bus signals of the common interface, published from this module's path and heard from any.
//
// The bus and Qt D-Bus do all the matching. What is added here are the checks that they make too late, or not at all: a
// value without a D-Bus form, or a subscription under an impossible name, is answered with false before anything is built
// from it. A publication's own names are looked at by Qt before it begins with the message.
#include "module/VelModule.h"

#include "bus/BusNames.h"
#include "events/Marshallable.h"
#include "module/ModuleInfo.h"
#include "module/PublicationFault.h"
#include "module/SubscriptionFault.h"

namespace bus = vel::bus;

namespace {

// Empty service and path match every sender.
const QString fromAnyone;

bool isSubscribable(const QString& eventName, const QObject* receiver, const char* slotSignature) {
    return receiver && slotSignature && *slotSignature && (eventName.isEmpty() || bus::isValidMemberName(eventName));
}

bool publish(const QDBusConnection& connection, const QString& path, const vel::EventParts& event) {
    if (vel::isMarshallable(event)) {
        QDBusMessage signal = QDBusMessage::createSignal(path, bus::commonInterface(), event.name);
        signal.setArguments({QVariant::fromValue(vel::OutgoingEvent(event))});
        if (connection.send(signal))
            return true;
    }
    vel::logPublicationFault(connection, path, event);
    return false;
}

} // namespace

bool VelModule::notifyEvent(const VelEvent& evt) const {
    return publish(m_connection, m_dbusObjectName,
                   {evt.getEvtName(), evt.getContext(), evt.getArguments(), &evt.getArgTypes()});
}

bool VelModule::notifyEvent(const QString& evtName, QVariantMap args) const {
    const QString noContext = QStringLiteral("");
    return publish(m_connection, m_dbusObjectName, {evtName, noContext, args, nullptr});
}

bool VelModule::subscribeEvent(const VelEvent& evt, QObject* receiver, const char* slotSignature) const {
    return subscribeEvent(evt.getEvtName(), receiver, slotSignature);
}

bool VelModule::subscribeEvent(const QString& evtName, QObject* receiver, const char* slotSignature) const {
    if (subscribe(evtName, receiver, slotSignature))
        return true;
    vel::logSubscriptionFault({m_connection, evtName, receiver, slotSignature});
    return false;
}

bool VelModule::unsubscribeEvent(const VelEvent& evt, QObject* receiver, const char* slotSignature) const {
    return unsubscribeEvent(m_moduleName, evt.getEvtName(), receiver, slotSignature);
}

bool VelModule::unsubscribeEvent(const QString& moduleName, const QString& evtName, QObject* receiver,
                                 const char* slotSignature) const {
    QDBusConnection connection = m_connection;
    if (isSubscribable(evtName, receiver, slotSignature) && bus::isReachable(moduleName) &&
        connection.disconnect(bus::serviceName(moduleName), bus::objectPath(moduleName), bus::commonInterface(),
                              evtName, receiver, slotSignature))
        return true;
    vel::logUnsubscriptionFault({m_connection, evtName, receiver, slotSignature}, &moduleName);
    return false;
}

bool VelModule::unsubscribeEvent(const QString& evtName, QObject* receiver, const char* slotSignature) const {
    if (unsubscribe(evtName, receiver, slotSignature))
        return true;
    vel::logUnsubscriptionFault({m_connection, evtName, receiver, slotSignature}, nullptr);
    return false;
}

bool VelModule::subscribe(const QString& eventName, QObject* receiver, const char* slotSignature) const {
    QDBusConnection connection = m_connection;
    if (!isSubscribable(eventName, receiver, slotSignature) ||
        !connection.connect(fromAnyone, fromAnyone, bus::commonInterface(), eventName, receiver, slotSignature))
        return false;
#if VEL_MODULE_INFO
    if (m_info)
        m_info->subscribed(eventName, receiver, slotSignature);
#endif
    return true;
}

bool VelModule::unsubscribe(const QString& eventName, QObject* receiver, const char* slotSignature) const {
    QDBusConnection connection = m_connection;
    if (!isSubscribable(eventName, receiver, slotSignature) ||
        !connection.disconnect(fromAnyone, fromAnyone, bus::commonInterface(), eventName, receiver, slotSignature))
        return false;
#if VEL_MODULE_INFO
    if (m_info)
        m_info->unsubscribed(eventName, receiver, slotSignature);
#endif
    return true;
}
