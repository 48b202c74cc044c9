// velctl publish and velctl watch: typed arguments, filters, and a replay that is the same to the byte.
#include "VelctlRun.h"

#include "testing/BusTest.h"
#include "testing/RawClient.h"

#include <QDBusArgument>
#include <QDBusMetaType>
#include <QDBusObjectPath>
#include <QJsonArray>
#include <QJsonDocument>
#include <QTest>

#include <cstring>
#include <limits>

namespace {

const char commonInterface[] = "org.vel.module.VelInterface";

// Hears every event, as libdbus gives it: path, name, signature, and the bytes of the body. What is left out, the
// sender and the number of the message, differs in any two messages.
class ByteRecorder {
public:
    ByteRecorder() : m_connection(dbus_bus_get_private(DBUS_BUS_SESSION, nullptr)) {
        dbus_bus_add_match(m_connection, "type='signal',interface='org.vel.module.VelInterface'", nullptr);
        dbus_connection_flush(m_connection);
    }
    ~ByteRecorder() {
        dbus_connection_close(m_connection);
        dbus_connection_unref(m_connection);
    }

    QList<QByteArray> next(int count) {
        QList<QByteArray> events;
        while (events.size() < count && dbus_connection_read_write(m_connection, -1)) {
            while (DBusMessage* received = dbus_connection_pop_message(m_connection)) {
                if (dbus_message_has_interface(received, commonInterface))
                    events += bytesOf(received);
                dbus_message_unref(received);
            }
        }
        return events;
    }

private:
    static QByteArray bytesOf(DBusMessage* message) {
        constexpr int placeOfBodyLength = 4; // in the fixed part of every message's header
        char* bytes = nullptr;
        int length = 0;
        qint32 bodyLength = 0;
        dbus_message_marshal(message, &bytes, &length);
        std::memcpy(&bodyLength, bytes + placeOfBodyLength, sizeof bodyLength);
        const QByteArray body(bytes + length - bodyLength, bodyLength);
        dbus_free(bytes);
        return QByteArray(dbus_message_get_path(message)) + ' ' + dbus_message_get_member(message) + ' ' +
               dbus_message_get_signature(message) + ' ' + body.toHex();
    }

    DBusConnection* m_connection;
};

void appendText(DBusMessageIter& to, const char* text) {
    dbus_message_iter_append_basic(&to, DBUS_TYPE_STRING, &text);
}

// An event in a form that no module of ours would choose: entries out of order, a wrong count, strange names.
void appendStrangeEvent(DBusMessageIter& to) {
    DBusMessageIter structure, types, values;
    dbus_message_iter_open_container(&to, DBUS_TYPE_STRUCT, nullptr, &structure);
    appendText(structure, "another name");
    appendText(structure, "a context, \"quoted\" \xc3\xa9\n");
    const qint32 count = 77;
    dbus_message_iter_append_basic(&structure, DBUS_TYPE_INT32, &count);
    dbus_message_iter_open_container(&structure, DBUS_TYPE_ARRAY, "{ss}", &types);
    dbus_message_iter_close_container(&structure, &types);
    dbus_message_iter_open_container(&structure, DBUS_TYPE_ARRAY, "{sv}", &values);
    const double notANumber = std::numeric_limits<double>::quiet_NaN();
    const double minusZero = -0.0;
    const double infinity = -std::numeric_limits<double>::infinity();
    const double exact = 0.1 + 0.2;
    for (const auto& [name, number] : {std::make_pair("z", notANumber), std::make_pair("a", minusZero),
                                       std::make_pair("a", infinity), std::make_pair("", exact)}) {
        DBusMessageIter entry, variant;
        dbus_message_iter_open_container(&values, DBUS_TYPE_DICT_ENTRY, nullptr, &entry);
        appendText(entry, name);
        dbus_message_iter_open_container(&entry, DBUS_TYPE_VARIANT, "d", &variant);
        dbus_message_iter_append_basic(&variant, DBUS_TYPE_DOUBLE, &number);
        dbus_message_iter_close_container(&entry, &variant);
        dbus_message_iter_close_container(&values, &entry);
    }
    dbus_message_iter_close_container(&structure, &values);
    dbus_message_iter_close_container(&to, &structure);
}

} // namespace

class VelctlTestEvents : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void publishedEventIsWhatAModuleWouldPublish();
    void publishTellsWhenNobodyHears();
    void replayPutsTheSameBytesOnTheBus();
    void handWrittenLineIsFilledIn();
    void badLineEndsTheReplayAndIsNamed_data();
    void badLineEndsTheReplayAndIsNamed();
    void watchIsFilteredOnTheBus();
    void lineForPeopleCanBePublishedAgain();
    void watchAndReplayEndAsTheyWereTold();
};

void VelctlTestEvents::publishedEventIsWhatAModuleWouldPublish() {
    ByteRecorder recorder;
    const QVariantMap arguments = {{"a", QVariantMap{{"k", true}}},
                                   {"b", QVariantList{1, "x"}},
                                   {"c", 7},
                                   {"d", 2.5},
                                   {"e", "text"},
                                   {"f", true},
                                   {"g", QStringList{"one", "other"}},
                                   {"h", QByteArray("\0\1", 2)},
                                   {"i", QVariant::fromValue(uchar(255))},
                                   {"j", qlonglong(3000000000)},
                                   {"k", QVariant::fromValue(QDBusObjectPath("/a/b"))}};
    QVERIFY(bustest::publish(QDBusConnection::sessionBus(), "Tuner", "topic", arguments));
    const QStringList written = {"k:=path:/a/b",
                                 "j=3000000000",
                                 "i:=byte:255",
                                 "h:=bytes:AAE=",
                                 "g=[one,other]",
                                 "f=true",
                                 "e=text",
                                 "d=2.5",
                                 "c=7",
                                 "b=[1,x]",
                                 R"(a:=map:[["k",{"type":"b","value":true}]])"};
    QCOMPARE(velctl(QStringList{"publish", "topic", "--as", "Tuner"} + written).status, 0);
    const QList<QByteArray> events = recorder.next(2);
    QCOMPARE(events.at(1), events.at(0));
}

void VelctlTestEvents::publishTellsWhenNobodyHears() {
    const Outcome unheard = velctl({"publish", "misspelt", "a=1"});
    if (PrivateBus::isBroker()) { // it tells nobody who has subscribed what
        QCOMPARE(unheard.status, 0);
        return;
    }
    QCOMPARE(unheard.status, 4);
    QVERIFY(unheard.err.contains("nobody has subscribed that event"));
    ByteRecorder recorder;
    QCOMPARE(velctl({"publish", "misspelt", "a=1"}).status, 0);
}

void VelctlTestEvents::replayPutsTheSameBytesOnTheBus() {
    // One type of each kind, nested ones, and what JSON by itself could not hold.
    const QList<QByteArray> types = {"b",
                                     "y",
                                     "n",
                                     "q",
                                     "i",
                                     "u",
                                     "x",
                                     "t",
                                     "d",
                                     "s",
                                     "o",
                                     "v",
                                     "as",
                                     "ay",
                                     "av",
                                     "a{sv}",
                                     "(is)",
                                     "a(is)",
                                     "aai",
                                     "a{ya{s(dv)}}",
                                     "a{ss}",
                                     "(i(av)ay)",
                                     "aay",
                                     "aas",
                                     "ab",
                                     "ssi",
                                     "(ssia{ss}a{sv})",
                                     "ai(s)"};
    ByteRecorder recorder;
    Background watch({"watch", "--json", "--count", QString::number(types.size() + 2)});
    RawClient publisher;
    for (const QByteArray& type : types)
        QVERIFY(publisher.sendSignal("Strange", "topic",
                                     [&](DBusMessageIter& to) { appendBySignature(to, type.constData()); }));
    QVERIFY(publisher.sendSignal("Strange", "topic", appendStrangeEvent));
    QVERIFY(publisher.sendSignal("Strange", "nothing_in_it", [](DBusMessageIter&) {}));
    publisher.flush();
    const QList<QByteArray> sent = recorder.next(types.size() + 2);

    const Outcome watched = watch.outcome();
    QCOMPARE(watched.status, 0);
    const Outcome replayed = velctl({"publish", "--json", "-"}, watched.out.join('\n').toUtf8());
    QCOMPARE(replayed.err, QString());
    QCOMPARE(replayed.status, 0);
    const QList<QByteArray> again = recorder.next(sent.size());
    for (int index = 0; index < sent.size(); ++index)
        QCOMPARE(again.at(index), sent.at(index));
}

void VelctlTestEvents::handWrittenLineIsFilledIn() {
    ByteRecorder recorder;
    QCOMPARE(velctl({"publish", "topic", "level:=int64:7", "--as", "Tuner"}).status, 0);
    const QByteArray line = R"({"event":"topic","arguments":[{"name":"level","type":"x","value":7}]})";
    QCOMPARE(velctl({"publish", "--json", "-", "--as", "Tuner"}, line).status, 0);
    const QList<QByteArray> events = recorder.next(2);
    QCOMPARE(events.at(1), events.at(0));
}

void VelctlTestEvents::badLineEndsTheReplayAndIsNamed_data() {
    QTest::addColumn<QByteArray>("line");
    QTest::addColumn<QString>("reason");
    const auto row = [](const char* name, const QByteArray& line, const char* reason) {
        QTest::newRow(name) << line << QString(reason);
    };
    row("no JSON", "{", "unterminated object");
    row("no object", "[1]", "it is no JSON object");
    row("no event", "{}", "it has no \"event\"");
    row("impossible event", R"({"event":"a-b"})", "\"a-b\" is no event's name");
    row("impossible path", R"({"event":"a","path":"x"})", "\"x\" is no path");
    row("no type", R"({"event":"a","arguments":[{"name":"n","type":"z","value":1}]})", "\"z\" is no D-Bus type");
    row("wrong value", R"({"event":"a","arguments":[{"name":"n","type":"y","value":256}]})",
        "256 is no value of type byte");
    row("file descriptor", R"({"event":"a","arguments":[{"name":"n","type":"h","value":0}]})",
        "a value of type h cannot be written as JSON");
    QByteArray deep = R"({"type":"i","value":1})";
    for (int level = 0; level < 70; ++level)
        deep = R"({"type":"v","value":)" + deep + '}';
    row("too deep", R"({"event":"a","body":[)" + deep + "]}", "it is nested deeper than 63 levels");
}

void VelctlTestEvents::badLineEndsTheReplayAndIsNamed() {
    QFETCH(QByteArray, line);
    QFETCH(QString, reason);
    ByteRecorder recorder;
    const Outcome outcome =
        velctl({"publish", "--json", "-"}, "{\"event\":\"good\"}\n" + line + "\n{\"event\":\"late\"}\n");
    QCOMPARE(outcome.status, 1);
    const QJsonObject failure = QJsonDocument::fromJson(outcome.err.toUtf8()).object();
    QVERIFY2(failure.value("error").toString().contains(reason), qPrintable(outcome.err));
    QCOMPARE(failure.value("status").toInt(), 1);
    QCOMPARE(velctl({"publish", "end"}).status, 0);
    const QList<QByteArray> events = recorder.next(2);
    QVERIFY(events.at(0).contains(" good "));
    QVERIFY(events.at(1).contains(" end "));
}

void VelctlTestEvents::watchIsFilteredOnTheBus() {
    Background watch({"watch", "one", "other", "--count", "2", "--json"});
    QDBusMessage question = QDBusMessage::createMethodCall("org.freedesktop.DBus", "/org/freedesktop/DBus",
                                                           "org.freedesktop.DBus.Debug.Stats", "GetAllMatchRules");
    qDBusRegisterMetaType<QMap<QString, QStringList>>();
    const QDBusMessage answer = QDBusConnection::sessionBus().call(question);
    const auto rules = qdbus_cast<QMap<QString, QStringList>>(answer.arguments().value(0).value<QDBusArgument>());
    QStringList ofEvents;
    for (const QStringList& list : rules)
        ofEvents += list.filter(commonInterface);
    const int seen = PrivateBus::isBroker() ? 0 : 1; // dbus-broker filters alike, and does not show by what
    QCOMPARE(ofEvents.filter("member='one'").size(), seen);
    QCOMPARE(ofEvents.filter("member='other'").size(), seen);

    for (const char* name : {"one", "third", "other"})
        QVERIFY(bustest::publish(QDBusConnection::sessionBus(), "Tuner", name, {{"x", 1}}));
    const QList<QJsonObject> events = watch.outcome().objects();
    QCOMPARE(events.size(), 2);
    QCOMPARE(events.at(0).value("event").toString(), QString("one"));
    QCOMPARE(events.at(1).value("event").toString(), QString("other"));
    QCOMPARE(events.at(0).value("module").toString(), QString("Tuner"));
}

void VelctlTestEvents::lineForPeopleCanBePublishedAgain() {
    Background watch({"watch", "topic", "--count", "1"});
    const QStringList arguments = {"level:=uint:7", "genres:=texts:[\"a\"]", "ratio:=double:0.5",
                                   "any:=variant:{\"type\":\"y\",\"value\":7}"};
    QCOMPARE(velctl(QStringList({"publish", "topic"}) + arguments).status, 0);
    const QString line = watch.outcome().out.value(0);
    QVERIFY2(line.contains("velctl           topic                'any:=variant:{\"type\":\"y\",\"value\":7}' "
                           "'genres:=texts:[\"a\"]' level:=uint:7 ratio:=double:0.5"),
             qPrintable(line));
}

void VelctlTestEvents::watchAndReplayEndAsTheyWereTold() {
    const Outcome tooFew = velctl({"watch", "topic", "--count", "1", "--timeout", "0.5"});
    QCOMPARE(tooFew.status, 124);
    QVERIFY2(tooFew.err.contains("cannot watch 1 events: only 0 within 0.5 s"), qPrintable(tooFew.err));
    QCOMPARE(velctl({"watch", "topic", "--timeout", "0.5"}).status, 0);

    QProcess replay; // of input that does not end
    replay.start(bustest::program("velctl"), {"publish", "--json", "-", "--timeout", "0.5"});
    QVERIFY(replay.waitForFinished(60000));
    QCOMPARE(replay.exitCode(), 124);

    Background watch({"watch"});
    watch.interrupt();
    QCOMPARE(watch.outcome().status, 130);
}

VEL_BUS_TEST_MAIN(VelctlTestEvents)
#include "VelctlTestEvents.moc"
