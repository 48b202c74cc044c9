// Return types by introspection: a module is asked once, and what cannot be believed is not kept.
#include "testing/BusTest.h"
#include "testing/RawClient.h"

#include "bus/BusNames.h"
#include "bus/VelReturnType.h"
#include "module/VelModule.h"

#include <QDBusVirtualObject>
#include <QTest>
#include <QThread>

#include <atomic>

namespace {

// A method, and the Qt type that it says it returns.
QString method(const QString& name, const QString& signature, const QString& type) {
    return QString("<method name='%1'><arg type='%2' direction='out'/>"
                   "<annotation name='org.qtproject.QtDBus.QtTypeName.Out0' value='%3'/></method>")
        .arg(name, signature, type);
}

QVariantList described(const QString& methods) {
    return {QString("<node><interface name='%1'>%2</interface></node>").arg(vel::bus::commonInterface(), methods)};
}

const QVariantList good = described(method("station", "s", "Station"));

} // namespace

// A module that describes itself as it is told; on a thread of its own, since a question blocks the thread that asks it.
class Peer : public QDBusVirtualObject {
    Q_OBJECT
public:
    Peer(const QString& moduleName, const QVariantList& description)
        : answer(description), m_connection(bustest::connectAs(moduleName)) {
        moveToThread(&m_thread);
        m_thread.start();
        m_connection.registerVirtualObject(vel::bus::objectPath(moduleName), this);
        m_connection.registerService(vel::bus::serviceName(moduleName));
    }
    ~Peer() override {
        QDBusConnection::disconnectFromBus(m_connection.name());
        m_thread.quit();
        m_thread.wait();
    }

    QString introspect(const QString&) const override { return QString(); }
    bool handleMessage(const QDBusMessage& message, const QDBusConnection& connection) override {
        if (message.member() == "Introspect")
            ++questions;
        return connection.send(refuses ? message.createErrorReply(QDBusError::AccessDenied, "not for you")
                                       : message.createReply(answer));
    }

    QVariantList answer; // changed while nobody asks
    bool refuses = false;
    std::atomic<int> questions{0};

private:
    QThread m_thread;
    QDBusConnection m_connection;
};

class ReturnTypeTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init() { m_peerName = QString("Peer%1").arg(++m_peers); } // what was described once stays cached

    void knownMethodIsAnsweredWithoutTheBus() {
        {
            const Peer peer(m_peerName,
                            described(method("station", "s", "Station") + method("all", "as", "ListQString")));
            QCOMPARE(returnType("station", "s"), "Station::");
            RawClient monitor;
            QVERIFY(monitor.becomeMonitor() && m_module.notifyEvent("watching"));
            monitor.seenUntilSignal("watching");
            QCOMPARE(returnType("all", "as"), "QString:list:"); // it was described with the other
            QCOMPARE(returnType("station", "s"), "Station::");
            QVERIFY(m_module.notifyEvent("asked"));
            QCOMPARE(monitor.seenUntilSignal("asked"), QStringList{"signal asked"});
        }
        // The peer has left the bus.
        QCOMPARE(returnType("all", "as"), "QString:list:");
        QVERIFY_EXCEPTION_THROWN(returnType("other", "s"), QString);
    }

    void unknownMethodIsAskedForAgain() {
        Peer peer(m_peerName, good);
        QCOMPARE(returnType("station", "as"), QString());
        const int questions = peer.questions;
        QCOMPARE(returnType("station", "as"), QString());
        QVERIFY(peer.questions > questions);
        peer.answer = described(method("station", "as", "List"));
        QCOMPARE(returnType("station", "as"), ":list:");
        QCOMPARE(returnType("station", "s"), "Station::"); // overloads are told apart by their signatures
    }

    void changedDescriptionIsReportedAndNotBelieved() {
        // The same from one description to the next, and within one.
        Peer peer(m_peerName, described(method("station", "s", "First") + method("station", "s", "Last")));
        expectReport("Last");
        QCOMPARE(returnType("station", "s"), "Last::");
        QCOMPARE(returnType("station", "s"), "First::");
        peer.answer = good;
        expectReport("Station");
        QCOMPARE(returnType("other", "s"), QString());
        QCOMPARE(returnType("station", "s"), "First::");
    }

    void badAnswerIsNoDescription() {
        for (const QVariantList& bad : {QVariantList(), QVariantList{5}, QVariantList{"no XML"}}) {
            init();
            Peer peer(m_peerName, bad);
            QCOMPARE(returnType("station", "s"), QString());
            peer.answer = good; // nothing of it stayed
            QCOMPARE(returnType("station", "s"), "Station::");
        }
    }

    void failedQuestionThrows() {
        // A broker that knows of no service files names nobody.
        const QString who = PrivateBus::isBroker() ? "not activatable" : vel::bus::serviceName(m_peerName);
        const QString thrown = thrownByQuestion();
        QVERIFY2(thrown.contains(who), qUtf8Printable(thrown));
        Peer peer(m_peerName, good);
        peer.refuses = true;
        QCOMPARE(thrownByQuestion(), "not for you");
        peer.refuses = false; // the failure was not kept
        QCOMPARE(returnType("station", "s"), "Station::");
    }

private:
    QString returnType(const QString& methodName, const QString& signature) {
        return getReturnType(m_peerName, methodName, signature);
    }

    QString thrownByQuestion() {
        try {
            returnType("station", "s");
        } catch (const QString& thrown) {
            return thrown;
        }
        return "nothing";
    }

    void expectReport(const char* type) {
        QTest::ignoreMessage(QtDebugMsg,
                             qPrintable(QString("\"new cache entry:station%1s %2::\"").arg(m_peerName, type)));
        QTest::ignoreMessage(QtDebugMsg, "ERROR: already cached with different value: \"First::\"");
    }

    const VelModule m_module{"Display"};
    QString m_peerName;
    int m_peers = 0;
};

VEL_TEST_MAIN(ReturnTypeTest)
#include "ReturnTypeTest.moc"
