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

bool publish(const QDBusConnection& connection, const QString& path, const QString& eventName, const QVariant& event) {
    if (!bus::isValidMemberName(eventName) || !bus::isValidObjectPath(path) || !vel::isMarshallable(event))
        return false;
    QDBusMessage signal = QDBusMessage::createSignal(path, bus::commonInterface(), eventName);
    signal.setArguments({event});
    return connection.send(signal);
}

} // namespace

bool VelModule::notifyEvent(const VelEvent& evt) const {
    return publish(m_connection, m_dbusObjectName, evt.getEvtName(), QVariant::fromValue(evt));
}

bool VelModule::notifyEvent(const QString& evtName, QVariantMap args) const {
    QVariant payload(qMetaTypeId<VelEvent>(), nullptr); // filled where it lies: an event is a QObject, and dear to copy
    VelEvent& event = *static_cast<VelEvent*>(payload.data());
    event.setEvtName(evtName);
    event.setArguments(args);
    return publish(m_connection, m_dbusObjectName, evtName, payload);
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
