// What a bridge does with strangers, liars, nonsense, floods, and a bus that is slow.
//
// VEL_TEST_BRIDGE_NONSENSE makes it more malformed payloads.
#include "Machines.h"
#include "bus/BusNames.h"
#include "testing/FakeModule.h"
#include "testing/QtTest.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusUnixFileDescriptor>
#include <QFile>
#include <QJsonArray>
#include <QRandomGenerator>

#include <csignal>
#include <dbus/dbus.h>

using namespace vel::testing;

class BridgeSecurityTest : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void aCertificateMustBeGood_data();
    void aCertificateMustBeGood();
    void nobodyWritesUnderAnothersName();
    void whoLiesOrWritesNonsenseIsNotHeard();
    void whatComesTooFastIsDropped();
    void fileDescriptorsStayOnTheirMachine();
    void aBusThatIsSlowLosesNothing();

private:
    const Scratch m_scratch;
};

namespace {

// A broker as the example's, with certificates that the example's script has made.
class SafeBroker {
public:
    Result start() {
        const QString folder = m_folder.path();
        if (QProcess::execute("sh", {QStringLiteral(EXAMPLE) + "/certificates", folder, "front", "rear", "laptop"}) !=
            0)
            return Result::failure("there are no certificates");
        QFile example(QStringLiteral(EXAMPLE) + "/broker.conf");
        if (!example.open(QIODevice::ReadOnly))
            return Result::failure("there is no example");
        QString lines;
        for (QString line : QString::fromUtf8(example.readAll()).split('\n')) {
            line.replace("acl_file ", QStringLiteral("acl_file " EXAMPLE "/"));
            for (const char* key : {"cafile ", "certfile ", "keyfile "})
                line.replace(key, key + folder + '/');
            if (!line.startsWith("listener") && !line.startsWith("user ") && !line.startsWith("set_tcp_nodelay") &&
                !line.startsWith("max_inflight"))
                lines += line + '\n';
        }
        m_broker = std::make_unique<Broker>(lines);
        return m_broker->start();
    }

    // What a machine's configuration says, with that certificate; "" for none.
    QJsonObject with(const QString& certificate, QJsonObject links, const QString& authority = "ca") const {
        QJsonObject tls{{"authority", m_folder.filePath(authority + ".pem")}};
        if (!certificate.isEmpty()) {
            tls["certificate"] = m_folder.filePath(certificate + ".pem");
            tls["key"] = m_folder.filePath(certificate + ".key");
        }
        links["broker"] = QJsonObject{{"host", "localhost"}, {"port", m_broker->port()}, {"tls", tls}};
        return links;
    }

private:
    QTemporaryDir m_folder;
    std::unique_ptr<Broker> m_broker;
};

} // namespace

void BridgeSecurityTest::aCertificateMustBeGood_data() {
    QTest::addColumn<QString>("certificate");
    QTest::addColumn<QString>("authority");
    QTest::addColumn<QStringList>("told"); // by TLS, which says it in the welcome or breaks off
    const QString brokenOff = "does not accept this machine's certificate";
    QTest::newRow("another authority's") << "stranger"
                                         << "ca" << QStringList{"alert unknown ca", brokenOff};
    QTest::newRow("expired") << "expired"
                             << "ca" << QStringList{"alert certificate expired", brokenOff};
    QTest::newRow("none") << ""
                          << "ca" << QStringList{"certificate required", brokenOff};
    QTest::newRow("the broker's is another authority's") << "rear"
                                                         << "other" << QStringList{"certificate verify failed"};
}

void BridgeSecurityTest::aCertificateMustBeGood() {
    QFETCH(QString, certificate);
    QFETCH(QString, authority);
    QFETCH(QStringList, told);
    SafeBroker broker;
    VEL_VERIFY(broker.start());
    Machine rear("rear");
    VEL_VERIFY(rear.startBridge(0, broker.with(certificate, rearLinks, authority)));
    VEL_VERIFY(rear.bridge().waitForLine("warning: cannot reach the broker"));
    const QString line = rear.lines().filter("cannot reach the broker").first();
    QVERIFY2(std::any_of(told.begin(), told.end(), [&](const QString& text) { return line.contains(text); }),
             qPrintable(line));
    QVERIFY(!isConnected(rear.status()));
    rear.kill();
    VEL_VERIFY(rear.startBridge(0, broker.with("rear", rearLinks)));
    QVERIFY(rear.waitForStatus(isConnected));
}

// With a good certificate, and another machine's name in the configuration.
void BridgeSecurityTest::nobodyWritesUnderAnothersName() {
    SafeBroker broker;
    VEL_VERIFY(broker.start());
    Machine front("front"), rear("rear"), liar("front");
    VEL_VERIFY(front.startBridge(0, broker.with("front", frontLinks)));
    VEL_VERIFY(rear.startBridge(0, broker.with("rear", rearLinks)));
    QVERIFY(front.waitForStatus(isJoined) && rear.waitForStatus(isJoined));
    const QVariant since = front.status().value("ConnectedSince");
    rear.use();
    FakeModule media("Media");
    media.answer("title", {"Blue"});
    VEL_VERIFY(media.appear());
    Recorder heard({published("tick"), published("lie")});

    QJsonObject links = frontLinks;
    links["limits"] = QJsonObject{{"callTime", 0.5}};
    VEL_VERIFY(liar.startBridge(0, broker.with("laptop", links)));
    QVERIFY(liar.waitForStatus(isConnected));
    QVERIFY(isThere(liar, "Media"));                           // it may read
    QVERIFY(!liar.peer().call("Media", "title").is({"Blue"})); // but not call
    VEL_VERIFY(liar.peer().publish("Radio", "lie"));
    VEL_VERIFY(liar.bridge().waitForLine("the broker refuses an event: Not authorized"));
    VEL_VERIFY(liar.stop()); // nor does its farewell, or the end of its connection, take front away
    VEL_VERIFY(front.peer().publish("Radio", "tick"));
    VEL_VERIFY(heard.next(published("tick")));
    QVERIFY(isThere(front, "Media"));
    VEL_VERIFY(front.peer().call("Media", "title").is({"Blue"}));
    QCOMPARE(front.status().value("ConnectedSince"), since);
}

void BridgeSecurityTest::whoLiesOrWritesNonsenseIsNotHeard() {
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
    const int nonsense = wantedTimes("VEL_TEST_BRIDGE_NONSENSE", 1000);
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

void BridgeSecurityTest::whatComesTooFastIsDropped() {
    constexpr int events = 300;
    Pair pair;
    QJsonObject rear = rearLinks;
    rear["limits"] = QJsonObject{{"eventsPerSecond", 10}, {"callsPerSecond", 10}};
    VEL_VERIFY(pair.start(frontLinks, rear));
    for (int n = 1; n <= events; ++n)
        VEL_VERIFY(pair.front.peer().publish("Radio", "tick", {{"n", n}}));
    QVERIFY(pair.rear.waitForStatus([](const QVariantMap& status) {
        return status.value("Received").toLongLong() + status.value("Refused").toLongLong() == events;
    }));
    const qint64 received = pair.rear.status().value("Received").toLongLong();
    QVERIFY2(received >= 10 && received < events / 2, qPrintable(QString::number(received)));
    QVERIFY(pair.rear.lines().filter("more in a second than allowed").size() <= received); // once a time
    pair.rear.use();
    FakeModule media("Media");
    media.answer("title", {"Blue"});
    VEL_VERIFY(media.appear());
    QVERIFY(isThere(pair.front, "Media"));
    int refused = 0;
    for (int n = 1; n <= events; ++n)
        refused += pair.front.peer().call("Media", "title").errorName == QString(DBUS_ERROR_LIMITS_EXCEEDED) ? 1 : 0;
    QVERIFY2(refused > 0 && refused < events, qPrintable(QString::number(refused)));
}

void BridgeSecurityTest::fileDescriptorsStayOnTheirMachine() {
    Pair pair;
    VEL_VERIFY(pair.start());
    pair.rear.use();
    FakeModule media("Media");
    media.answer("open", {QVariant::fromValue(QDBusUnixFileDescriptor(STDIN_FILENO))});
    VEL_VERIFY(media.appear());
    QVERIFY(isThere(pair.front, "Media"));
    pair.front.use();
    const QVariant descriptor = QVariant::fromValue(QDBusUnixFileDescriptor(STDIN_FILENO));
    QDBusConnection bus = QDBusConnection::connectToBus(QDBusConnection::SessionBus, "descriptors");
    const auto call = [&](const QVariantList& values) {
        QDBusMessage message = QDBusMessage::createMethodCall(vel::bus::serviceName("Media"), "/Media",
                                                              vel::bus::commonInterface(), "open");
        message.setArguments(values);
        return bus.call(message).errorName();
    };
    QCOMPARE(call({descriptor}), QString(DBUS_ERROR_NOT_SUPPORTED)); // on its way out
    QDBusMessage event = QDBusMessage::createSignal("/Radio", vel::bus::commonInterface(), "tick");
    event.setArguments({descriptor});
    QVERIFY(bus.send(event));
    QVERIFY(
        pair.front.waitForStatus([](const QVariantMap& status) { return status.value("Refused").toLongLong() == 1; }));
    VEL_VERIFY(pair.front.bridge().waitForLine("a file descriptor means nothing on another machine"));
    QDBusConnection::disconnectFromBus("descriptors");
}

// The bridge keeps little of what the bus does not take; the broker and the sender keep the rest.
void BridgeSecurityTest::aBusThatIsSlowLosesNothing() {
    constexpr int events = 3000;
    Pair pair;
    QJsonObject front = frontLinks;
    front["limits"] = QJsonObject{{"queueBytes", 100000000}};
    VEL_VERIFY(pair.start(front));
    pair.rear.use();
    Recorder heard({published("tick")});
    const auto bus = static_cast<pid_t>(pair.rear.busProcess());
    QCOMPARE(::kill(bus, SIGSTOP), 0);
    const QByteArray kilobyte(1024, 'x');
    for (int n = 1; n <= events; ++n)
        VEL_VERIFY(pair.front.peer().publish("Radio", "tick", {{"n", n}, {"more", kilobyte}}));
    QVERIFY(pair.front.waitForStatus(
        [](const QVariantMap& status) { return status.value("Accepted").toLongLong() == events; }));
    QCOMPARE(::kill(bus, SIGCONT), 0);
    for (int n = 1; n <= events; ++n)
        QVERIFY2(heard.next(published("tick").with("n", n)), qPrintable(pair.texts()));
    QVERIFY(
        pair.front.waitForStatus([](const QVariantMap& status) { return status.value("Queued").toLongLong() == 0; }));
    QCOMPARE(pair.front.status().value("Dropped").toLongLong(), 0);
}

QTEST_GUILESS_MAIN(BridgeSecurityTest)
#include "BridgeSecurityTest.moc"
