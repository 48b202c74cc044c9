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

const QString peer = "Scripted";
const QString echo = "echo";
const QVariantList hello{"hello"};

class Caller : public VelModule {
    Q_OBJECT
public:
    Caller() : VelModule("Caller") {}

    QStringList proxies() const { return m_dbusInterfaces.keys(); }
    VelDBusInterface* proxy(const QString& name) const { return m_dbusInterfaces.value(name); }

    QStringList answers;

public Q_SLOTS:
    void answered(const QString& text) { answers << text; }
    void failed(const QDBusError& error) { answers << QString("error ") + error.message(); }
};

} // namespace

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
        // Whether the answer is there before the call returns is a race between two processes: many rounds, each outcome
        // seen.
        for (int round = 0; round < 500; ++round) {
            QDBusPendingCall pending = m_module.asyncRemoteCall(peer, "noSuchMethod");
            pending.waitForFinished();
            QCOMPARE(pending.error().type(), QDBusError::UnknownMethod);
        }
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

private:
    std::unique_ptr<ChildProcess> startPeer() {
        auto process = std::make_unique<ChildProcess>();
        if (!process->run(bustest::program("scripted-module")) || !process->waitForLine("hook run"))
            return nullptr;
        // The event loop tells the proxy that its module is back.
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

VEL_BUS_TEST_MAIN(RemoteCallsTest)
#include "RemoteCallsTest.moc"
