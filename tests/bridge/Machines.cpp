// Machines of a test.
#include "Machines.h"

#include "testing/BuiltProgram.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>

using namespace vel::testing;

Scratch::Scratch() {
    qputenv("TMPDIR", m_folder.path().toLocal8Bit());
    m_keeper.start("sh", {"-c", R"(cat >/dev/null; rm -rf "$0")", m_folder.path()}); // its input ends with this process
    m_keeper.waitForStarted();
}

Scratch::~Scratch() {
    m_keeper.closeWriteChannel();
    m_keeper.waitForFinished();
}

Broker::Broker(const QString& lines) : m_lines(lines) {
    QTcpServer free; // nobody is given its port soon again
    if (free.listen(QHostAddress::LocalHost))
        m_port = free.serverPort();
}

Result Broker::start() {
    QFile file(m_folder.filePath("mosquitto.conf"));
    if (!file.open(QIODevice::WriteOnly))
        return Result::failure("cannot write the broker's configuration");
    file.write(QString("listener %1 127.0.0.1\nset_tcp_nodelay true\nmax_inflight_messages 200\n"
                       "max_queued_messages 1000\nuser root\n%2\n")
                   .arg(m_port)
                   .arg(QString(m_lines).replace("%1", m_folder.path()))
                   .toUtf8());
    file.close();
    m_process = std::make_unique<ChildProcess>();
    if (const Result started = m_process->run("mosquitto", {"-c", file.fileName()}); !started)
        return started;
    return m_process->waitForLine(" running");
}

void Broker::kill() {
    m_process.reset();
}

Proxy::Proxy(int target) {
    m_server.listen(QHostAddress::LocalHost);
    QObject::connect(&m_server, &QTcpServer::newConnection, &m_server, [this, target] {
        QTcpSocket* const one = m_server.nextPendingConnection();
        auto* const other = new QTcpSocket(one);
        m_sockets += one;
        const auto relay = [](QTcpSocket* from, QTcpSocket* to) {
            QObject::connect(from, &QTcpSocket::readyRead, to, [from, to] {
                if (to->isOpen())
                    to->write(from->readAll());
            });
            QObject::connect(from, &QTcpSocket::disconnected, to, [to] { to->disconnectFromHost(); });
        };
        relay(one, other);
        relay(other, one);
        QObject::connect(one, &QTcpSocket::disconnected, &m_server, [this, one] {
            m_sockets.removeAll(one);
            one->deleteLater();
        });
        other->connectToHost(QHostAddress::LocalHost, static_cast<quint16>(target));
    });
}

void Proxy::cut() {
    const QList<QTcpSocket*> sockets = m_sockets;
    for (QTcpSocket* socket : sockets)
        socket->abort();
}

Machine::Machine(const QString& name) : m_name(name), m_peer(std::make_unique<Peer>()) {}

void Machine::use() const {
    qputenv("DBUS_SESSION_BUS_ADDRESS", m_bus.address().toUtf8());
}

Result Machine::startBridge(int port, const QJsonObject& more) {
    QJsonObject json{
        {"machine", m_name}, {"broker", QJsonObject{{"host", "127.0.0.1"}, {"port", port}}}, {"store", "store"}};
    for (auto member = more.begin(); member != more.end(); ++member)
        json[member.key()] = member.value();
    QFile file(m_folder.filePath("bridge.json"));
    if (!file.open(QIODevice::WriteOnly))
        return Result::failure("cannot write the bridge's configuration");
    file.write(QJsonDocument(json).toJson());
    file.close();
    use();
    m_bridge = std::make_unique<ChildProcess>();
    m_bridge->setVariable("VEL_LOG_LEVEL", "6");
    if (const Result started = m_bridge->run(builtProgram("vel-bridge"), {file.fileName()}); !started)
        return started;
    return waitForStatus([](const QVariantMap& status) { return !status.isEmpty(); })
               ? Result::success()
               : Result::failure("the bridge does not come up:\n" + m_bridge->lines().join('\n'));
}

void Machine::kill() {
    m_bridge.reset();
}

Result Machine::stop() {
    m_bridge->terminate();
    return m_bridge->waitForEnd(1);
}

QVariantMap Machine::status() {
    return m_peer->call("Bridge", "status").value().toMap();
}

bool Machine::waitForStatus(const std::function<bool(const QVariantMap&)>& isTrue) {
    const TimeLimit limit;
    while (limit.leftMs() > 0) { // each question is a round trip: the bridge's turn is between two of them
        if (isTrue(status()))
            return true;
    }
    return false;
}

const QJsonObject frontLinks{
    {"export", QJsonObject{{"modules", QJsonArray{"Tuner"}}, {"events", QJsonArray{"*"}}}},
    {"import", QJsonObject{{"rear", QJsonObject{{"modules", QJsonArray{"Media"}}, {"events", QJsonArray{"*"}}}}}}};
const QJsonObject rearLinks{
    {"export", QJsonObject{{"modules", QJsonArray{"Media"}}, {"events", QJsonArray{"*"}}}},
    {"import", QJsonObject{{"front", QJsonObject{{"modules", QJsonArray{"Tuner"}}, {"events", QJsonArray{"*"}}}}}}};

bool isConnected(const QVariantMap& status) {
    return status.value("Connected").toBool();
}

bool isJoined(const QVariantMap& status) {
    return !status.value("Machines").toStringList().isEmpty() && !status.value("Receivers").toStringList().isEmpty();
}

bool isThere(Machine& machine, const QString& module, bool isExpected) {
    return machine.waitForStatus([&](const QVariantMap& status) {
        return status.value("Modules").toStringList().join(',').startsWith(module + ' ') == isExpected;
    });
}

QString Pair::texts() {
    QString text;
    for (Machine* machine : {&front, &rear}) {
        const QVariantMap status = machine->status();
        text += machine->name() + ": " + machine->lines().join('\n') + '\n';
        for (auto one = status.begin(); one != status.end(); ++one)
            text += one.key() + ' ' + one.value().toString() + one.value().toStringList().join(' ') + ", ";
    }
    return text;
}

Result Pair::start(const QJsonObject& frontMore, const QJsonObject& rearMore) {
    if (const Result started = broker.start(); !started)
        return started;
    if (const Result started = front.startBridge(broker.port(), frontMore); !started)
        return started;
    if (const Result started = rear.startBridge(broker.port(), rearMore); !started)
        return started;
    return front.waitForStatus(isJoined) && rear.waitForStatus(isJoined)
               ? Result::success()
               : Result::failure("the machines do not meet:\n" + front.lines().join('\n') + '\n' +
                                 rear.lines().join('\n'));
}

int wantedTimes(const char* variable, int otherwise) {
    const int wanted = qEnvironmentVariableIntValue(variable);
    return wanted > 0 ? wanted : otherwise;
}
