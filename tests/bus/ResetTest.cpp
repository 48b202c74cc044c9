// Reset to default and to factory: every trigger that reaches a module is answered, after its hook.
#include "SkipList.h"
#include "doubles/RecordingLogger.h"
#include "testing/BusTest.h"
#include "testing/EventListener.h"

#include "bus/BusNames.h"
#include "module/VelModule.h"

#include <QTest>

namespace {

const QString moduleName = QStringLiteral("ModuleName");
const QString needReboot = QStringLiteral("NeedReboot");

class ResettableModule : public VelModule {
public:
    using VelModule::VelModule;

    bool restoreDataToDefault() override {
        reset(QStringLiteral("default"));
        return true;
    }
    void restoreDataToFactory() override { reset(QStringLiteral("factory")); }

    int failures = 0; // how many of the next resets throw
    QStringList resets;

private:
    void reset(const QString& kind) {
        resets << kind;
        if (failures-- > 0)
            throw QStringLiteral("disk full");
    }
};

} // namespace

class ResetTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init();
    void modulesAnswerWithTheirNames_data();
    void modulesAnswerWithTheirNames();
    void everyTriggerIsAnswered_data() { triggers(); }
    void everyTriggerIsAnswered();
    void throwingHookIsNotAnswered_data() { triggers(); }
    void throwingHookIsNotAnswered();

private:
    void triggers();
    void listenTo(const QString& event);

    VelModule m_plain{QStringLiteral("Plain")};
    ResettableModule m_resettable{QStringLiteral("Resettable")};
    QDBusConnection m_peer = bustest::connectAs(QStringLiteral("peer"));
    std::unique_ptr<EventListener> m_answers;
};

void ResetTest::init() {
    m_resettable.failures = 0;
    m_resettable.resets.clear();
    setRecordedLevel(7);
    clearRecordedLines();
}

void ResetTest::triggers() {
    QTest::addColumn<QString>("done");
    QTest::addColumn<QString>("kind");
    QTest::newRow("reset_data_default") << "reset_default_done"
                                        << "default";
    QTest::newRow("reset_data_factory") << "reset_factory_done"
                                        << "factory";
}

void ResetTest::listenTo(const QString& event) {
    m_answers = std::make_unique<EventListener>();
    QVERIFY(m_peer.connect(QString(), QString(), vel::bus::commonInterface(), event, m_answers.get(),
                           SLOT(heard(VelEvent))));
    bustest::waitForBus(m_peer);
}

void ResetTest::modulesAnswerWithTheirNames_data() {
    QTest::addColumn<QString>("done");
    QTest::addColumn<QVariantMap>("plain");
    QTest::addColumn<QVariantMap>("resettable");
    QTest::addColumn<QString>("defaultHooksLine");
    QTest::newRow("reset_data_default") << "reset_default_done"
                                        << QVariantMap{{moduleName, "Plain"}, {needReboot, false}}
                                        << QVariantMap{{moduleName, "Resettable"}, {needReboot, true}}
                                        << "debug: Restore data to default";
    QTest::newRow("reset_data_factory") << "reset_factory_done" << QVariantMap{{moduleName, "Plain"}}
                                        << QVariantMap{{moduleName, "Resettable"}} << "debug: Restore data to factory";
}

void ResetTest::modulesAnswerWithTheirNames() {
    QFETCH(QString, done);
    QFETCH(QString, defaultHooksLine);
    listenTo(done);
    // What the trigger says, and who says it, is not looked at.
    QVERIFY(bustest::publish(m_peer, QStringLiteral("Anybody"), QString::fromLatin1(QTest::currentDataTag()),
                             {{moduleName, QStringLiteral("Nobody")}}));
    QVERIFY(m_answers->waitForEvents(2));
    QMap<QString, QVariantMap> answers;
    for (const VelEvent& answer : m_answers->events()) {
        QCOMPARE(answer.getEvtName(), done);
        QCOMPARE(answer.getContext(), QString());
        answers.insert(answer.getArgument(moduleName).toString(), answer.getArguments());
    }
    QTEST(answers.value(QStringLiteral("Plain")), "plain");
    QTEST(answers.value(QStringLiteral("Resettable")), "resettable");
    QCOMPARE(recordedLines(), QStringList{defaultHooksLine});
}

void ResetTest::everyTriggerIsAnswered() {
    QFETCH(QString, done);
    QFETCH(QString, kind);
    constexpr int triggersSent = 10;
    listenTo(done);
    for (int trigger = 0; trigger < triggersSent; ++trigger)
        QVERIFY(m_resettable.notifyEvent(QString::fromLatin1(QTest::currentDataTag()))); // its own trigger too
    QVERIFY(m_answers->waitForEvents(2 * triggersSent));
    QCOMPARE(m_resettable.resets, QStringList(QVector<QString>(triggersSent, kind).toList()));
}

void ResetTest::throwingHookIsNotAnswered() {
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
    QCOMPARE(recordedLines(), QStringList{"error: QString exception catch in VelApplication: disk full"});
}

VEL_BUS_TEST_MAIN(ResetTest)
#include "ResetTest.moc"
