// Saves and restores: who takes part, what the callers are told, and that everybody goes on.
#include "SupervisorRun.h"

#include <QFile>
#include <QJsonArray>
#include <QTest>

#include <csignal>
#include <sys/ptrace.h>
#include <sys/wait.h>

namespace {

const QByteArray stopped = "T";
const QByteArray running = "SR";

} // namespace

class SupervisorSaveTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void saveFreezesCopiesAndResumes();
    void restoreRunsThePostStep();
    void failingCommandIsToldAndEverybodyGoesOn_data();
    void failingCommandIsToldAndEverybodyGoesOn();
    void impossibleSaveIsRefused_data();
    void impossibleSaveIsRefused();
    void moduleThatTakesNoPartIsNamed_data();
    void moduleThatTakesNoPartIsNamed();
    void moduleThatFreezesTooLateIsResumed_data();
    void moduleThatFreezesTooLateIsResumed();
    void moduleThatEndsMeanwhileIsNamed_data();
    void moduleThatEndsMeanwhileIsNamed();
    void onlyItsOwnFreezeCounts();
    void processOfADebuggerIsNotTakenForASavedOne();
    void requestsWaitForTheEndOfASave();
    void supervisorThatIsToldToEndResumesFirst_data();
    void supervisorThatIsToldToEndResumesFirst();

private:
    // Modules A, of that behaviour, and B; the save's command waits at the gate "copy" when it is to hold.
    static bool start(SupervisorRun& run, const QStringList& optionsOfA, bool commandHolds = false) {
        run.addKeeper("A", optionsOfA);
        run.addKeeper("B");
        run.gate("copy");
        run.setCommand("save", "printf '%s\n' \"$VEL_OPERATION\" \"$VEL_MODULES\" \"$@\" >copied; echo copying" +
                                   QString(commandHolds ? "; read line <copy" : ""));
        return run.start() && run.waitUntilUp({"A", "B"});
    }
    static QDBusPendingCall save(const SupervisorRun& run) { return run.call("ApplicationManager", "save"); }
    static QStringList copied(const SupervisorRun& run) {
        QFile file(run.path("copied"));
        return file.open(QIODevice::ReadOnly) ? QString::fromUtf8(file.readAll()).split('\n', Qt::SkipEmptyParts)
                                              : QStringList();
    }
};

void SupervisorSaveTest::saveFreezesCopiesAndResumes() {
    SupervisorRun run;
    run.addModule("WithoutData");
    run.addKeeper("Down");
    QVERIFY(start(run, {}, true));
    QVERIFY(run.waitUntilUp({"WithoutData", "Down"}));
    run.answer("stopModule", "Down"); // it cannot change its data either
    const pid_t a = run.processOf("A");
    const pid_t b = run.processOf("B");
    const QDBusPendingCall call = save(run);
    QVERIFY(run.waitForLine("copying"));
    QCOMPARE(processState(a), 'T');
    QCOMPARE(processState(b), 'T');
    QVERIFY(run.isServing("WithoutData"));
    QCOMPARE(copied(run), (QStringList{"save", "Down A B", run.path("Down"), run.path("A"), run.path("B")}));
    run.openGate("copy");
    QCOMPARE(SupervisorRun::textOf(call), QString("Down A B"));
    QVERIFY(run.isServing("A"));
    QVERIFY(run.isServing("B"));
    QVERIFY(run.waitForLine("info: save: done, Down, A, B took part"));

    run.openGate("copy");
    QCOMPARE(run.answer("save", "B"), QString("B")); // and once more, for one
    QCOMPARE(copied(run), (QStringList{"save", "B", run.path("B")}));
    QVERIFY(run.isServing("B"));
}

void SupervisorSaveTest::restoreRunsThePostStep() {
    SupervisorRun run;
    run.setCommand("restore",
                   "printf '%s\n' \"$VEL_OPERATION\" \"$VEL_MODULES\" >copied; echo copying; exit $(cat status)");
    QVERIFY(start(run, {}));
    QFile status(run.path("status"));
    QVERIFY(status.open(QIODevice::WriteOnly | QIODevice::Unbuffered));
    status.write("0");
    QCOMPARE(run.answer("restore", "A"), QString("A"));
    QCOMPARE(copied(run), (QStringList{"restore", "A"}));
    QVERIFY(run.waitForLine("A postRestore"));
    QVERIFY(run.indexOfLine("copying") < run.indexOfLine("A postRestore"));
    QVERIFY(!run.hasLine("A preSave"));

    status.seek(0);
    status.write("3"); // half-restored data is not to be taken over
    QCOMPARE(
        run.answer("restore", "B"),
        QString("cannot restore 'B': the command '/usr/bin/sh' ended with status 3; the data may be half restored"));
    run.answer("stopModule", "B");
    QVERIFY(run.waitForLine("B stop"));
    QVERIFY(!run.hasLine("B postRestore"));
}

void SupervisorSaveTest::failingCommandIsToldAndEverybodyGoesOn_data() {
    QTest::addColumn<QString>("command");
    QTest::addColumn<double>("limit");
    QTest::addColumn<QString>("reason");
    QTest::newRow("status") << "exit 7" << 600. << "'%1' ended with status 7";
    QTest::newRow("signal") << "kill -KILL $$" << 600. << "ended with Crashed [1], by signal 9";
    QTest::newRow("too slow") << "sleep 3600" << 0.2 << "'%1' was killed: it did not end in time";
    QTest::newRow("not startable") << "" << 600. << "did not start: FailedToStart [0], '%1': No such file or directory";
}

void SupervisorSaveTest::failingCommandIsToldAndEverybodyGoesOn() {
    QFETCH(QString, command);
    QFETCH(double, limit);
    QFETCH(QString, reason);
    SupervisorRun run;
    run.addKeeper("A");
    run.addKeeper("B");
    QString program = "/usr/bin/sh";
    if (command.isEmpty()) {
        program = run.path("broken");
        QFile file(program);
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write("#!/no/such/interpreter\n");
        file.close();
        QVERIFY(file.setPermissions(QFile::ReadOwner | QFile::ExeOwner));
        run.set("save", QJsonObject{{"command", program}});
    } else {
        run.setCommand("save", command, limit);
    }
    QVERIFY(run.start());
    QVERIFY(run.waitUntilUp({"A", "B"}));
    QCOMPARE(SupervisorRun::textOf(save(run)),
             QString("cannot save 'A', 'B': the command %1; what the command has written is not to be relied on")
                 .arg(reason.replace("%1", program)));
    QVERIFY(run.isServing("A"));
    QVERIFY(run.isServing("B"));
}

void SupervisorSaveTest::impossibleSaveIsRefused_data() {
    QTest::addColumn<QString>("method");
    QTest::addColumn<QString>("modules");
    QTest::addColumn<QString>("text");
    QTest::newRow("unknown module") << "save"
                                    << "A Nobody"
                                    << "cannot save 'A', 'Nobody': there is no module 'Nobody' in the configuration; "
                                       "nothing was done";
    QTest::newRow("no data") << "save"
                             << "WithoutData"
                             << "cannot save 'WithoutData': 'WithoutData' has no data folder; nothing was done";
    QTest::newRow("twice") << "save"
                           << "A  A"
                           << "cannot save 'A', 'A': 'A' is named twice; nothing was done";
    QTest::newRow("no command") << "restore"
                                << "A"
                                << "cannot restore 'A': the configuration has no key 'restore'; nothing was done";
}

void SupervisorSaveTest::impossibleSaveIsRefused() {
    QFETCH(QString, method);
    QFETCH(QString, modules);
    QFETCH(QString, text);
    SupervisorRun run;
    run.addModule("WithoutData");
    QVERIFY(start(run, {}, true));
    QCOMPARE(run.answer(method, modules), text);
}

void SupervisorSaveTest::moduleThatTakesNoPartIsNamed_data() {
    QTest::addColumn<QStringList>("options");
    QTest::newRow("not subscribed") << QStringList{"--deaf"};
    QTest::newRow("failing preparation") << QStringList{"--preSave=QString"};
}

void SupervisorSaveTest::moduleThatTakesNoPartIsNamed() {
    VEL_SKIP_WHERE_IMPOSSIBLE();
    QFETCH(QStringList, options);
    SupervisorRun run;
    run.set("answerLimit", 3600); // it is found out at once
    QVERIFY(start(run, options));
    QCOMPARE(
        SupervisorRun::textOf(save(run)),
        QString("cannot save 'A', 'B': 'A' went on without freezing: it takes no part in saves, or its preparation "
                "failed; saved without it: 'B'"));
    QCOMPARE(copied(run), (QStringList{"save", "B", run.path("B")}));
    QCOMPARE(run.answer("save", "A"),
             QString("cannot save 'A': 'A' went on without freezing: it takes no part in saves, or "
                     "its preparation failed; nothing was saved"));
    QVERIFY(run.isServing("A"));
    QVERIFY(run.isServing("B"));
}

void SupervisorSaveTest::moduleThatFreezesTooLateIsResumed_data() {
    QTest::addColumn<QString>("preSave");
    QTest::addColumn<QString>("reason");
    QTest::newRow("busy") << "hold"
                          << "did not answer in time";
    QTest::newRow("with an event loop of its own")
        << "loop"
        << "went on without freezing: it takes no part in saves, or its preparation failed";
}

void SupervisorSaveTest::moduleThatFreezesTooLateIsResumed() {
    QFETCH(QString, preSave);
    SupervisorRun run;
    run.set("answerLimit", 2);
    QVERIFY(start(run, {"--preSave=" + preSave, run.gate("a")}));
    const pid_t a = run.processOf("A");
    const QString text = SupervisorRun::textOf(save(run));
    const QString busy = "cannot save 'A', 'B': 'A' did not answer in time; saved without it: 'B'";
    const QString passing = "cannot save 'A', 'B': 'A' went on without freezing: it takes no part in saves, or its "
                            "preparation failed; saved without it: 'B'";
    // An inner event loop may let calls pass or not: Qt leaves what was posted together with its cause until it is woken.
    QVERIFY2(text == busy || (preSave == "loop" && text == passing), qPrintable(text));
    QVERIFY(run.isServing("B"));
    if (preSave == "hold")
        QCOMPARE(run.answer("save", "A"),
                 QString("cannot save 'A': 'A' has not yet come through the last save or restore; nothing was saved"));
    run.openGate("a");
    QVERIFY(run.isServing("A")); // it has answered, frozen, and been resumed
    QCOMPARE(run.answer("stopModule", "A"), QString("'A' ended with NORMAL_EXIT [1]"));
    QCOMPARE(processState(a), '\0');
}

void SupervisorSaveTest::moduleThatEndsMeanwhileIsNamed_data() {
    QTest::addColumn<bool>("isFrozen");
    QTest::newRow("before it answers") << false;
    QTest::newRow("while it is frozen") << true;
}

void SupervisorSaveTest::moduleThatEndsMeanwhileIsNamed() {
    QFETCH(bool, isFrozen);
    SupervisorRun run;
    QVERIFY(start(run, {isFrozen ? "" : "--preSave=hold", run.gate("a")}, true));
    const pid_t a = run.processOf("A");
    const QDBusPendingCall call = save(run);
    QVERIFY(run.waitForLine(isFrozen ? "copying" : "A preSave"));
    kill(a, SIGKILL);
    QVERIFY(run.waitForLine("'A' ended with Crashed [1], by signal 9"));
    if (!isFrozen)
        QVERIFY(run.waitForLine("copying"));
    QVERIFY(!run.hasLine("A init") ||
            run.process().lines().filter("A init").size() == 1); // not while its data is copied
    run.openGate("copy");
    QCOMPARE(SupervisorRun::textOf(call), QString("cannot save 'A', 'B': 'A' ended meanwhile; saved without it: 'B'"));
    QVERIFY(run.isServing("B"));
    QVERIFY(run.waitForLine("starts 'A' again in 1 s"));
    QVERIFY(run.process().waitForLine("'A' is up", run.indexOfLine("again in 1 s"))); // only after the save
}

// Stopped by somebody else is not saved, and resumed by somebody else is not saved either.
void SupervisorSaveTest::onlyItsOwnFreezeCounts() {
    SupervisorRun run;
    run.set("answerLimit", 2);
    QVERIFY(start(run, {}, true));
    const pid_t a = run.processOf("A");
    const pid_t b = run.processOf("B");
    kill(a, SIGSTOP);
    QVERIFY(waitForState(a, stopped));
    const QDBusPendingCall call = save(run);
    QVERIFY(run.waitForLine("copying"));
    QCOMPARE(copied(run), (QStringList{"save", "B", run.path("B")}));
    kill(b, SIGCONT);
    QVERIFY(waitForState(b, running));
    run.openGate("copy");
    QCOMPARE(
        SupervisorRun::textOf(call),
        QString("cannot save 'A', 'B': 'A' did not answer in time: somebody else has stopped it, 'B' was resumed too "
                "early, by somebody else; what was saved is not to be relied on"));
    QCOMPARE(processState(a), 'T'); // that is somebody else's affair
    kill(a, SIGCONT);               // now it hears of the save, and freezes
    QVERIFY(run.isServing("A"));
}

void SupervisorSaveTest::processOfADebuggerIsNotTakenForASavedOne() {
    SupervisorRun run;
    run.set("answerLimit", 2);
    QVERIFY(start(run, {}));
    const pid_t a = run.processOf("A");
    if (ptrace(PTRACE_SEIZE, a, nullptr, nullptr) != 0)
        QSKIP("this machine does not let a test debug another process");
    QCOMPARE(
        SupervisorRun::textOf(save(run)),
        QString("cannot save 'A', 'B': 'A' answered, but did not freeze in time: process %1 debugs it; saved without "
                "it: 'B'")
            .arg(getpid()));
    QCOMPARE(copied(run), (QStringList{"save", "B", run.path("B")}));
    int status = 0;
    QCOMPARE(waitpid(a, &status, __WALL), a);
    QVERIFY(WIFSTOPPED(status));
    QCOMPARE(processState(a), 't'); // and it is left to the debugger
    QCOMPARE(ptrace(PTRACE_DETACH, a, nullptr, SIGSTOP), 0L);
    QVERIFY(run.isServing("A")); // the freeze was to come yet, and was resumed
}

void SupervisorSaveTest::requestsWaitForTheEndOfASave() {
    SupervisorRun run;
    QVERIFY(start(run, {}, true));
    const QDBusPendingCall saving = save(run);
    QVERIFY(run.waitForLine("copying"));
    const QDBusPendingCall stopping = run.call("ApplicationManager", "stopModule", {"A"});
    const QDBusPendingCall restarting = run.call("ApplicationManager", "restartModule", {"B"});
    run.call("ApplicationManager", "listModules").waitForFinished(); // both have been heard
    run.openGate("copy");
    QCOMPARE(SupervisorRun::textOf(saving), QString("A B"));
    QCOMPARE(SupervisorRun::textOf(stopping), QString("'A' ended with NORMAL_EXIT [1]"));
    QVERIFY(SupervisorRun::textOf(restarting).startsWith("'B' is up, process "));
    QVERIFY(run.waitForLine("stops 'A'"));
    QVERIFY(run.indexOfLine("save: done") < run.indexOfLine("stops '"));
}

void SupervisorSaveTest::supervisorThatIsToldToEndResumesFirst_data() {
    QTest::addColumn<bool>("copies");
    QTest::newRow("while modules freeze") << false;
    QTest::newRow("while the command runs") << true;
}

void SupervisorSaveTest::supervisorThatIsToldToEndResumesFirst() {
    QFETCH(bool, copies);
    SupervisorRun run;
    QVERIFY(start(run, {copies ? "" : "--preSave=hold", run.gate("a")}, true));
    const pid_t b = run.processOf("B");
    const QDBusPendingCall call = save(run);
    QVERIFY(waitForState(b, stopped));
    QVERIFY(run.waitForLine(copies ? "copying" : "A preSave"));
    run.process().terminate();
    const QString start = "cannot save 'A', 'B': the supervisor is told to end";
    const QString text = SupervisorRun::textOf(call);
    QVERIFY2(text.startsWith(start), qPrintable(text));
    run.openGate("a");
    QCOMPARE(run.process().waitForStatus(), 1);
    QVERIFY(run.waitForLine("'A' ended with NORMAL_EXIT [1]"));
    QVERIFY(run.waitForLine("'B' ended with NORMAL_EXIT [1]"));
}

QTEST_GUILESS_MAIN(SupervisorSaveTest)

#include "SupervisorSaveTest.moc"
