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
        // One field too few, too many, another type, another order; an event inside something else; no structure at all.
        for (const char* signature : {"(ssia{ss})", "(ssia{ss}a{sv}s)", "(ssxa{ss}a{sv})", "(ssia{sv}a{ss})",
                                      "((ssia{ss}a{sv}))", "a(ssia{ss}a{sv})", "ai", "a{si}"})
            QTest::newRow(signature) << QByteArray(signature) << true;
        for (const char* signature : {"", "s", "v", "as"})
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
        QTest::newRow("largest") << INT_MAX << 1 << 0 << 1;
        QTest::newRow("too small") << 1 << 3 << 3 << 1;
        QTest::newRow("most negative") << INT_MIN << 3 << 0 << 0;
        QTest::newRow("more types than arguments") << 1 << 1 << 5000 << 1;
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
        for (int wrapping : {1, 55})
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
        QTest::newRow("unregistered in a variant")
            << QVariant::fromValue(QDBusVariant(QVariant::fromValue(Unregistered())));
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
    }

    void deepestArgumentTheBusAcceptsIsPublished() { QVERIFY(publishUntilRefused(1) > 20); }

    void receivedContainerIsSentOn() {
        // What others nested counts, too: a module may put it into a container of its own.
        constexpr int lists = 10;
        QVariant value(1);
        for (int level = 0; level < lists; ++level)
            value = QVariantList{value};
        QVERIFY(m_module.notifyEvent(topic, {{"value", value}}));
        QVERIFY(m_listener->waitForEvents(1));
        const QVariant received = m_listener->events().front().getArguments().first();
        QCOMPARE(received.userType(), qMetaTypeId<QDBusArgument>());
        // An event takes four of the 63 levels, a list of variants two.
        QCOMPARE(publishUntilRefused(received), 1 + (63 - 4 - 2 * lists) / 2);
    }

private:
    // How often the value can be published, in one more list each time. The first that is refused is refused by the
    // publisher, never by the bus: that would cost the connection.
    int publishUntilRefused(QVariant value) {
        const auto before = m_listener->events().size();
        int published = 0;
        for (; m_module.notifyEvent(topic, {{"value", value}}); ++published)
            value = QVariantList{value};
        nextGoodEventArrives();
        return m_listener->events().size() == before + static_cast<unsigned>(published) + 1 ? published : -1;
    }

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

VEL_TEST_MAIN(HostileEventsTest)
#include "HostileEventsTest.moc"
