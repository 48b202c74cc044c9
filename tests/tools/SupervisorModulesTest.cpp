// Starting, stopping and starting again: the order, the limits, what is logged, and what callers are told.
#include "SupervisorRun.h"

#include <QFile>
#include <QJsonArray>
#include <QRegularExpression>
#include <QTest>

#include <csignal>

class SupervisorModulesTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void startFollowsWhatWaitsForWhat();
    void waitingModuleStartsOnceWhatItNeedsIsUp();
    void failureToComeUpIsNamed_data();
    void failureToComeUpIsNamed();
    void restartsBackOffAndGiveUpLoudly();
    void steadyModuleIsForgivenItsEarlierEnds();
    void moduleGetsItsNameArgumentsEnvironmentAndFolder();
    void callsStartStopAndRestart();
    void moduleThatDoesNotEndIsKilled_data();
    void moduleThatDoesNotEndIsKilled();
    void moduleThatAsksForItsEndIsStopped();
    void terminalShowsProgressAndAPipeDoesNot();

private:
    static bool comesUp(const SupervisorRun& run, const QString& method, const QString& name) {
        const QString text = run.answer(method, name);
        return text == QString("'%1' is up, process %2").arg(name).arg(run.processOf(name));
    }
    static QStringList list(const SupervisorRun& run) {
        QDBusPendingCall call = run.call("ApplicationManager", "listModules");
        call.waitForFinished();
        return QDBusReply<QStringList>(call.reply()).value();
    }
};

void SupervisorModulesTest::startFollowsWhatWaitsForWhat() {
    SupervisorRun run;
    run.addModule("Last", {}, {{"waitsFor", QJsonArray{"Middle", "Free"}}});
    run.addModule("Middle", {}, {{"waitsFor", QJsonArray{"First"}}});
    run.addModule("First", {"--init=hold", run.gate("first")});
    run.addModule("Free");
    QVERIFY(run.start());
    QVERIFY(run.waitForLine("First init"));
    QVERIFY(run.waitUntilUp({"Free"})); // nothing orders it, so it does not wait for the one that hangs
    QVERIFY(!run.hasLine("starts 'Middle'"));
    QVERIFY(run.indexOfLine("starts 'First'") < run.indexOfLine("starts 'Free'")); // as the file has them
    const QStringList lines = list(run);
    QCOMPARE(lines.size(), 4);
    QCOMPARE(lines[0], QString("Last: waiting, needs Middle, Free"));
    QVERIFY(lines[2].startsWith("First: starting, process "));
    QVERIFY(lines[3].startsWith("Free: up, process "));
    run.openGate("first");
    QVERIFY(run.waitUntilUp({"Last"}));
    QVERIFY(run.indexOfLine("'First' is up") < run.indexOfLine("starts 'Middle'"));
    QVERIFY(run.indexOfLine("'Middle' is up") < run.indexOfLine("starts 'Last'"));
}

void SupervisorModulesTest::waitingModuleStartsOnceWhatItNeedsIsUp() {
    SupervisorRun run;
    run.addModule("First", {"--init=hold", run.gate("first")}, {{"startLimit", 1.5}});
    run.addModule("Second", {}, {{"waitsFor", QJsonArray{"First"}}});
    QVERIFY(run.start());
    QVERIFY(run.waitForLine("error: cannot start 'First': it did not come up in 1.5 s; it is killed"));
    QVERIFY(run.waitForLine(
        "error: cannot start 'Second': it waits for 'First', which is down; it starts when that is up"));
    QCOMPARE(run.answer("startModule", "Second"),
             QString("cannot start 'Second': it waits for 'First', which is down; it starts when that is up"));
    run.openGate("first");
    QVERIFY(comesUp(run, "startModule", "First"));
    QVERIFY(run.waitUntilUp({"Second"}));
}

void SupervisorModulesTest::failureToComeUpIsNamed_data() {
    QTest::addColumn<QString>("step");
    QTest::addColumn<QString>("command");
    QTest::addColumn<QString>("end");
    QTest::newRow("init fails") << "--init=false"
                                << ""
                                << "ended with INIT_ERROR [3]: init() returned false";
    QTest::newRow("not startable") << ""
                                   << "broken"
                                   << "did not start: FailedToStart [0], '%1': No such file or directory";
    QTest::newRow("crash") << ""
                           << "crashing"
                           << "ended with Crashed [1], by signal 11";
    QTest::newRow("unnamed status") << ""
                                    << "leaving"
                                    << "ended with [42]";
}

void SupervisorModulesTest::failureToComeUpIsNamed() {
    QFETCH(QString, step);
    QFETCH(QString, command);
    QFETCH(QString, end);
    SupervisorRun run;
    const QMap<QString, QByteArray> programs{{"broken", "#!/no/such/interpreter\n"},
                                             {"crashing", "#!/bin/sh\nkill -SEGV $$\n"},
                                             {"leaving", "#!/bin/sh\nexit 42\n"}};
    QJsonObject values{{"restart", QJsonObject{{"on", QJsonArray{}}}}};
    if (!command.isEmpty()) {
        QFile file(run.path(command));
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write(programs[command]);
        file.close();
        QVERIFY(file.setPermissions(QFile::ReadOwner | QFile::ExeOwner));
        values["command"] = command;
        end.replace("%1", file.fileName());
    }
    run.addModule("A", {step}, values);
    QVERIFY(run.start());
    QVERIFY2(run.waitForLine(QString("error: 'A' %1; it stays down").arg(end)),
             qPrintable(run.process().lines().join('\n')));
    QCOMPARE(list(run), QStringList{"A: down, " + end});
    QCOMPARE(run.answer("startModule", "A"), QString("cannot start 'A': it %1; it stays down").arg(end));
}

void SupervisorModulesTest::restartsBackOffAndGiveUpLoudly() {
    SupervisorRun run;
    run.addModule(
        "A", {"--init=false"},
        {{"restart",
          QJsonObject{{"on", QJsonArray{"INIT_ERROR"}}, {"attempts", 3}, {"delay", 0.05}, {"longestDelay", 0.08}}}});
    QVERIFY(run.start());
    QVERIFY(run.waitForLine(
        "error: cannot keep 'A' up: it went down 4 times in a row, last: it ended with INIT_ERROR [3]: init() "
        "returned false; it "
        "stays down until somebody starts it"));
    QStringList attempts;
    for (const QString& line : run.process().lines().filter(" again in "))
        attempts += line.mid(line.indexOf("warning: "));
    QCOMPARE(attempts, (QStringList{"warning: starts 'A' again in 0.05 s, attempt 1 of 3",
                                    "warning: starts 'A' again in 0.08 s, attempt 2 of 3",
                                    "warning: starts 'A' again in 0.08 s, attempt 3 of 3"}));
}

void SupervisorModulesTest::steadyModuleIsForgivenItsEarlierEnds() {
    SupervisorRun run;
    run.addModule("A", {}, {{"restart", QJsonObject{{"attempts", 1}, {"delay", 0.001}, {"steady", 0.001}}}});
    QVERIFY(run.start());
    int seen = 0;
    for (int time = 0; time < 4; ++time) {
        QVERIFY(run.process().waitForLine("'A' is up", seen));
        for (int turn = 0; turn < 20; ++turn)
            list(run); // turns of the supervisor's event loop, in which it sees that A is steady
        seen = run.process().lines().size();
        kill(run.processOf("A"), SIGKILL);
        QVERIFY(run.process().waitForLine("starts 'A' again in 0.001 s, attempt 1 of 1", seen));
    }
}

void SupervisorModulesTest::moduleGetsItsNameArgumentsEnvironmentAndFolder() {
    SupervisorRun run;
    QFile file(run.path("show"));
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write("#!/bin/sh\necho \"$@\"; echo $PWD; echo $X; cat; exit 1\n"); // cat ends: there is no input
    file.close();
    QVERIFY(file.setPermissions(QFile::ReadOwner | QFile::ExeOwner));
    run.addModule("A", {"one two", "--x"}, {{"command", "./show"}, {"environment", QJsonObject{{"X", "value of X"}}}});
    QVERIFY(run.start());
    QVERIFY(run.waitForLine("info: 'A' ended with NORMAL_EXIT [1]"));
    QVERIFY(run.process().lines().contains("one two --x --moduleName=A"));
    QVERIFY(run.process().lines().contains(run.path("")) || run.process().lines().contains(run.path(".").chopped(2)));
    QVERIFY(run.process().lines().contains("value of X"));
}

void SupervisorModulesTest::callsStartStopAndRestart() {
    SupervisorRun run;
    run.addModule("A", {"--run=false"}, {{"restart", QJsonObject{{"on", QJsonArray{"RUN_ERROR"}}}}});
    QVERIFY(run.start());
    QVERIFY(run.waitUntilUp({"A"}));
    QVERIFY(comesUp(run, "startModule", "A"));
    const pid_t before = run.processOf("A");
    QVERIFY(comesUp(run, "restartModule", "A"));
    QVERIFY(run.processOf("A") != before);
    const QString end = "ended with RUN_ERROR [4]: run() returned false";
    QVERIFY(run.waitForLine("warning: 'A' " + end));
    // What was asked to end is not started again, whatever its status.
    QCOMPARE(run.answer("stopModule", "A"), "'A' " + end);
    QCOMPARE(run.answer("stopModule", "A"), "'A' " + end);
    QCOMPARE(list(run), QStringList{"A: down, " + end});
    QVERIFY(comesUp(run, "restartModule", "A"));
    for (const char* verb : {"start", "restart"})
        QCOMPARE(run.answer(QString("%1Module").arg(verb), "B"),
                 QString("cannot %1 'B': there is no such module in the configuration; nothing was done").arg(verb));
    for (const char* name : {"B", "no-name", "\x1b[2J"})
        QCOMPARE(run.answer("stopModule", name), QString("cannot stop '%1': there is no such module, neither in the "
                                                         "configuration nor on the bus; nothing was done")
                                                     .arg(QString(name).replace("\x1b", "\\u001b")));
}

void SupervisorModulesTest::moduleThatDoesNotEndIsKilled_data() {
    QTest::addColumn<bool>("isFrozen");
    QTest::newRow("busy") << false;
    QTest::newRow("frozen") << true;
}

void SupervisorModulesTest::moduleThatDoesNotEndIsKilled() {
    QFETCH(bool, isFrozen);
    SupervisorRun run;
    run.addModule("A", {isFrozen ? "" : "--stop=hold", run.gate("a")}, {{"stopLimit", 0.2}});
    QVERIFY(run.start());
    QVERIFY(run.waitUntilUp({"A"}));
    const pid_t process = run.processOf("A");
    if (isFrozen)
        kill(process, SIGSTOP);
    QCOMPARE(run.answer("stopModule", "A"), QString("'A' was killed: it did not end in 0.2 s"));
    QCOMPARE(processState(process), '\0');
    QVERIFY(run.waitForLine("error: cannot stop 'A': it did not end in 0.2 s; it is killed"));
}

void SupervisorModulesTest::moduleThatAsksForItsEndIsStopped() {
    SupervisorRun run;
    run.addModule("A");
    QVERIFY(run.start());
    QVERIFY(run.waitUntilUp({"A"}));
    run.call("A", "askForStop");
    QVERIFY(run.waitForLine("info: 'A' ended with NORMAL_EXIT [1]"));
    QVERIFY(run.waitForLine("A stop"));
}

void SupervisorModulesTest::terminalShowsProgressAndAPipeDoesNot() {
    SupervisorRun run;
    run.addModule("A");
    run.addModule("B", {}, {{"waitsFor", QJsonArray{"A"}}});
    QVERIFY(run.start());
    QVERIFY(run.waitUntilUp({"A", "B"}));
    run.process().terminate();
    QCOMPARE(run.process().waitForStatus(), 1);
    QVERIFY(run.process().lines().filter("\r").isEmpty());

    ChildProcess terminal; // "script" gives it one
    QVERIFY(terminal.run("script",
                         {"-qec", builtProgram("vel-supervisor") + " " + run.path("supervisor.json"), "/dev/null"}));
    QVERIFY(terminal.waitForLine("2 of 2 up after "));
    const QString progress = terminal.lines().join('\n');
    QVERIFY(progress.contains(QRegularExpression("\r\\033\\[K0 of 2 up: A \\d+\\.\\d s\r")));
    QVERIFY(progress.contains(QRegularExpression("\r\\033\\[K1 of 2 up: B \\d+\\.\\d s\r")));
    QCOMPARE(run.answer("stopModule", "ApplicationManager"), QString("ends all modules, then itself"));
    QCOMPARE(terminal.waitForStatus(), 1);
    QVERIFY(terminal.lines().filter("2 of 2 down after ").size() == 1);
}

QTEST_GUILESS_MAIN(SupervisorModulesTest)

#include "SupervisorModulesTest.moc"
