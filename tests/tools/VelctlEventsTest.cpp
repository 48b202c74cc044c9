// What velctl publishes is, to the byte, what a module would publish, or what velctl has watched before.
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

QProcess* start(QProcess& process, const QStringList& arguments) {
    process.start(bustest::program("velctl"), arguments);
    return &process;
}

bool succeeds(QProcess* process) {
    const bool hasEnded = process->waitForFinished(60000);
    qInfo("%s", process->readAllStandardError().constData());
    return hasEnded && process->exitStatus() == QProcess::NormalExit && process->exitCode() == 0;
}

} // namespace

class VelctlEventsTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void publishedEventIsWhatAModuleWouldPublish();
    void replayPutsTheSameBytesOnTheBus();
};

void VelctlEventsTest::publishedEventIsWhatAModuleWouldPublish() {
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
    QProcess publish;
    QVERIFY(succeeds(start(publish, QStringList{"publish", "topic", "--as", "Tuner"} + written)));
    const QList<QByteArray> events = recorder.next(2);
    QCOMPARE(events.at(1), events.at(0));
}

void VelctlEventsTest::replayPutsTheSameBytesOnTheBus() {
    // One type of each kind, nested ones, and what JSON by itself could not hold.
    const QByteArrayList types =
        QByteArray("b y n q i u x t d s o v as ay av a{sv} (is) a(is) aai a{ya{s(dv)}} a{ss} (i(av)ay) aay aas ab ssi "
                   "(ssia{ss}a{sv}) ai(s)")
            .split(' ');
    ByteRecorder recorder;
    QProcess watch;
    watch.setReadChannel(QProcess::StandardError);
    start(watch, {"watch", "--json", "--count", QString::number(types.size() + 2)});
    QVERIFY(watch.waitForReadyRead(60000)); // it watches
    RawClient publisher;
    for (const QByteArray& type : types)
        QVERIFY(publisher.sendSignal("Strange", "topic",
                                     [&](DBusMessageIter& to) { appendBySignature(to, type.constData()); }));
    QVERIFY(publisher.sendSignal("Strange", "topic", appendStrangeEvent));
    QVERIFY(publisher.sendSignal("Strange", "nothing_in_it", [](DBusMessageIter&) {}));
    publisher.flush();
    const QList<QByteArray> sent = recorder.next(types.size() + 2);

    QVERIFY(succeeds(&watch));
    QProcess replay;
    start(replay, {"publish", "--json", "-"})->write(watch.readAllStandardOutput());
    replay.closeWriteChannel();
    QVERIFY(succeeds(&replay));
    const QList<QByteArray> again = recorder.next(sent.size());
    for (int index = 0; index < sent.size(); ++index)
        QCOMPARE(again.at(index), sent.at(index));
}

VEL_TEST_MAIN(VelctlEventsTest)
#include "VelctlEventsTest.moc"
