// Where the demo plays: starting, calling and waiting.
#include "demo/Stage.h"

#include <QCoreApplication>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusPendingCall>
#include <QDBusPendingCallWatcher>
#include <QDBusServiceWatcher>
#include <QEventLoop>
#include <QFileSystemWatcher>
#include <QTimer>

#include <algorithm>
#include <cerrno>
#include <thread>

#include <sys/wait.h>

namespace {

// No event of this demo takes a second, even on a loaded machine.
constexpr int longestWaitMs = 20000;

Timeline::Tone toneOf(const QString& line) {
    if (line.startsWith("error: "))
        return Timeline::Tone::Bad;
    if (line.startsWith("warning: "))
        return Timeline::Tone::Doubtful;
    if (line.startsWith("debug: "))
        return Timeline::Tone::Faint;
    return Timeline::Tone::Plain;
}

QString serviceOf(const QString& module) {
    return "org.vel.module." + module + "Service";
}

QString commandLineOf(const Role& role) {
    QStringList words;
    for (auto variable = role.environment.cbegin(); variable != role.environment.cend(); ++variable)
        words += variable.key() + '=' + variable.value();
    return (words << role.program << role.options).join(' ');
}

QString textOf(const QVariant& value) {
    return value.type() == QVariant::StringList ? '[' + value.toStringList().join(", ") + ']' : value.toString();
}

QString textOf(const QString& module, const QString& method, const QVariantList& arguments) {
    QStringList texts;
    for (const QVariant& argument : arguments)
        texts += textOf(argument);
    return QString("%1.%2(%3)").arg(module, method, texts.join(", "));
}

} // namespace

Stage::Stage(Timeline& timeline, const Interruption& interruption)
    : m_timeline(timeline), m_interruption(interruption),
      m_connection(QDBusConnection::connectToBus(m_bus.address(), "vel-demo")) {
    if (!m_bus.isRunning())
        throw Missing{"a message bus of its own: is 'dbus-daemon' installed?"};
    if (!m_connection.isConnected())
        throw Missing{"a connection to its message bus: " + m_connection.lastError().message()};
    connect(&m_interruption, &Interruption::arrived, this, &Stage::somethingHappened);
    remark(QString("runs a message bus of its own as process %1").arg(m_bus.processId()));
}

Stage::~Stage() {
    for (const auto& actor : m_actors)
        actor->disconnect(); // what they say while they are ended is nobody's business
    m_actors.clear();
    QDBusConnection::disconnectFromBus(m_connection.name());
}

void Stage::start(const Role& role) {
    m_actors.push_back(std::make_unique<Actor>(role));
    Actor* actor = m_actors.back().get();
    connect(actor, &Actor::said, this, [this, actor](const QString& line) {
        m_timeline.event(actor->role().label, line, toneOf(line));
        Q_EMIT somethingHappened();
    });
    connect(actor, &Actor::ended, this, [this, actor] {
        if (!m_interruption.signalNumber()) // Ctrl-C reaches the modules, too
            m_timeline.event(actor->role().label, "ended with " + actor->statusText(),
                             actor->endedAsExpected() ? Timeline::Tone::Good : Timeline::Tone::Bad);
        Q_EMIT somethingHappened();
    });
    remark("starts " + commandLineOf(role));
    if (!actor->enter(QCoreApplication::applicationDirPath()))
        throw Missing{QString("the program '%1': %2").arg(role.program, actor->process().errorString())};
}

void Stage::expect(const QString& label, const QString& text) {
    Actor& speaker = actor(label);
    bool isSaid = false;
    waitUntil([&] { return (isSaid = isSaid || speaker.takeLine(text)) || speaker.hasEnded(); });
    require(QString("the line '%1' from %2 (%3)").arg(text, label, speaker.statusText()), isSaid);
}

void Stage::expectEnd(const QString& label) {
    const Actor& leaver = actor(label);
    waitUntil([&] { return leaver.hasEnded(); });
    require(QString("the end of %1 with status %2 (%3)")
                .arg(label)
                .arg(leaver.role().expectedStatus)
                .arg(leaver.statusText()),
            leaver.endedAsExpected());
}

void Stage::expectGone(const QString& module) {
    const QString service = serviceOf(module);
    QDBusServiceWatcher watcher(service, m_connection, QDBusServiceWatcher::WatchForUnregistration);
    connect(&watcher, &QDBusServiceWatcher::serviceUnregistered, this, &Stage::somethingHappened);
    expectThat(module + " to leave the bus",
               [&] { return !m_connection.interface()->isServiceRegistered(service).value(); });
}

void Stage::expectFrozen(const QString& label) {
    ChildProcess& process = actor(label).process();
    // Only a blocking system call tells a parent that a child has been stopped; so a thread makes it.
    std::thread watcher([this, id = static_cast<id_t>(process.processId())] {
        siginfo_t info;
        while (waitid(P_PID, id, &info, WSTOPPED | WEXITED | WNOWAIT | __WALL) != 0 && errno == EINTR) {
        }
        QMetaObject::invokeMethod(this, &Stage::somethingHappened, Qt::QueuedConnection);
    });
    try {
        expectThat(label + " to be frozen", [&] { return process.processState() == 'T'; });
    } catch (...) {
        process.kill(); // ends the thread's wait
        watcher.join();
        throw;
    }
    watcher.join();
    m_timeline.event(label, QString("frozen: the state in /proc/%1/stat is T").arg(process.processId()));
}

void Stage::expectThat(const QString& what, const std::function<bool()>& holds, const QString& file) {
    QFileSystemWatcher watcher;
    if (!file.isEmpty())
        watcher.addPath(file);
    connect(&watcher, &QFileSystemWatcher::fileChanged, this, &Stage::somethingHappened);
    waitUntil(holds);
    require(what, holds());
}

void Stage::require(const QString& what, bool holds) {
    if (!holds)
        throw Missing{what};
    ++m_observations;
}

QVariant Stage::call(const QString& module, const QString& method, const QVariantList& arguments) {
    const QDBusMessage reply = answerOf(module, method, arguments);
    require(QString("an answer to %1 (%2)").arg(textOf(module, method, arguments), reply.errorMessage()),
            reply.type() == QDBusMessage::ReplyMessage);
    const QVariant answer = reply.arguments().value(0);
    if (answer.isValid())
        remark(QString("hears from %1: %2").arg(module, textOf(answer)));
    return answer;
}

QString Stage::callRefused(const QString& module, const QString& method, const QVariantList& arguments) {
    const QDBusMessage reply = answerOf(module, method, arguments);
    require(QString("an error answer to ") + textOf(module, method, arguments),
            reply.type() == QDBusMessage::ErrorMessage);
    remark(QString("is refused by %1: %2").arg(module, reply.errorMessage()));
    return reply.errorMessage();
}

void Stage::remark(const QString& text) {
    m_timeline.event("(demo)", text, Timeline::Tone::Faint);
}

Actor& Stage::actor(const QString& label) const {
    for (const auto& one : m_actors) {
        if (one->role().label == label)
            return *one;
    }
    throw Missing{label + " on the stage"};
}

void Stage::waitUntil(const std::function<bool()>& isOver) {
    // Once a process has ended in the wrong way, there is nothing to be had by waiting on.
    const auto mustEnd = [this] {
        return m_interruption.signalNumber() ||
               std::any_of(m_actors.begin(), m_actors.end(), [](const std::unique_ptr<Actor>& actor) {
                   return actor->hasEnded() && !actor->endedAsExpected();
               });
    };
    QEventLoop loop;
    QTimer limit;
    connect(&limit, &QTimer::timeout, &loop, &QEventLoop::quit);
    connect(this, &Stage::somethingHappened, &loop, [&] {
        if (mustEnd() || isOver())
            loop.quit();
    });
    limit.start(longestWaitMs);
    if (!mustEnd() && !isOver())
        loop.exec();
    if (m_interruption.signalNumber())
        throw Interrupted{};
}

QDBusMessage Stage::answerOf(const QString& module, const QString& method, const QVariantList& arguments) {
    remark("calls " + textOf(module, method, arguments));
    const QString interface = "org.vel.module.VelInterface";
    QDBusMessage message =
        QDBusMessage::createMethodCall(serviceOf(module), QLatin1Char('/') + module, interface, method);
    message.setArguments(arguments);
    QDBusPendingCallWatcher watcher(m_connection.asyncCall(message, longestWaitMs));
    connect(&watcher, &QDBusPendingCallWatcher::finished, this, &Stage::somethingHappened);
    waitUntil([&] { return watcher.isFinished(); });
    return watcher.reply();
}
