// Publication and subscription: who hears what, and when a subscription ends.
#include "doubles/RecordingLogger.h"
#include "testing/BusTest.h"
#include "testing/EventListener.h"

#include "module/VelModule.h"

#include <QDBusArgument>
#include <QTest>
#include <QVector>

namespace {

const QString topic = "topic";
const char* const heardSlot = SLOT(heard(VelEvent));
constexpr int mostBytes = 64 * 1024 * 1024 - 16;

class Answering : public QObject {
    Q_OBJECT
public Q_SLOTS:
    void answer(QString& text) { text = "no slot of an event has an answer"; }
};

} // namespace

class EventsTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init() { m_listener = std::make_unique<EventListener>(); }

    void everySubscriberHearsEveryPublisher() {
        EventListener second;
        EventListener elsewhere; // on another connection, as in another process
        QVERIFY(m_module.subscribeEvent(topic, m_listener.get(), heardSlot));
        QVERIFY(m_module.subscribeEvent(VelEvent(topic, {}, QString()), &second, SLOT(called())));
        QVERIFY(m_other.connect(QString(), QString(), m_module.getDbusInterfaceName(), topic, &elsewhere, heardSlot));
        bustest::waitForBus(m_other);
        VelEvent event(topic, {{"station", "Radio 7"}}, "context");
        QVERIFY(m_module.notifyEvent(event));
        QVERIFY(publishFromOutside(topic));
        QVERIFY(m_listener->waitForEvents(2));
        QVERIFY(second.waitForBareCalls(2));
        QVERIFY(elsewhere.waitForEvents(2));
        for (const EventListener* listener : {m_listener.get(), &elsewhere}) {
            QCOMPARE(listener->events().front().getEvtName(), topic);
            QCOMPARE(listener->events().front().getContext(), "context");
            QCOMPARE(listener->events().front().getArguments(), event.getArguments());
            QCOMPARE(listener->events().front().getArgTypes(), event.getArgTypes());
        }
    }

    void publisherHearsItselfLaterFromTheEventLoop() {
        QVERIFY(m_module.subscribeEvent(topic, m_listener.get(), heardSlot));
        bool isPublishing = true;
        bool wasPublishing = true;
        m_listener->onEvent = [&](const VelEvent&) { wasPublishing = isPublishing; };
        bustest::waitForBus(QDBusConnection::sessionBus());
        QVERIFY(m_module.notifyEvent(topic));
        isPublishing = false;
        QVERIFY(m_listener->waitForEvents(1));
        QVERIFY(!wasPublishing);
    }

    void subscriptionMadeTwiceIsOneAndEndsAtOnce() {
        EventListener staying;
        QVERIFY(m_module.subscribeEvent(topic, m_listener.get(), heardSlot));
        QVERIFY(m_module.subscribeEvent(topic, &staying, heardSlot));
        m_module.subscribeEvent(topic, m_listener.get(), heardSlot);
        QVERIFY(publishFromOutside(topic));
        QVERIFY(staying.waitForEvents(1));
        bustest::settle(m_other);
        QCOMPARE(m_listener->events().size(), 1u);
        QVERIFY(m_module.unsubscribeEvent(topic, m_listener.get(), heardSlot));
        QVERIFY(!m_module.unsubscribeEvent(topic, m_listener.get(), heardSlot));
        QVERIFY(publishFromOutside(topic));
        QVERIFY(staying.waitForEvents(2));
        QCOMPARE(m_listener->events().size(), 1u);
    }

    void moduleSpecificUnsubscriptionLeavesTheGeneralOne() {
        const VelEvent event(topic, {}, QString());
        QVERIFY(m_module.subscribeEvent(event, m_listener.get(), heardSlot));
        QVERIFY(!m_module.unsubscribeEvent(event, m_listener.get(), heardSlot));
        QVERIFY(!m_module.unsubscribeEvent("Other", topic, m_listener.get(), heardSlot));
        QVERIFY(publishFromOutside(topic));
        QVERIFY(m_listener->waitForEvents(1));

        QDBusConnection session = QDBusConnection::sessionBus();
        QVERIFY(session.connect("org.vel.module.MediaService", "/Media", m_module.getDbusInterfaceName(), topic,
                                m_listener.get(), heardSlot));
        QVERIFY(m_module.unsubscribeEvent("Media", topic, m_listener.get(), heardSlot));
        QVERIFY(m_module.unsubscribeEvent(topic, m_listener.get(), heardSlot));
    }

    void emptyNameMeansEveryEvent() {
        QVERIFY(m_module.subscribeEvent(QString(), m_listener.get(), heardSlot));
        QVERIFY(publishFromOutside("one"));
        QVERIFY(m_module.notifyEvent("two"));
        QVERIFY(m_listener->waitForEvents(2));
        QVERIFY(m_module.unsubscribeEvent(QString(), m_listener.get(), heardSlot));
    }

    void destroyedReceiverIsNotCalled() {
        EventListener other;
        QVERIFY(m_module.subscribeEvent(topic, m_listener.get(), heardSlot));
        QVERIFY(m_module.subscribeEvent(topic, &other, heardSlot));
        QVERIFY(publishFromOutside(topic));
        bustest::settle(m_other);
        m_listener.reset();
        QVERIFY(publishFromOutside(topic));
        QVERIFY(other.waitForEvents(2));
    }

    void largeValueArrives_data() {
        QTest::addColumn<QVariant>("value");
        QStringList texts;
        for (int index = 0; index < 24; ++index)
            texts << QString(999'999, QLatin1Char('a' + index));
        QTest::newRow("24 long texts") << QVariant(texts);
        // An event's arguments are one array: the name, the signature and the length of this one take 16 bytes of it.
        QTest::newRow("as many bytes as the bus takes") << QVariant(QByteArray(mostBytes, 'a'));
    }

    void largeValueArrives() {
        QFETCH(QVariant, value);
        QVERIFY(m_module.subscribeEvent(topic, m_listener.get(), heardSlot));
        QVERIFY(m_module.notifyEvent(topic, {{"v", value}}));
        QVERIFY(m_listener->waitForEvents(1));
        QVERIFY(m_listener->events().front().getArgument("v") == value);
    }

    void listOfNumbersArrivesAndIsSentOn() {
        QVariantList numbers;
        while (numbers.size() < 2'200'000)
            numbers << 7;
        QVERIFY(m_module.subscribeEvent(topic, m_listener.get(), heardSlot));
        QVERIFY(m_module.notifyEvent(topic, {{"v", numbers}}));
        QVERIFY(m_listener->waitForEvents(1));
        const QVariant received = m_listener->events().front().getArgument("v");
        QVERIFY(qdbus_cast<QVariantList>(received) == numbers);
        // It is sent on, and counted, as it came.
        QVERIFY(m_module.notifyEvent(topic, {{"v", m_listener->events().front().getArgument("v")}}));
        QVERIFY(m_listener->waitForEvents(2));
    }

    void tooLargeEventIsRefusedAndTold_data() {
        QTest::addColumn<QVariantMap>("arguments");
        QTest::addColumn<QString>("context");
        QTest::addColumn<QString>("reason");
        const QString array = "an array in it takes %1 bytes, and the bus takes at most 67108864";
        QTest::newRow("one byte more") << QVariantMap{{"v", QByteArray(mostBytes + 1, 'a')}} << ""
                                       << array.arg(67108865);
        QTest::newRow("registered list") << QVariantMap{{"v", QVariant::fromValue(QList<double>::fromVector(
                                                                  QVector<double>(9'000'000)))}}
                                         << "" << array.arg(72000016);
        QTest::newRow("context") << QVariantMap() << QString(128 * 1024 * 1024, 'a')
                                 << "it takes 134217768 bytes, and the bus takes messages of at most 134217728, with "
                                    "their headers";
    }

    void tooLargeEventIsRefusedAndTold() {
        QFETCH(QVariantMap, arguments);
        QFETCH(QString, context);
        QFETCH(QString, reason);
        clearRecordedLines();
        QVERIFY(!m_module.notifyEvent(VelEvent(topic, arguments, context)));
        QCOMPARE(recordedLines(), QStringList{"error: cannot publish 'topic': " + reason + "; nothing was sent"});
        QVERIFY(m_module.subscribeEvent(topic, m_listener.get(), heardSlot));
        QVERIFY(m_module.notifyEvent(topic)); // the connection lives
        QVERIFY(m_listener->waitForEvents(1));
    }

    void impossibleSubscriptionIsTold_data() {
        QTest::addColumn<QByteArray>("slot");
        QTest::addColumn<QString>("event");
        QTest::addColumn<QString>("line");
        const auto row = [](const char* title, const char* slot, const char* line, const char* event = "topic") {
            QTest::newRow(title) << QByteArray(slot) << QString(event) << QString(line);
        };
        row("misspelt", SLOT(herd(VelEvent)),
            "'EventListener::herd(VelEvent)' to 'topic': class 'EventListener' has no slot of that name: it is "
            "misspelt, or not declared under Q_SLOTS");
        row("other parameters", SLOT(heard(int)),
            "'EventListener::heard(int)' to 'topic': class 'EventListener' has no slot with these parameters, but "
            "heard(VelEvent)");
        row("parameter without a form", SLOT(deleteLater(QObject*)),
            "'EventListener::deleteLater(QObject*)' to 'topic': class 'EventListener' has no slot with these "
            "parameters, but deleteLater()");
        row("parameter that cannot travel", SIGNAL(destroyed(QObject*)),
            "'EventListener::destroyed(QObject*)' to 'topic': parameter type 'QObject*' has no D-Bus form; a slot "
            "takes "
            "a VelEvent or nothing");
        row("null", nullptr, "'EventListener::null' to 'topic': the slot is null");
        row("no name", heardSlot,
            "'EventListener::heard(VelEvent)' to 'a-b': a name must consist of 1 to 255 letters (A to Z, a to z), "
            "digits and underscores, not beginning with a digit",
            "a-b");
    }

    void impossibleSubscriptionIsTold() {
        QFETCH(QByteArray, slot);
        QFETCH(QString, event);
        QFETCH(QString, line);
        const char* const signature = slot.isNull() ? nullptr : slot.constData();
        clearRecordedLines();
        QVERIFY(!m_module.subscribeEvent(event, m_listener.get(), signature));
        QCOMPARE(recordedLines().last(), "error: cannot subscribe " + line + "; it will not be called");
        QVERIFY(!m_module.unsubscribeEvent(event, m_listener.get(), signature));
        QVERIFY(recordedLines().last().startsWith("error: cannot unsubscribe 'EventListener::"));
    }

    void otherSubscriptionFaultsAreTold() {
        class Plain : public EventListener { // has no Q_OBJECT
        public:
            void heardPlainly(VelEvent) {}
        } plain;
        clearRecordedLines();
        QVERIFY(!m_module.subscribeEvent(topic, &plain, SLOT(heardPlainly(VelEvent))));
        QVERIFY(recordedLines().last().contains("has no Q_OBJECT, so that of its slots only those of 'EventListener' "
                                                "are known; it will not be called"));
        Answering answering;
        QVERIFY(!m_module.subscribeEvent(topic, &answering, SLOT(answer(QString&))));
        QVERIFY(recordedLines().last().contains("parameter type 'QString&' is no value; it will not be called"));
        QVERIFY(!m_module.subscribeEvent(topic, nullptr, heardSlot));
        QVERIFY(recordedLines().last().contains("'null::heard(VelEvent)' to 'topic': the receiver is null"));
        QVERIFY(!m_module.unsubscribeEvent(topic, m_listener.get(), heardSlot));
        QVERIFY(recordedLines().last().contains("from 'topic': there is no such subscription; nothing changes"));
        QVERIFY(!m_module.unsubscribeEvent(VelEvent(topic, {}, QString()), m_listener.get(), heardSlot));
        QVERIFY(recordedLines().last().contains("there is none for the events of 'Display' alone"));
    }

    void unpublishableEventIsTold() {
        clearRecordedLines();
        QVERIFY(!m_module.notifyEvent("a-\x1b[31m"));
        QVERIFY(recordedLines().last().startsWith("error: cannot publish 'a-\\x1b[31m': a name must consist of 1"));
        const QVariantMap arguments{{"list", QVariantList{1, 2, 3, QVariantMap{{"x", 1.0f}}}}};
        QVERIFY(!m_module.notifyEvent(topic, arguments));
        QCOMPARE(recordedLines().last(),
                 QString("error: cannot publish 'topic': argument 'list[3].x' is of type 'float', "
                         "which has no D-Bus form; nothing was sent"));
    }

private:
    // A publication that everybody subscribed hears, after which nothing earlier is still on its way.
    bool publishFromOutside(const QString& event) { return bustest::publish(m_other, "Other", event); }

    VelModule m_module{"Display"};
    QDBusConnection m_other = bustest::connectAs("other");
    std::unique_ptr<EventListener> m_listener;
};

VEL_TEST_MAIN(EventsTest)
#include "EventsTest.moc"
