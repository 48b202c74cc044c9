// Save and restore with a real process: what it logs and answers, that it really stops, and that it goes on.
#include "SkipList.h"
#include "testing/BusTest.h"
#include "testing/EventListener.h"

#include "module/VelModule.h"

#include <QTest>

#include <csignal>
#include <sys/wait.h>

namespace {

constexpr int longestWaitMs = 60000;

const QString scripted = "Scripted";
const QString saveEvent = "test_save"; // what the scripted module subscribes its slots to
const QString restoredEvent = "test_restored";
const QString listKey = "ModulesPidsList";
const QString saveKey = "Save";

QVariantMap request(const QString& list, bool save) {
    return {{listKey, list}, {saveKey, save}};
}

// Whether the kernel has a stop of the child to report; each stop is reported once.
bool takeStop(const ChildProcess& child) {
    siginfo_t report{};
    return waitid(P_PID, static_cast<id_t>(child.processId()), &report, WSTOPPED | WNOHANG) == 0 && report.si_pid != 0;
}

bool waitForStop(const ChildProcess& child) {
    return QTest::qWaitFor([&] { return takeStop(child); }, longestWaitMs);
}

void resume(const ChildProcess& child) {
    ::kill(static_cast<pid_t>(child.processId()), SIGCONT);
}

QStringList logged(const QStringList& lines) {
    QStringList result;
    for (const QString& line : lines)
        result << (line.startsWith("hook") || line.startsWith("worker") ? line : QString("LOG ") + line);
    return result;
}

} // namespace

class SaveRestoreTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init() {
        m_answers = std::make_unique<EventListener>();
        QVERIFY(m_supervisor.subscribeEvent("stop_save_restore_OK", m_answers.get(), SLOT(heard(VelEvent))));
        bustest::waitForBus(QDBusConnection::sessionBus());
        m_child = std::make_unique<ChildProcess>();
        m_child->setVariable("VEL_TEST_LOG", "1");
        m_child->setVariable("VEL_LOG_LEVEL", "7");
    }

    void cleanup() {
        m_child.reset(); // a stopped one too
        m_answers.reset();
    }

    void saveIsAnsweredAndStopsTheProcessInOrder() {
        start();
        QVERIFY(m_supervisor.notifyEvent(saveEvent, request(scripted, true)));
        QVERIFY(waitForStop(*m_child));
        QCOMPARE(m_child->processState(), 'T');
        bustest::settle(QDBusConnection::sessionBus());
        QCOMPARE(m_answers->events().size(), 1u);
        const VelEvent& answer = m_answers->events().front();
        QCOMPARE(answer.getEvtName(), "stop_save_restore_OK");
        QCOMPARE(answer.getContext(), QString());
        QCOMPARE(answer.getArguments(), (QVariantMap{{"ModuleName", scripted}}));

        QVERIFY(m_child->waitForLine("Entering pause mode...", m_linesBefore));
        const QStringList untilTheStop =
            logged({"debug: Preparing for Save operations", "debug: Entering critical section",
                    "debug: Pre-saving data", "hook preSave", "debug: Data pre-saved",
                    "debug: Leaving critical section", "debug: Entering pause mode..."});
        QCOMPARE(newLines(), untilTheStop);

        resume(*m_child);
        QVERIFY(m_child->waitForLine("...Leaving pause mode", m_linesBefore));
        QCOMPARE(newLines(), untilTheStop + logged({"debug: ...Leaving pause mode"}));
        provesToRun();
        QCOMPARE(m_answers->events().size(), 1u);
    }

    void restoreStopsTheProcessWithoutAPreSave_data() {
        QTest::addColumn<QVariantMap>("arguments");
        QTest::newRow("not to save") << request(scripted, false);
        QTest::newRow("not said") << QVariantMap{{listKey, scripted}};
    }

    void restoreStopsTheProcessWithoutAPreSave() {
        QFETCH(QVariantMap, arguments);
        start();
        QVERIFY(m_supervisor.notifyEvent(saveEvent, arguments));
        QVERIFY(waitForStop(*m_child));
        resume(*m_child);
        QVERIFY(m_child->waitForLine("...Leaving pause mode", m_linesBefore));
        QCOMPARE(newLines(), logged({"debug: Entering pause mode...", "debug: ...Leaving pause mode"}));
        provesToRun();
        QCOMPARE(m_answers->events().size(), 1u);
    }

    void whatIsPublishedDuringAFreezeIsHandledAfterIt() {
        start();
        QVERIFY(m_supervisor.notifyEvent(saveEvent, request(scripted, false)));
        QVERIFY(waitForStop(*m_child));
        QVERIFY(m_supervisor.notifyEvent(restoredEvent, {{"modules", scripted}}));
        QVERIFY(m_supervisor.notifyEvent(saveEvent, request(scripted, true)));
        resume(*m_child);
        QVERIFY(waitForStop(*m_child));
        resume(*m_child);
        provesToRun();
        QCOMPARE(m_answers->events().size(), 2u);
        const QStringList lines = newLines();
        const int postRestore = lines.indexOf("hook postRestore");
        QVERIFY(lines.indexOf(logged({"debug: ...Leaving pause mode"}).first()) < postRestore);
        QVERIFY(postRestore < lines.indexOf("hook preSave"));
    }

    void listNamesModulesBySubstring_data() {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QVariant>("list");
        QTest::addColumn<bool>("named");
        QTest::newRow("among others") << scripted << QVariant("Tuner:12,Scripted:14,Display:15") << true;
        QTest::newRow("inside a longer name") << "Media" << QVariant("MediaPlayer") << true;
        QTest::newRow("another case") << scripted << QVariant("scripted SCRIPTED") << false;
        QTest::newRow("empty") << scripted << QVariant("") << false;
        QTest::newRow("missing") << scripted << QVariant() << false;
    }

    void listNamesModulesBySubstring() {
        QFETCH(QString, name);
        QFETCH(QVariant, list);
        QFETCH(bool, named);
        start({QString("--moduleName=") + name});
        QVariantMap arguments{{saveKey, true}};
        if (list.isValid())
            arguments.insert(listKey, list);
        QVERIFY(m_supervisor.notifyEvent(saveEvent, arguments));
        if (named) {
            QVERIFY(waitForStop(*m_child));
            bustest::settle(QDBusConnection::sessionBus());
            QCOMPARE(m_answers->events().size(), 1u);
            QCOMPARE(m_answers->events().front().getArguments(), (QVariantMap{{"ModuleName", name}}));
            return;
        }
        QCOMPARE(bustest::call(QDBusConnection::sessionBus(), name, "echo", {"still here"}).arguments(),
                 QVariantList{"still here"});
        bustest::settle(QDBusConnection::sessionBus());
        QVERIFY(!takeStop(*m_child));
        QVERIFY(m_answers->events().empty());
        QCOMPARE(newLines(), QStringList());
    }

    void throwingPreSaveIsNeitherAnsweredNorStopped() {
        const QString netsLine = "error: QString exception catch in VelApplication: thrown text";
        const QString receiversLine =
            "error: cannot deliver a call to 'ScriptedModule': it threw 'thrown text'; the module goes on";
        VEL_SKIP_WHERE_IMPOSSIBLE();
        start({"--preSave=QString"});
        QVERIFY(m_supervisor.notifyEvent(saveEvent, request(scripted, true)));
        provesToRun();
        QVERIFY(m_answers->events().empty());
        QVERIFY(m_child->waitForLine(receiversLine, m_linesBefore));
        QCOMPARE(newLines(), logged({"debug: Preparing for Save operations", "debug: Entering critical section",
                                     "debug: Pre-saving data", "hook preSave", "debug: Leaving critical section",
                                     netsLine, receiversLine}));

        ask("script", {"preSave", QString()});
        QVERIFY(m_supervisor.notifyEvent(saveEvent, request(scripted, true)));
        QVERIFY(waitForStop(*m_child));
        bustest::settle(QDBusConnection::sessionBus());
        QCOMPARE(m_answers->events().size(), 1u);
    }

    void workerInTheSectionDelaysThePreSave() {
        start();
        QCOMPARE(ask("startWorker").type(), QDBusMessage::ReplyMessage);
        QCOMPARE(ask("leaveSection").type(), QDBusMessage::ReplyMessage); // by a thread that does not hold it
        QVERIFY(m_supervisor.notifyEvent(saveEvent, request(scripted, true)));
        QVERIFY(m_child->waitForLine("Preparing for Save operations", m_linesBefore));
        const int preparing = m_child->lines().size();
        QVERIFY(m_child->lines().last().contains("Entering critical section") ||
                m_child->waitForLine("Entering critical section", preparing));
        m_child->write("leave\n");
        QVERIFY(waitForStop(*m_child));
        QVERIFY(m_child->waitForLine("Entering pause mode...", m_linesBefore));
        QCOMPARE(newLines(),
                 logged({"debug: Entering critical section", "debug: Preparing for Save operations",
                         "debug: Entering critical section", "worker leaves", "debug: Leaving critical section",
                         "debug: Pre-saving data", "hook preSave", "debug: Data pre-saved",
                         "debug: Leaving critical section", "debug: Entering pause mode..."}));
    }

    void postRestoreRunsOnceWhenNamed_data() {
        QTest::addColumn<QVariantMap>("arguments");
        QTest::addColumn<int>("runs");
        const QString key = "modules";
        QTest::newRow("named") << QVariantMap{{key, "Tuner,Scripted"}} << 1;
        QTest::newRow("another case") << QVariantMap{{key, "scripted"}} << 0;
        QTest::newRow("missing") << QVariantMap{{listKey, "Scripted"}} << 0;
    }

    void postRestoreRunsOnceWhenNamed() {
        QFETCH(QVariantMap, arguments);
        QFETCH(int, runs);
        start();
        QVERIFY(m_supervisor.notifyEvent(restoredEvent, arguments));
        provesToRun();
        // The end's line comes after whatever the module wrote before.
        QVERIFY(m_supervisor.notifyEvent("stop_module_Scripted"));
        QVERIFY(m_child->waitForLine("stopModuleEvent", m_linesBefore));
        QCOMPARE(newLines().mid(0, runs + 1), QVector<QString>(runs, "hook postRestore").toList() +
                                                  logged({"debug: stopModuleEvent for module Scripted in RUN state "}));
        QVERIFY(m_answers->events().empty());
    }

    void withoutAKillProgramTheModuleGoesOn() {
        m_child->setVariable("PATH", "/nonexistent");
        start();
        QVERIFY(m_supervisor.notifyEvent(saveEvent, request(scripted, false)));
        QVERIFY(m_child->waitForLine("...Leaving pause mode", m_linesBefore));
        provesToRun();
        QCOMPARE(m_answers->events().size(), 1u);
    }

    void answerIsHeardWhileTheProcessIsStopped() {
        // Sending only queues a message, and the thread that sends it freezes with the rest: without precaution some
        // answers stay behind, more of them on a loaded machine.
        constexpr int rounds = 200;
        ChildProcess busy[2];
        for (ChildProcess& process : busy)
            QVERIFY(process.run("sh", {"-c", "while :; do :; done"}));
        m_child->setVariable("VEL_LOG_LEVEL", "3");
        start();
        for (unsigned round = 1; round <= rounds; ++round) {
            QVERIFY(m_supervisor.notifyEvent(saveEvent, request(scripted, round % 2)));
            QVERIFY(waitForStop(*m_child));
            QCOMPARE(m_child->processState(), 'T');
            bustest::settle(QDBusConnection::sessionBus());
            QCOMPARE(m_answers->events().size(), round);
            resume(*m_child);
        }
        provesToRun();
    }

private:
    void start(const QStringList& arguments = QStringList()) {
        QVERIFY(m_child->run(bustest::program("scripted-module"), arguments));
        QVERIFY(m_child->waitForLine("hook run"));
        m_linesBefore = m_child->lines().size();
    }

    QDBusMessage ask(const QString& method, const QVariantList& arguments = QVariantList()) {
        return bustest::call(QDBusConnection::sessionBus(), scripted, method, arguments);
    }
    // Its answer comes after everything that was published before on this connection has been handled.
    void provesToRun() {
        QCOMPARE(ask("state").arguments(), QVariantList{"RUN"});
        bustest::settle(QDBusConnection::sessionBus());
        QVERIFY(!takeStop(*m_child));
    }

    QStringList newLines() const { return m_child->lines().mid(m_linesBefore); }

    VelModule m_supervisor{"Supervisor"};
    std::unique_ptr<ChildProcess> m_child;
    std::unique_ptr<EventListener> m_answers;
    int m_linesBefore = 0;
};

VEL_TEST_MAIN(SaveRestoreTest)
#include "SaveRestoreTest.moc"
