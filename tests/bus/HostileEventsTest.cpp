// Events that no well-behaved module sends: the module lives, and the next good event is delivered.
#include "testing/BusTest.h"
#include "testing/EventListener.h"
#include "testing/RawClient.h"

#include "module/VelModule.h"

#include <QDBusMetaType>
#include <QTest>

namespace {

const QString topic = "topic";
const QString hostile = "Hostile";

// A type that Qt D-Bus was never told about.
struct Unregistered {};

} // namespace
Q_DECLARE_METATYPE(Unregistered)

class HostileEventsTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() {
        QVERIFY(m_hostile.isConnected());
        QVERIFY(m_echo.run(bustest::program("scripted-module"), {"--moduleName=Echo"}));
        QVERIFY(m_echo.waitForLine("hook run"));
    }

    void init() {
        m_listener = std::make_unique<EventListener>();
        QVERIFY(m_module.subscribeEvent(topic, m_listener.get(), SLOT(heard(VelEvent))));
        bustest::waitForBus(QDBusConnection::sessionBus());
    }

    void otherFormIsTakenForNothing_data() {
        QTest::addColumn<QByteArray>("signature");
        QTest::addColumn<bool>("reachesTheSlot"); // Qt hands over every container; the rest has no matching slot
        for (const char* signature :
             {"(ssia{ss})", "(s)", "(i)", "((ssia{ss}a{sv}))", "(ssia{ss}a{ss})", "(ssia{sv}a{ss})", "(sssa{ss}a{sv})",
              "(ssia{ss}a{sv}s)", "(ssxa{ss}a{sv})", "ai", "a(ssia{ss}a{sv})", "aai", "a{si}", "a{s(ssia{ss}a{sv})}"})
            QTest::newRow(signature) << QByteArray(signature) << true;
        for (const char* signature : {"", "s", "i", "d", "o", "g", "v", "as", "ay", "ss"})
            QTest::newRow(*signature ? signature : "no argument") << QByteArray(signature) << false;
        QTest::newRow("two events") << QByteArray("(ssia{ss}a{sv})(ssia{ss}a{sv})") << true;
    }

    void otherFormIsTakenForNothing() {
        QFETCH(QByteArray, signature);
        QFETCH(bool, reachesTheSlot);
        QVERIFY(m_hostile.sendSignal(
            hostile, topic, [&](DBusMessageIter& iterator) { appendBySignature(iterator, signature.constData()); }));
        m_hostile.flush();
        nextGoodEventArrives();
        const bool isEventForm = signature.startsWith("(ssia{ss}a{sv})(");
        QCOMPARE(m_listener->events().size(), reachesTheSlot ? 2u : 1u);
        if (reachesTheSlot && !isEventForm) {
            const VelEvent& taken = m_listener->events().front();
            QCOMPARE(taken.getEvtName(), QString());
            QCOMPARE(taken.argumentCount(), 0);
            QVERIFY(taken.getArgTypes().isEmpty());
        }
    }

    void countNeverReadsPastTheArguments_data() {
        QTest::addColumn<int>("count");
        QTest::addColumn<int>("arguments");
        QTest::addColumn<int>("types");
        QTest::addColumn<int>("taken");
        QTest::newRow("fits") << 3 << 3 << 3 << 3;
        QTest::newRow("too large") << 1000 << 3 << 0 << 3;
        QTest::newRow("largest") << INT_MAX << 1 << 0 << 1;
        QTest::newRow("too small") << 1 << 3 << 3 << 1;
        QTest::newRow("zero") << 0 << 3 << 1 << 0;
        QTest::newRow("negative") << -1 << 3 << 0 << 0;
        QTest::newRow("most negative") << INT_MIN << 3 << 0 << 0;
        QTest::newRow("more types than arguments") << 1 << 1 << 5000 << 1;
        QTest::newRow("ten thousand arguments") << 10000 << 10000 << 10000 << 10000;
        QTest::newRow("large count of nothing") << 5 << 0 << 0 << 0;
    }

    void countNeverReadsPastTheArguments() {
        QFETCH(int, count);
        QFETCH(int, arguments);
        QFETCH(int, types);
        QFETCH(int, taken);
        QVERIFY(m_hostile.sendSignal(hostile, topic, [&](DBusMessageIter& iterator) {
            appendEvent(iterator, "topic", count, arguments, types);
        }));
        m_hostile.flush();
        QVERIFY(m_listener->waitForEvents(1));
        const VelEvent& event = m_listener->events().front();
        QCOMPARE(event.argumentCount(), taken);
        QCOMPARE(event.getArgTypes().size(), types);
        if (taken > 0)
            QCOMPARE(event.getArgument(0, "key"), QVariant()); // "key_0" is no key of ours
        QCOMPARE(event.getArguments().value("key0"), taken > 0 ? QVariant(0) : QVariant());
        nextGoodEventArrives();
    }

    void nestedVariantsAreDelivered_data() {
        QTest::addColumn<int>("wrapping");
        for (int wrapping : {1, 2, 10, 55})
            QTest::addRow("%d", wrapping) << wrapping;
    }

    void nestedVariantsAreDelivered() {
        QFETCH(int, wrapping);
        QVERIFY(m_hostile.sendSignal(
            hostile, topic, [&](DBusMessageIter& iterator) { appendEvent(iterator, "topic", 1, 1, 0, wrapping); }));
        m_hostile.flush();
        nextGoodEventArrives();
        QCOMPARE(m_listener->events().size(), 2u);
        QCOMPARE(m_listener->events().front().argumentCount(), 1);
    }

    void lifecycleSurvivesHostileControlEvents() {
        ChildProcess scripted;
        QVERIFY(scripted.run(bustest::program("scripted-module")));
        QVERIFY(scripted.waitForLine("hook run"));
        for (const char* control : {"log_level_changed", "mtrace_on", "mtrace_off", "test_save", "test_restored"}) {
            for (const char* signature : {"(ssia{ss})", "(s)", "ai", "s", "", "a{sv}"})
                QVERIFY(m_hostile.sendSignal(hostile, QLatin1String(control), [&](DBusMessageIter& iterator) {
                    appendBySignature(iterator, signature);
                }));
            QVERIFY(m_hostile.sendSignal(hostile, QLatin1String(control),
                                         [](DBusMessageIter& iterator) { appendEvent(iterator, "x", -5, 100, 100); }));
        }
        m_hostile.flush();
        QVERIFY(m_module.notifyEvent("stop_module_Scripted"));
        QCOMPARE(scripted.waitForStatus(), 1);
    }

    void unpublishableArgumentIsRefused_data() {
        QTest::addColumn<QVariant>("value");
        QTest::newRow("invalid") << QVariant();
        QTest::newRow("unregistered type") << QVariant::fromValue(Unregistered());
        QTest::newRow("invalid in a map") << QVariant(QVariantMap{{"a", QVariant()}});
        QTest::newRow("invalid in a list") << QVariant(QVariantList{1, QVariant()});
        QTest::newRow("unregistered in a variant")
            << QVariant::fromValue(QDBusVariant(QVariant::fromValue(Unregistered())));
        QTest::newRow("invalid in an event") << QVariant::fromValue(VelEvent("inner", {{"a", QVariant()}}, QString()));
        QTest::newRow("invalid object path") << QVariant::fromValue(QDBusObjectPath());
        QTest::newRow("invalid in a hash") << QVariant(QVariantHash{{"a", QVariant()}});
        QTest::newRow("more bytes than an array may hold") << QVariant(QByteArray(70 * 1024 * 1024, 'a'));
        QVariant deep(1);
        for (int level = 0; level < 100; ++level)
            deep = QVariantMap{{"a", deep}};
        QTest::newRow("nested too deeply") << deep;
    }

    void unpublishableArgumentIsRefused() {
        QFETCH(QVariant, value);
        QVERIFY(!m_module.notifyEvent(topic, {{"argument", value}}));
        nextGoodEventArrives();
        QCOMPARE(m_listener->events().size(), 1u);

        const QString peer = "Echo";
        const QString echo = "echo";
        for (const bool waits : {true, false}) {
            QString thrown;
            try {
                if (waits)
                    m_module.syncRemoteCall(peer, echo, {value});
                else
                    m_module.asyncRemoteCall(peer, echo, {value});
            } catch (const QString& text) {
                thrown = text;
            }
            QVERIFY2(thrown.startsWith("Argument 1 of method echo has no D-Bus form"), qPrintable(thrown));
        }
        const QVariantList good{"still here"};
        QCOMPARE(m_module.syncRemoteCall(peer, echo, good).arguments(), good);
    }

    void deepestArgumentTheBusAcceptsIsPublished() {
        // The first depth that is refused is refused by the publisher, never by the bus: that would cost the connection.
        QVariant value(1);
        bool published = true;
        int depth = 0;
        for (; published; ++depth) {
            published = m_module.notifyEvent(topic, {{"deep", value}});
            value = QVariantList{value};
        }
        QVERIFY(depth > 20);
        nextGoodEventArrives();
        QCOMPARE(static_cast<int>(m_listener->events().size()), depth);
    }

    void receivedContainerIsSentOn() {
        // What others nested counts, too: a module may put it into a container of its own.
        constexpr int lists = 20;
        QByteArray signature("i");
        for (int level = 0; level < lists; ++level)
            signature.prepend("a");
        QVERIFY(m_hostile.sendSignal(hostile, topic, [&](DBusMessageIter& iterator) {
            DBusMessageIter event, noTypes, arguments, entry, variant;
            dbus_message_iter_open_container(&iterator, DBUS_TYPE_STRUCT, nullptr, &event);
            appendBySignature(event, "ss");
            const dbus_int32_t count = 1;
            dbus_message_iter_append_basic(&event, DBUS_TYPE_INT32, &count);
            dbus_message_iter_open_container(&event, DBUS_TYPE_ARRAY, "{ss}", &noTypes);
            dbus_message_iter_close_container(&event, &noTypes);
            dbus_message_iter_open_container(&event, DBUS_TYPE_ARRAY, "{sv}", &arguments);
            dbus_message_iter_open_container(&arguments, DBUS_TYPE_DICT_ENTRY, nullptr, &entry);
            appendBySignature(entry, "s");
            dbus_message_iter_open_container(&entry, DBUS_TYPE_VARIANT, signature.constData(), &variant);
            appendBySignature(variant, signature.constData());
            dbus_message_iter_close_container(&entry, &variant);
            dbus_message_iter_close_container(&arguments, &entry);
            dbus_message_iter_close_container(&event, &arguments);
            dbus_message_iter_close_container(&iterator, &event);
        }));
        m_hostile.flush();
        QVERIFY(m_listener->waitForEvents(1));
        QVariant value = m_listener->events().front().getArguments().first();
        QCOMPARE(value.userType(), qMetaTypeId<QDBusArgument>());
        bool published = true;
        int depth = 0;
        for (; published; ++depth) {
            published = m_module.notifyEvent(topic, {{"sent on", value}});
            value = QVariantList{value};
        }
        // An event takes four of the 63 levels.
        QCOMPARE(depth, 1 + (63 - 4 - lists) / 2 + 1);
        nextGoodEventArrives();
        QCOMPARE(static_cast<int>(m_listener->events().size()), 1 + depth);
    }

private:
    void nextGoodEventArrives() {
        const QVariantMap good{{"good", 7}};
        QVERIFY(m_module.notifyEvent(topic, good));
        QVERIFY(m_listener->waitForEvent([&](const VelEvent& event) { return event.getArguments() == good; }));
    }

    VelModule m_module{"Display"};
    RawClient m_hostile;
    ChildProcess m_echo;
    std::unique_ptr<EventListener> m_listener;
};

VEL_BUS_TEST_MAIN(HostileEventsTest)
#include "HostileEventsTest.moc"
