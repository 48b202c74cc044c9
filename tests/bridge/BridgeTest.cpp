// Machines joined by bridges over a real broker.
#include "Machines.h"
#include "testing/FakeModule.h"
#include "testing/QtTest.h"

#include <QJsonArray>

using namespace vel::testing;

class BridgeTest : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void aModuleElsewhereIsCalledAsOneHere();
    void itsNameIsThereExactlyWhileEverythingOnTheWayIs();
    void aNameOfThisMachineIsNotTaken();
    void eventsCrossOnceAndNotBack();
    void controlEventsCrossOnlyWhenNamed();
    void theQueueKeepsTheNewest();

private:
    const Scratch m_scratch;
};

void BridgeTest::aModuleElsewhereIsCalledAsOneHere() {
    Pair pair;
    VEL_VERIFY(pair.start());
    pair.rear.use();
    FakeModule media("Media");
    media.answerBy("echo", [](const QVariantList& values) { return values; });
    media.fail("play", {"there is no such title", "org.example.NoTitle"});
    media.vanishIn("crash");
    VEL_VERIFY(media.appear());
    QVERIFY(isThere(pair.front, "Media"));
    Peer& peer = pair.front.peer();
    const QVariantList values{42,
                              QString("ä\n\"x\""),
                              1.5,
                              true,
                              QByteArray("\0\xff", 2),
                              QStringList{"a", ""},
                              QVariant::fromValue(qlonglong(1) << 60),
                              QVariantMap{{"k", 7}}};
    VEL_VERIFY(peer.call("Media", "echo", values).is(values));
    VEL_VERIFY(peer.call("Media", "play").failed("org.example.NoTitle", "there is no such title"));
    VEL_VERIFY(peer.call("Media", "unknown").failed("org.freedesktop.DBus.Error.UnknownMethod"));
    VEL_VERIFY(peer.call("Media", "echo", {QByteArray(300 * 1024, 'x')})
                   .failed("org.freedesktop.DBus.Error.LimitsExceeded", "allowed"));
    QVERIFY(!peer.call("Media", "crash"));
    QVERIFY(isThere(pair.front, "Media", false));
    VEL_VERIFY(pair.front.stop());
}

void BridgeTest::itsNameIsThereExactlyWhileEverythingOnTheWayIs() {
    Pair pair;
    VEL_VERIFY(pair.start());
    pair.rear.use();
    FakeModule media("Media");
    media.answer("title", {"Blue"});
    media.hold("slow");
    VEL_VERIFY(media.appear());
    QVERIFY(isThere(pair.front, "Media"));
    media.vanish();
    // The bridge's answer comes on another connection than the end of the module's.
    QVERIFY(pair.front.waitForStatus([&](const QVariantMap&) { return !pair.front.peer().isOnBus("Media"); }));
    VEL_VERIFY(media.appear());
    QVERIFY(isThere(pair.front, "Media"));

    pair.rear.kill(); // its last will tells
    QVERIFY(isThere(pair.front, "Media", false));
    media.vanish(); // which nobody tells: what is retained of it is older than the next connection
    VEL_VERIFY(pair.rear.startBridge(pair.broker.port(), rearLinks));
    QVERIFY(pair.front.waitForStatus(isJoined));
    QVERIFY(pair.front.status().value("Modules").toStringList().isEmpty());
    VEL_VERIFY(media.appear());
    QVERIFY(isThere(pair.front, "Media"));

    pair.broker.kill();
    QVERIFY(isThere(pair.front, "Media", false));
    VEL_VERIFY(pair.broker.start());
    QVERIFY(isThere(pair.front, "Media"));
    VEL_VERIFY(pair.front.peer().call("Media", "title").is({"Blue"}));
}

void BridgeTest::aNameOfThisMachineIsNotTaken() {
    Pair pair;
    VEL_VERIFY(pair.start());
    pair.front.use();
    auto own = std::make_unique<FakeModule>("Media");
    own->answer("where", {"front"});
    VEL_VERIFY(own->appear());
    pair.rear.use();
    FakeModule media("Media");
    media.answer("where", {"rear"});
    VEL_VERIFY(media.appear());
    VEL_VERIFY(pair.front.bridge().waitForLine("there is a module of that name on this machine"));
    QCOMPARE(pair.front.status().value("Conflicts").toStringList(), QStringList("Media on rear"));
    VEL_VERIFY(pair.front.peer().call("Media", "where").is({"front"}));
    own.reset();
    QVERIFY(isThere(pair.front, "Media"));
    VEL_VERIFY(pair.front.peer().call("Media", "where").is({"rear"}));
    pair.front.use(); // and no second instance beside it
    QVERIFY(!FakeModule("Media").appear());
}

void BridgeTest::eventsCrossOnceAndNotBack() {
    const auto all = [](const QStringList& others) {
        QJsonObject import;
        for (const QString& other : others)
            import[other] = QJsonObject{{ "events", QJsonArray { "*" } }};
        return QJsonObject{{"export", QJsonObject{{"events", QJsonArray{"*"}}}}, {"import", import}};
    };
    Broker broker;
    VEL_VERIFY(broker.start());
    Machine a("a"), b("b"), c("c"); // each takes all of the two others
    VEL_VERIFY(a.startBridge(broker.port(), all({"b", "c"})));
    VEL_VERIFY(b.startBridge(broker.port(), all({"a", "c"})));
    VEL_VERIFY(c.startBridge(broker.port(), all({"a", "b"})));
    const auto knowsTwo = [](const QVariantMap& status) {
        return status.value("Receivers").toStringList().size() == 2 &&
               status.value("Machines").toStringList().size() == 2;
    };
    for (Machine* machine : {&a, &b, &c})
        QVERIFY(machine->waitForStatus(knowsTwo));
    std::map<Machine*, std::unique_ptr<Recorder>> heard;
    for (Machine* machine : {&a, &b, &c}) {
        machine->use();
        heard[machine] =
            std::make_unique<Recorder>(QList<Expectation>{published("ping"), published("last_" + machine->name())});
    }
    const QVariantMap arguments{{"n", 1}, {"name", "ä"}, {"list", QStringList{"x"}}};
    for (Machine* publisher : {&a, &b, &c}) {
        VEL_VERIFY(publisher->peer().publish("Radio", "ping", arguments));
        for (Machine* machine : {&a, &b, &c})
            VEL_VERIFY(heard[machine]->next(published("ping").from("Radio").withExactly(arguments)));
    }
    for (Machine* machine : {&a, &b, &c}) {
        VEL_VERIFY(machine->peer().publish("Radio", "last_" + machine->name()));
        VEL_VERIFY(heard[machine]->next(published("last_" + machine->name())));
    }
}

void BridgeTest::controlEventsCrossOnlyWhenNamed() {
    Pair pair;
    QJsonObject front = frontLinks, rear = rearLinks;
    front["control"] = QJsonObject{{"out", QJsonArray{"log_level_changed", "mtrace_on"}}};
    rear["control"] = QJsonObject{{"in", QJsonArray{"log_level_changed"}}};
    VEL_VERIFY(pair.start(front, rear));
    pair.rear.use();
    Recorder heard(
        {published("stop_module_Nobody"), published("mtrace_on"), published("log_level_changed"), published("end")});
    for (const QString event : {"stop_module_Nobody", "mtrace_on", "log_level_changed", "end"})
        VEL_VERIFY(pair.front.peer().publish("velctl", event));
    VEL_VERIFY(heard.next(published("log_level_changed")));
    VEL_VERIFY(heard.next(published("end")));
}

// The broker keeps nothing on disk, and the receiver comes back last, without a single event of the sender so far.
void BridgeTest::theQueueKeepsTheNewest() {
    Pair pair;
    QJsonObject front = frontLinks;
    front["limits"] = QJsonObject{{"queueEvents", 20}};
    VEL_VERIFY(pair.start(front));
    pair.broker.kill();
    pair.rear.kill();
    QVERIFY(pair.front.waitForStatus([](const QVariantMap& status) { return !isConnected(status); }));
    for (int n = 1; n <= 50; ++n)
        VEL_VERIFY(pair.front.peer().publish("Radio", "tick", {{"n", n}}));
    QVERIFY(pair.front.waitForStatus([](const QVariantMap& status) {
        return status.value("Queued").toLongLong() == 20 && status.value("Dropped").toLongLong() == 30;
    }));
    QCOMPARE(pair.front.lines().filter("oldest are dropped").size(), 1);
    VEL_VERIFY(pair.front.stop()); // the queue outlives the bridge
    VEL_VERIFY(pair.broker.start());
    VEL_VERIFY(pair.front.startBridge(pair.broker.port(), front));
    QVERIFY(pair.front.waitForStatus([](const QVariantMap& status) {
        return status.value("Sent").toLongLong() >= 20 && status.value("RoundTrip").toDouble() > 0;
    }));
    QCOMPARE(pair.front.status().value("Queued").toLongLong(), 20); // the broker has given them to nobody
    pair.rear.use();
    Recorder heard({published("tick")});
    VEL_VERIFY(pair.rear.startBridge(pair.broker.port(), rearLinks));
    for (int n = 31; n <= 50; ++n)
        QVERIFY2(heard.next(published("tick").with("n", n)), qPrintable(pair.texts()));
    QVERIFY(
        pair.front.waitForStatus([](const QVariantMap& status) { return status.value("Queued").toLongLong() == 0; }));
}

QTEST_GUILESS_MAIN(BridgeTest)
#include "BridgeTest.moc"
