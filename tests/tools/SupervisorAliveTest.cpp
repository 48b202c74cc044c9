// Modules whose event loop does not turn, and what is told of a module's end.
#include "SupervisorRun.h"

#include <QDBusArgument>
#include <QDBusMetaType>
#include <QJsonArray>
#include <QTest>

#include <csignal>

namespace {

const QJsonObject quickly{{"every", 0.05}, {"limit", 0.4}};

/// The events of one name, as they come.
class Events : public QObject {
    Q_OBJECT
public:
    Events(const SupervisorRun& run, const QString& name) {
        QDBusConnection(run.connection())
            .connect(QString(), QString(), "org.vel.module.VelInterface", name, this, SLOT(take(QDBusMessage)));
    }
    QVariantMap waitForNext() {
        return QTest::qWaitFor([this] { return !m_arguments.isEmpty(); }, 60000) ? m_arguments.takeFirst()
                                                                                 : QVariantMap();
    }

private Q_SLOTS:
    void take(const QDBusMessage& message) {
        const auto event = message.arguments().value(0).value<QDBusArgument>();
        QString text;
        int number;
        QMap<QString, QString> types;
        QVariantMap values;
        event.beginStructure();
        event >> text >> text >> number >> types >> values;
        event.endStructure();
        m_arguments += values;
    }

private:
    QList<QVariantMap> m_arguments;
};

QVariantMap detailsOf(const SupervisorRun& run, const QString& module) {
    QDBusPendingCall call = run.call("ApplicationManager", "modules");
    call.waitForFinished();
    for (const QVariantMap& details : qdbus_cast<QList<QVariantMap>>(call.reply().arguments().value(0))) {
        if (details["ModuleName"] == module)
            return details;
    }
    return {};
}

} // namespace

class SupervisorAliveTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { qDBusRegisterMetaType<QList<QVariantMap>>(); }

    void silentModuleIsReportedUntilItAnswers() {
        SupervisorRun run;
        run.addModule("A", {"--run=hold", run.gate("a")}, {{"alive", quickly}});
        QVERIFY(run.start());
        QVERIFY(run.waitForLine("error: cannot get an answer from 'A' in 0.4 s: it does not answer: its process "));
        QVERIFY(run.waitForLine("; it is left as it is"));
        const QVariantMap details = detailsOf(run, "A");
        QCOMPARE(details["State"].toString(), QString("unresponsive"));
        QVERIFY(details["Silence"].toString().contains(QString("process %1 ").arg(details["Process"].toInt())));
        run.openGate("a");
        QVERIFY(run.waitForLine("warning: 'A' answers again"));
        QCOMPARE(detailsOf(run, "A")["State"].toString(), QString("up"));
        kill(run.processOf("A"), SIGSTOP); // not for a save
        QVERIFY(run.waitForLine("was stopped from outside; it is left as it is"));
    }

    void silentModuleIsDumpedEndedAndStartedAgain_data() {
        QTest::addColumn<QString>("dump");
        QTest::addColumn<QString>("line");
        QTest::newRow("dump") << "echo dump of $1 $VEL_MODULES"
                              << "dump of ";
        QTest::newRow("failing dump") << "exit 3"
                                      << "warning: the dump of 'A' ended with INIT_ERROR [3]";
        QTest::newRow("dump without an end") << "sleep 3600"
                                             << "warning: the dump of 'A' was killed: it did not end in time";
    }
    void silentModuleIsDumpedEndedAndStartedAgain() {
        QFETCH(QString, dump);
        QFETCH(QString, line);
        SupervisorRun run;
        QJsonObject alive = quickly;
        alive["dump"] = QJsonObject{{"command", "sh"}, {"arguments", QJsonArray{"-c", dump, "sh"}}, {"limit", 0.5}};
        run.addModule(
            "A", {"--run=hold", run.gate("a")},
            {{"alive", alive},
             {"restart", QJsonObject{{"on", QJsonArray{"unresponsive"}}, {"delay", 3600}, {"longestDelay", 3600}}}});
        QVERIFY(run.start());
        Events ended(run, "module_ended");
        QVERIFY(run.waitForLine("A run"));
        const pid_t process = run.processOf("A");
        QVERIFY(run.waitForLine(line));
        if (dump.startsWith("echo"))
            QVERIFY(run.waitForLine(QString("dump of %1 A").arg(process)));
        const QVariantMap event = ended.waitForNext();
        QCOMPARE(event["ModuleName"].toString(), QString("A"));
        QVERIFY(event["Reason"].toString().startsWith("was killed: it did not answer in 0.4 s: it does not answer: "));
        QCOMPARE(event["Signal"].toInt(), SIGKILL);
        QCOMPARE(event["Restarts"].toInt(), 1);
        QCOMPARE(event["NextStart"].toDouble(), 3600.);
        const QVariantMap details = detailsOf(run, "A");
        QCOMPARE(details["State"].toString(), QString("pausing"));
        QCOMPARE(details["Reason"], event["Reason"]);
        QVERIFY(details["NextStart"].toDouble() > 3000);
    }

    // B hangs later than A is frozen: when B is reported, A would have been.
    void frozenModuleIsNotReported() {
        SupervisorRun run;
        run.addKeeper("A");
        run.addModule("B", {}, {{"alive", quickly}});
        run.addModule("Starting", {"--init=hold", run.gate("starting")}, {{"alive", quickly}});
        run.gate("copy");
        run.setCommand("save", "echo copying; read line <copy");
        run.setOfModule("A", "alive", quickly);
        QVERIFY(run.start());
        QVERIFY(run.waitUntilUp({"A", "B"}));
        const QDBusPendingCall saving = run.call("ApplicationManager", "save");
        QVERIFY(run.waitForLine("copying"));
        kill(run.processOf("B"), SIGSTOP);
        QVERIFY(run.waitForLine("cannot get an answer from 'B'"));
        QVERIFY(!run.hasLine("cannot get an answer from 'A'"));
        QVERIFY(!run.hasLine("cannot get an answer from 'Starting'"));
        run.openGate("copy");
        QCOMPARE(SupervisorRun::textOf(saving), QString("A"));
        run.openGate("starting");
    }

    void endIsPublishedWithWhatTheModuleSaid_data() {
        QTest::addColumn<QString>("step");
        QTest::addColumn<int>("status");
        QTest::addColumn<QString>("statusName");
        QTest::addColumn<QString>("reason");
        QTest::addColumn<QString>("answer");
        QTest::newRow("text thrown") << "--init=QString" << 3 << "INIT_ERROR"
                                     << "init() threw: thrown text"
                                     << "it ended with INIT_ERROR [3]: init() threw: thrown text";
        QTest::newRow("exception") << "--init=std" << 3 << "INIT_ERROR"
                                   << "init() threw std::runtime_error 'thrown what'"
                                   << "it ended with INIT_ERROR [3]: init() threw std::runtime_error 'thrown what'";
        QTest::newRow("fails") << "--init=false" << 3 << "INIT_ERROR"
                               << "init() returned false"
                               << "it ended with INIT_ERROR [3]: init() returned false";
    }
    void endIsPublishedWithWhatTheModuleSaid() {
        QFETCH(QString, step);
        QFETCH(int, status);
        QFETCH(QString, statusName);
        QFETCH(QString, reason);
        QFETCH(QString, answer);
        SupervisorRun run;
        run.addModule("A", {step});
        run.addModule("B");
        QVERIFY(run.start());
        QVERIFY(run.waitUntilUp({"B"}));
        QVERIFY(run.waitForLine("'A' ended"));
        Events ended(run, "module_ended");
        QCOMPARE(run.answer("startModule", "A"), QString("cannot start 'A': %1; it stays down").arg(answer));
        const QVariantMap event = ended.waitForNext();
        QCOMPARE(event, (QVariantMap{{"ModuleName", "A"},
                                     {"Status", status},
                                     {"StatusName", statusName},
                                     {"Reason", reason},
                                     {"Restarts", 0}}));
        QVariantMap details = detailsOf(run, "A");
        QCOMPARE(details["Reason"].toString(), reason);
        QCOMPARE(details["Ends"].toInt(), 2);
        QCOMPARE(details["State"].toString(), QString("down"));
    }
};

QTEST_GUILESS_MAIN(SupervisorAliveTest)

#include "SupervisorAliveTest.moc"
