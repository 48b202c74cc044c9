// velctl wait: what it waits for, and how it gives up.
#include "VelctlRun.h"

#include "testing/BusTest.h"

#include <QTest>

class VelctlTestWait : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void eventEndsTheWait();
    void startOfAModuleEndsTheWait();
    void resumedModuleCountsAsRunning();
    void endOfAModuleEndsTheWait();
    void limitTellsWhy_data();
    void limitTellsWhy();
    void lossOfTheBusEndsTheWait();
};

void VelctlTestWait::eventEndsTheWait() {
    Background wait({"wait", "topic", "--json", "--timeout", "60"});
    QVERIFY(bustest::publish(QDBusConnection::sessionBus(), "Tuner", "other"));
    QVERIFY(bustest::publish(QDBusConnection::sessionBus(), "Tuner", "topic"));
    const Outcome outcome = wait.outcome();
    QCOMPARE(outcome.status, 0);
    QCOMPARE(outcome.objects().value(0).value("event").toString(), QString("topic"));
    QCOMPARE(outcome.out.size(), 1);
}

void VelctlTestWait::startOfAModuleEndsTheWait() {
    QProcess wait;
    wait.start(bustest::program("velctl"), {"wait", "--running", "Peer", "--timeout", "60", "--json"});
    QVERIFY(wait.waitForStarted());
    ChildProcess peer;
    QVERIFY(peer.run(bustest::program("tool-peer"), {"--moduleName=Peer"}));
    QVERIFY(wait.waitForFinished(60000));
    QCOMPARE(wait.exitCode(), 0);
    QVERIFY(wait.readAllStandardOutput().contains("\"pid\":" + QByteArray::number(peer.processId())));
}

void VelctlTestWait::resumedModuleCountsAsRunning() {
    const auto peer = startPeer("Peer");
    QVERIFY(peer);
    QVERIFY(save(*peer, "Peer"));
    QCOMPARE(velctl({"wait", "--running", "Peer", "--timeout", "1"}).status, 124);
    resume(*peer);
    QCOMPARE(velctl({"wait", "--running", "Peer", "--timeout", "60"}).status, 0);
}

void VelctlTestWait::endOfAModuleEndsTheWait() {
    QCOMPARE(velctl({"wait", "--gone", "Peer"}).out, QStringList("Peer is not on the bus"));
    auto peer = startPeer("Peer");
    QVERIFY(peer);
    QProcess wait;
    wait.start(bustest::program("velctl"), {"wait", "--gone", "Peer", "--timeout", "60"});
    QVERIFY(wait.waitForStarted());
    peer.reset();
    QVERIFY(wait.waitForFinished(60000));
    QCOMPARE(wait.exitCode(), 0);
}

void VelctlTestWait::limitTellsWhy_data() {
    QTest::addColumn<QStringList>("wait");
    QTest::addColumn<QString>("text");
    QTest::newRow("event") << QStringList("topic") << "cannot wait for 'topic': nobody published it; gave up after 1 s";
    QTest::newRow("absent module") << QStringList({"--running", "Tuner"})
                                   << "cannot wait for 'Tuner' to run: there is no such module on the bus; gave up "
                                      "after 1 s";
    QTest::newRow("stopped module") << QStringList({"--running", "Peer"})
                                    << "was stopped from outside; gave up after 1 s";
    QTest::newRow("module that stays") << QStringList({"--gone", "Peer"})
                                       << "cannot wait for 'Peer' to go: it is still on the bus";
}

void VelctlTestWait::limitTellsWhy() {
    QFETCH(QStringList, wait);
    QFETCH(QString, text);
    const auto peer = startPeer("Peer");
    QVERIFY(peer);
    QVERIFY(stopFromOutside(*peer));
    const Outcome outcome = velctl(QStringList("wait") + wait + QStringList({"--timeout", "1"}));
    QCOMPARE(outcome.status, 124);
    QVERIFY2(outcome.err.contains(text), qPrintable(outcome.err));
}

// The last test: there is no bus after it.
void VelctlTestWait::lossOfTheBusEndsTheWait() {
    Background wait({"wait", "topic", "--timeout", "60"});
    Background watch({"watch"});
    QProcess start;
    start.start(bustest::program("velctl"), {"wait", "--running", "Peer", "--timeout", "60"});
    QVERIFY(start.waitForStarted());
    bustest::bus().stop();
    QCOMPARE(wait.outcome().status, 7);
    QCOMPARE(watch.outcome().status, 7);
    QVERIFY(start.waitForFinished(60000));
    QCOMPARE(start.exitCode(), 7); // whether it had reached the bus by then or not
    QCOMPARE(velctl({"list"}).status, 7);
}

VEL_BUS_TEST_MAIN(VelctlTestWait)
#include "VelctlTestWait.moc"
