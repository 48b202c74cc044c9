// What becomes of a call whose slot throws: the caller's answer, the log line, and the receiver's D-Bus context.
#include "SkipList.h"
#include "doubles/RecordingLogger.h"
#include "testing/BusTest.h"
#include "testing/EventListener.h"
#include "testing/RawClient.h"

#include "errors/VelException.h"
#include "module/VelModule.h"

#include <QDBusAbstractAdaptor>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QEventLoop>
#include <QTest>
#include <QTimer>

#include <memory>
#include <thread>

namespace {

const QString boom = "boom";

class Display : public VelModule {
    Q_OBJECT
public:
    Display() : VelModule("Display") {}
    using QDBusContext::calledFromDBus;
    using QDBusContext::message;

    std::function<QString()> onCall;

public Q_SLOTS:
    void heard(VelEvent) { onCall(); }
};

class DisplayAdaptor : public QDBusAbstractAdaptor {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.vel.module.VelInterface")
public:
    explicit DisplayAdaptor(Display* module) : QDBusAbstractAdaptor(module), m_module(module) {}

public Q_SLOTS:
    QString act(const QString& what) {
        if (what == "nested") { // answers later, after an inner call
            QEventLoop loop;
            leaveNested = [&loop] { loop.quit(); };
            Q_EMIT nestedEntered();
            loop.exec();
            throw new VelException(m_module, VelException::AccessDenied, "from the outer call");
        }
        return m_module->onCall();
    }

public:
    std::function<void()> leaveNested;

Q_SIGNALS:
    void nestedEntered();

private:
    Display* m_module;
};

} // namespace

class CallContextTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() {
        m_module = std::make_unique<Display>();
        m_adaptor = new DisplayAdaptor(m_module.get());
    }

    void init() {
        VEL_SKIP_WHERE_IMPOSSIBLE();
        bustest::settle(m_caller);
        clearRecordedLines();
    }

    void callerIsToldAndContextIsBack_data() {
        QTest::addColumn<int>("type"); // -2: no VelException
        QTest::addColumn<QString>("errorName");
        QTest::newRow("ServiceUnknown") << 0 << "ServiceUnknown";
        QTest::newRow("AccessDenied") << 1 << "AccessDenied";
        QTest::newRow("Timeout") << 2 << "Timeout";
        QTest::newRow("InvalidArgs") << 3 << "InvalidArgs";
        QTest::newRow("UnknownMethod") << 4 << "UnknownMethod";
        QTest::newRow("InvalidSignature") << 5 << "InvalidSignature";
        QTest::newRow("first unknown") << 6 << "Failed";
        QTest::newRow("negative") << -1 << "Failed";
        QTest::newRow("something else") << -2 << "UnknownObject";
    }

    void callerIsToldAndContextIsBack() {
        QFETCH(int, type);
        QFETCH(QString, errorName);
        m_module->onCall = [&]() -> QString {
            if (type == -2)
                throw 42;
            throw new VelException(m_module.get(), static_cast<VelException::ErrorType>(type), boom);
        };
        const QDBusMessage answer = answerOf(callFromOutside());
        QCOMPARE(answer.errorName(), "org.freedesktop.DBus.Error." + errorName);
        QCOMPARE(answer.errorMessage() == boom, type != -2);
        QCOMPARE(recordedLines().value(0), type == -2 ? "error: Unknown exception catch in VelApplication: int"
                                                      : "error: VelException catch in VelApplication: boom");

        // A context left behind would lead into the dead stack frame of that delivery here.
        bool wasInsideACall = true;
        QTimer::singleShot(0, m_module.get(), [&] {
            wasInsideACall = m_module->calledFromDBus();
            const VelException outsideACall(m_module.get(), VelException::Timeout, boom);
        });
        bustest::settle(m_caller);
        QVERIFY(!wasInsideACall);
        m_module->onCall = [] { return "fine"; };
        QCOMPARE(answerOf(callFromOutside()).arguments(), QVariantList{"fine"});
    }

    void innerCallThrowsAndOuterStillAnswers() {
        std::unique_ptr<QDBusPendingCall> inner;
        QDBusMessage innerAnswer;
        m_module->onCall = []() -> QString { throw 42; };
        const auto connection = connect(m_adaptor, &DisplayAdaptor::nestedEntered, this, [&] {
            inner = std::make_unique<QDBusPendingCall>(callFromOutside());
            auto* watcher = new QDBusPendingCallWatcher(*inner, this);
            connect(watcher, &QDBusPendingCallWatcher::finished, this, [&, watcher] {
                innerAnswer = watcher->reply();
                m_adaptor->leaveNested();
            });
        });
        const QDBusMessage outerAnswer = answerOf(callFromOutside("nested"));
        disconnect(connection);
        QCOMPARE(innerAnswer.errorName(), "org.freedesktop.DBus.Error.UnknownObject");
        QCOMPARE(outerAnswer.errorName(), "org.freedesktop.DBus.Error.AccessDenied");
        QCOMPARE(outerAnswer.errorMessage(), "from the outer call");
        QVERIFY(!m_module->calledFromDBus());
    }

    void exceptionFromAnEventsSlotAnswersNobody() {
        RawClient monitor;
        QVERIFY(monitor.becomeMonitor());
        QVERIFY(m_module->subscribeEvent("topic", m_module.get(), SLOT(heard(VelEvent))));
        bool called = false;
        m_module->onCall = [&]() -> QString {
            called = true;
            throw new VelException(m_module.get(), VelException::Timeout, boom);
        };
        QVERIFY(bustest::publish(m_caller, "Other", "topic"));
        QVERIFY(QTest::qWaitFor([&] { return called; }, 60000));
        QVERIFY(!m_module->calledFromDBus());
        QVERIFY(m_module->notifyEvent("last"));
        const QStringList seen = monitor.seenUntilSignal("last");
        QVERIFY(seen.contains("signal topic"));
        QCOMPARE(seen.filter("error "), QStringList());
        QVERIFY(m_module->unsubscribeEvent("topic", m_module.get(), SLOT(heard(VelEvent))));
    }

    void throwingSlotDoesNotDisturbTheOthers() {
        const QString topic = "topic";
        const char* const heardSlot = SLOT(heard(VelEvent));
        EventListener throwing;
        EventListener other;
        QVERIFY(m_module->subscribeEvent(topic, &throwing, heardSlot));
        QVERIFY(m_module->subscribeEvent(topic, &other, heardSlot));
        throwing.onEvent = [](const VelEvent&) { throw QString("from a slot"); };
        QVERIFY(bustest::publish(m_caller, "Other", topic));
        QVERIFY(bustest::publish(m_caller, "Other", topic));
        QVERIFY(throwing.waitForEvents(2));
        QVERIFY(other.waitForEvents(2));
        QCOMPARE(recordedLines().filter("error: QString exception catch in VelApplication: from a slot").size(), 2);
    }

    void exceptionFromAnotherThreadAnswersNobody() {
        m_module->onCall = [&] {
            std::thread([&] { const VelException elsewhere(m_module.get(), VelException::Timeout, boom); }).join();
            return "fine";
        };
        QCOMPARE(answerOf(callFromOutside()).arguments(), QVariantList{"fine"});
        const VelException withoutModule(nullptr, VelException::Timeout, boom);
    }

    void copyAnswersNotAgain() {
        RawClient monitor;
        QVERIFY(monitor.becomeMonitor());
        m_module->onCall = [&] {
            const VelException first(m_module.get(), VelException::InvalidArgs, boom);
            const VelException copy(first);
            return copy.m_message + QString::number(copy.m_errorType); // an answer already given is not sent again
        };
        QCOMPARE(answerOf(callFromOutside()).errorName(), "org.freedesktop.DBus.Error.InvalidArgs");
        QVERIFY(m_module->notifyEvent("last"));
        const QStringList seen = monitor.seenUntilSignal("last");
        QCOMPARE(seen.filter("error "), QStringList{"error org.freedesktop.DBus.Error.InvalidArgs"});
        QVERIFY(!seen.contains("return"));
    }

    void callToItselfThrowsTextAndLeavesNoContext() {
        // Qt delivers a call to this process's own name inside the call, so the slot's exception comes out of it.
        m_module->onCall = [&]() -> QString { throw new VelException(m_module.get(), VelException::Timeout, boom); };
        QString thrown;
        try {
            m_module->syncRemoteCall("Display", "act", {"x"});
        } catch (const QString& text) {
            thrown = text;
        }
        QCOMPARE(thrown, boom);
        QVERIFY(!m_module->calledFromDBus());
        m_module->onCall = []() -> QString { throw 42; };
        QVERIFY_EXCEPTION_THROWN(m_module->syncRemoteCall("Display", "act", {"x"}), int);
        QVERIFY(!m_module->calledFromDBus());
    }

private:
    // The caller is another connection, so the call really crosses the bus; its answer arrives through the event
    // loop.
    QDBusPendingCall callFromOutside(const QString& what = "x") {
        QDBusMessage call = QDBusMessage::createMethodCall(
            m_module->getDbusServiceName(), m_module->getDbusObjectName(), m_module->getDbusInterfaceName(), "act");
        call << what;
        return m_caller.asyncCall(call);
    }

    QDBusMessage answerOf(QDBusPendingCall call) {
        QDBusPendingCallWatcher watcher(call);
        if (!QTest::qWaitFor([&] { return watcher.isFinished(); }, 60000))
            return QDBusMessage();
        return watcher.reply();
    }

    std::unique_ptr<Display> m_module;
    DisplayAdaptor* m_adaptor = nullptr;
    QDBusConnection m_caller = bustest::connectAs("caller");
};

VEL_TEST_MAIN(CallContextTest)
#include "CallContextTest.moc"
