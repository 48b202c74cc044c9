// A module that does in each hook what its command line says, for tests that look at a whole process, alone or under the
// supervisor.
//
//     --HOOK=false|QString|std|int|VelException|exit|coreLimit    what the hook of that name does
//     --HOOK=useBus     it publishes twice, subscribes, and calls itself with a callback
//     --HOOK=hold       it waits, with the event loop, for a byte in the pipe that --gate names
//     --HOOK=loop       the same, while an event loop of its own goes on
//     --stdin=exit      asks for its own stop when its standard input ends
//     --says=WORD       what it prints before a hook's name; "hook" unless said
//     --deaf            takes no part in saves and restores
//     --helper          starts a process of its own, and prints "helper PID"
//
// It prints "WORD HOOK" for each hook it enters, and what its adaptor's slots are told to print.
#include <Vel>

#include <QDBusAbstractAdaptor>
#include <QEventLoop>
#include <QProcess>
#include <QSocketNotifier>

#include <csignal>
#include <cstdio>
#include <fcntl.h>
#include <future>
#include <iostream>
#include <stdexcept>
#include <string>
#include <sys/resource.h>
#include <thread>
#include <unistd.h>

namespace {

void say(const QString& text) {
    std::puts(text.toUtf8().constData());
    std::fflush(stdout);
}

void sayCoreLimit() {
    rlimit limit{};
    getrlimit(RLIMIT_CORE, &limit);
    say(QString("core limit %1 %2").arg(limit.rlim_cur).arg(limit.rlim_max));
}

void waitForInput() {
    std::string line;
    std::getline(std::cin, line);
}

} // namespace

class ScriptedModule : public VelModule {
    Q_OBJECT
public:
    ScriptedModule();

    bool check() override { return act("check"); }
    bool deploy() override { return act("deploy"); }
    bool init() override { return act("init"); }
    bool run() override {
        // Whoever reads "hook run" may publish at once: the bus has taken this module's subscriptions by then.
        m_connection.call(QDBusMessage::createMethodCall("org.freedesktop.DBus", "/", "org.freedesktop.DBus", "GetId"));
        return act("run");
    }
    void presentation_loaded() override { act("presentation_loaded"); }
    void presentation_stop() override { act("presentation_stop"); }
    bool stop() override { return act("stop"); }
    void preSaveForSaveRestore() override { act("preSave"); }
    void postRestoreForSaveRestore() override { act("postRestore"); }
    bool restoreDataToDefault() override { return act("toDefault"); }
    void restoreDataToFactory() override { act("toFactory"); }

    void script(const QString& hook, const QString& action) { m_parameters.insert(hook, action); }

private:
    bool act(const QString& hook) {
        say(getParameters().value("says", "hook") + ' ' + hook);
        const QString action = getParameters().value(hook);
        if (action == "QString")
            throw QString("thrown text");
        if (action == "std")
            throw std::runtime_error("thrown what");
        if (action == "int")
            throw 42;
        if (action == "VelException")
            throw new VelException(this, VelException::AccessDenied, "thrown exception");
        if (action == "exit")
            exit();
        if (action == "coreLimit")
            sayCoreLimit();
        if (action == "useBus")
            useBus();
        if (action == "hold")
            waitAtGate();
        if (action == "loop")
            loopAtGate();
        if (action == "wait")
            waitForInput();
        return action != "false";
    }

    void useBus() {
        notifyEvent("topic");
        notifyEvent("topic");
        subscribeEvent("topic", this, SLOT(stopWebclientEvent(VelEvent)));
        VelDBusInterface self("Scripted", m_connection, nullptr);
        self.callWithCallback("state", {}, this, SLOT(stopWebclientEvent(VelEvent)), nullptr);
    }

    void waitAtGate() {
        const int gate = open(qPrintable(getParameters().value("gate")), O_RDONLY | O_CLOEXEC);
        char byte;
        while (read(gate, &byte, 1) != 1) {
        }
        close(gate);
    }

    void loopAtGate() {
        const int gate = open(qPrintable(getParameters().value("gate")), O_RDWR | O_CLOEXEC);
        QEventLoop loop;
        QSocketNotifier notifier(gate, QSocketNotifier::Read);
        QObject::connect(&notifier, &QSocketNotifier::activated, &loop, &QEventLoop::quit);
        loop.exec();
        close(gate);
    }

    QProcess m_helper;
};

class ScriptedAdaptor : public QDBusAbstractAdaptor {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.vel.module.VelInterface")
public:
    explicit ScriptedAdaptor(ScriptedModule* module) : QDBusAbstractAdaptor(module), m_module(module) {}

public Q_SLOTS:
    QString echo(const QString& text) { return text; }

    QString answerWith(int errorType, const QString& text) {
        velGuarded([&] { throw new VelException(m_module, static_cast<VelException::ErrorType>(errorType), text); });
        return QString();
    }

    QString state() { return m_module->getState(); }

    int logLevel() { return moduleLogLevel; }

    // From now on, instead of what the command line said.
    void script(const QString& hook, const QString& action) { m_module->script(hook, action); }

    // Answers when a worker thread is in the critical section; a line on standard input makes it leave.
    void startWorker() {
        std::promise<void> inside;
        const std::future<void> workerIsInside = inside.get_future();
        std::thread([module = m_module, inside = std::move(inside)]() mutable {
            module->beginCriticalSection();
            inside.set_value();
            waitForInput();
            say("worker leaves");
            module->endCriticalSection();
        }).detach();
        workerIsInside.wait();
    }

    void leaveSection() { m_module->endCriticalSection(); }

    void listen() { m_module->subscribeEvent("topic", m_module, SLOT(stopWebclientEvent(VelEvent))); }

    void listenNoMore() { m_module->unsubscribeEvent("topic", m_module, SLOT(stopWebclientEvent(VelEvent))); }

    void listenShortly() {
        QObject receiver;
        m_module->subscribeEvent("topic", &receiver, SLOT(deleteLater()));
    }

    Q_NOREPLY void stopPresentation() { m_module->stopWebclientEvent(VelEvent()); }

    Q_NOREPLY void askForStop() { m_module->exit(); }

private:
    ScriptedModule* m_module;
};

ScriptedModule::ScriptedModule() : VelModule("Scripted") {
    new ScriptedAdaptor(this);
    if (getParameters().value("stdin") == "exit") {
        auto* input = new QSocketNotifier(STDIN_FILENO, QSocketNotifier::Read, this);
        connect(input, &QSocketNotifier::activated, this, [this, input] {
            input->setEnabled(false);
            exit();
        });
    }
    if (getParameters().contains("helper")) {
        m_helper.start("sleep", {"3600"});
        m_helper.waitForStarted();
        say(QString("helper %1").arg(m_helper.processId()));
    }
    if (getParameters().contains("deaf"))
        return;
    for (const char* save : {"test_save", "prepare_save_restore"})
        subscribeEvent(save, this, SLOT(stopForSaveRestore(VelEvent)));
    for (const char* restored : {"test_restored", "restore_done"})
        subscribeEvent(restored, this, SLOT(postOperationForRestore(VelEvent)));
}

VEL_MODULE_MAIN(argc, argv) {
    VelApplication application(argc, argv);
    ScriptedModule module;
    if (module.getParameters().value("signals") == "stop")
        velStopOnSignals(module, {SIGTERM, SIGINT});
    return application.exec();
}

#include "ScriptedModule.moc"
