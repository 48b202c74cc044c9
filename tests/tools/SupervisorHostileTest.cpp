// What a supervisor meets that was not made for it: readers that do not read, strangers, floods and signals.
#include "SupervisorRun.h"

#include <QDir>
#include <QJsonArray>
#include <QTest>

#include <csignal>
#include <fcntl.h>
#include <poll.h>
#include <sys/ptrace.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

namespace {

const QByteArray stopped = "T";

// A terminal of which somebody may say that it holds, as Ctrl-S does.
class Terminal {
public:
    Terminal() : m_screen(posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC | O_NONBLOCK)) {
        if (grantpt(m_screen) != 0 || unlockpt(m_screen) != 0)
            qFatal("no terminal");
        m_keyboard = open(ptsname(m_screen), O_RDWR | O_NOCTTY | O_CLOEXEC);
    }
    ~Terminal() {
        close(m_keyboard);
        close(m_screen);
    }
    QString path() const { return QString::fromLocal8Bit(ptsname(m_screen)); }
    bool hold() const { return tcflow(m_keyboard, TCOOFF) == 0; }
    bool letGo() const { return tcflow(m_keyboard, TCOON) == 0; }

    // False when it does not come.
    bool shows(const QByteArray& text) {
        for (char bytes[4096]; !m_shown.contains(text);) {
            pollfd readable{m_screen, POLLIN, 0};
            if (poll(&readable, 1, 60000) != 1)
                return false;
            m_shown.append(bytes, static_cast<int>(std::max<ssize_t>(read(m_screen, bytes, sizeof bytes), 0)));
        }
        return true;
    }

private:
    const int m_screen;
    int m_keyboard = -1;
    QByteArray m_shown;
};

} // namespace

class SupervisorHostileTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    // The log's pipe is full, and the supervisor goes on; whoever reads it later learns how much is missing.
    void logThatNobodyReadsStopsNothing() {
        SupervisorRun run;
        run.addKeeper("A");
        run.setCommand("save", "true");
        run.gate("log");
        const int log = open(run.path("log").toLocal8Bit().constData(), O_RDWR | O_CLOEXEC | O_NONBLOCK);
        QVERIFY(log >= 0);
        QVERIFY(run.start("log"));
        QVERIFY(run.waitForLine("A run"));
        QVERIFY(run.answer("startModule", "A").startsWith("'A' is up"));
        for (int time = 0; time < 500; ++time)
            run.call("ApplicationManager", "save", {QString(3500, 'x')});
        QCOMPARE(run.answer("save", "A"), QString("A"));
        QVERIFY(run.isServing("A"));
        QByteArray text;
        for (char bytes[4096]; !text.contains(" lines were lost: nobody took them");) {
            pollfd readable{log, POLLIN, 0};
            QCOMPARE(poll(&readable, 1, 60000), 1);
            const ssize_t count = read(log, bytes, sizeof bytes);
            text.append(bytes, static_cast<int>(count));
        }
        close(log);
        run.process().terminate();
        QCOMPARE(run.process().waitForStatus(), 1);
    }

    void terminalThatHoldsStopsNoSave() {
        Terminal terminal;
        SupervisorRun run;
        run.addKeeper("A");
        run.setCommand("save", "true");
        QVERIFY(run.start(terminal.path()));
        QVERIFY(terminal.shows("'A' is up"));
        QVERIFY(terminal.hold());
        QCOMPARE(run.answer("save", "A"), QString("A"));
        QVERIFY(run.answer("save", "Nobody").contains("'Nobody'"));
        QVERIFY(run.isServing("A"));
        QVERIFY(terminal.letGo());
        QVERIFY(terminal.shows("Nobody"));
        run.process().terminate();
        QCOMPARE(run.process().waitForStatus(), 1);
    }

    // Each answer has the module probed, and a probe that is on its way is enough.
    void floodOfAnswersIsNotAnsweredWithAFloodOfProbes() {
        SupervisorRun run;
        QDir(run.path("")).mkdir("data");
        run.addModule("Flooder", {"Flooder", "--answers", "20000"},
                      {{"command", builtProgram("hostile-peer")}, {"dataFolder", "data"}});
        run.addKeeper("A");
        run.setCommand("save", "true");
        run.set("answerLimit", 5);
        QVERIFY(run.start());
        QVERIFY(run.waitUntilUp({"A"}));
        QVERIFY(run.waitUntilUp({"Flooder"}));
        const QString answer = run.answer("save", "A Flooder");
        QVERIFY2(answer.contains("'Flooder'"), qPrintable(answer));
        QCOMPARE(run.answer("save", "A"), QString("A"));
        run.process().terminate();
        QCOMPARE(run.process().waitForStatus(), 1);
        const int probes = run.process().lines().filter("asked").size();
        QVERIFY2(probes > 0 && probes < 1000, qPrintable(QString::number(probes)));
    }

    // A debugger that holds the guardian: nobody waits for what it does not take, nor for its end.
    void tracedGuardianIsNotWaitedFor() {
        SupervisorRun run;
        run.addModule("A");
        run.addModule("Short", {}, {{"command", "true"}, {"restart", QJsonObject{{"on", QJsonArray{}}}}});
        QVERIFY(run.start());
        QVERIFY(run.waitUntilUp({"A"}));
        pid_t guardian = 0;
        for (const pid_t child : childrenOf(static_cast<pid_t>(run.process().processId())))
            guardian = nameOf(child) == "vel-guardian" ? child : guardian;
        QVERIFY(guardian > 0);
        if (ptrace(PTRACE_SEIZE, guardian, nullptr, nullptr) != 0)
            QSKIP("this machine does not let a process trace another");
        QCOMPARE(ptrace(PTRACE_INTERRUPT, guardian, nullptr, nullptr), 0L);
        int status = 0;
        QCOMPARE(waitpid(guardian, &status, __WALL), guardian);
        QVERIFY(WIFSTOPPED(status));
        for (int start = 0; start < 150; ++start) // more than its channel takes
            QVERIFY(run.answer("startModule", "Short").contains("'Short'"));
        QCOMPARE(waitpid(guardian, &status, __WALL), guardian); // until then it is the debugger's, though it is killed
        QVERIFY(WIFSIGNALED(status));
        QVERIFY(run.waitForLine(QString("warning: the guardian, process %1, was killed").arg(guardian)));
        run.process().terminate();
        QCOMPARE(run.process().waitForStatus(), 1);
    }

    void terminalStopsItOnlyWhenNobodyIsFrozen() {
        SupervisorRun run;
        run.addKeeper("A");
        run.gate("copy");
        run.setCommand("save", "echo copying; read line <copy");
        QVERIFY(run.start());
        QVERIFY(run.waitUntilUp({"A"}));
        const pid_t supervisor = static_cast<pid_t>(run.process().processId());
        const QDBusPendingCall saving = run.call("ApplicationManager", "save");
        QVERIFY(run.waitForLine("copying"));
        kill(supervisor, SIGTSTP);
        run.openGate("copy");
        QCOMPARE(SupervisorRun::textOf(saving), QString("A"));
        QVERIFY(waitForState(supervisor, stopped));
        QVERIFY(run.isServing("A"));
        kill(supervisor, SIGCONT);
        QVERIFY(run.answer("startModule", "A").startsWith("'A' is up"));
    }

    void moduleOfSomebodyElseIsNotCopied() {
        SupervisorRun run;
        run.addKeeper("A");
        run.addKeeper("B");
        run.gate("copy");
        run.setCommand("save", "echo \"copying $VEL_MODULES\"; read line <copy");
        QVERIFY(run.start());
        QVERIFY(run.waitUntilUp({"A", "B"}));
        run.answer("stopModule", "A");
        {
            ChildProcess stranger;
            QVERIFY(run.startByHand(stranger, "A"));
            const QDBusPendingCall saving = run.call("ApplicationManager", "save");
            run.openGate("copy");
            QCOMPARE(SupervisorRun::textOf(saving),
                     QString("cannot save 'A', 'B': 'A' runs as process %1, which the supervisor did not start; saved "
                             "without it: 'B'")
                         .arg(stranger.processId()));
            QVERIFY(run.waitForLine("copying B"));
            QVERIFY(run.isServing("A"));
        }
        QVERIFY(QTest::qWaitFor([&run] { return run.processOf("A") == 0; }, 60000));
        const QDBusPendingCall saving = run.call("ApplicationManager", "save");
        QVERIFY(run.waitForLine("copying A B"));
        ChildProcess newcomer;
        QVERIFY(run.startByHand(newcomer, "A"));
        run.openGate("copy");
        QCOMPARE(SupervisorRun::textOf(saving),
                 QString("cannot save 'A', 'B': 'A' was started meanwhile, by somebody else; saved without it: 'B'"));
    }

    void operationWaitsForTheEndOfTheOneBefore() {
        SupervisorRun run;
        run.addKeeper("A");
        run.addKeeper("B");
        run.setCommand("save", "true");
        run.setCommand("restore", "true");
        QVERIFY(run.start());
        QVERIFY(run.waitUntilUp({"A", "B"}));
        const int rounds =
            qEnvironmentVariableIsSet("VEL_TEST_ROUNDS") ? qEnvironmentVariableIntValue("VEL_TEST_ROUNDS") : 50;
        for (int round = 0; round < rounds; ++round) {
            QCOMPARE(SupervisorRun::textOf(run.call("ApplicationManager", round % 2 ? "restore" : "save")),
                     QString("A B"));
            QCoreApplication::processEvents(); // reads what the modules print, who would wait for that in the end
        }
        QList<QDBusPendingCall> together;
        for (int call = 0; call < 6; ++call)
            together += run.call("ApplicationManager", call % 2 ? "restore" : "save");
        for (const QDBusPendingCall& call : together)
            QCOMPARE(SupervisorRun::textOf(call), QString("A B"));
    }

    void whatCallersSendIsBounded() {
        SupervisorRun run;
        run.addKeeper("A", {"--init=hold", run.gate("a")});
        run.setCommand("save", "true");
        QVERIFY(run.start());
        QVERIFY(run.waitForLine("A init"));
        QCOMPARE(
            run.answer("save", QString("A ").repeated(3000000)),
            QString(
                "cannot save: the names of all modules are shorter than these 6000000 characters; nothing was done"));
        QVERIFY(run.answer("startModule", QString(5000000, '\n')).size() < 2000);
        QList<QDBusPendingCall> calls;
        for (int call = 0; call < 1200; ++call)
            calls += run.call("ApplicationManager", "startModule", {"A"});
        QCOMPARE(SupervisorRun::textOf(calls.last()),
                 QString("cannot start 'A': too many calls wait for their answer already; nothing was done"));
        run.openGate("a");
        QVERIFY(SupervisorRun::textOf(calls.first()).startsWith("'A' is up"));
    }

    // The end that a caller asked for is its answer, whoever has the module started again.
    void postponedStopIsAnsweredThoughAStartFollows() {
        SupervisorRun run;
        run.addKeeper("A");
        run.gate("copy");
        run.setCommand("save", "echo copying; read line <copy");
        QVERIFY(run.start());
        QVERIFY(run.waitUntilUp({"A"}));
        const QDBusPendingCall saving = run.call("ApplicationManager", "save");
        QVERIFY(run.waitForLine("copying"));
        const QDBusPendingCall stopping = run.call("ApplicationManager", "stopModule", {"A"});
        const QDBusPendingCall starting = run.call("ApplicationManager", "startModule", {"A"});
        run.openGate("copy");
        QCOMPARE(SupervisorRun::textOf(stopping), QString("'A' ended with NORMAL_EXIT [1]"));
        QVERIFY(SupervisorRun::textOf(starting).startsWith("'A' is up"));
    }
};

QTEST_GUILESS_MAIN(SupervisorHostileTest)

#include "SupervisorHostileTest.moc"
