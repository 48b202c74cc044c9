// Machines joined by bridges over a real broker.
#include "Machines.h"
#include "testing/FakeModule.h"
#include "testing/QtTest.h"

#include <QJsonArray>
#include <QProcess>
#include <QRandomGenerator>

#include <csignal>

using namespace vel::testing;

namespace {

const QJsonObject frontLinks{
    {"export", QJsonObject{{"modules", QJsonArray{"Tuner"}}, {"events", QJsonArray{"*"}}}},
    {"import", QJsonObject{{"rear", QJsonObject{{"modules", QJsonArray{"Media"}}, {"events", QJsonArray{"*"}}}}}}};
const QJsonObject rearLinks{
    {"export", QJsonObject{{"modules", QJsonArray{"Media"}}, {"events", QJsonArray{"*"}}}},
    {"import", QJsonObject{{"front", QJsonObject{{"modules", QJsonArray{"Tuner"}}, {"events", QJsonArray{"*"}}}}}}};

bool isJoined(const QVariantMap& status) {
    return !status.value("Machines").toStringList().isEmpty() && !status.value("Receivers").toStringList().isEmpty();
}

bool isConnected(const QVariantMap& status) {
    return status.value("Connected").toBool();
}

// A pair of machines that know each other.
struct Pair {
    Broker broker;
    Machine front{"front"};
    Machine rear{"rear"};

    // For a message.
    QString texts() {
        QString text;
        for (Machine* machine : {&front, &rear}) {
            const QVariantMap status = machine->status();
            text += machine->name() + ": " + machine->lines().join('\n') + '\n';
            for (auto one = status.begin(); one != status.end(); ++one)
                text += one.key() + ' ' + one.value().toString() + one.value().toStringList().join(' ') + ", ";
        }
        return text;
    }

    Result start(const QJsonObject& frontMore = frontLinks, const QJsonObject& rearMore = rearLinks) {
        if (const Result started = broker.start(); !started)
            return started;
        if (const Result started = front.startBridge(broker.port(), frontMore); !started)
            return started;
        if (const Result started = rear.startBridge(broker.port(), rearMore); !started)
            return started;
        return front.waitForStatus(isJoined) && rear.waitForStatus(isJoined)
                   ? Result::success()
                   : Result::failure("the machines do not meet:\n" + front.lines().join('\n') + '\n' +
                                     rear.lines().join('\n'));
    }
};

bool isThere(Machine& machine, const QString& module, bool isExpected = true) {
    return machine.waitForStatus([&](const QVariantMap& status) {
        return status.value("Modules").toStringList().join(',').startsWith(module + ' ') == isExpected;
    });
}

int rounds() {
    const int wanted = qEnvironmentVariableIntValue("VEL_TEST_BRIDGE_ROUNDS");
    return wanted > 0 ? wanted : 4;
}

} // namespace

class BridgeTest : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void aModuleElsewhereIsCalledAsOneHere();
    void itsNameIsThereExactlyWhileEverythingOnTheWayIs();
    void aNameOfThisMachineIsNotTaken();
    void eventsCrossOnceAndNotBack();
    void controlEventsCrossOnlyWhenNamed();
    void theQueueKeepsTheNewest();
    void nothingIsLostOrDoubledWhateverIsKilled();
    void whoLiesOrWritesNonsenseIsNotHeard();
    void aCertificateMustBeGood();
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

// What goes on while the sending bridge is dead is not accepted: that is the one gap that may be. A receiving bridge can
// be killed between the bus and its note of that: one event may come twice then.
void BridgeTest::nothingIsLostOrDoubledWhateverIsKilled() {
    enum Victim { TheBroker, TheConnection, TheReceiver, TheSender };
    constexpr int events = 1000;
    Pair pair;
    VEL_VERIFY(pair.start());
    Proxy proxy(pair.broker.port());
    for (Machine* machine : {&pair.front, &pair.rear}) {
        VEL_VERIFY(machine->stop());
        VEL_VERIFY(machine->startBridge(proxy.port(), machine == &pair.front ? frontLinks : rearLinks));
    }
    const quint32 seed = QRandomGenerator::global()->generate();
    QRandomGenerator random(seed);
    for (int round = 0; round < rounds(); ++round) {
        const auto victim = static_cast<Victim>(round % 4);
        const int moment = random.bounded(events / 4, events / 2), back = moment + random.bounded(1, events / 4);
        qInfo("seed %u, round %d: victim %d between %d and %d", seed, round, victim, moment, back);
        QVERIFY(pair.front.waitForStatus(isJoined) && pair.rear.waitForStatus(isJoined));
        pair.rear.use();
        Recorder heard({published("tick")});
        for (int n = 1; n <= events; ++n) {
            if (n == moment) {
                victim == TheBroker       ? pair.broker.kill()
                : victim == TheConnection ? proxy.cut()
                : victim == TheReceiver   ? pair.rear.kill()
                                          : pair.front.kill();
            }
            if (n == back && victim == TheBroker)
                VEL_VERIFY(pair.broker.start());
            if (n == back && victim == TheReceiver)
                VEL_VERIFY(pair.rear.startBridge(proxy.port(), rearLinks));
            if (n == back && victim == TheSender) {
                VEL_VERIFY(pair.front.startBridge(proxy.port(), frontLinks));
                QVERIFY(pair.front.waitForStatus(isConnected)); // from then on it hears
            }
            VEL_VERIFY(pair.front.peer().publish("Radio", "tick", {{"n", n}}));
        }
        const auto isComplete = [&] {
            (void)heard.nothingMore(); // reads what there is
            const QList<Passed> record = heard.record();
            return !record.isEmpty() && record.last().arguments.value("n").toInt() == events;
        };
        QVERIFY2(pair.rear.waitForStatus([&](const QVariantMap&) { return isComplete(); }), qPrintable(pair.texts()));
        int last = 0, doubled = 0, gaps = 0;
        for (const Passed& passed : heard.record()) {
            const int n = passed.arguments.value("n").toInt();
            doubled += n == last ? 1 : 0;
            gaps += n > last + 1 ? 1 : 0;
            QVERIFY2(n >= last, qPrintable(QString("%1 comes after %2").arg(n).arg(last)));
            QVERIFY2(n <= last + 1 || (victim == TheSender && n <= back),
                     qPrintable(QString("%1 after %2").arg(n).arg(last)));
            last = n;
        }
        QVERIFY(gaps <= (victim == TheSender ? 1 : 0));
        QVERIFY(doubled <= (victim == TheReceiver ? 1 : 0));
        QVERIFY(pair.front.waitForStatus(
            [](const QVariantMap& status) { return status.value("Queued").toLongLong() == 0; }));
        QCOMPARE(pair.front.status().value("Dropped").toLongLong(), 0);
        QCOMPARE(pair.rear.status().value("Missed").toLongLong(), 0);
    }
}

void BridgeTest::whoLiesOrWritesNonsenseIsNotHeard() {
    Pair pair;
    VEL_VERIFY(pair.start());
    pair.rear.use();
    Recorder heard({published("tick"), published("lie")});
    const auto send = [&](const QStringList& arguments) {
        return QProcess::execute("mosquitto_pub", QStringList{"-V", "5", "-q", "1", "-h", "127.0.0.1", "-p",
                                                              QString::number(pair.broker.port())} +
                                                      arguments);
    };
    const QString lie = "vel/1/front/event/Radio/lie";
    QCOMPARE(send({"-t", lie, "-m", R"({"event":"lie"})", "-D", "publish", "user-property", "machine", "other"}), 0);
    QCOMPARE(send({"-t", lie, "-m", R"({"event":"stop_module_Media"})"}), 0);
    QCOMPARE(send({"-t", lie, "-m", R"({"event":"lie","path":"/Media"})"}), 0);
    QCOMPARE(send({"-t", "vel/1/stranger/event/Radio/lie", "-m", R"({"event":"lie"})"}), 0);
    QCOMPARE(send({"-t", "vel/1/front/event/Ra dio/lie", "-m", R"({"event":"lie"})"}), 0);
    QCOMPARE(send({"-t", "vel/1/rear/call/Media/x", "-m", "{}", "-D", "publish", "response-topic",
                   "vel/1/rear/event/Radio/lie"}),
             0);
    QTemporaryDir folder;
    QFile lines(folder.filePath("lines"));
    QVERIFY(lines.open(QIODevice::WriteOnly));
    const int nonsense = qMax(1000, qEnvironmentVariableIntValue("VEL_TEST_BRIDGE_NONSENSE"));
    const QByteArray good =
        R"({"event":"lie","arguments":[{"name":"a","type":"a{sv}","value":[["k",{"type":"i","value":1}]]}]})";
    QRandomGenerator random(7);
    for (int count = 0; count < nonsense; ++count) {
        QByteArray bad = good.left(random.bounded(1, good.size()));
        bad += QByteArray(random.bounded(3), '[') + (count % 3 == 0 ? R"("type":"h"})" : "");
        lines.write(bad + '\n');
    }
    lines.close();
    QProcess writer;
    writer.setStandardInputFile(lines.fileName());
    writer.start("mosquitto_pub",
                 {"-V", "5", "-q", "1", "-l", "-p", QString::number(pair.broker.port()), "-h", "127.0.0.1", "-t", lie});
    QVERIFY(waitUntil([&] { return writer.state() == QProcess::NotRunning; }));
    VEL_VERIFY(pair.front.peer().publish("Radio", "tick"));
    QVERIFY2(heard.next(published("tick")), qPrintable(pair.texts())); // and nothing before
    QVERIFY(pair.rear.waitForStatus(
        [&](const QVariantMap& status) { return status.value("Refused").toLongLong() >= nonsense + 4; }));
    QVERIFY(pair.rear.lines().filter("error").size() < 10);
}

void BridgeTest::aCertificateMustBeGood() {
    QTemporaryDir folder;
    QVERIFY(folder.isValid());
    const QString script = QStringLiteral(TEST_CERTIFICATES);
    QCOMPARE(QProcess::execute("sh", {script, folder.path(), "front", "rear"}), 0);
    Broker broker(QString("allow_anonymous false\nrequire_certificate true\nuse_identity_as_username true\n"
                          "cafile FOLDER/ca.pem\ncertfile FOLDER/broker.pem\nkeyfile FOLDER/broker.key\nacl_file ")
                      .replace("FOLDER", folder.path()) +
                  QStringLiteral(EXAMPLE_ACCESS_LIST));
    VEL_VERIFY(broker.start());
    const auto with = [&](const QString& certificate, QJsonObject links) {
        links["broker"] = QJsonObject{{"host", "localhost"},
                                      {"port", broker.port()},
                                      {"tls", QJsonObject{{"authority", folder.filePath("ca.pem")},
                                                          {"certificate", folder.filePath(certificate + ".pem")},
                                                          {"key", folder.filePath(certificate + ".key")}}}};
        return links;
    };
    Machine front("front"), rear("rear");
    VEL_VERIFY(front.startBridge(0, with("front", frontLinks)));
    for (const QString bad : {"stranger", "expired"}) {
        VEL_VERIFY(rear.startBridge(0, with(bad, rearLinks)));
        VEL_VERIFY(rear.bridge().waitForLine("cannot reach the broker"));
        QVERIFY(!rear.status().value("Connected").toBool());
        rear.kill();
    }
    VEL_VERIFY(rear.startBridge(0, with("rear", rearLinks)));
    QVERIFY(front.waitForStatus(isJoined) && rear.waitForStatus(isJoined));
    rear.use();
    Recorder heard({published("tick")});
    VEL_VERIFY(front.peer().publish("Radio", "tick"));
    VEL_VERIFY(heard.next(published("tick")));
    rear.kill(); // its certificate under another's name: the access list lets nothing through
    VEL_VERIFY(rear.startBridge(0, with("front", [] {
                                    QJsonObject links = rearLinks;
                                    links["store"] = "other";
                                    return links;
                                }())));
    QVERIFY(rear.waitForStatus([](const QVariantMap& status) { return status.value("Connected").toBool(); }));
    QVERIFY(!front.peer().isOnBus("Media"));
}

QTEST_GUILESS_MAIN(BridgeTest)
#include "BridgeTest.moc"
