// The end of the supervisor, asked for or not: what becomes of its modules.
#include "SupervisorRun.h"

#include <QJsonArray>
#include <QTest>

#include <csignal>

namespace {

const QString guardianName = "vel-guardian";

const QByteArray gone(1, '\0');

} // namespace

class SupervisorEndTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void modulesEndInReverseOrder_data();
    void modulesEndInReverseOrder();
    void moduleThatIsStillStartingEnds();
    void secondRequestKillsAtOnce();
    void nothingOutlivesAKilledSupervisor_data();
    void nothingOutlivesAKilledSupervisor();
    void helpersEndWithTheirModule();
    void lostBusEndsEverything();
    void secondSupervisorEndsWithStatus7();
};

void SupervisorEndTest::modulesEndInReverseOrder_data() {
    QTest::addColumn<int>("signalNumber"); // 0: by event
    QTest::newRow("SIGTERM") << SIGTERM;
    QTest::newRow("SIGINT") << SIGINT;
    QTest::newRow("its stop event") << 0;
}

void SupervisorEndTest::modulesEndInReverseOrder() {
    QFETCH(int, signalNumber);
    SupervisorRun run;
    run.addModule("First");
    run.addModule("Middle", {"--stop=hold", run.gate("middle")}, {{"waitsFor", QJsonArray{"First"}}});
    run.addModule("Last", {}, {{"waitsFor", QJsonArray{"Middle"}}});
    run.addModule("Free");
    QVERIFY(run.start());
    QVERIFY(run.waitUntilUp({"First", "Middle", "Last", "Free"}));
    if (signalNumber)
        kill(static_cast<pid_t>(run.process().processId()), signalNumber);
    else
        QVERIFY(run.publish("stop_module_ApplicationManager"));
    QVERIFY(run.waitForLine("Middle stop"));
    QVERIFY(run.waitForLine("'Last' ended with NORMAL_EXIT [1]"));
    QVERIFY(run.waitForLine("stops 'Free'"));
    QVERIFY(!run.hasLine("stops 'First'"));
    run.openGate("middle");
    QCOMPARE(run.process().waitForStatus(), 1);
    QVERIFY(run.indexOfLine("'Middle' ended with NORMAL_EXIT [1]") < run.indexOfLine("stops 'First'"));
    QVERIFY(run.waitForLine("'First' ended with NORMAL_EXIT [1]"));
}

void SupervisorEndTest::moduleThatIsStillStartingEnds() {
    SupervisorRun run;
    run.addModule("A", {"--init=hold", run.gate("a")});
    run.addModule("B", {}, {{"waitsFor", QJsonArray{"A"}}});
    QVERIFY(run.start());
    QVERIFY(run.waitForLine("A init"));
    run.process().terminate();
    QVERIFY(run.waitForLine("stops 'A'")); // it cannot hear that yet, and will not have heard it
    run.openGate("a");
    QCOMPARE(run.process().waitForStatus(), 1);
    QVERIFY(run.waitForLine("'A' ended with NORMAL_EXIT [1]"));
    QVERIFY(!run.hasLine("starts 'B'"));
}

void SupervisorEndTest::secondRequestKillsAtOnce() {
    SupervisorRun run;
    run.addModule("A", {"--stop=hold", run.gate("a")}, {{"stopLimit", 3600}});
    QVERIFY(run.start());
    QVERIFY(run.waitUntilUp({"A"}));
    run.process().terminate();
    QVERIFY(run.waitForLine("A stop"));
    run.process().terminate();
    QCOMPARE(run.process().waitForStatus(), 1);
    QVERIFY(run.waitForLine("'A' ended with Crashed [1], by signal 9"));
}

void SupervisorEndTest::nothingOutlivesAKilledSupervisor_data() {
    QTest::addColumn<int>("signalToGuardian");
    QTest::newRow("with its first guardian") << 0;
    QTest::newRow("whose guardian was killed") << SIGKILL;
    QTest::newRow("whose guardian was stopped") << SIGSTOP;
}

void SupervisorEndTest::nothingOutlivesAKilledSupervisor() {
    QFETCH(int, signalToGuardian);
    SupervisorRun run;
    run.addModule("A", {"--helper"});
    run.addModule("Frozen");
    run.addModule("Wrapped", {"-c", builtProgram("scripted-module") + " \"$@\"; exit $?", "sh"}, {{"command", "sh"}});
    QVERIFY(run.start());
    QVERIFY(run.waitUntilUp({"A", "Frozen", "Wrapped"}));
    const pid_t supervisor = static_cast<pid_t>(run.process().processId());
    kill(run.processOf("Frozen"), SIGSTOP);
    if (signalToGuardian) {
        pid_t first = 0;
        for (const pid_t child : childrenOf(supervisor))
            first = nameOf(child) == guardianName ? child : first;
        QVERIFY(first > 0);
        kill(first, signalToGuardian);
        QVERIFY(run.waitForLine(QString("warning: the guardian, process %1, was ").arg(first)));
        QVERIFY(QTest::qWaitFor([&] {
            for (const pid_t child : childrenOf(supervisor)) {
                if (nameOf(child) == guardianName && child != first && processState(child) == 'S')
                    return true;
            }
            return false;
        }));
    }
    QList<pid_t> processes = childrenOf(supervisor);
    processes += run.process().lines().filter("helper ").first().split(' ').last().toInt();
    processes += run.processOf("Wrapped"); // its parent is the shell
    QVERIFY(!childrenOf(supervisor).contains(processes.last()));
    const bool areForked = qgetenv("VEL_TEST_LAUNCH") == "fork"; // by a launcher, which keeps a spare
    QCOMPARE(processes.size(), areForked ? 8 : 6);
    kill(supervisor, SIGKILL);
    for (const pid_t process : qAsConst(processes))
        QVERIFY2(waitForState(process, gone), qPrintable(nameOf(process)));
}

void SupervisorEndTest::helpersEndWithTheirModule() {
    SupervisorRun run;
    run.addModule("A", {"--helper"}, {{"restart", QJsonObject{{"on", QJsonArray{}}}}});
    QVERIFY(run.start());
    QVERIFY(run.waitUntilUp({"A"}));
    const pid_t helper = run.process().lines().filter("helper ").first().split(' ').last().toInt();
    QVERIFY(processState(helper) != '\0');
    kill(run.processOf("A"), SIGKILL);
    QVERIFY(waitForState(helper, gone));
}

void SupervisorEndTest::lostBusEndsEverything() {
    SupervisorRun run;
    run.addModule("A");
    run.addModule("B", {}, {{"waitsFor", QJsonArray{"A"}}});
    QVERIFY(run.start());
    QVERIFY(run.waitUntilUp({"B"}));
    run.bus().stop();
    QCOMPARE(run.process().waitForStatus(), 5);
    QVERIFY(run.waitForLine("error: cannot supervise any more: the session bus is gone; every module is killed"));
    QVERIFY(run.waitForLine("'A' ended with Crashed [1], by signal 9"));
}

void SupervisorEndTest::secondSupervisorEndsWithStatus7() {
    SupervisorRun run;
    run.addModule("A");
    QVERIFY(run.start());
    QVERIFY(run.waitUntilUp({"A"}));
    ChildProcess second;
    QVERIFY(second.run(builtProgram("vel-supervisor"), {run.path("supervisor.json")}));
    QCOMPARE(second.waitForStatus(), 7);
    QVERIFY(run.isServing("A"));
}

QTEST_GUILESS_MAIN(SupervisorEndTest)

#include "SupervisorEndTest.moc"
