// Machines of a test: each a bus with a bridge, and a broker that they share.
#pragma once

#include "testing/Peer.h"
#include "testing/PrivateBus.h"
#include "testing/Recorder.h"

#include <QJsonObject>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTemporaryDir>

/// The folder in which all others of a test are. It goes with the test, however that ends: one that is killed leaves nothing
/// behind.
class Scratch {
public:
    Scratch();
    ~Scratch();

private:
    QTemporaryDir m_folder;
    QProcess m_keeper;
};

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
    qint64 busProcess() const { return m_bus.processId(); }

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

/// What front and rear export and import: Tuner runs on front, Media on rear, and all events cross.
extern const QJsonObject frontLinks;
extern const QJsonObject rearLinks;

bool isConnected(const QVariantMap& status);

/// Another machine is there, and takes events of this one.
bool isJoined(const QVariantMap& status);

/// Waits until an imported module is, or is not, on the bus.
bool isThere(Machine& machine, const QString& module, bool isExpected = true);

/// Two machines that know each other.
struct Pair {
    Broker broker;
    Machine front{"front"};
    Machine rear{"rear"};

    vel::testing::Result start(const QJsonObject& frontMore = frontLinks, const QJsonObject& rearMore = rearLinks);

    /// Both by their log and status, for a message.
    QString texts();
};

/// How often something is done: so often, or as the variable says.
int wantedTimes(const char* variable, int otherwise);
