// A module under the supervisor that does in its steps what its command line says.
//
//     --STEP=false|throw      the step fails; STEP is init, run, preSave or stop
//     --STEP=hold             the step waits, with the event loop, for a byte in the pipe that --gate names
//     --preSave=loop          the same, while an event loop of its own goes on
//     --deaf                  takes no part in saves and restores
//     --helper                starts a process of its own, and prints "helper PID"
//
// It prints "NAME STEP" when it enters a step.
#include <Vel>

#include <QDBusAbstractAdaptor>
#include <QEventLoop>
#include <QProcess>
#include <QSocketNotifier>

#include <csignal>
#include <cstdio>
#include <fcntl.h>
#include <unistd.h>

class SupervisedPeer : public VelModule {
    Q_OBJECT
public:
    SupervisedPeer();

    bool init() override {
        if (m_parameters.contains("helper")) {
            m_helper.start("sleep", {"3600"});
            m_helper.waitForStarted();
            say(QString("helper %1").arg(m_helper.processId()));
        }
        if (!m_parameters.contains("deaf")) {
            subscribeEvent("prepare_save_restore", this, SLOT(stopForSaveRestore(VelEvent)));
            subscribeEvent("restore_done", this, SLOT(postOperationForRestore(VelEvent)));
        }
        return act("init");
    }
    bool run() override { return act("run"); }
    bool stop() override { return act("stop"); }
    void preSaveForSaveRestore() override { act("preSave"); }
    void postRestoreForSaveRestore() override { act("postRestore"); }

private:
    void say(const QString& text) {
        std::puts(text.toUtf8().constData());
        std::fflush(stdout);
    }

    bool act(const QString& step) {
        say(m_moduleName + ' ' + step);
        const QString action = m_parameters.value(step);
        if (action == "throw")
            throw QString("thrown in " + step);
        if (action == "hold")
            waitAtGate();
        if (action == "loop")
            loopAtGate();
        return action != "false";
    }

    void waitAtGate() {
        const int gate = open(m_parameters.value("gate").toLocal8Bit().constData(), O_RDONLY | O_CLOEXEC);
        char byte;
        while (read(gate, &byte, 1) != 1) {
        }
        close(gate);
    }

    void loopAtGate() {
        const int gate = open(m_parameters.value("gate").toLocal8Bit().constData(), O_RDWR | O_CLOEXEC);
        QEventLoop loop;
        QSocketNotifier notifier(gate, QSocketNotifier::Read);
        QObject::connect(&notifier, &QSocketNotifier::activated, &loop, &QEventLoop::quit);
        loop.exec();
        close(gate);
    }

    QProcess m_helper;
};

class PeerAdaptor : public QDBusAbstractAdaptor {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.vel.module.VelInterface")
public:
    explicit PeerAdaptor(SupervisedPeer* peer) : QDBusAbstractAdaptor(peer), m_peer(*peer) {}

public Q_SLOTS:
    QString state() { return m_peer.getState(); }
    Q_NOREPLY void askForStop() { m_peer.exit(); }

private:
    SupervisedPeer& m_peer;
};

SupervisedPeer::SupervisedPeer() : VelModule("Peer") {
    new PeerAdaptor(this);
}

int main(int argc, char** argv) {
    VelApplication application(argc, argv);
    SupervisedPeer peer;
    return application.exec();
}

#include "SupervisedPeer.moc"
