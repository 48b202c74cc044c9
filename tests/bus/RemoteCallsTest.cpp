// Calls by module name: answers, failures as thrown texts, log lines, and the proxies that are kept.
#include "SkipList.h"
#include "doubles/RecordingLogger.h"
#include "testing/BusTest.h"
#include "testing/RawClient.h"

#include "bus/VelDBusInterface.h"
#include "errors/VelException.h"
#include "module/VelModule.h"

#include <QDBusAbstractAdaptor>
#include <QDBusArgument>
#include <QDBusConnectionInterface>
#include <QDBusError>
#include <QDBusObjectPath>
#include <QDBusPendingCallWatcher>
#include <QDBusVariant>
#include <QTest>

#include <dlfcn.h>

namespace {

int answersAwaited = -1; // negative: none is waited for

} // namespace

// In the place of Qt's, for the whole process: when the test wants it, the peer's answer is there before the library looks
// at the call. On a busy machine that happens by itself, now and then.
QDBusPendingCall QDBusAbstractInterface::asyncCallWithArgumentList(const QString& method,
                                                                   const QList<QVariant>& arguments) {
    using Function = QDBusPendingCall (*)(QDBusAbstractInterface*, const QString&, const QList<QVariant>&);
    static const auto ofQt = reinterpret_cast<Function>(
        dlsym(RTLD_NEXT, "_ZN22QDBusAbstractInterface25asyncCallWithArgumentListERK7QStringRK5QListI8QVariantE"));
    if (!ofQt)
        qFatal("this Qt has no QDBusAbstractInterface::asyncCallWithArgumentList() by the name that this test knows");
    QDBusPendingCall pending = ofQt(this, method, arguments);
    if (answersAwaited >= 0) {
        pending.waitForFinished();
        ++answersAwaited;
    }
    return pending;
}

namespace {

const QString peer = "Scripted";
const QString echo = "echo";
const QVariantList hello{"hello"};

// What the caller itself can be called for.
class CallerAdaptor : public QDBusAbstractAdaptor {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.vel.module.VelInterface")
public:
    explicit CallerAdaptor(VelModule* module) : QDBusAbstractAdaptor(module), m_module(module) {}

public Q_SLOTS:
    void refuse() { throw new VelException(m_module, VelException::AccessDenied, "refused"); }
    void ask() { m_module->syncRemoteCall("Nobody", "answer"); }

private:
    VelModule* m_module;
};

class Caller : public VelModule {
    Q_OBJECT
public:
    Caller() : VelModule("Caller") { new CallerAdaptor(this); }

    QStringList proxies() const { return m_dbusInterfaces.keys(); }
    VelDBusInterface* proxy(const QString& name) const { return m_dbusInterfaces.value(name); }

    using VelModule::calledFromDBus;

    QStringList answers;

public Q_SLOTS:
    void answered(const QString& text) { answers << text; }
    void failed(const QDBusError& error) { answers << QString("error ") + error.message(); }
    void refused(const QDBusError& error) { answers << error.name(); }
};

// A type that Qt D-Bus was never told about.
struct Unregistered {};

} // namespace
Q_DECLARE_METATYPE(Unregistered)

class RemoteCallsTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init() {
        m_module.answers.clear();
        setRecordedLevel(4);
        clearRecordedLines();
    }

    void absentModuleThrowsAndLeavesNoProxy() {
        const QString text = "Invalid interface: is module 'Scripted' started ?";
        QCOMPARE(thrownBy([&] { m_module.syncRemoteCall(peer, echo, hello); }), text);
        QCOMPARE(thrownBy([&] { m_module.asyncRemoteCall(peer, echo, hello); }), text);
        QCOMPARE(recordedLines(), (QStringList{QString("warning: ") + text, QString("warning: ") + text}));
        setRecordedLevel(3);
        QCOMPARE(thrownBy([&] {
                     m_module.remoteCallWithCallback(peer, echo, &m_module, SLOT(answered(QString)),
                                                     SLOT(failed(QDBusError)), hello);
                 }),
                 text);
        QCOMPARE(recordedLines().size(), 2);
        QVERIFY(m_module.proxies().isEmpty());
        const auto process = startPeer();
        QVERIFY(process);
        QVERIFY(m_module.isModuleConnected(peer));
        QVERIFY(!m_module.isModuleConnected("scripted"));
        QVERIFY(m_module.proxies().isEmpty());
        QCOMPARE(m_module.syncRemoteCall(peer, echo, hello).arguments(), hello);
        QCOMPARE(m_module.proxies(), QStringList{peer});
    }

    void allThreeWaysAnswer() {
        const auto process = startPeer();
        QVERIFY(process);
        QCOMPARE(m_module.syncRemoteCall(peer, echo, hello).arguments(), hello);
        QDBusPendingCallWatcher watcher(m_module.asyncRemoteCall(peer, echo, hello));
        QVERIFY(QTest::qWaitFor([&] { return watcher.isFinished(); }, 60000));
        QCOMPARE(watcher.reply().arguments(), hello);
        QVERIFY(m_module.remoteCallWithCallback(peer, echo, &m_module, SLOT(answered(QString)),
                                                SLOT(failed(QDBusError)), hello));
        QVERIFY(m_module.remoteCallWithCallback(peer, "answerWith", &m_module, SLOT(answered(QString)),
                                                SLOT(failed(QDBusError)), {1, "denied"}));
        QVERIFY(QTest::qWaitFor([&] { return m_module.answers.size() == 2; }, 60000));
        QCOMPARE(m_module.answers, (QStringList{"hello", "error denied"}));
        QCOMPARE(recordedLines(), QStringList());
    }

    void errorReplyIsThrownAndLogged() {
        const auto process = startPeer();
        QVERIFY(process);
        const QString answerWith = "answerWith";
        const QString text = "100 %1 of %2"; // is not filled in a second time
        QCOMPARE(thrownBy([&] { m_module.syncRemoteCall(peer, answerWith, {3, text}); }), text);
        QCOMPARE(recordedLines(),
                 QStringList{"warning: Error in syncRemoteCall (Scripted::answerWith : 100 %1 of %2)"});
        QVERIFY(thrownBy([&] { m_module.syncRemoteCall(peer, "noSuchMethod"); }).contains("noSuchMethod"));
        setRecordedLevel(3);
        clearRecordedLines();
        QCOMPARE(thrownBy([&] { m_module.syncRemoteCall(peer, answerWith, {3, text}); }), text);
        QCOMPARE(recordedLines(), QStringList());
        QCOMPARE(m_module.syncRemoteCall(peer, echo, hello).arguments(), hello);
    }

    void quickErrorReplyStaysInThePendingCall() {
        const auto process = startPeer();
        QVERIFY(process);
        answersAwaited = 0;
        QDBusPendingCall pending = m_module.asyncRemoteCall(peer, "noSuchMethod", hello);
        QCOMPARE(answersAwaited, 1);
        answersAwaited = -1;
        QCOMPARE(pending.error().type(), QDBusError::UnknownMethod);
    }

    void moduleThatLeftAndCameBack() {
        auto process = startPeer();
        QVERIFY(process);
        QCOMPARE(m_module.syncRemoteCall(peer, echo, hello).arguments(), hello);
        VelDBusInterface* const proxy = m_module.proxy(peer);
        process.reset();

        // Until the event loop has run, the proxy does not know: the call itself fails.
        QVERIFY(proxy->isValid());
        QVERIFY(!thrownBy([&] { m_module.syncRemoteCall(peer, echo, hello); }).isEmpty());
        QVERIFY(QTest::qWaitFor([&] { return !proxy->isValid(); }, 60000));

        clearRecordedLines();
        const QString text = proxy->lastError().message();
        QCOMPARE(thrownBy([&] { m_module.syncRemoteCall(peer, echo, hello); }), text);
        QCOMPARE(thrownBy([&] { m_module.asyncRemoteCall(peer, echo, hello); }), text);
        QCOMPARE(thrownBy([&] {
                     m_module.remoteCallWithCallback(peer, echo, &m_module, SLOT(answered(QString)),
                                                     SLOT(failed(QDBusError)), hello);
                 }),
                 text);
        QCOMPARE(recordedLines(), QStringList{"warning: Got invalid DBus interface for module Scripted (memory)"});

        process = startPeer();
        QVERIFY(process);
        QCOMPARE(m_module.syncRemoteCall(peer, echo, hello).arguments(), hello);
        QCOMPARE(m_module.proxy(peer), proxy);
    }

    void callWithoutArgumentsCarriesNone() {
        const auto process = startPeer();
        QVERIFY(process);
        QCOMPARE(m_module.syncRemoteCall(peer, "state").arguments(), QVariantList{"RUN"});
        QCOMPARE(m_module.syncRemoteCall(peer, "state", {}).signature(), "s");
    }

    void proxyIsMadeOnce() {
        const auto process = startPeer();
        QVERIFY(process);
        m_module.syncRemoteCall(peer, echo, hello);
        RawClient monitor;
        QVERIFY(monitor.becomeMonitor());
        m_module.syncRemoteCall(peer, echo, hello);
        QVERIFY(m_module.notifyEvent("last"));
        const QStringList seen = monitor.seenUntilSignal("last");
        QCOMPARE(seen.mid(seen.indexOf("call echo")), (QStringList{"call echo", "return", "signal last"}));
    }

    void emptyInterfaceNameCallsAnyInterface() {
        const auto process = startPeer();
        QVERIFY(process);
        VelDBusInterface proxy(peer, QString(), QDBusConnection::sessionBus(), nullptr);
        QVERIFY(proxy.isValid());
        QCOMPARE(proxy.call(echo, hello).arguments(), hello);
    }

    void methodNamesWithADot() {
        const auto process = startPeer();
        QVERIFY(process);
        // A blocking call takes the part before the dot for the name; the others would take all of it, and abort.
        for (const char* name : {"echo.s", "echo.", "echo..y"}) {
            QCOMPARE(m_module.syncRemoteCall(peer, name, hello).arguments(), hello);
            QVERIFY(thrownBy([&] { m_module.asyncRemoteCall(peer, name, hello); }).contains(name));
            clearRecordedLines();
            QVERIFY(!callWithCallback(peer, name, hello));
            QCOMPARE(
                recordedLines(),
                QStringList{
                    QString("error: cannot call 'Scripted.%1': Invalid method name: %1; nothing was sent").arg(name)});
        }
        QVERIFY(thrownBy([&] { m_module.syncRemoteCall(peer, "a.b"); }).contains("'a'"));
        QCOMPARE(m_module.syncRemoteCall(peer, echo, hello).arguments(), hello);
        QCOMPARE(m_module.answers, QStringList());
    }

    void unsendableArgumentIsToldEverybody_data() {
        QTest::addColumn<QVariant>("value");
        QTest::addColumn<QString>("reason"); // in the line of this library
        QTest::addColumn<QString>("thrown");
        const QVariant unregistered = QVariant::fromValue(Unregistered());
        const QString type = unregistered.typeName(); // Qt 6 names the namespace too
        const QString hasNoForm = "is of type '" + type + "', which has no D-Bus form";
        const QString unregisteredType = "Marshalling failed: Unregistered type " + type + " passed in arguments";
        const QString invalid = QT_VERSION_MAJOR == 5
                                    ? "Marshalling failed: Variant containing QVariant::Invalid passed in arguments"
                                    : "Marshalling failed: Invalid QVariant passed in arguments";
        QTest::newRow("unregistered") << unregistered << "'argument 1' " + hasNoForm << unregisteredType;
        QTest::newRow("invalid") << QVariant() << "'argument 1' has no value" << invalid;
        QTest::newRow("object path") << QVariant::fromValue(QDBusObjectPath())
                                     << "'argument 1' is an empty or invalid QDBusObjectPath"
                                     << "Marshalling failed: Invalid object path passed in arguments";
        QTest::newRow("received") << QVariant::fromValue(QDBusArgument())
                                  << "'argument 1' is an empty or invalid QDBusArgument" << invalid;
        QTest::newRow("in containers") << QVariant(
                                              QVariantMap{{"list", QVariantList{1, QVariantHash{{"x", unregistered}}}}})
                                       << "'argument 1.list[1].x' " + hasNoForm << unregisteredType;
        QTest::newRow("in a variant") << QVariant::fromValue(QDBusVariant(unregistered)) << "'argument 1' " + hasNoForm
                                      << unregisteredType;
        QTest::newRow("in an event") << QVariant::fromValue(VelEvent("inner", {{"a\n", QVariant()}}, QString()))
                                     << "'argument 1.a\\x0a' has no value" << invalid;
        QVariant deep(1);
        for (int level = 0; level < 64; ++level)
            deep = QVariant::fromValue(QDBusVariant(deep));
        QTest::newRow("too deep") << deep << "'argument 1' is nested more than 63 levels deep"
                                  << "";
        const QVariant bytes = QByteArray(70 * 1024 * 1024, 'a');
        const QString tooLarge = "an array in it takes 73400320 bytes, and the bus takes at most 67108864";
        QTest::newRow("too large") << bytes << tooLarge << "";
    }

    void unsendableArgumentIsToldEverybody() {
        QFETCH(QVariant, value);
        QFETCH(QString, reason);
        QFETCH(QString, thrown);
        const bool qtRefuses = !thrown.isEmpty();
        if (!qtRefuses)
            thrown = reason;
        const auto process = startPeer();
        QVERIFY(process);
        const QString line = QString("error: cannot call 'Scripted.echo': %1; nothing was sent").arg(reason);

        QCOMPARE(thrownBy([&] { m_module.syncRemoteCall(peer, echo, {value}); }), thrown);
        QCOMPARE(recordedLines(),
                 (QStringList{line, QString("warning: Error in syncRemoteCall (Scripted::echo : %1)").arg(thrown)}));
        clearRecordedLines();
        QCOMPARE(thrownBy([&] { m_module.asyncRemoteCall(peer, echo, {value}); }), thrown);
        QCOMPARE(callWithCallback(peer, echo, {value}), qtRefuses);
        QCOMPARE(recordedLines(), (QStringList{line, line}));
        if (qtRefuses) // whoever relies on the error slot must not wait for ever
            QVERIFY(QTest::qWaitFor([&] { return !m_module.answers.isEmpty(); }, 60000));
        QCOMPARE(m_module.syncRemoteCall(peer, echo, hello).arguments(), hello);
        QCOMPARE(m_module.answers, qtRefuses ? QStringList{"error " + thrown} : QStringList());
    }

    void callToAnImpossibleNameIsTold() {
        VelDBusInterface impossible("A-B", QDBusConnection::sessionBus(), nullptr);
        QVERIFY(!impossible.callWithCallback(echo, hello, &m_module, SLOT(answered(QString)), nullptr));
        QCOMPARE(recordedLines(),
                 QStringList{"error: cannot call 'A-B.echo': Invalid object path: /A-B; nothing was sent"});
    }

    void severalArgumentsAreOneMessage() {
        const auto process = startPeer();
        QVERIFY(process);
        const QVariant half = QByteArray(64 * 1024 * 1024, 'a'); // the largest array; two of them are no message
        QVERIFY(thrownBy([&] { m_module.syncRemoteCall(peer, echo, {half, half}); }).contains("134217736 bytes"));
        QCOMPARE(m_module.syncRemoteCall(peer, echo, hello).arguments(), hello);
    }

    void failureOfTheModulesOwnIsThrown() {
        VEL_SKIP_WHERE_IMPOSSIBLE();
        const QString own = "Caller";
        QVERIFY(thrownBy([&] { m_module.syncRemoteCall(own, "noSuchMethod"); }).contains("noSuchMethod"));
        QVERIFY(thrownBy([&] { m_module.asyncRemoteCall(own, "noSuchMethod"); }).contains("noSuchMethod"));
        QCOMPARE(thrownBy([&] { m_module.asyncRemoteCall(own, "refuse"); }), QString("refused"));
        VelDBusInterface proxy(own, QDBusConnection::sessionBus(), nullptr);
        QCOMPARE(thrownBy([&] { proxy.call("refuse", {}); }), QString("refused"));
        QVERIFY(proxy.callWithCallback("refuse", {}, &m_module, SLOT(answered(QString)), SLOT(refused(QDBusError))));
        QVERIFY(proxy.callWithCallback("refuse", {}, &m_module, SLOT(answered(QString)), nullptr));
        QVERIFY(callWithCallback(own, "refuse", {}));
        QVERIFY(callWithCallback(own, "ask", {}));
        QVERIFY(!m_module.calledFromDBus());
        QCOMPARE(m_module.answers, QStringList());
        QVERIFY(QTest::qWaitFor([&] { return m_module.answers.size() == 3; }, 60000));
        QCOMPARE(m_module.answers, (QStringList{"org.freedesktop.DBus.Error.AccessDenied", "error refused",
                                                "error Invalid interface: is module 'Nobody' started ?"}));
    }

private:
    bool callWithCallback(const QString& module, const QString& method, const QVariantList& arguments) {
        return m_module.remoteCallWithCallback(module, method, &m_module, SLOT(answered(QString)),
                                               SLOT(failed(QDBusError)), arguments);
    }

    std::unique_ptr<ChildProcess> startPeer() {
        auto process = std::make_unique<ChildProcess>();
        if (!process->run(bustest::program("scripted-module")) || !process->waitForLine("hook run"))
            return nullptr;
        // The event loop tells the proxy that its module is back. It may not yet have told that the one before is gone: an
        // answer of the bus comes after both, and then the loop has them.
        QDBusConnection::sessionBus().interface()->isServiceRegistered("org.vel.module.ScriptedService");
        QCoreApplication::processEvents();
        if (VelDBusInterface* proxy = m_module.proxy(peer))
            return QTest::qWaitFor([proxy] { return proxy->isValid(); }, 60000) ? std::move(process) : nullptr;
        return process;
    }

    template <typename Call>
    QString thrownBy(Call&& call) {
        try {
            call();
        } catch (const QString& text) {
            return text;
        }
        return "nothing was thrown";
    }

    Caller m_module;
};

VEL_TEST_MAIN(RemoteCallsTest)
#include "RemoteCallsTest.moc"
