// Where the demo plays: starting, typing and waiting.
#include "demo/Stage.h"

#include "demo/SupervisedActor.h"

#include <VelExitCodes>

#include <QCoreApplication>
#include <QDir>
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

QString asTyped(const QStringList& words) {
    QStringList texts;
    for (const QString& word : words)
        texts += word.contains(' ') ? '"' + word + '"' : word;
    return texts.join(' ');
}

QString commandLineOf(const Program& program) {
    QStringList words;
    for (auto variable = program.environment.cbegin(); variable != program.environment.cend(); ++variable)
        words += variable.key() + '=' + variable.value();
    return asTyped(words << program.name << program.options);
}

} // namespace

Stage::Stage(Timeline& timeline, const Interruption& interruption)
    : m_timeline(timeline), m_interruption(interruption) {
    if (!m_bus.isRunning())
        throw Missing{"a message bus of its own: is 'dbus-daemon' installed?"};
    connect(&m_interruption, &Interruption::arrived, this, &Stage::somethingHappened);
    remark(QString("runs a message bus of its own as process %1").arg(m_bus.processId()));
}

Stage::~Stage() {
    for (const auto* place : {&m_commands, &m_actors}) {
        for (const auto& actor : *place)
            actor->disconnect(); // what they say while they are ended is nobody's business
    }
    m_commands.clear();
    m_actors.clear();
}

void Stage::remark(const QString& text) {
    m_timeline.event("(demo)", text, Timeline::Tone::Faint);
}

ProcessActor& Stage::start(const Role& role, const Program& program) {
    auto actor = std::make_unique<ProcessActor>(role, program.environment);
    follow(*actor);
    return enter(std::move(actor), program);
}

ProcessActor& Stage::startSupervisor(const Program& program, const std::vector<Role>& modules) {
    auto supervisor = std::make_unique<ProcessActor>(Role{program.name, VelNormalExit});
    std::vector<SupervisedActor*> supervised;
    for (const Role& role : modules) {
        auto module = std::make_unique<SupervisedActor>(role);
        follow(*module);
        supervised.push_back(module.get());
        m_actors.push_back(std::move(module));
    }
    connect(supervisor.get(), &Actor::said, this, [this, supervised, speaker = supervisor.get()](const QString& line) {
        const auto takesIt = [&line](SupervisedActor* module) { return module->hear(line); };
        if (std::none_of(supervised.begin(), supervised.end(), takesIt))
            show(*speaker, line);
    });
    return enter(std::move(supervisor), program);
}

ProcessActor& Stage::type(const QStringList& words, int expectedStatus) {
    m_timeline.event("(operator)", "$ velctl " + asTyped(words), Timeline::Tone::Bold);
    auto actor = std::make_unique<ProcessActor>(Role{"velctl " + words.first(), expectedStatus, false});
    follow(*actor);
    connect(actor.get(), &Actor::ended, this, &Stage::somethingHappened);
    m_commands.push_back(std::move(actor));
    auto& command = static_cast<ProcessActor&>(*m_commands.back());
    launch(command, {"velctl", words});
    return command;
}

ProcessActor& Stage::run(const QStringList& words, int expectedStatus) {
    ProcessActor& command = type(words, expectedStatus);
    expectEnd(command);
    return command;
}

void Stage::follow(Actor& actor) {
    connect(&actor, &Actor::said, this, [this, &actor](const QString& line) { show(actor, line); });
}

void Stage::show(const Actor& actor, const QString& line) {
    m_timeline.event(actor.role().name, line, toneOf(line));
    Q_EMIT somethingHappened();
}

ProcessActor& Stage::enter(std::unique_ptr<ProcessActor> actor, const Program& program) {
    ProcessActor& entered = *actor;
    connect(&entered, &Actor::ended, this, [this, &entered] {
        if (!m_interruption.signalNumber()) // Ctrl-C reaches the modules, too
            m_timeline.event(entered.role().name, "ended with " + entered.statusText(),
                             entered.endedAsExpected() ? Timeline::Tone::Good : Timeline::Tone::Bad);
        Q_EMIT somethingHappened();
    });
    m_actors.push_back(std::move(actor));
    remark("starts " + commandLineOf(program));
    launch(entered, program);
    return entered;
}

void Stage::launch(ProcessActor& actor, const Program& program) {
    if (!actor.enter(QDir(QCoreApplication::applicationDirPath()).filePath(program.name), program.options))
        throw Missing{QString("the program '%1': %2").arg(program.name, actor.errorText())};
}

void Stage::expect(Actor& speaker, const QString& text) {
    bool isSaid = false;
    waitUntil([&] { return (isSaid = isSaid || speaker.takeLine(text)) || speaker.hasEnded(); });
    require(QString("the line '%1' from %2 (%3)").arg(text, speaker.role().name, speaker.statusText()), isSaid);
}

void Stage::expectEnd(Actor& leaver) {
    waitUntil([&] { return leaver.hasEnded(); });
    require(QString("the end of %1 with status %2 (%3)")
                .arg(leaver.role().name)
                .arg(leaver.role().expectedStatus)
                .arg(leaver.statusText()),
            leaver.endedAsExpected());
}

void Stage::expectFrozen(ProcessActor& actor) {
    // Only a blocking system call tells a parent that a child has been stopped; so a thread makes it.
    std::thread watcher([this, id = static_cast<id_t>(actor.processId())] {
        siginfo_t info;
        while (waitid(P_PID, id, &info, WSTOPPED | WEXITED | WNOWAIT | __WALL) != 0 && errno == EINTR) {
        }
        QMetaObject::invokeMethod(this, &Stage::somethingHappened, Qt::QueuedConnection);
    });
    try {
        expectThat(actor.role().name + " to be frozen", [&] { return actor.isFrozen(); });
    } catch (...) {
        actor.kill(); // ends the thread's wait
        watcher.join();
        throw;
    }
    watcher.join();
    m_timeline.event(actor.role().name, QString("frozen: the state in /proc/%1/stat is T").arg(actor.processId()));
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

Actor& Stage::actor(const QString& name) const {
    for (const auto& one : m_actors) {
        if (one->role().name == name)
            return *one;
    }
    throw Missing{name + " on the stage"};
}

bool Stage::hasSomebodyFailed() const {
    const auto hasFailed = [](const std::unique_ptr<Actor>& actor) { return actor->hasFailed(); };
    return std::any_of(m_actors.begin(), m_actors.end(), hasFailed) ||
           std::any_of(m_commands.begin(), m_commands.end(), hasFailed);
}

void Stage::waitUntil(const std::function<bool()>& isOver) {
    // Once somebody has ended in the wrong way, there is nothing to be had by waiting on.
    const auto mustEnd = [this] { return m_interruption.signalNumber() || hasSomebodyFailed(); };
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
