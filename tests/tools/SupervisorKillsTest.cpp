// Whichever process is killed, at whatever moment of a save: no process stays stopped.
#include "SupervisorRun.h"

#include <QDir>
#include <QFile>
#include <QRandomGenerator>
#include <QTest>

#include <csignal>
#include <ctime>

namespace {

constexpr int usualRounds = 100;                           // VEL_TEST_ROUNDS may ask for more
constexpr int longestMomentUs = 25000 * VEL_TEST_SLOWNESS; // a save of these modules takes about half of that
constexpr int starts = 50;

const QByteArray gone(1, '\0');
const QByteArray notStopped = gone + "SRD";

// The modules' numbers are their indexes.
enum Victim { FirstModule, SecondModule, ThirdModule, Command, Supervisor, TheGuardian, BusDaemon, victimCount };

pid_t childCalled(pid_t parent, const QString& name) {
    for (const pid_t child : childrenOf(parent)) {
        if (nameOf(child) == name)
            return child;
    }
    return 0;
}

// Whoever belongs to that run: the supervisor and copies of it by their command line, modules by their folder.
QList<pid_t> processesOf(const SupervisorRun& run) {
    QList<pid_t> processes;
    const QStringList entries = QDir("/proc").entryList({"[1-9]*"}, QDir::Dirs);
    for (const QString& entry : entries) {
        QFile file("/proc/" + entry + "/cmdline");
        const QString commandLine = file.open(QIODevice::ReadOnly) ? QString::fromLocal8Bit(file.readAll()) : QString();
        if (processState(entry.toInt()) && (commandLine.contains(run.path("supervisor.json")) ||
                                            QFile::symLinkTarget("/proc/" + entry + "/cwd") + '/' == run.path("")))
            processes += entry.toInt();
    }
    return processes;
}

// The one place that waits for time: the moment is what the test is about.
void waitFor(quint32 microseconds) {
    const timespec time{0, static_cast<long>(microseconds) * 1000};
    nanosleep(&time, nullptr);
}

} // namespace

class SupervisorKillsTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void noProcessStaysStopped_data();
    void noProcessStaysStopped();
    void nothingOutlivesASupervisorKilledWhileItStarts_data();
    void nothingOutlivesASupervisorKilledWhileItStarts();
};

void SupervisorKillsTest::noProcessStaysStopped_data() {
    QTest::addColumn<int>("victim");
    QTest::addColumn<quint32>("moment");
    // The moments are the same in every run, so that a failure can be had again; the machine makes them differ enough.
    const int rounds =
        qEnvironmentVariableIsSet("VEL_TEST_ROUNDS") ? qEnvironmentVariableIntValue("VEL_TEST_ROUNDS") : usualRounds;
    QRandomGenerator random(4711 + static_cast<quint32>(rounds - usualRounds));
    for (int round = 0; round < rounds; ++round) {
        const quint32 moment = random.bounded(longestMomentUs);
        QTest::addRow("%d", round) << round % victimCount << moment;
    }
}

void SupervisorKillsTest::noProcessStaysStopped() {
    QFETCH(int, victim);
    QFETCH(quint32, moment);
    SupervisorRun run;
    for (const char* name : {"A", "B", "C"})
        run.addKeeper(name);
    run.setCommand("save", "sleep 0.003");
    QVERIFY(run.start());
    QVERIFY(run.waitUntilUp({"A", "B", "C"}));
    const pid_t supervisor = static_cast<pid_t>(run.process().processId());
    const pid_t guardian = childCalled(supervisor, "vel-guardian");
    const QList<pid_t> modules{run.processOf("A"), run.processOf("B"), run.processOf("C")};
    const pid_t bus = static_cast<pid_t>(run.bus().processId());

    QDBusPendingCall call = run.call("ApplicationManager", "save");
    waitFor(moment);
    pid_t command = 0; // there may be none at that moment
    for (const pid_t child : childrenOf(supervisor))
        command = child != guardian && !modules.contains(child) ? child : command;
    const QMap<int, pid_t> processes{{FirstModule, modules[0]}, {SecondModule, modules[1]}, {ThirdModule, modules[2]},
                                     {Command, command},        {Supervisor, supervisor},   {TheGuardian, guardian},
                                     {BusDaemon, bus}};
    if (processes[victim] > 0)
        kill(processes[victim], SIGKILL);

    if (victim == Supervisor || victim == BusDaemon) {
        if (victim == BusDaemon)
            QCOMPARE(run.process().waitForStatus(), 5);
        for (const pid_t process : modules)
            QVERIFY(waitForState(process, gone));
        return;
    }
    call.waitForFinished();
    for (int index = 0; index < modules.size(); ++index) {
        if (index == victim) {
            QVERIFY(waitForState(modules[index], gone));
            continue;
        }
        QVERIFY(waitForState(modules[index], notStopped));
        QVERIFY(run.isServing(QString(QChar('A' + index)))); // it is past whatever was to freeze it
        QCOMPARE(run.processOf(QString(QChar('A' + index))), modules[index]);
        QVERIFY(notStopped.contains(processState(modules[index])));
    }
}

void SupervisorKillsTest::nothingOutlivesASupervisorKilledWhileItStarts_data() {
    QTest::addColumn<quint32>("moment");
    QRandomGenerator random(815);
    for (int round = 0; round < starts; ++round)
        QTest::addRow("%d", round) << random.bounded(static_cast<quint32>(longestMomentUs));
}

void SupervisorKillsTest::nothingOutlivesASupervisorKilledWhileItStarts() {
    QFETCH(quint32, moment);
    SupervisorRun run;
    for (const char* name : {"A", "B", "C"})
        run.addModule(name, {"--helper"});
    QVERIFY(run.start());
    waitFor(moment);
    kill(static_cast<pid_t>(run.process().processId()), SIGKILL);
    QCOMPARE(run.process().waitForStatus(), -1); // by a signal
    QVERIFY(QTest::qWaitFor([&] { return processesOf(run).isEmpty(); }, 60000));
}

QTEST_GUILESS_MAIN(SupervisorKillsTest)

#include "SupervisorKillsTest.moc"
