// The test kit: what it hears, what it says when something else came, and what it leaves behind.
#include "testing/BuiltProgram.h"
#include "testing/FakeModule.h"
#include "testing/ModuleProcess.h"
#include "testing/QtTest.h"
#include "testing/Recorder.h"

#include "module/VelModule.h"

#include <optional>
#include <poll.h>
#include <sys/syscall.h>
#include <unistd.h>

using namespace vel::testing;

namespace {

const QVariantMap everyKind{{"bool", true},
                            {"uchar", QVariant::fromValue(uchar(200))},
                            {"short", QVariant::fromValue(short(-2))},
                            {"ushort", QVariant::fromValue(ushort(2))},
                            {"int", -3},
                            {"uint", 3U},
                            {"long", qlonglong(-1) - (qlonglong(1) << 40)},
                            {"ulong", ~qulonglong(0)},
                            {"double", 0.5},
                            {"text", "\"quoted\"\nand more"},
                            {"texts", QStringList{"a", ""}},
                            {"bytes", QByteArray("\0\xff", 2)},
                            {"list", QVariantList{1, "one", QVariantList{}}},
                            {"map", QVariantMap{{"key", 1}}}};

// Becomes readable when the process ends.
int handleOf(const QString& process) {
    return static_cast<int>(syscall(SYS_pidfd_open, process.toInt(), 0));
}

} // namespace

class TestingTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void valuesArriveAsTheyWereSent() {
        FakeModule echo("Echo");
        echo.answerBy("echo", [](const QVariantList& values) { return values; });
        VEL_VERIFY(echo.appear());
        VEL_VERIFY(m_peer.call("Echo", "echo", everyKind.values()).is(everyKind.values()));
        Recorder heard({published("everything")});
        VEL_VERIFY(m_peer.publish("Other", "everything", everyKind));
        VEL_VERIFY(heard.next(published("everything").from("Other").withExactly(everyKind)));
    }

    void valuesAndNamesThatCannotBeSentAreRefused() {
        QVERIFY(!m_peer.publish("Other", "no-name"));
        QVERIFY(!m_peer.publish("Oth-er", "name"));
        QVERIFY(!m_peer.publish("Other", "name", {{"invalid", QVariant()}}));
        QVERIFY(!m_peer.publish("Other", "name", {{"deep", QVariantList{QVariant::fromValue(1.5F)}}}));
        VEL_VERIFY(m_peer.call("Other", "a b").failed("org.freedesktop.DBus.Error.InvalidArgs"));
        QVERIFY(!m_peer.waitForModule(""));
        VEL_VERIFY(m_peer.publish("Other", "name"));
    }

    void whatCameInsteadIsSaid_data() {
        QTest::addColumn<bool>("isMet");
        QTest::addColumn<QString>("message");
        const auto row = [this](const char* name, const Expectation& expected, const QString& message) {
            m_expected.insert(name, expected);
            QTest::newRow(name) << message.isEmpty() << message;
        };
        const QString came = "\nbut came: event level(value: int 40) from Other";
        row("as expected", published("level").from("Other").with("value", 40), QString());
        row("another type", published("level").with("value", "40"), "expected: event level(value: \"40\", ...)" + came);
        row("another value", published("level").with("value", 41), "expected: event level(value: int 41, ...)" + came);
        row("another publisher", published("level").from("Dimmer"), "expected: event level from Dimmer" + came);
        row("no argument", published("level").withExactly({}), "expected: event level()" + came);
        row("another event", published("colour"), "expected: event colour" + came);
        row("a call", called("Other", "level"), "expected: call Other.level" + came);
    }

    void whatCameInsteadIsSaid() {
        QFETCH(QString, message);
        Recorder heard;
        VEL_VERIFY(m_peer.publish("Other", "level", {{"value", 40}}));
        const Result result = heard.next(m_expected.value(QTest::currentDataTag()).value());
        QCOMPARE(result.message(), message);
        VEL_VERIFY(heard.nothingMore());
    }

    void recordIsInTheBusesOrder() {
        FakeModule tuner("Tuner");
        tuner.answer("tune", {});
        VEL_VERIFY(tuner.appear());
        Recorder heard({published("first"), published("second"), called("Tuner")});
        VEL_VERIFY(m_peer.publish("Other", "first"));
        VEL_VERIFY(m_peer.publish("Other", "unheard"));
        VEL_VERIFY(m_peer.call("Tuner", "tune", {98.5}).is({}));
        VEL_VERIFY(tuner.publish("second"));
        const QList<Expectation> story{published("first"), called("Tuner", "tune").withValues({98.5}),
                                       published("second").from("Tuner")};
        VEL_VERIFY(heard.inOrder(story));
        VEL_VERIFY(heard.nothingMore());

        VEL_VERIFY(m_peer.publish("Other", "second"));
        VEL_VERIFY(m_peer.publish("Other", "first"));
        QCOMPARE(heard.noneUntil(published("second"), published("first")).message(),
                 "expected: no event second\nuntil:    event first\nbut came: event second() from Other");
        QVERIFY(!heard.nothingMore());
        VEL_VERIFY(heard.noneUntil(published("second"), published("first")));
    }

    void whatNeverComesIsSaidAtTheTimeLimit() {
        qputenv("VEL_TEST_SLOWNESS", "0.001"); // 20 ms
        Recorder heard({published("first"), published("second")});
        const QString expected = "expected: event second\n";
        const QString nothing = heard.next(published("second")).message();
        const bool isPublished = bool(m_peer.publish("Other", "first"));
        const QString other = heard.inOrder({published("first"), published("second")}).message();
        const Answer answer = m_peer.call("Nobody", "anything");
        qunsetenv("VEL_TEST_SLOWNESS");
        QVERIFY(isPublished);
        QCOMPARE(nothing, expected + "but nothing came within 0 s");
        QCOMPARE(other, expected + "behind:   event first\nbut came: event first() from Other\nwithin 0 s");
        VEL_VERIFY(answer.failed("org.freedesktop.DBus.Error.ServiceUnknown"));
    }

    void fakeFailsHoldsAndVanishes() {
        FakeModule tuner("Tuner");
        tuner.fail("seek", {"no antenna"});
        tuner.vanishIn("crash");
        VEL_VERIFY(tuner.appear());
        QVERIFY(!FakeModule("Tuner").appear());
        VEL_VERIFY(m_peer.call("Tuner", "seek").failed("org.freedesktop.DBus.Error.Failed", "no antenna"));
        VEL_VERIFY(m_peer.call("Tuner", "tune").failed("org.freedesktop.DBus.Error.UnknownMethod", "'tune'"));
        VEL_VERIFY(m_peer.call("Tuner", "crash").failed("org.freedesktop.DBus.Error.NoReply"));
        QVERIFY(!m_peer.isOnBus("Tuner"));
        VEL_VERIFY(tuner.appear());
        tuner.vanish();
        QVERIFY(!m_peer.isOnBus("Tuner"));
        QVERIFY(!tuner.publish("anything"));
    }

    // The module's event loop stands still in a call: the fake answers all the same.
    void moduleInThisProcessCallsAFake() {
        VelModule module("Display");
        FakeModule tuner("Tuner");
        tuner.answer("frequency", {98.5});
        VEL_VERIFY(tuner.appear());
        Recorder heard({called("Tuner"), published("end_of_init_Display")});
        QCOMPARE(module.syncRemoteCall("Tuner", "frequency").arguments(), QVariantList{98.5});
        VEL_VERIFY(heard.inOrder({called("Tuner", "frequency").withValues({}), published("end_of_init_Display")}));

        tuner.hold("frequency");
        QDBusPendingCall pending = module.asyncRemoteCall("Tuner", "frequency");
        VEL_VERIFY(heard.next(called("Tuner", "frequency")));
        QVERIFY(!pending.isFinished());
        tuner.answer("frequency", {101.2});
        tuner.release("frequency");
        pending.waitForFinished();
        QCOMPARE(pending.reply().arguments(), QVariantList{101.2});
    }

    void moduleProcessIsStartedFrozenAndEnded() {
        ModuleProcess module("Peer", builtProgram("scripted-module"));
        VEL_VERIFY(module.bringUp());
        VEL_VERIFY(module.call("state").is({"RUN"}));
#if VEL_MODULE_INFO
        VEL_VERIFY(module.waitForState("RUN"));
        VEL_VERIFY(m_peer.publish("Peer", "presentationLoaded"));
        VEL_VERIFY(module.waitForState("PRESENTATION_LOADED"));
        qputenv("VEL_TEST_SLOWNESS", "0.001");
        const QString inAnother = module.waitForState("RUN").message();
        qunsetenv("VEL_TEST_SLOWNESS");
        QVERIFY2(inAnother.startsWith("expected: 'Peer' in the state RUN within "), qPrintable(inAnother));
#endif
        VEL_VERIFY(module.freeze());
        QCOMPARE(module.processState(), 'T');
        module.resume();
        VEL_VERIFY(module.waitUntilHandled());
        VEL_VERIFY(module.stop());
        QVERIFY(module.lines().contains("hook stop"));
        QVERIFY(!module.freeze());

        ModuleProcess failing("Peer", builtProgram("scripted-module"));
        const QString message = failing.bringUp({"--init=false"}).message();
        QVERIFY2(message.startsWith("'Peer' does not come up: it ended with status 3; its last lines:\n"),
                 qPrintable(message));
        QVERIFY(!ModuleProcess("Peer", "/no/such/program").bringUp());
    }

    // Its daemon, its children and its socket are gone, and no file is left.
    void nothingOutlivesATestThatIsKilled() {
        ChildProcess test;
        const QByteArray own = PrivateBus::current()->address().toUtf8();
        VEL_VERIFY(test.run(builtProgram("killed-test"), {builtProgram("scripted-module")}));
        VEL_VERIFY(test.waitForLine("ready"));
        const QStringList said = test.lines().last().split(' '); // ready ADDRESS DAEMON MODULE
        QCOMPARE(said.size(), 4);
        pollfd processes[] = {{handleOf(said.at(2)), POLLIN, 0}, {handleOf(said.at(3)), POLLIN, 0}};
        QCOMPARE(poll(processes, 2, 0), 0);
        test.kill();
        QCOMPARE(test.waitForStatus(), -1);
        for (pollfd& process : processes)
            QCOMPARE(poll(&process, 1, TimeLimit().leftMs()), 1);
        qputenv("DBUS_SESSION_BUS_ADDRESS", said.at(1).toUtf8());
        const bool isThere = bool(Recorder().isListening());
        qputenv("DBUS_SESSION_BUS_ADDRESS", own);
        QVERIFY(!isThere);
        QVERIFY(said.at(1).startsWith("unix:abstract=") || PrivateBus::isBroker());
    }

    void busOfATestCaseIsOnlyItsOwn() {
        const QByteArray outer = qgetenv("DBUS_SESSION_BUS_ADDRESS");
        {
            const PrivateBus inner;
            VEL_VERIFY(inner.isRunning());
            FakeModule tuner("Tuner");
            VEL_VERIFY(tuner.appear());
            QVERIFY(Peer().isOnBus("Tuner"));
            QVERIFY(!m_peer.isOnBus("Tuner"));
        }
        QCOMPARE(qgetenv("DBUS_SESSION_BUS_ADDRESS"), outer);
    }

private:
    Peer m_peer;
    QMap<QString, std::optional<Expectation>> m_expected;
};

VEL_TEST_MAIN(TestingTest)
#include "TestingTest.moc"
