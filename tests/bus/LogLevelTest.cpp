// A change of the log level reaches every module, whoever published it.
#include "doubles/RecordingLogger.h"
#include "testing/BusTest.h"
#include "testing/EventListener.h"

#include "module/VelModule.h"
#include "platform/VelLogger.h"

#include <QTest>

namespace {

const QString changed = "log_level_changed";
const QString facilityKey = "syslog_facility";
const QString levelKey = "syslog_level";

} // namespace

class LogLevelTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() {
        QCOMPARE(moduleLogLevel, 3); // by the construction of the module alone
    }

    void init() {
        clearRecordedLines();
        setRecordedLevel(3);
    }

    void levelAndFacilityAreHandedOn_data() {
        QTest::addColumn<QVariantMap>("arguments");
        QTest::addColumn<QString>("facility");
        QTest::addColumn<int>("level");
        const auto row = [](const char* title, const QVariantMap& arguments, const QString& facility, int level) {
            QTest::newRow(title) << arguments << facility << level;
        };
        row("both", {{facilityKey, "radio"}, {levelKey, 7}}, "radio", 7);
        row("level as text", {{levelKey, "6"}}, QString(), 6);
        row("no level", {{facilityKey, "radio"}}, "radio", 0);
        row("nothing", {}, QString(), 0);
    }

    void levelAndFacilityAreHandedOn() {
        QFETCH(QVariantMap, arguments);
        moduleLogLevel = 3;
        QVERIFY(m_module.notifyEvent(changed, arguments));
        QVERIFY(QTest::qWaitFor([] { return !recordedLevelUpdates().empty(); }));
        bustest::settle(QDBusConnection::sessionBus());
        QCOMPARE(recordedLevelUpdates().size(), 1u);
        QTEST(recordedLevelUpdates().front().facility, "facility");
        QTEST(recordedLevelUpdates().front().level, "level");
        QTEST(moduleLogLevel, "level");
        QCOMPARE(recordedLines(), QStringList());
    }

    void everyModuleAppliesTheChange() {
        ChildProcess child;
        child.setVariable("VEL_TEST_LOG", "1");
        QVERIFY(child.run(bustest::program("scripted-module")));
        QVERIFY(child.waitForLine("hook run"));
        const QDBusConnection bus = QDBusConnection::sessionBus();
        const auto levelOfChild = [&bus] { return bustest::call(bus, "Scripted", "logLevel").arguments().value(0); };
        QCOMPARE(levelOfChild(), QVariant(3));

        QVERIFY(m_module.notifyEvent(changed, {{levelKey, 7}}));
        QCOMPARE(levelOfChild(), QVariant(7));
        QVERIFY(QTest::qWaitFor([] { return moduleLogLevel == 7; }));
        // The child's own lines follow: it was silent at 3, it speaks at 7.
        QVERIFY(m_module.notifyEvent("stop_module_Scripted"));
        QVERIFY(child.waitForLine("LOG debug: Exit with code NORMAL_EXIT [1]"));
        QCOMPARE(child.waitForStatus(), 1);
    }

    void aKnownLoggersLevelIsStrictlyAbove() {
        const QString known = m_module.getModuleName();
        setRecordedLevel(3);
        QVERIFY(m_module.LogIn(known, 2));
        QVERIFY(!m_module.LogIn(known, 3));
        QVERIFY(!m_module.LogIn("nobody's", -1));
        clearLoggerList();
        const bool withoutAList = m_module.LogIn(known, 2);
        initLoggerList(known);
        QVERIFY(!withoutAList);
    }

    void withoutALoggerListTheLevelStays() {
        moduleLogLevel = 5;
        EventListener listener;
        QVERIFY(m_module.subscribeEvent(changed, &listener, SLOT(heard(VelEvent))));
        clearLoggerList();
        QVERIFY(m_module.notifyEvent(changed, {{facilityKey, "radio"}, {levelKey, 7}}));
        const bool delivered = listener.waitForEvents(1);
        bustest::settle(QDBusConnection::sessionBus());
        initLoggerList(m_module.getModuleName());
        QVERIFY(delivered);
        QCOMPARE(recordedLines(), QStringList{"error: No loggerlist for : Display"});
        QVERIFY(recordedLevelUpdates().empty());
        QCOMPARE(moduleLogLevel, 5);
    }

private:
    VelModule m_module{"Display"};
};

VEL_TEST_MAIN(LogLevelTest)
#include "LogLevelTest.moc"
