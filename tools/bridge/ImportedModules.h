// Modules of other machines, on this machine's bus as if they ran here.
#pragma once

#include "Link.h"

#include <map>

/// One such module: its connection to the bus lives while the real one is there. Each has its own, so that whoever knows
/// it by its unique name reaches it, too.
class ImportedModule : public QObject {
    Q_OBJECT
public:
    ImportedModule(const QString& name, const QString& machine);

    /// Joins or leaves the bus. What it was asked is answered before it leaves.
    void setPresent(bool isPresent);

    bool isOnBus() const { return m_isOwner; }

    /// Whether another process of this machine has the name.
    bool isInConflict() const { return m_isInConflict; }

    const QString& name() const { return m_name; }
    const QString& machine() const { return m_machine; }
    LocalBus* bus() const { return m_bus.get(); }
    QByteArray uniqueName() const { return m_bus ? m_bus->uniqueName() : QByteArray(); }

Q_SIGNALS:
    void called(DBusMessage* call);
    void left();

private:
    void requestName();
    void tellConflict();
    void takeSignal(DBusMessage* signal);

    const QString m_name;
    const QString m_machine;
    std::unique_ptr<LocalBus> m_bus;
    bool m_isOwner = false;
    bool m_isInConflict = false;
};

/// All of them, and the calls that are on their way.
class ImportedModules : public QObject {
    Q_OBJECT
public:
    explicit ImportedModules(Link& link);

    void connected();
    void disconnected();
    void take(const Topic& topic, const MqttMessage& message);

    bool isOwnConnection(const char* uniqueName) const;

    QStringList onBus() const;      ///< "MODULE on MACHINE"
    QStringList inConflict() const; ///< the same
    QStringList machines() const;   ///< that are online
    qint64 sent() const { return m_sent; }

private:
    struct Machine {
        QString connection; ///< of its bridge; empty while it is away
        QMap<QString, QString> modules;
    };
    struct Pending {
        ImportedModule* module;
        wire::Message call;
        qint64 endsAt;
    };

    void compare(const QString& machine);
    void forward(ImportedModule* module, DBusMessage* call);
    void answer(const MqttMessage& message);
    void failCallsOf(const ImportedModule* module);
    void lookAtLimits();

    Link& m_link;
    std::map<QString, std::unique_ptr<ImportedModule>> m_modules;
    QMap<QString, Machine> m_machines;
    std::map<QByteArray, Pending> m_pending; // by correlation
    QByteArray m_correlationPrefix;
    quint64 m_lastCall = 0;
    QTimer m_limits;
    qint64 m_sent = 0;
};
