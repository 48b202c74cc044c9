// Why a subscription was not made, or not removed.
//
// Qt answers false and nothing else. What it has looked at is looked at here again, in the same order: the values
// themselves, the slot in the receiver's meta-object, the D-Bus form of its parameters.
#include "module/SubscriptionFault.h"

#include "bus/BusNames.h"
#include "errors/ThrownText.h"
#include "log/GuardedLog.h"
#include "log/SafeText.h"
#include "platform/QtMetaTypes.h"

#include <QDBusConnection>
#include <QMetaMethod>
#include <QObject>
#include <QStringList>

#include <typeinfo>

namespace {

QByteArray signatureOf(const char* slotSignature) {
    return QMetaObject::normalizedSignature(slotSignature + 1); // after the code that SLOT() puts before it
}

QByteArray nameIn(const QByteArray& signature) {
    return signature.left(signature.indexOf('('));
}

QString classOf(const QObject& receiver) {
    return vel::nameOfType(typeid(receiver));
}

QString reasonForMissingSlot(const QObject& receiver, const QByteArray& signature) {
    const QString className = classOf(receiver);
    const QMetaObject& known = *receiver.metaObject();
    if (className != QLatin1String(known.className()))
        return QStringLiteral("class '%1' has no Q_OBJECT, so that of its slots only those of '%2' are known")
            .arg(className, QLatin1String(known.className()));
    QStringList ofThatName;
    for (int index = 0; index < known.methodCount(); ++index) {
        const QMetaMethod method = known.method(index);
        if (method.name() == nameIn(signature))
            ofThatName << QString::fromLatin1(method.methodSignature());
    }
    if (!ofThatName.isEmpty())
        return QStringLiteral("class '%1' has no slot with these parameters, but %2")
            .arg(className, ofThatName.join(QLatin1String(", ")));
    return QStringLiteral("class '%1' has no slot of that name: it is misspelt, or not declared under Q_SLOTS")
        .arg(className);
}

QString reasonInParameters(const QMetaMethod& slot) {
    for (const QByteArray& type : slot.parameterTypes()) {
        if (type.endsWith('&'))
            return QStringLiteral("parameter type '%1' is no value").arg(QLatin1String(type));
        const int number = vel::metatypes::idOf(type);
        if (number == QMetaType::UnknownType || !vel::metatypes::signatureOf(number))
            return QStringLiteral("parameter type '%1' has no D-Bus form; a slot takes a VelEvent or nothing")
                .arg(QLatin1String(type));
    }
    return QStringLiteral("Qt D-Bus refuses it");
}

bool isSlotNull(const vel::FailedSubscription& subscription) {
    return !subscription.slotSignature || !*subscription.slotSignature;
}

QString reasonOf(const vel::FailedSubscription& subscription) {
    if (!subscription.receiver)
        return QStringLiteral("the receiver is null");
    if (isSlotNull(subscription))
        return QStringLiteral("the slot is null");
    if (!subscription.event.isEmpty() && !vel::bus::isValidMemberName(subscription.event))
        return vel::bus::memberNameRule();
    const QByteArray signature = signatureOf(subscription.slotSignature);
    const QMetaObject& known = *subscription.receiver->metaObject();
    const int index = known.indexOfMethod(signature);
    if (index < 0)
        return reasonForMissingSlot(*subscription.receiver, signature);
    if (!subscription.connection.isConnected())
        return QStringLiteral("there is no bus");
    return reasonInParameters(known.method(index));
}

QString nameOf(const vel::FailedSubscription& subscription) {
    const QString receiver = subscription.receiver ? classOf(*subscription.receiver) : QStringLiteral("null");
    return receiver + QLatin1String("::") +
           (isSlotNull(subscription) ? QStringLiteral("null")
                                     : QString::fromLatin1(signatureOf(subscription.slotSignature)));
}

} // namespace

void vel::logSubscriptionFault(const FailedSubscription& subscription) {
    logError([&] {
        return QStringLiteral("cannot subscribe %1 to %2: %3; it will not be called")
            .arg(quoted(nameOf(subscription)), quoted(subscription.event), safeText(reasonOf(subscription)));
    });
}

void vel::logUnsubscriptionFault(const FailedSubscription& subscription, const QString* from) {
    logError([&] {
        const bool isPossible =
            subscription.receiver && !isSlotNull(subscription) &&
            (subscription.event.isEmpty() || bus::isValidMemberName(subscription.event)) &&
            subscription.receiver->metaObject()->indexOfMethod(signatureOf(subscription.slotSignature)) >= 0;
        QString reason = QStringLiteral("there is no such subscription");
        if (!isPossible)
            reason = reasonOf(subscription);
        else if (from)
            reason = QStringLiteral("there is none for the events of %1 alone; one for everybody's is removed by the "
                                    "event's name alone")
                         .arg(quoted(*from));
        return QStringLiteral("cannot unsubscribe %1 from %2: %3; nothing changes")
            .arg(quoted(nameOf(subscription)), quoted(subscription.event), reason);
    });
}
