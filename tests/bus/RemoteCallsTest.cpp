// Calls by module name: answers, failures as thrown texts, log lines, and the proxies that are kept.
#include "doubles/RecordingLogger.h"
#include "testing/BusTest.h"
#include "testing/RawClient.h"

#include "bus/VelDBusInterface.h"
#include "module/VelModule.h"

#include <QDBusError>
#include <QDBusPendingCallWatcher>
#include <QTest>

namespace {

const QString peer = QStringLiteral("Scripted");
const QString echo = QStringLiteral("echo");
const QVariantList hello{QStringLiteral("hello")};

class Caller : public VelModule {
    Q_OBJECT
public:
    Caller() : VelModule(QStringLiteral("Caller")) {}

    QStringList proxies() const { return m_dbusInterfaces.keys(); }
    VelDBusInterface* proxy(const QString& name) const { return m_dbusInterfaces.value(name); }

    QStringList answers;

public Q_SLOTS:
    void answered(const QString& text) { answers << text; }
    void failed(const QDBusError& error) { answers << QStringLiteral("error ") + error.message(); }
};

} // namespace

class RemoteCallsTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init();
    void absentModuleThrowsAndLeavesNoProxy();
    void allThreeWaysAnswer();
    void errorReplyIsThrownAndLogged();
    void quickErrorReplyStaysInThePendingCall();
    void moduleThatLeftAndCameBack();
    void callWithoutArgumentsCarriesNone();
    void proxyIsMadeOnce();

private:
    std::unique_ptr<ChildProcess> startPeer();
    template <typename Call>
    QString thrownBy(Call&& call);

    Caller m_module;
};

void RemoteCallsTest::init() {
    m_module.answers.clear();
    setRecordedLevel(4);
    clearRecordedLines();
}

std::unique_ptr<ChildProcess> RemoteCallsTest::startPeer() {
    auto process = std::make_unique<ChildProcess>();
    if (!process->run(bustest::program(QStringLiteral("scripted-module"))) ||
        !process->waitForLine(QStringLiteral("hook run")))
        return nullptr;
    // The event loop tells the proxy that its module is back.
    if (VelDBusInterface* proxy = m_module.proxy(peer))
        return QTest::qWaitFor([proxy] { return proxy->isValid(); }, 60000) ? std::move(process) : nullptr;
    return process;
}

template <typename Call>
QString RemoteCallsTest::thrownBy(Call&& call) {
    try {
        call();
    } catch (const QString& text) {
        return text;
    }
    return QStringLiteral("nothing was thrown");
}

void RemoteCallsTest::absentModuleThrowsAndLeavesNoProxy() {
    const QString text = QStringLiteral("Invalid interface: is module 'Scripted' started ?");
    QCOMPARE(thrownBy([&] { m_module.syncRemoteCall(peer, echo, hello); }), text);
    QCOMPARE(thrownBy([&] { m_module.asyncRemoteCall(peer, echo, hello); }), text);
    QCOMPARE(recordedLines(), (QStringList{QStringLiteral("warning: ") + text, QStringLiteral("warning: ") + text}));
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
    QVERIFY(!m_module.isModuleConnected(QStringLiteral("scripted")));
    QVERIFY(m_module.proxies().isEmpty());
    QCOMPARE(m_module.syncRemoteCall(peer, echo, hello).arguments(), hello);
    QCOMPARE(m_module.proxies(), QStringList{peer});
}

void RemoteCallsTest::allThreeWaysAnswer() {
    const auto process = startPeer();
    QVERIFY(process);
    QCOMPARE(m_module.syncRemoteCall(peer, echo, hello).arguments(), hello);
    QDBusPendingCallWatcher watcher(m_module.asyncRemoteCall(peer, echo, hello));
    QVERIFY(QTest::qWaitFor([&] { return watcher.isFinished(); }, 60000));
    QCOMPARE(watcher.reply().arguments(), hello);
    QVERIFY(m_module.remoteCallWithCallback(peer, echo, &m_module, SLOT(answered(QString)), SLOT(failed(QDBusError)),
                                            hello));
    QVERIFY(m_module.remoteCallWithCallback(peer, QStringLiteral("answerWith"), &m_module, SLOT(answered(QString)),
                                            SLOT(failed(QDBusError)), {1, QStringLiteral("denied")}));
    QVERIFY(QTest::qWaitFor([&] { return m_module.answers.size() == 2; }, 60000));
    QCOMPARE(m_module.answers, (QStringList{QStringLiteral("hello"), QStringLiteral("error denied")}));
    QCOMPARE(recordedLines(), QStringList());
}

void RemoteCallsTest::errorReplyIsThrownAndLogged() {
    const auto process = startPeer();
    QVERIFY(process);
    const QString answerWith = QStringLiteral("answerWith");
    const QString text = QStringLiteral("100 %1 of %2"); // is not filled in a second time
    QCOMPARE(thrownBy([&] { m_module.syncRemoteCall(peer, answerWith, {3, text}); }), text);
    QCOMPARE(recordedLines(),
             QStringList{QStringLiteral("warning: Error in syncRemoteCall (Scripted::answerWith : 100 %1 of %2)")});
    QVERIFY(thrownBy([&] {
                m_module.syncRemoteCall(peer, QStringLiteral("noSuchMethod"));
            }).contains(QStringLiteral("noSuchMethod")));
    setRecordedLevel(3);
    clearRecordedLines();
    QCOMPARE(thrownBy([&] { m_module.syncRemoteCall(peer, answerWith, {3, text}); }), text);
    QCOMPARE(recordedLines(), QStringList());
    QCOMPARE(m_module.syncRemoteCall(peer, echo, hello).arguments(), hello);
}

void RemoteCallsTest::quickErrorReplyStaysInThePendingCall() {
    const auto process = startPeer();
    QVERIFY(process);
    // Whether the answer is there before the call returns is a race between two processes: many rounds, each outcome
    // seen.
    for (int round = 0; round < 500; ++round) {
        QDBusPendingCall pending = m_module.asyncRemoteCall(peer, QStringLiteral("noSuchMethod"));
        pending.waitForFinished();
        QCOMPARE(pending.error().type(), QDBusError::UnknownMethod);
    }
}

void RemoteCallsTest::moduleThatLeftAndCameBack() {
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
    QCOMPARE(recordedLines(),
             QStringList{QStringLiteral("warning: Got invalid DBus interface for module Scripted (memory)")});

    process = startPeer();
    QVERIFY(process);
    QCOMPARE(m_module.syncRemoteCall(peer, echo, hello).arguments(), hello);
    QCOMPARE(m_module.proxy(peer), proxy);
}

void RemoteCallsTest::callWithoutArgumentsCarriesNone() {
    const auto process = startPeer();
    QVERIFY(process);
    QCOMPARE(m_module.syncRemoteCall(peer, QStringLiteral("state")).arguments(), QVariantList{QStringLiteral("RUN")});
    QCOMPARE(m_module.syncRemoteCall(peer, QStringLiteral("state"), {}).signature(), QStringLiteral("s"));
}

void RemoteCallsTest::proxyIsMadeOnce() {
    const auto process = startPeer();
    QVERIFY(process);
    m_module.syncRemoteCall(peer, echo, hello);
    RawClient monitor;
    QVERIFY(monitor.becomeMonitor());
    m_module.syncRemoteCall(peer, echo, hello);
    QVERIFY(m_module.notifyEvent(QStringLiteral("last")));
    const QStringList seen = monitor.seenUntilSignal(QStringLiteral("last"));
    QCOMPARE(seen.mid(seen.indexOf(QStringLiteral("call echo"))),
             (QStringList{QStringLiteral("call echo"), QStringLiteral("return"), QStringLiteral("signal last")}));
}

VEL_BUS_TEST_MAIN(RemoteCallsTest)
#include "RemoteCallsTest.moc"
