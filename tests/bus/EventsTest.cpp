// Publication and subscription: who hears what, and when a subscription ends.
#include "testing/BusTest.h"
#include "testing/EventListener.h"

#include "module/VelModule.h"

#include <QTest>

namespace {

const QString topic = QStringLiteral("topic");
const char* const heardSlot = SLOT(heard(VelEvent));

} // namespace

class EventsTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init();
    void everySubscriberHearsEveryPublisher();
    void publisherHearsItselfLaterFromTheEventLoop();
    void subscriptionMadeTwiceIsOne();
    void unsubscribedSlotIsNotCalled();
    void moduleSpecificUnsubscriptionLeavesTheGeneralOne();
    void emptyNameMeansEveryEvent();
    void impossibleSubscriptionsAreRefused();
    void destroyedReceiverIsNotCalled();

private:
    // A publication that everybody subscribed hears, after which nothing earlier is still on its way.
    bool publishFromOutside(const QString& event) { return bustest::publish(m_other, QStringLiteral("Other"), event); }

    VelModule m_module{QStringLiteral("Display")};
    QDBusConnection m_other = bustest::connectAs(QStringLiteral("other"));
    std::unique_ptr<EventListener> m_listener;
};

void EventsTest::init() {
    m_listener = std::make_unique<EventListener>();
}

void EventsTest::everySubscriberHearsEveryPublisher() {
    EventListener second;
    EventListener elsewhere; // on another connection, as in another process
    QVERIFY(m_module.subscribeEvent(topic, m_listener.get(), heardSlot));
    QVERIFY(m_module.subscribeEvent(VelEvent(topic, {}, QString()), &second, SLOT(called())));
    QVERIFY(m_other.connect(QString(), QString(), m_module.getDbusInterfaceName(), topic, &elsewhere, heardSlot));
    bustest::waitForBus(m_other);
    VelEvent event(topic, {{QStringLiteral("station"), QStringLiteral("Radio 7")}}, QStringLiteral("context"));
    QVERIFY(m_module.notifyEvent(event));
    QVERIFY(publishFromOutside(topic));
    QVERIFY(m_listener->waitForEvents(2));
    QVERIFY(second.waitForBareCalls(2));
    QVERIFY(elsewhere.waitForEvents(2));
    for (const EventListener* listener : {m_listener.get(), &elsewhere}) {
        QCOMPARE(listener->events().front().getEvtName(), topic);
        QCOMPARE(listener->events().front().getContext(), QStringLiteral("context"));
        QCOMPARE(listener->events().front().getArguments(), event.getArguments());
        QCOMPARE(listener->events().front().getArgTypes(), event.getArgTypes());
    }
}

void EventsTest::publisherHearsItselfLaterFromTheEventLoop() {
    QVERIFY(m_module.subscribeEvent(topic, m_listener.get(), heardSlot));
    bool inside = true;
    bool heardInside = false;
    m_listener->onEvent = [&](const VelEvent&) { heardInside = inside; };
    QVERIFY(m_module.notifyEvent(topic));
    bustest::settle(m_other);
    QCOMPARE(m_listener->events().size(), 1u);
    m_listener->onEvent = [&](const VelEvent& event) {
        if (event.getArguments().isEmpty())
            return;
        heardInside = inside;
    };
    inside = true;
    QVERIFY(m_module.notifyEvent(topic, {{QStringLiteral("second"), true}}));
    inside = false;
    QVERIFY(m_listener->waitForEvents(2));
    QVERIFY(!heardInside);
}

void EventsTest::subscriptionMadeTwiceIsOne() {
    QVERIFY(m_module.subscribeEvent(topic, m_listener.get(), heardSlot));
    m_module.subscribeEvent(topic, m_listener.get(), heardSlot);
    QVERIFY(publishFromOutside(topic));
    QVERIFY(m_listener->waitForEvents(1));
    bustest::settle(m_other);
    QCOMPARE(m_listener->events().size(), 1u);
    QVERIFY(m_module.unsubscribeEvent(topic, m_listener.get(), heardSlot));
    QVERIFY(!m_module.unsubscribeEvent(topic, m_listener.get(), heardSlot));
}

void EventsTest::unsubscribedSlotIsNotCalled() {
    EventListener staying;
    QVERIFY(m_module.subscribeEvent(topic, m_listener.get(), heardSlot));
    QVERIFY(m_module.subscribeEvent(topic, &staying, heardSlot));
    QVERIFY(m_module.unsubscribeEvent(topic, m_listener.get(), heardSlot));
    QVERIFY(publishFromOutside(topic));
    QVERIFY(staying.waitForEvents(1));
    QVERIFY(m_listener->events().empty());
}

void EventsTest::moduleSpecificUnsubscriptionLeavesTheGeneralOne() {
    const VelEvent event(topic, {}, QString());
    QVERIFY(m_module.subscribeEvent(event, m_listener.get(), heardSlot));
    QVERIFY(!m_module.unsubscribeEvent(event, m_listener.get(), heardSlot));
    QVERIFY(!m_module.unsubscribeEvent(QStringLiteral("Other"), topic, m_listener.get(), heardSlot));
    QVERIFY(publishFromOutside(topic));
    QVERIFY(m_listener->waitForEvents(1));

    QDBusConnection session = QDBusConnection::sessionBus();
    QVERIFY(session.connect(QStringLiteral("org.vel.module.MediaService"), QStringLiteral("/Media"),
                            m_module.getDbusInterfaceName(), topic, m_listener.get(), heardSlot));
    QVERIFY(m_module.unsubscribeEvent(QStringLiteral("Media"), topic, m_listener.get(), heardSlot));
    QVERIFY(m_module.unsubscribeEvent(topic, m_listener.get(), heardSlot));
}

void EventsTest::emptyNameMeansEveryEvent() {
    QVERIFY(m_module.subscribeEvent(QString(), m_listener.get(), heardSlot));
    QVERIFY(publishFromOutside(QStringLiteral("one")));
    QVERIFY(m_module.notifyEvent(QStringLiteral("two")));
    QVERIFY(m_listener->waitForEvents(2));
    QVERIFY(m_module.unsubscribeEvent(QString(), m_listener.get(), heardSlot));
}

void EventsTest::impossibleSubscriptionsAreRefused() {
    QVERIFY(!m_module.subscribeEvent(topic, nullptr, heardSlot));
    QVERIFY(!m_module.subscribeEvent(topic, m_listener.get(), nullptr));
    QVERIFY(!m_module.subscribeEvent(topic, m_listener.get(), ""));
    QVERIFY(!m_module.subscribeEvent(topic, m_listener.get(), SLOT(noSuchSlot(VelEvent))));
    QVERIFY(!m_module.subscribeEvent(topic, m_listener.get(), SLOT(deleteLater(QObject*))));
    QVERIFY(!m_module.unsubscribeEvent(topic, m_listener.get(), heardSlot));
}

void EventsTest::destroyedReceiverIsNotCalled() {
    EventListener other;
    QVERIFY(m_module.subscribeEvent(topic, m_listener.get(), heardSlot));
    QVERIFY(m_module.subscribeEvent(topic, &other, heardSlot));
    QVERIFY(publishFromOutside(topic));
    bustest::settle(m_other);
    m_listener.reset();
    QVERIFY(publishFromOutside(topic));
    QVERIFY(other.waitForEvents(2));
}

VEL_BUS_TEST_MAIN(EventsTest)
#include "EventsTest.moc"
