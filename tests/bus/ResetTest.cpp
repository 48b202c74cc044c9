// Reset to default and to factory: every trigger that reaches a module is answered, after its hook.
#include "SkipList.h"
#include "doubles/RecordingLogger.h"
#include "testing/BusTest.h"
#include "testing/EventListener.h"

#include "bus/BusNames.h"
#include "module/VelModule.h"

#include <QTest>

namespace {

const QString moduleName = "ModuleName";
const QString needReboot = "NeedReboot";

class ResettableModule : public VelModule {
public:
    using VelModule::VelModule;

    bool restoreDataToDefault() override {
        reset("default");
        return true;
    }
    void restoreDataToFactory() override { reset("factory"); }

    int failures = 0; // how many of the next resets throw
    QStringList resets;

private:
    void reset(const QString& kind) {
        resets << kind;
        if (failures-- > 0)
            throw QString("disk full");
    }
};

} // namespace

class ResetTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init() {
        m_resettable.failures = 0;
        m_resettable.resets.clear();
        setRecordedLevel(7);
        clearRecordedLines();
    }

    void modulesAnswerWithTheirNames_data() {
        QTest::addColumn<QString>("done");
        QTest::addColumn<bool>("tellsOfReboot");
        QTest::addColumn<QString>("defaultHooksLine");
        QTest::newRow("reset_data_default") << "reset_default_done" << true << "debug: Restore data to default";
        QTest::newRow("reset_data_factory") << "reset_factory_done" << false << "debug: Restore data to factory";
    }

    void modulesAnswerWithTheirNames() {
        QFETCH(QString, done);
        QFETCH(bool, tellsOfReboot);
        listenTo(done);
        // What the trigger says, and who says it, is not looked at.
        QVERIFY(bustest::publish(m_peer, "Anybody", QTest::currentDataTag(), {{moduleName, "Nobody"}}));
        QVERIFY(m_answers->waitForEvents(2));
        for (const VelEvent& answer : m_answers->events()) {
            const QString name = answer.getArgument(moduleName).toString();
            QVariantMap expected{{moduleName, name}};
            if (tellsOfReboot)
                expected.insert(needReboot, name == "Resettable");
            QCOMPARE(answer.getArguments(), expected);
            QCOMPARE(answer.getEvtName(), done);
            QCOMPARE(answer.getContext(), QString());
        }
        QVERIFY(m_answers->events().front().getArguments() != m_answers->events().back().getArguments());
        QTEST(recordedLines().join('\n'), "defaultHooksLine");
    }

    void throwingHookIsNotAnswered_data() {
        QTest::addColumn<QString>("done");
        QTest::addColumn<QString>("kind");
        QTest::newRow("reset_data_default") << "reset_default_done" << QString("default");
        QTest::newRow("reset_data_factory") << "reset_factory_done" << QString("factory");
    }

    void throwingHookIsNotAnswered() {
        QFETCH(QString, done);
        QFETCH(QString, kind);
        VEL_SKIP_WHERE_IMPOSSIBLE();
        setRecordedLevel(3);
        listenTo(done);
        m_resettable.failures = 1;
        const QString trigger = QString::fromLatin1(QTest::currentDataTag());
        QVERIFY(m_resettable.notifyEvent(trigger));
        QVERIFY(m_resettable.notifyEvent(trigger));
        QVERIFY(m_answers->waitForEvents(3)); // both of the plain module, the second of the other
        bustest::settle(m_peer);
        QCOMPARE(m_answers->events().size(), 3u);
        QCOMPARE(m_resettable.resets, (QStringList{kind, kind}));
        QCOMPARE(recordedLines(), (QStringList{"error: QString exception catch in VelApplication: disk full",
                                               "error: cannot deliver a call to 'ResettableModule': it threw 'disk "
                                               "full'; the module goes on"}));
    }

private:
    void listenTo(const QString& event) {
        m_answers = std::make_unique<EventListener>();
        QVERIFY(m_peer.connect(QString(), QString(), vel::bus::commonInterface(), event, m_answers.get(),
                               SLOT(heard(VelEvent))));
        bustest::waitForBus(m_peer);
    }

    VelModule m_plain{"Plain"};
    ResettableModule m_resettable{"Resettable"};
    QDBusConnection m_peer = bustest::connectAs("peer");
    std::unique_ptr<EventListener> m_answers;
};

VEL_TEST_MAIN(ResetTest)
#include "ResetTest.moc"
