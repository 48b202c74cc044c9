// Publication and subscription: who hears what, and when a subscription ends.
#include "testing/BusTest.h"
#include "testing/EventListener.h"

#include "module/VelModule.h"

#include <QTest>

namespace {

const QString topic = "topic";
const char* const heardSlot = SLOT(heard(VelEvent));

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
        QVERIFY(m_module.notifyEvent(topic, {{"second", true}}));
        inside = false;
        QVERIFY(m_listener->waitForEvents(2));
        QVERIFY(!heardInside);
    }

    void subscriptionMadeTwiceIsOne() {
        QVERIFY(m_module.subscribeEvent(topic, m_listener.get(), heardSlot));
        m_module.subscribeEvent(topic, m_listener.get(), heardSlot);
        QVERIFY(publishFromOutside(topic));
        QVERIFY(m_listener->waitForEvents(1));
        bustest::settle(m_other);
        QCOMPARE(m_listener->events().size(), 1u);
        QVERIFY(m_module.unsubscribeEvent(topic, m_listener.get(), heardSlot));
        QVERIFY(!m_module.unsubscribeEvent(topic, m_listener.get(), heardSlot));
    }

    void unsubscribedSlotIsNotCalled() {
        EventListener staying;
        QVERIFY(m_module.subscribeEvent(topic, m_listener.get(), heardSlot));
        QVERIFY(m_module.subscribeEvent(topic, &staying, heardSlot));
        QVERIFY(m_module.unsubscribeEvent(topic, m_listener.get(), heardSlot));
        QVERIFY(publishFromOutside(topic));
        QVERIFY(staying.waitForEvents(1));
        QVERIFY(m_listener->events().empty());
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

    void impossibleSubscriptionsAreRefused() {
        QVERIFY(!m_module.subscribeEvent(topic, nullptr, heardSlot));
        QVERIFY(!m_module.subscribeEvent(topic, m_listener.get(), nullptr));
        QVERIFY(!m_module.subscribeEvent(topic, m_listener.get(), ""));
        QVERIFY(!m_module.subscribeEvent(topic, m_listener.get(), SLOT(noSuchSlot(VelEvent))));
        QVERIFY(!m_module.subscribeEvent(topic, m_listener.get(), SLOT(deleteLater(QObject*))));
        QVERIFY(!m_module.unsubscribeEvent(topic, m_listener.get(), heardSlot));
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

private:
    // A publication that everybody subscribed hears, after which nothing earlier is still on its way.
    bool publishFromOutside(const QString& event) { return bustest::publish(m_other, "Other", event); }

    VelModule m_module{"Display"};
    QDBusConnection m_other = bustest::connectAs("other");
    std::unique_ptr<EventListener> m_listener;
};

VEL_BUS_TEST_MAIN(EventsTest)
#include "EventsTest.moc"
