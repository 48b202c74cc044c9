// velctl list and velctl status, with modules in every state.
#include "VelctlRun.h"

#include "SkipList.h"
#include "testing/BusTest.h"

#include <QJsonArray>
#include <QTest>

#include <sys/ptrace.h>

class VelctlTestModules : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void listOfAnEmptyBusIsEmpty();
    void listTellsTheStatesApart();
    void listNamesTheProgram();
    void listForPeopleIsAligned();
    void statusTellsNamesAndMethods();
    void statusOfASilentModuleTellsWhy_data();
    void statusOfASilentModuleTellsWhy();
    void statusOfAnAbsentModuleNamesTheNearest();
};

void VelctlTestModules::listOfAnEmptyBusIsEmpty() {
    const Outcome outcome = velctl({"list"});
    QCOMPARE(outcome.status, 0);
    QVERIFY(outcome.out.isEmpty());
    QCOMPARE(outcome.err, QString("velctl: there is no module on the bus\n"));
    QVERIFY(velctl({"list", "--json"}).out.isEmpty());
}

void VelctlTestModules::listTellsTheStatesApart() {
    const auto running = startPeer("Running");
    const auto saved = startPeer("Saved");
    const auto stopped = startPeer("Stopped");
    const auto busy = startPeer("Busy");
    QVERIFY(running && saved && stopped && busy);
    QVERIFY(save(*saved, "Saved"));
    QVERIFY(stopFromOutside(*stopped));
    QVERIFY(makeBusy(*busy, "Busy"));

    const QList<QJsonObject> modules = velctl({"list", "--json"}).objects();
    QCOMPARE(modules.size(), 4);
    const QStringList expected = {"Busy unresponsive", "Running running", "Saved saved", "Stopped stopped"};
    QStringList seen;
    for (const QJsonObject& module : modules) {
        seen += module.value("module").toString() + ' ' + module.value("state").toString();
        QVERIFY(module.value("memory").toDouble() > 1024 * 1024);
        QVERIFY(module.value("uptime").toInt(-1) >= 0);
    }
    QCOMPARE(seen, expected);
    QCOMPARE(modules.at(1).value("pid").toInt(), int(running->processId()));

    // A module that was saved before and is stopped by another now is not saved.
    resume(*saved);
    QCOMPARE(velctl({"wait", "--running", "Saved", "--timeout", "60"}).status, 0);
    QVERIFY(stopFromOutside(*saved));
    QCOMPARE(velctl({"list", "--json"}).objects().at(2).value("state").toString(), QString("stopped"));
    release(*busy);
}

void VelctlTestModules::listNamesTheProgram() {
    VEL_SKIP_WHERE_IMPOSSIBLE();
    const auto peer = startPeer("Peer");
    QVERIFY(peer);
    QCOMPARE(velctl({"list", "--json"}).objects().value(0).value("program").toString(), bustest::program("tool-peer"));
}

void VelctlTestModules::listForPeopleIsAligned() {
    const auto one = startPeer("A");
    const auto other = startPeer("MuchLonger");
    QVERIFY(one && other);
    const QStringList lines = velctl({"list"}).out;
    QCOMPARE(lines.size(), 3);
    const int stateColumn = lines.first().indexOf("STATE");
    QVERIFY(stateColumn > 0);
    QCOMPARE(lines.at(1).indexOf("running"), stateColumn);
    QCOMPARE(lines.at(2).indexOf("running"), stateColumn);
    QVERIFY2(!lines.join(' ').contains('\033'), "colours are for terminals");
    QCOMPARE(velctl({"list", "--names"}).out, QStringList({"A", "MuchLonger"}));
}

void VelctlTestModules::statusTellsNamesAndMethods() {
    const auto peer = startPeer("Peer");
    QVERIFY(peer);
    const Outcome forPeople = velctl({"status", "Peer"});
    QCOMPARE(forPeople.status, 0);
    const QString text = forPeople.out.join('\n');
    for (const char* expected :
         {"org.vel.module.PeerService", "/Peer", "add(int one, int other) -> int", "sameMap(map map) -> map"})
        QVERIFY2(text.contains(expected), expected);

    const QJsonObject json = velctl({"status", "Peer", "--json"}).objects().value(0);
    QCOMPARE(json.value("interface").toString(), QString("org.vel.module.VelInterface"));
    bool isFound = false;
    for (const QJsonValue& method : json.value("methods").toArray()) {
        if (method.toObject().value("name").toString() != "joined")
            continue;
        isFound = true;
        const QJsonObject in = method.toObject().value("in").toArray().at(0).toObject();
        QCOMPARE(in.value("name").toString(), QString("texts"));
        QCOMPARE(in.value("type").toString(), QString("as"));
    }
    QVERIFY(isFound);
}

void VelctlTestModules::statusOfASilentModuleTellsWhy_data() {
    QTest::addColumn<QString>("how");
    QTest::addColumn<int>("status");
    QTest::addColumn<QString>("reason");
    QTest::newRow("saved") << "saved" << 3 << "it is saved";
    QTest::newRow("stopped") << "stopped" << 3 << "was stopped from outside";
    QTest::newRow("held by a debugger") << "traced" << 3 << "a debugger holds its process ";
    QTest::newRow("busy") << "busy" << 124 << "it does not answer: its process ";
}

void VelctlTestModules::statusOfASilentModuleTellsWhy() {
    QFETCH(QString, how);
    QFETCH(int, status);
    QFETCH(QString, reason);
    const auto peer = startPeer("Silent");
    QVERIFY(peer);
    if (how == "saved") {
        QVERIFY(save(*peer, "Silent"));
    } else if (how == "stopped") {
        QVERIFY(stopFromOutside(*peer));
    } else if (how == "busy") {
        QVERIFY(makeBusy(*peer, "Silent"));
    } else {
        const auto pid = static_cast<pid_t>(peer->processId());
        if (ptrace(PTRACE_SEIZE, pid, nullptr, nullptr) != 0)
            QSKIP("this machine does not let a process trace its children");
        ptrace(PTRACE_INTERRUPT, pid, nullptr, nullptr);
        QTRY_COMPARE(peer->processState(), 't');
    }
    const Outcome outcome = velctl({"status", "Silent"});
    QCOMPARE(outcome.status, status);
    QVERIFY2(outcome.out.join('\n').contains(reason), qPrintable(outcome.out.join('\n')));
    QVERIFY(outcome.out.join('\n').contains("org.vel.module.SilentService"));
    if (how == "busy" && tellsSystemCalls(*peer))
        QVERIFY(outcome.out.join('\n').contains("waits for input (read) from or to pipe:"));
}

void VelctlTestModules::statusOfAnAbsentModuleNamesTheNearest() {
    const auto peer = startPeer("Tuner");
    QVERIFY(peer);
    const Outcome outcome = velctl({"status", "Tunner"});
    QCOMPARE(outcome.status, 3);
    QCOMPARE(outcome.err,
             QString("velctl: cannot show 'Tunner': there is no such module on the bus; there is only Tuner\n"));
}

VEL_BUS_TEST_MAIN(VelctlTestModules)
#include "VelctlTestModules.moc"
