// What a supervisor meets that was not made for it: readers that do not read, strangers, floods and signals.
#include "SupervisorRun.h"

#include <QTest>

#include <csignal>
#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

namespace {

const QByteArray stopped = "T";

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
