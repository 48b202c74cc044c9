// Events: broadcast D-Bus signals of the common interface, published from this module's path and heard from any.
//
// The bus and Qt D-Bus do all the matching. What is added here are the checks that they make too late: an impossible
// member name or path, or a value without a D-Bus form, is answered with false before anything is built from it.
#include "module/VelModule.h"

#include "bus/BusNames.h"
#include "events/Marshallable.h"

namespace bus = vel::bus;

namespace {

// Empty service and path match every sender.
const QString fromAnyone;

bool isSubscribable(const QString& eventName, const QObject* receiver, const char* slotSignature) {
    return receiver && slotSignature && *slotSignature && (eventName.isEmpty() || bus::isValidMemberName(eventName));
}

} // namespace

bool VelModule::notifyEvent(const VelEvent& evt) const {
    const QString path = bus::objectPath(m_moduleName);
    const QVariant payload = QVariant::fromValue(evt);
    if (!bus::isValidMemberName(evt.getEvtName()) || !bus::isValidObjectPath(path) || !vel::isMarshallable(payload))
        return false;
    QDBusMessage signal = QDBusMessage::createSignal(path, bus::commonInterface(), evt.getEvtName());
    signal.setArguments({payload});
    return m_connection.send(signal);
}

bool VelModule::notifyEvent(const QString& evtName, QVariantMap args) const {
    VelEvent event(evtName, QVariantMap(), QStringLiteral(""));
    event.setArguments(args);
    return notifyEvent(event);
}

bool VelModule::subscribeEvent(const VelEvent& evt, QObject* receiver, const char* slotSignature) const {
    return subscribeEvent(evt.getEvtName(), receiver, slotSignature);
}

bool VelModule::subscribeEvent(const QString& evtName, QObject* receiver, const char* slotSignature) const {
    if (!isSubscribable(evtName, receiver, slotSignature))
        return false;
    QDBusConnection connection = m_connection;
    return connection.connect(fromAnyone, fromAnyone, bus::commonInterface(), evtName, receiver, slotSignature);
}

bool VelModule::unsubscribeEvent(const VelEvent& evt, QObject* receiver, const char* slotSignature) const {
    return unsubscribeEvent(m_moduleName, evt.getEvtName(), receiver, slotSignature);
}

bool VelModule::unsubscribeEvent(const QString& moduleName, const QString& evtName, QObject* receiver,
                                 const char* slotSignature) const {
    if (!isSubscribable(evtName, receiver, slotSignature) || !bus::isReachable(moduleName))
        return false;
    QDBusConnection connection = m_connection;
    return connection.disconnect(bus::serviceName(moduleName), bus::objectPath(moduleName), bus::commonInterface(),
                                 evtName, receiver, slotSignature);
}

bool VelModule::unsubscribeEvent(const QString& evtName, QObject* receiver, const char* slotSignature) const {
    if (!isSubscribable(evtName, receiver, slotSignature))
        return false;
    QDBusConnection connection = m_connection;
    return connection.disconnect(fromAnyone, fromAnyone, bus::commonInterface(), evtName, receiver, slotSignature);
}
