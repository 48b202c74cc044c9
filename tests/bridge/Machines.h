// Machines of a test: each a bus with a bridge, and a broker that they share.
#pragma once

#include "testing/Peer.h"
#include "testing/PrivateBus.h"
#include "testing/Recorder.h"

#include <QJsonObject>
#include <QTcpServer>
#include <QTcpSocket>

/// A Mosquitto of its own, on a free port of this machine.
class Broker {
public:
    /// `lines` are added to its configuration.
    explicit Broker(const QString& lines = "allow_anonymous true");

    vel::testing::Result start();
    void kill();
    int port() const { return m_port; }
    QString folder() const { return m_folder.path(); }

private:
    QTemporaryDir m_folder;
    const QString m_lines;
    std::unique_ptr<vel::testing::ChildProcess> m_process;
    int m_port = 0;
};

/// A way to the broker that can be cut.
class Proxy {
public:
    explicit Proxy(int target);
    void cut();
    int port() const { return m_server.serverPort(); }

private:
    QTcpServer m_server;
    QList<QTcpSocket*> m_sockets;
};

class Machine {
public:
    explicit Machine(const QString& name);

    /// Makes this machine's bus the one that Peers, Recorders and FakeModules join from now on.
    void use() const;

    /// Starts the bridge. `more` is added to the configuration.
    vel::testing::Result startBridge(int port, const QJsonObject& more);
    void kill();
    vel::testing::Result stop();

    /// Waits until a condition on the bridge's status holds.
    bool waitForStatus(const std::function<bool(const QVariantMap&)>& isTrue);
    QVariantMap status();

    const QString& name() const { return m_name; }
    vel::testing::Peer& peer() { return *m_peer; }
    const QStringList& lines() const { return m_bridge->lines(); }
    vel::testing::ChildProcess& bridge() { return *m_bridge; }

private:
    const QString m_name;
    QTemporaryDir m_folder;
    vel::testing::PrivateBus m_bus;
    std::unique_ptr<vel::testing::Peer> m_peer;
    std::unique_ptr<vel::testing::ChildProcess> m_bridge;
};
