// Handlers of events by function: who is called, in which order, with what, and until when.
#include "doubles/RecordingLogger.h"
#include "testing/BusTest.h"
#include "testing/EventListener.h"
#include "testing/RawClient.h"

#include "module/VelModule.h"
#include "typed/VelTypedEvents.h"

#include <QPoint>
#include <QTest>
#include <QThread>

#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <stdexcept>

struct Preset {
    Q_GADGET
    Q_PROPERTY(QString name MEMBER name)
    Q_PROPERTY(double megahertz MEMBER megahertz)
public:
    QString name;
    double megahertz = 0;
    bool operator==(const Preset& other) const { return name == other.name && megahertz == other.megahertz; }
    bool operator!=(const Preset& other) const { return !(*this == other); }
};

struct PresetsChanged {
    Q_GADGET
    Q_PROPERTY(int chosen MEMBER chosen)
    Q_PROPERTY(Band band MEMBER band)
    Q_PROPERTY(QList<Preset> presets MEMBER presets)
    Q_PROPERTY(QMap<QString, QList<int>> history MEMBER history)
    Q_PROPERTY(QList<double> levels MEMBER levels)
    Q_PROPERTY(QVariantMap settings MEMBER settings)
    Q_PROPERTY(QVariant anything MEMBER anything)
    Q_PROPERTY(QPoint place MEMBER place)
    Q_PROPERTY(std::optional<Preset> last MEMBER last)
public:
    enum class Band { Fm, Am };
    Q_ENUM(Band)
    static constexpr auto eventName = "presets_changed";
    using FieldTypes = vel::FieldTypes<Band, Preset, QMap<QString, QList<int>>>;
    int chosen = 0;
    Band band = Band::Fm;
    QList<Preset> presets;
    QMap<QString, QList<int>> history;
    QList<double> levels;
    QVariantMap settings;
    QVariant anything = 0;
    QPoint place;
    std::optional<Preset> last;
};

namespace {

const QString topic = "topic";

// Without Q_OBJECT.
class Radio : public VelModule {
public:
    Radio() : VelModule("Radio") {}

    void heard(const VelEvent& event) { calls << "event " + event.getEvtName(); }
    void called() noexcept { calls << "bare"; }
    void chose(PresetsChanged event) { calls << QString("chose %1").arg(event.chosen); }

    QDBusConnection& bus() { return m_connection; }
    bool isInACall() const { return calledFromDBus(); }

    QStringList calls;
};

// Qt's semaphores and blocking connections wait inside Qt, where ThreadSanitizer sees nothing.
class Gate {
public:
    void open() {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_isOpen = true;
        m_changed.notify_all();
    }
    void wait() {
        std::unique_lock<std::mutex> lock(m_mutex);
        m_changed.wait(lock, [this] { return m_isOpen; });
    }

private:
    std::mutex m_mutex;
    std::condition_variable m_changed;
    bool m_isOpen = false;
};

struct Thread {
    Thread() { thread.start(); }
    ~Thread() {
        thread.quit();
        thread.wait();
    }
    static void run(QObject& there, const std::function<void()>& work) {
        Gate isDone;
        QMetaObject::invokeMethod(&there, [&] {
            work();
            isDone.open();
        });
        isDone.wait();
    }
    QThread thread;
};

} // namespace

class TypedEventsTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init() {
        m_radio.calls.clear();
        m_context = std::make_unique<QObject>();
        setRecordedLevel(4);
        clearRecordedLines();
    }

    void cleanup() {
        m_context.reset();
        QVERIFY(publish(topic)); // whose dispatcher has no handler any more, and gives up
        bustest::settle(m_other);
        QVERIFY(!m_radio.findChild<QObject*>("vel::onEvent topic"));
    }

    void handlersOfEachFormAreCalledInOrder() {
        QObject* const context = m_context.get();
        QList<vel::Subscription> all;
        all << vel::onEvent(m_radio, topic, &m_radio, &Radio::heard);
        all << vel::onEvent(m_radio, topic, &m_radio, &Radio::called);
        all << vel::onEvent(m_radio, topic, context, [this] { m_radio.calls << "lambda"; });
        all << vel::onEvent(m_radio, topic, context,
                            [this, owned = std::make_unique<QString>("generic ")](const auto& event) {
                                m_radio.calls << *owned + event.getArgument("number").toString();
                            });
        all << vel::onEvent(m_radio, QString(), context,
                            [this](VelEvent event) { m_radio.calls << "every " + event.getEvtName(); });
        QVERIFY(publish(topic, {{"number", 7}}));
        QVERIFY(publish("another"));
        bustest::settle(m_other);
        const QString ofEveryName = m_radio.calls.takeAt(m_radio.calls.indexOf("every topic"));
        QCOMPARE(m_radio.calls, (QStringList{"event topic", "bare", "lambda", "generic 7", "every another"}));
        for (vel::Subscription& subscription : all) {
            QVERIFY(subscription.isActive());
            subscription.end();
            QVERIFY(!subscription.isActive());
        }
        QVERIFY(publish(topic));
        bustest::settle(m_other);
        QCOMPARE(m_radio.calls.size(), 5);
    }

    void oneThatThrowsKeepsNobodyElseFromTheEvent() {
        vel::onEvent(m_radio, topic, m_context.get(), [] { throw std::runtime_error("first"); });
        vel::onEvent(m_radio, topic, m_context.get(), [] { throw QString("second"); });
        vel::onEvent(m_radio, topic, m_context.get(), [this] { m_radio.calls << "third"; });
        QVERIFY(publish(topic));
        bustest::settle(m_other);
        QCOMPARE(m_radio.calls, QStringList{"third"});
        QCOMPARE(recordedLines(), (QStringList{"error: std exception catch in VelApplication: first",
                                               "error: QString exception catch in VelApplication: second"}));
        QVERIFY(!m_radio.isInACall());
    }

    void handlersComeAndGoWhileOneIsCalled() {
        vel::Subscription own;
        vel::Subscription next;
        auto dying = std::make_unique<QObject>();
        own = vel::onEvent(m_radio, topic, m_context.get(), [&] {
            m_radio.calls << "first";
            own.end();
            next.end();
            dying.reset();
            vel::onEvent(m_radio, topic, m_context.get(), [&] { m_radio.calls << "added"; });
        });
        next = vel::onEvent(m_radio, topic, m_context.get(), [&] { m_radio.calls << "ended before"; });
        const vel::Subscription ofDying = vel::onEvent(m_radio, topic, dying.get(), [&] { m_radio.calls << "dead"; });
        vel::onEvent(m_radio, topic, m_context.get(), [&] { m_radio.calls << "last"; });
        QVERIFY(publish(topic));
        bustest::settle(m_other);
        QCOMPARE(m_radio.calls, (QStringList{"first", "last"}));
        QVERIFY(!ofDying.isActive());
        QVERIFY(publish(topic));
        bustest::settle(m_other);
        QCOMPARE(m_radio.calls.mid(2), (QStringList{"last", "added"}));
    }

    void handlerOfAnotherThreadIsCalledThere() {
        Thread other;
        QObject there;
        there.moveToThread(&other.thread);
        std::atomic<QThread*> calledIn{nullptr};
        std::atomic<int> sum{0};
        vel::Subscription subscription = vel::onEvent(m_radio, topic, &there, [&](const VelEvent& event) {
            sum += event.getArgument("number").toInt();
            calledIn = QThread::currentThread();
        });
        vel::onEvent(m_radio, topic, m_context.get(),
                     [&](const VelEvent& event) { m_radio.calls << event.getArgument("number").toString(); });
        QVERIFY(publish(topic, {{"number", 7}}));
        QTRY_COMPARE_WITH_TIMEOUT(calledIn.load(), &other.thread, 60000);
        QCOMPARE(sum.load(), 7);
        QCOMPARE(m_radio.calls, QStringList{"7"});

        // Queued there already, and ended here: not called.
        Gate release;
        QMetaObject::invokeMethod(&there, [&] { release.wait(); });
        QVERIFY(publish(topic, {{"number", 8}}));
        bustest::settle(m_other);
        QCOMPARE(m_radio.calls.size(), 2);
        subscription.end();
        release.open();
        Thread::run(there, [] {});
        release.open();
        QCOMPARE(sum.load(), 7);
    }

    // Contexts in two threads die and are made while events arrive.
    void contextsDieAtAnyMoment() {
        Thread other;
        std::atomic<int> heard{0};
        vel::onEvent(m_radio, topic, m_context.get(), [this] { m_radio.calls << "here"; });
        for (int round = 0; round < 200; ++round) {
            auto* there = new QObject;
            there->moveToThread(&other.thread);
            vel::onEvent(m_radio, topic, there, [&heard](const VelEvent&) { ++heard; });
            QVERIFY(publish(topic));
            there->deleteLater();
        }
        QVERIFY(publish(topic));
        bustest::settle(m_other);
        QCOMPARE(m_radio.calls.size(), 201);
    }

    void whatCannotBeSubscribedToSaysWhy() {
        QVERIFY(!vel::onEvent(m_radio, "a-b", &m_radio, &Radio::called).isActive());
        QVERIFY(!vel::onEvent(m_radio, topic, static_cast<QObject*>(nullptr), [] {}).isActive());
        Thread other;
        QObject there;
        there.moveToThread(&other.thread);
        Thread::run(there, [&] { vel::onEvent(m_radio, topic, &m_radio, &Radio::called); });
        const QString line = "error: cannot subscribe to '%1': %2; its handler is never called";
        QCOMPARE(
            recordedLines(),
            (QStringList{
                "error: cannot subscribe 'vel::typed::Dispatcher::deliver(QDBusMessage)' to 'a-b': a name must "
                "consist of 1 to 255 letters (A to Z, a to z), digits and underscores, not "
                "beginning with a digit; it will not be called",
                line.arg(topic, "there is no context object"), line.arg(topic, "this is not the module's thread")}));
        QVERIFY(!vel::Subscription().isActive());
    }

    void structComesAsItWasPublished() {
        PresetsChanged sent;
        sent.chosen = 2;
        sent.band = PresetsChanged::Band::Am;
        sent.presets = {{"Harbour", 98.5}, {"Voice", 91.2}};
        sent.history = {{"today", {1, 2}}, {"before", {}}};
        sent.levels = {0.5, 0.25};
        sent.settings = {{"nested", QVariantMap{{"list", QVariantList{1, "two"}}}}};
        sent.anything = QStringList{"any"};
        sent.place = {3, 4};
        sent.last = Preset{"Last", 87.5};
        std::optional<PresetsChanged> heard;
        EventListener untyped;
        QVERIFY(m_radio.subscribeEvent("presets_changed", &untyped, SLOT(heard(VelEvent))));
        vel::onEvent<PresetsChanged>(m_radio, m_context.get(), [&](const PresetsChanged& event) { heard = event; });
        vel::onEvent<PresetsChanged>(m_radio, m_context.get(), [&] { m_radio.calls << "bare"; });
        vel::onEvent(m_radio, "presets_changed", m_context.get(),
                     [&](const VelEvent& event) { m_radio.calls << event.getArgument("band").toString(); });
        vel::Subscription member = vel::onEvent<PresetsChanged>(m_radio, &m_radio, &Radio::chose);
        QVERIFY(vel::publish(m_radio, sent));
        bustest::settle(m_other);
        member.end();
        QVERIFY(heard);
        QCOMPARE(heard->chosen, 2);
        QVERIFY(heard->band == sent.band && heard->last == sent.last);
        QCOMPARE(heard->presets, sent.presets);
        QCOMPARE(heard->history, sent.history);
        QCOMPARE(heard->levels, sent.levels);
        QCOMPARE(heard->settings, sent.settings);
        QCOMPARE(heard->anything, sent.anything);
        QCOMPARE(heard->place, sent.place);
        QCOMPARE(m_radio.calls, (QStringList{"bare", "Am", "chose 2"}));
        QCOMPARE(recordedLines(), QStringList());
        QCOMPARE(untyped.events().front().getContext(), QString());
        QCOMPARE(untyped.events().front().getArgTypes().value("band"), "QString");
        QCOMPARE(untyped.events().front().getArgTypes().value("presets"), "QVariantList");
    }

    void wrongFieldIsOneLineAndTheOthersHear() {
        for (int handler = 0; handler < 2; ++handler)
            vel::onEvent<PresetsChanged>(m_radio, m_context.get(),
                                         [&](const PresetsChanged&) { m_radio.calls << "typed"; });
        vel::onEvent(m_radio, "presets_changed", m_context.get(), [&](const VelEvent&) { m_radio.calls << "event"; });
        QVERIFY(publish("presets_changed", {{"chosen", "two"}}));
        bustest::settle(m_other);
        QCOMPARE(m_radio.calls, QStringList{"event"});
        QCOMPARE(recordedLines(), QStringList{QString("error: cannot read the event 'presets_changed' of 'Other' (%1): "
                                                      "field 'chosen' is text 'two', wanted int; its handlers are not "
                                                      "called")
                                                  .arg(m_other.baseService())});
        PresetsChanged wrong;
        wrong.band = PresetsChanged::Band(7);
        clearRecordedLines();
        QVERIFY(!vel::publish(m_radio, wrong));
        QCOMPARE(recordedLines(), QStringList{"error: cannot publish 'presets_changed': field 'band' is number 7, "
                                              "wanted PresetsChanged::Band; nothing is sent"});
    }

    // What anybody may send under an event's name.
    void signalThatIsNoEventReachesOnlyBareHandlers() {
        vel::onEvent<PresetsChanged>(m_radio, m_context.get(),
                                     [&](const PresetsChanged&) { m_radio.calls << "typed"; });
        vel::onEvent(m_radio, "presets_changed", m_context.get(), [&](const VelEvent&) { m_radio.calls << "event"; });
        vel::onEvent(m_radio, "presets_changed", m_context.get(), [&] { m_radio.calls << "bare"; });
        bustest::waitForBus(QDBusConnection::sessionBus());
        RawClient stranger;
        for (const char* signature : {"", "s", "as", "a{sv}", "(ssia{ss}a{sv}s)", "(ssi)", "ay", "v"}) {
            QVERIFY(stranger.sendSignal("Other", "presets_changed",
                                        [&](DBusMessageIter& iterator) { appendBySignature(iterator, signature); }));
        }
        stranger.flush();
        bustest::settle(m_other);
        QCOMPARE(m_radio.calls.count("bare"), 8);
        QCOMPARE(m_radio.calls.size(), 8);
        QCOMPARE(recordedLines().size(), 8);
        QVERIFY2(recordedLines().at(1).contains("it carries 's', wanted '(ssia{ss}a{sv})'"),
                 qPrintable(recordedLines().at(1)));
    }

private:
    bool publish(const QString& event, const QVariantMap& arguments = QVariantMap()) {
        return bustest::publish(m_other, "Other", event, arguments);
    }

    Radio m_radio;
    QDBusConnection m_other = bustest::connectAs("other");
    std::unique_ptr<QObject> m_context;
};

VEL_TEST_MAIN(TypedEventsTest)
#include "TypedEventsTest.moc"
