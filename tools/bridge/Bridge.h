// The module "Bridge": joins this machine's bus with those of others by a broker.
#pragma once

#include "EventsIn.h"
#include "EventsOut.h"
#include "ExportedModules.h"
#include "ImportedModules.h"

#include <VelModule>

#include <QDBusAbstractAdaptor>
#include <QDateTime>
#include <QVariantMap>

#include <memory>

class Bridge : public VelModule {
    Q_OBJECT
public:
    explicit Bridge(const Configuration& configuration);
    ~Bridge() override;

    /// False without a bus or a store. That there is no broker is no reason: it is looked for as long as it takes.
    bool init() override;
    bool stop() override;

    /// See BridgeAdaptor.
    QVariantMap status() const;

private:
    void brokerIsThere();
    void brokerIsGone(const QString& reason);
    void take(const MqttMessage& message);

    const Configuration m_configuration;
    Store m_store;
    LocalBus m_bus;
    Mqtt m_mqtt;
    Link m_link;
    std::unique_ptr<ExportedModules> m_exported;
    std::unique_ptr<ImportedModules> m_imported;
    std::unique_ptr<EventsOut> m_eventsOut;
    std::unique_ptr<EventsIn> m_eventsIn;
    QDateTime m_connectedSince;
    QString m_whyNot;
};

/// What the bridge offers on the bus.
class BridgeAdaptor : public QDBusAbstractAdaptor {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", VEL_BUS_PREFIX ".VelInterface")
public:
    explicit BridgeAdaptor(Bridge* bridge) : QDBusAbstractAdaptor(bridge), m_bridge(*bridge) {}

public Q_SLOTS:
    /// "Machine" s, this one; "Connected" b with "ConnectedSince" s, or "Reason" s; "RoundTrip" d, milliseconds from an
    /// event to the broker's acknowledgement, last measured; "Machines" as, imported from and online; "Modules" as, "MODULE
    /// on MACHINE"; "Conflicts" as, those that have a name of this machine; "Exported" as, those that are there; "Receivers"
    /// as, machines that take events of this one; "Queued" and "QueuedBytes"; "Accepted", "Sent", "Received", "Dropped" (at
    /// the queue's limit), "Missed" (dropped by others before they came), "Duplicates" and "Refused", all x, events since
    /// the bridge was started; "CallsOut" and "CallsIn" x; "StoreWritable" b.
    QVariantMap status() { return m_bridge.status(); }

private:
    const Bridge& m_bridge;
};
