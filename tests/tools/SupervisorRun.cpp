// One run of the supervisor.
#include "SupervisorRun.h"

#include "process/ProcessInfo.h"

#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QTest>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr int longestWaitMs = 60000;

QString nextConnectionName() {
    static int count = 0;
    return QString("test %1").arg(++count);
}

} // namespace

SupervisorRun::SupervisorRun() : m_connection(QDBusConnection::connectToBus(m_bus.address(), nextConnectionName())) {
    m_process.setVariable("VEL_LOG_LEVEL", "6");
}

SupervisorRun::~SupervisorRun() {
    m_process.kill();
    m_process.waitForFinished(longestWaitMs);
    for (const int gate : qAsConst(m_gates))
        close(gate);
    QDBusConnection::disconnectFromBus(m_connection.name());
}

void SupervisorRun::addModule(const QString& name, const QStringList& arguments, const QJsonObject& values) {
    QJsonObject module = values;
    module["name"] = name;
    QStringList words = arguments;
    if (!module.contains("command")) {
        module["command"] = builtProgram("scripted-module");
        words += "--says=" + name;
    }
    module["arguments"] = QJsonArray::fromStringList(words);
    QJsonArray modules = m_root["modules"].toArray();
    modules.append(module);
    m_root["modules"] = modules;
}

void SupervisorRun::addKeeper(const QString& name, const QStringList& arguments) {
    QDir(m_folder.path()).mkdir(name);
    addModule(name, arguments, {{"dataFolder", name}});
}

void SupervisorRun::setCommand(const QString& key, const QString& shellText, double limitSeconds) {
    m_root[key] =
        QJsonObject{{"command", "sh"}, {"arguments", QJsonArray{"-c", shellText, "sh"}}, {"limit", limitSeconds}};
}

void SupervisorRun::setOfModule(const QString& name, const QString& key, const QJsonValue& value) {
    QJsonArray modules = m_root["modules"].toArray();
    for (int index = 0; index < modules.size(); ++index) {
        QJsonObject module = modules.at(index).toObject();
        if (module["name"] == name)
            module[key] = value;
        modules[index] = module;
    }
    m_root["modules"] = modules;
}

bool SupervisorRun::start(const QString& log) {
    QFile file(path("supervisor.json"));
    if (!file.open(QIODevice::WriteOnly))
        return false;
    if (qgetenv("VEL_TEST_LAUNCH") == "fork") { // the same test, with modules that are not executed
        m_root["launch"] = "fork";
        m_root["launcher"] = QJsonObject{{"libraries", QJsonArray{VEL_RECORDING_LIBRARY, VEL_LIBRARY}}};
    }
    file.write(QJsonDocument(m_root).toJson());
    file.close();
    if (log.isEmpty())
        return m_process.run(builtProgram("vel-supervisor"), {file.fileName()});
    return m_process.run(
        "sh", {"-c", "exec \"$0\" \"$1\" 2>\"$2\"", builtProgram("vel-supervisor"), file.fileName(), path(log)});
}

bool SupervisorRun::startByHand(ChildProcess& process, const QString& name) const {
    return process.run(builtProgram("scripted-module"), {"--says=" + name, "--moduleName=" + name}) &&
           process.waitForLine(name + " run");
}

bool SupervisorRun::waitUntilUp(const QStringList& modules) {
    for (const QString& module : modules) {
        if (!waitForLine(QString("'%1' is up").arg(module)))
            return false;
    }
    return true;
}

int SupervisorRun::indexOfLine(const QString& text) const {
    for (int index = 0; index < m_process.lines().size(); ++index) {
        if (m_process.lines().at(index).contains(text))
            return index;
    }
    return -1;
}

QString SupervisorRun::gate(const QString& name) {
    mkfifo(path(name).toLocal8Bit().constData(), 0600);
    return "--gate=" + path(name);
}

void SupervisorRun::openGate(const QString& name) {
    // Open for both, so that nobody needs to wait there already; kept, so that the byte stays in the pipe.
    const int gate = open(path(name).toLocal8Bit().constData(), O_RDWR | O_CLOEXEC);
    m_gates += gate;
    QCOMPARE(write(gate, "\n", 1), ssize_t(1));
}

QDBusPendingCall SupervisorRun::call(const QString& module, const QString& method,
                                     const QVariantList& arguments) const {
    QDBusMessage message = QDBusMessage::createMethodCall("org.vel.module." + module + "Service", '/' + module,
                                                          "org.vel.module.VelInterface", method);
    message.setArguments(arguments);
    return m_connection.asyncCall(message, longestWaitMs);
}

QString SupervisorRun::textOf(QDBusPendingCall call) {
    call.waitForFinished();
    const QDBusMessage reply = call.reply();
    if (reply.type() == QDBusMessage::ErrorMessage)
        return reply.errorMessage();
    const QVariant value = reply.arguments().value(0);
    return value.canConvert<QString>() ? value.toString() : value.toStringList().join(' ');
}

QString SupervisorRun::answer(const QString& method, const QString& argument) const {
    return textOf(call("ApplicationManager", method, {argument}));
}

bool SupervisorRun::publish(const QString& event) const {
    // Whoever reads only the member takes a signal without the event's structure for one with an empty event.
    QDBusMessage signal = QDBusMessage::createSignal("/test", "org.vel.module.VelInterface", event);
    signal << QVariant::fromValue(QVariantMap{{"empty", 0}});
    return m_connection.send(signal);
}

pid_t SupervisorRun::processOf(const QString& module) const {
    QDBusMessage question = QDBusMessage::createMethodCall("org.freedesktop.DBus", "/org/freedesktop/DBus",
                                                           "org.freedesktop.DBus", "GetConnectionUnixProcessID");
    question << "org.vel.module." + module + "Service";
    return m_connection.call(question).arguments().value(0).toInt();
}

bool SupervisorRun::isServing(const QString& module) const {
    return textOf(call(module, "state")) == "RUN";
}

char processState(pid_t process) {
    const ProcessInfo info = processInfo(process);
    return info.hasEnded() ? '\0' : info.state;
}

bool waitForState(pid_t process, const QByteArray& states) {
    return QTest::qWaitFor([&] { return states.contains(processState(process)); }, longestWaitMs);
}

QList<pid_t> childrenOf(pid_t process) {
    QList<pid_t> children;
    for (const ChildInfo& child : childrenOf(static_cast<qint64>(process)))
        children += static_cast<pid_t>(child.pid);
    return children;
}

QString nameOf(pid_t process) {
    return processInfo(process).name;
}
