// A module that is destroyed while its lifecycle is in a given state: its command line's --in=STATE.
//
// A step's outcome signal is taken as soon as the step ends, so the lifecycle never rests in most states by itself.
// It is held there by blocking the signal.
//
// Or one that is in the middle of its traffic: events come in faster than it takes them, and it has called --calls=PEER, which
// does not answer. It stops when it has heard some of the events.
#ifndef VEL_TEST_SANITIZED // a sanitizer has operators of its own
#include "WatchedMemory.h"
#endif

#include <Vel>

#include <QDBusPendingCallWatcher>
#include <QTimer>

#include <dbus/dbus.h>

#include <cstdio>
#include <cstdlib>

// A child of the module: dies in ~QObject, in which Qt's D-Bus thread must find nothing to do.
class LateWitness : public QObject {
    Q_OBJECT
public:
    LateWitness(const QDBusConnection& connection, QObject* module)
        : QObject(module), m_libdbus(static_cast<DBusConnection*>(connection.internalPointer())) {
        if (m_libdbus)
            dbus_connection_ref(m_libdbus);
    }

    ~LateWitness() override {
        if (!m_libdbus)
            return;
        // Qt opens a connection on its D-Bus thread, after all that was asked of this thread before.
        QDBusConnection::connectToBus(QDBusConnection::SessionBus, "witness");
        QDBusConnection::disconnectFromBus("witness");
        if (!dbus_connection_get_is_connected(m_libdbus)) {
            std::fputs("the connection ended before the module\n", stderr);
            std::abort();
        }
        dbus_connection_unref(m_libdbus);
    }

private:
    DBusConnection* const m_libdbus;
};

class HeldModule : public VelModule {
    Q_OBJECT
public:
    HeldModule() : VelModule("Held"), m_target(getParameters().value("in")) {
        m_ownedObject = new QObject;
        new LateWitness(m_connection, this);
        connect(this, &VelModule::sig_init_ok, this, [this] { holdIn("END_OF_INIT"); });
    }

    bool check() override {
        holdIn("CHECK");
        return m_target != "DEPLOY";
    }
    bool deploy() override { return holdIn("DEPLOY"); }
    bool init() override { return holdIn("INIT"); }
    bool run() override {
        holdIn("RUN");
        const QString peer = getParameters().value("calls");
        if (!peer.isEmpty())
            beBusyWith(peer);
        QTimer::singleShot(0, this, [this] {
            if (m_target.startsWith("PRESENTATION"))
                presentationLoadedEvent(VelEvent());
            if (m_target == "PRESENTATION_STOP")
                stopWebclientEvent(VelEvent());
            if (m_target == "STOP" || m_target == "EXIT")
                stopModuleEvent(VelEvent());
        });
        return true;
    }
    void presentation_loaded() override { holdIn("PRESENTATION_LOADED"); }
    void presentation_stop() override { holdIn("PRESENTATION_STOP"); }
    bool stop() override { return holdIn("STOP"); }

public Q_SLOTS:
    void hear(VelEvent) {
        if (++m_heard == 200)
            stopModuleEvent(VelEvent());
    }

private:
    void beBusyWith(const QString& peer) {
        subscribeEvent("flood", this, SLOT(hear(VelEvent)));
        for (int call = 0; call < 64; ++call) {
            const auto message = QDBusMessage::createMethodCall(peer, "/", QString(), "wait");
            new QDBusPendingCallWatcher(m_connection.asyncCall(message), this);
        }
        auto* turns = new QTimer(this);
        connect(turns, &QTimer::timeout, this, [this] {
            for (int event = 0; event < 50; ++event)
                notifyEvent("flood", {{"list", QStringList{"a"}}});
        });
        turns->start(0);
    }

    bool holdIn(const QString& state) {
        if (m_target == state) {
            blockSignals(true);
            QTimer::singleShot(0, QCoreApplication::instance(), &QCoreApplication::quit);
        }
        return true;
    }

    const QString m_target;
    int m_heard = 0;
};

int main(int argc, char** argv) {
    VelApplication application(argc, argv);
    {
        HeldModule module;
        if (!module.getParameters().isEmpty())
            application.exec();
        module.blockSignals(false);
        std::printf("destroyed in '%s'\n", qPrintable(module.getState()));
    }
    // What is left in the event queue must not reach for the module.
    QTimer::singleShot(0, &application, &QCoreApplication::quit);
    application.exec();
#ifndef VEL_TEST_SANITIZED
    watchDeletedMemory();
#endif
    return moduleIsDead ? 0 : 1;
}

#include "DestroyedModule.moc"
