// Why a subscription was not made, or not removed.
#pragma once

#include <QString>

class QDBusConnection;
class QObject;

namespace vel {

/// The four values of a subscription that failed.
struct FailedSubscription {
    const QDBusConnection& connection;
    const QString& event;
    const QObject* receiver;
    const char* slotSignature; ///< as SLOT() makes it
};

/// Looks for the reason why it was not made and writes one error line. To be asked only after the failure.
void logSubscriptionFault(const FailedSubscription& subscription);

/// The same for one that was to be removed. `from` is the module whose events alone it was to be for; null: everybody's.
void logUnsubscriptionFault(const FailedSubscription& subscription, const QString* from);

} // namespace vel
