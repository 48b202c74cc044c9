// A peer that sends at full speed whatever a bus carries: every good event in between arrives once and in its order, and the
// modules live. What it sends is made as for the fuzz target of the events' reader.
//
// VEL_TEST_MESSAGES says how many messages; scripts/fuzz sends a million.
#include "doubles/RecordingLogger.h"
#include "fuzz/Mutator.h"
#include "fuzz/Peer.h"
#include "testing/BusTest.h"
#include "testing/RawClient.h"

#include "bus/BusNames.h"
#include "module/VelModule.h"
#include "process/ProcessInfo.h"

#include <QElapsedTimer>
#include <QEventLoop>
#include <QLoggingCategory>
#include <QTest>

#include <thread>

namespace {

constexpr char topicName[] = "topic";
const QString topic = topicName;
const QString display = "Display";
const QString scripted = "Scripted";
const QString peersPrefix = "good event of the peer ";
const QString modulesContext = "good event of the module";

constexpr int messagesPerGoodEvent = 20;
constexpr int messagesPerRound = 500; // after so many the modules catch up, so that no queue grows without end

int messageCount() {
    bool isGiven = false;
    const int given = qEnvironmentVariableIntValue("VEL_TEST_MESSAGES", &isGiven);
    return isGiven ? given : 20000;
}

// "1234 kB"
QByteArray peakMemoryOf(qint64 process) {
    const QByteArray status = procFile(process, "status");
    const int start = status.indexOf("VmHWM:") + 6;
    return status.mid(start, status.indexOf('\n', start) - start).trimmed();
}

QVariantMap numbered(int number) {
    return {{"number", number}};
}

// Everything that a stranger may send, except what ends or freezes a module by its very name.
class Flood {
public:
    explicit Flood(const VelModule& module) : m_module(module) {}

    void run(int messages) {
        for (int sent = 0; sent < messages && m_isTaken; ++sent) {
            if (sent % messagesPerGoodEvent == 0)
                sendGoodEvent();
            else if (m_mutator.below(10) < 8)
                sendSignal();
            else
                sendCall();
            if (sent % messagesPerRound == messagesPerRound - 1)
                finishRound();
        }
        finishRound();
    }

    bool wasTaken() const { return m_isTaken; }
    int goodEvents() const { return m_goodEvents; }
    int goodEventsOfModule() const { return m_goodEventsOfModule; }

private:
    void finishRound() {
        clearRecordedLines();
        m_isTaken = m_isTaken &&
                    m_module.notifyEvent(VelEvent(topic, numbered(m_goodEventsOfModule++), modulesContext)) &&
                    m_client.waitForModule(display) && m_client.waitForModule(scripted);
    }

    void sendGoodEvent() {
        const QByteArray name = peersPrefix.toUtf8() + QByteArray::number(m_goodEvents++);
        m_isTaken = m_isTaken && m_client.sendSignal("Hostile", topic, [&](DBusMessageIter& iterator) {
            appendEvent(iterator, name, 1, 1, 1);
        });
    }

    RawMessage signalOf(const QByteArray& member) {
        for (;;) {
            if (RawMessage message = fuzz::signalOf(m_mutator.next(), member))
                return message;
        }
    }

    void sendSignal() {
        static const char* const controls[] = {"log_level_changed",  "mtrace_on",          "mtrace_off",
                                               "reset_data_default", "reset_data_factory", "presentationLoaded"};
        const char* const control = controls[m_mutator.below(std::size(controls))];
        m_isTaken = m_isTaken && m_client.send(signalOf(m_mutator.below(4) ? topicName : control).get());
    }

    void sendCall() {
        static const char* const methods[] = {"echo",   "state", "logLevel", "Introspect",   "Get",
                                              "GetAll", "Set",   "Ping",     "GetMachineId", "absent"};
        static const QByteArray common = vel::bus::commonInterface().toUtf8();
        static const char* const interfaces[] = {common.constData(),
                                                 nullptr,
                                                 "org.freedesktop.DBus.Properties",
                                                 "org.freedesktop.DBus.Introspectable",
                                                 "org.freedesktop.DBus.Peer",
                                                 "no.such.interface"};
        const QString module = m_mutator.below(2) ? display : scripted;
        const QByteArray path = m_mutator.below(5) ? vel::bus::objectPath(module).toUtf8() : "/no/such";
        const RawMessage call(dbus_message_new_method_call(
            vel::bus::serviceName(module).toUtf8().constData(), path.constData(),
            interfaces[m_mutator.below(std::size(interfaces))], methods[m_mutator.below(std::size(methods))]));
        dbus_message_set_no_reply(call.get(), m_mutator.below(2) ? TRUE : FALSE);
        DBusMessageIter iterator;
        dbus_message_iter_init_append(call.get(), &iterator);
        appendBySignature(iterator, dbus_message_get_signature(signalOf("any").get()));
        m_isTaken = m_isTaken && m_client.send(call.get());
    }

    const VelModule& m_module;
    RawClient m_client;
    fuzz::Mutator m_mutator{fuzz::seedsIn(VEL_EVENT_SEEDS)};
    bool m_isTaken = true;
    int m_goodEvents = 0;
    int m_goodEventsOfModule = 0;
};

} // namespace

class GoodEvents : public QObject {
    Q_OBJECT
public:
    int fromPeerHeard = 0;
    int fromModuleHeard = 0;
    int others = 0;
    bool isInOrder = true;

public Q_SLOTS:
    void heard(const VelEvent& event) {
        if (event.getEvtName().startsWith(peersPrefix))
            isInOrder = isInOrder && event.getEvtName() == peersPrefix + QString::number(fromPeerHeard++) &&
                        event.argumentCount() == 1;
        else if (event.getContext() == modulesContext)
            isInOrder = isInOrder && event.getArguments() == numbered(fromModuleHeard++);
        else
            ++others;
    }
};

class HostileFloodTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() {
        // Qt warns of each empty signature that it reads.
        QLoggingCategory::setFilterRules("default.warning=false");
    }

    void goodEventsArriveOnceAndInOrder() {
        VelModule module(display);
        GoodEvents listener;
        QVERIFY(module.subscribeEvent(topic, &listener, SLOT(heard(VelEvent))));
        ChildProcess other;
        QVERIFY(other.run(bustest::program("scripted-module")));
        QVERIFY(other.waitForLine("hook run"));
        bustest::settle(QDBusConnection::sessionBus());

        const int messages = messageCount();
        Flood flood(module);
        QEventLoop loop;
        QElapsedTimer time;
        time.start();
        std::thread sending([&] {
            flood.run(messages);
            QMetaObject::invokeMethod(&loop, &QEventLoop::quit, Qt::QueuedConnection);
        });
        loop.exec();
        sending.join();
        bustest::settle(QDBusConnection::sessionBus());
        qInfo("%d messages in %.1f s, %d of them good events; peak memory of the bus %s, of the module %s", messages,
              static_cast<double>(time.elapsed()) / 1000, flood.goodEvents(),
              peakMemoryOf(bustest::bus().processId()).constData(), peakMemoryOf(other.processId()).constData());

        QVERIFY(flood.wasTaken());
        QVERIFY(listener.isInOrder);
        QCOMPARE(listener.fromPeerHeard, flood.goodEvents());
        QCOMPARE(listener.fromModuleHeard, flood.goodEventsOfModule());
        QVERIFY(listener.others > messages / 10);
        const QDBusMessage answer = bustest::call(QDBusConnection::sessionBus(), scripted, "echo", {topic});
        QCOMPARE(answer.arguments(), QVariantList{topic});
        QVERIFY(module.notifyEvent("stop_module_Scripted"));
        QCOMPARE(other.waitForStatus(), 1);
    }
};

VEL_TEST_MAIN(HostileFloodTest)
#include "HostileFloodTest.moc"
