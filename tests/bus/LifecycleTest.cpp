// Whole module processes: which hooks run, what is logged, and with which status each process ends.
#include "testing/BusTest.h"

#include "bus/VelDBusInterface.h"

#include <QRegularExpression>
#include <QTest>

namespace {

const QString name = QStringLiteral("Scripted");
const QString stopEvent = QStringLiteral("stop_module_Scripted");
const QString exitNormally = QStringLiteral("LOG debug: Exit with code NORMAL_EXIT [1]");

} // namespace

class LifecycleTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init();
    void everyOutcomeOfEveryStep_data();
    void everyOutcomeOfEveryStep();
    void presentationAlternates();
    void requestToStopBeforeRunChangesNothing();
    void supervisorIsAskedToStopTheModule();
    void supervisorStopsItself();
    void helpEndsBeforeTheBus_data();
    void helpEndsBeforeTheBus();
    void coreFileIsLimitedOnlyByStop();

private:
    // Starts the scripted module with log lines on its output.
    bool start(const QStringList& options, int level = 7);
    // What it wrote after its two lines of registration.
    QStringList story() const { return m_process->lines().mid(2); }

    QDBusConnection m_other = bustest::connectAs(QStringLiteral("other"));
    std::unique_ptr<ChildProcess> m_process;
};

void LifecycleTest::init() {
    m_process = std::make_unique<ChildProcess>();
}

bool LifecycleTest::start(const QStringList& options, int level) {
    m_process->setVariable(QStringLiteral("VEL_TEST_LOG"), QStringLiteral("1"));
    m_process->setVariable(QStringLiteral("VEL_LOG_LEVEL"), QString::number(level));
    return m_process->run(bustest::program(QStringLiteral("scripted-module")), options);
}

void LifecycleTest::everyOutcomeOfEveryStep_data() {
    QTest::addColumn<QString>("options");
    QTest::addColumn<int>("status");
    QTest::addColumn<QString>("expected"); // the lines in short: hook names, and log lines by severity
    const QString toRun = QStringLiteral("check|init|run|");
    const QString stopped = QStringLiteral("debug: stopModuleEvent for module Scripted in RUN state |stop|");
    const auto ended = [](const char* text) { return QStringLiteral("debug: Exit with code ") + QLatin1String(text); };
    const QString normally = ended("NORMAL_EXIT [1]");
    const auto thrown = [](const char* hook, const char* kind) {
        const QString known = QStringLiteral("error: FSM Exception catched in %1 method : thrown text|");
        const QString unknown = QStringLiteral("error: FSM Unknown Exception catched in %1 method|");
        return (qstrcmp(kind, "QString") == 0 ? known : unknown).arg(QLatin1String(hook));
    };

    QTest::newRow("all succeed") << "" << 1 << toRun + stopped + normally;
    QTest::newRow("check fails") << "--check=false" << 1 << "check|deploy|init|run|" + stopped + normally;
    QTest::newRow("deploy fails") << "--check=false --deploy=false" << 2 << "check|deploy|" + ended("DEPLOY_ERROR [2]");
    QTest::newRow("init fails") << "--init=false" << 3 << "check|init|" + ended("INIT_ERROR [3]");
    QTest::newRow("run fails") << "--run=false" << 4 << toRun + stopped + ended("RUN_ERROR [4]");
    QTest::newRow("stop fails") << "--stop=false" << 5 << toRun + stopped + ended("STOP_ERROR [5]");
    QTest::newRow("run and stop fail") << "--run=false --stop=false" << 5 << toRun + stopped + ended("STOP_ERROR [5]");
    for (const char* kind : {"QString", "int", "VelException", "std"}) {
        const bool isStd = qstrcmp(kind, "std") == 0;
        const QString named = QStringLiteral("debug: FSM Exception catched in %1 method: thrown what|");
        const auto row = [&](const char* hook) { return QStringLiteral("%1 throws %2").arg(hook, kind).toLatin1(); };
        const auto option = [&](const char* hook) { return QStringLiteral("--%1=%2").arg(hook, kind); };
        QTest::newRow(row("check")) << option("check") << 1
                                    << "check|" + thrown("check", kind) + "deploy|init|run|" + stopped + normally;
        QTest::newRow(row("deploy")) << "--check=false " + option("deploy") << 2
                                     << "check|deploy|" + thrown("deploy", kind) + ended("DEPLOY_ERROR [2]");
        QTest::newRow(row("init")) << option("init") << 3
                                   << "check|init|" + (isStd ? named.arg("init") : thrown("init", kind)) +
                                          ended("INIT_ERROR [3]");
        QTest::newRow(row("run")) << option("run") << 4
                                  << toRun + (isStd ? named.arg("run") : thrown("run", kind)) + stopped +
                                         ended("RUN_ERROR [4]");
        QTest::newRow(row("stop")) << option("stop") << 5
                                   << toRun + stopped + thrown("stop", kind) + ended("STOP_ERROR [5]");
    }
}

void LifecycleTest::everyOutcomeOfEveryStep() {
    QFETCH(QString, options);
    QFETCH(int, status);
    QFETCH(QString, expected);
    QVERIFY(start(options.split(QLatin1Char(' '), Qt::SkipEmptyParts)));
    if (expected.contains(QLatin1String("|run|"))) {
        QVERIFY(m_process->waitForLine(QStringLiteral("hook run")));
        QVERIFY(bustest::publish(m_other, QStringLiteral("Other"), stopEvent));
    }
    QCOMPARE(m_process->waitForStatus(), status);
    QStringList story = this->story();
    story.replaceInStrings(QRegularExpression(QStringLiteral("^(hook|LOG) ")), QString());
    QCOMPARE(story.join(QLatin1Char('|')), expected);
}

void LifecycleTest::presentationAlternates() {
    QVERIFY(start({QStringLiteral("--presentation_loaded=QString"), QStringLiteral("--presentation_stop=int")}));
    QVERIFY(m_process->waitForLine(QStringLiteral("hook run")));
    VelDBusInterface proxy(name, m_other, nullptr);
    const auto state = [&] { return proxy.call(QStringLiteral("state"), {}).arguments().value(0).toString(); };
    const auto load = [&] {
        return bustest::publish(m_other, QStringLiteral("Other"), QStringLiteral("presentationLoaded"));
    };
    QCOMPARE(state(), QStringLiteral("RUN"));
    QVERIFY(load());
    QVERIFY(load()); // the second one finds no transition
    QCOMPARE(state(), QStringLiteral("PRESENTATION_LOADED"));
    proxy.call(QStringLiteral("stopPresentation"), {});
    QCOMPARE(state(), QStringLiteral("PRESENTATION_STOP"));
    QVERIFY(load());
    QCOMPARE(state(), QStringLiteral("PRESENTATION_LOADED"));
    QVERIFY(bustest::publish(m_other, QStringLiteral("Other"), stopEvent));
    QCOMPARE(m_process->waitForStatus(), 1);

    const QString event = QStringLiteral("LOG debug: presentationLoadedEvent for module Scripted");
    const QStringList entered{QStringLiteral("hook presentation_loaded"),
                              QStringLiteral("LOG error: FSM Exception catched in presentation_loaded method : thrown "
                                             "text")};
    QCOMPARE(story(), QStringList() << QStringLiteral("hook check") << QStringLiteral("hook init")
                                    << QStringLiteral("hook run") << event << entered << event
                                    << QStringLiteral("LOG debug: stopWebclientEvent for module Scripted")
                                    << QStringLiteral("hook presentation_stop")
                                    << QStringLiteral("LOG error: FSM Unknown Exception catched in "
                                                      "presentation_stop method")
                                    << event << entered
                                    << QStringLiteral("LOG debug: stopModuleEvent for module Scripted in "
                                                      "PRESENTATION_LOADED state ")
                                    << QStringLiteral("hook stop") << exitNormally);
}

void LifecycleTest::requestToStopBeforeRunChangesNothing() {
    // Without a supervisor the request falls back to sig_stop(), which has no transition from INIT.
    QVERIFY(start({QStringLiteral("--init=exit")}));
    QVERIFY(m_process->waitForLine(QStringLiteral("hook run")));
    VelDBusInterface proxy(name, m_other, nullptr);
    QCOMPARE(proxy.call(QStringLiteral("state"), {}).arguments(), QVariantList{QStringLiteral("RUN")});
    QVERIFY(bustest::publish(m_other, QStringLiteral("Other"), QStringLiteral("stop_module_Other")));
    QCOMPARE(proxy.call(QStringLiteral("state"), {}).arguments(), QVariantList{QStringLiteral("RUN")});
    QVERIFY(bustest::publish(m_other, QStringLiteral("Other"), stopEvent));
    QCOMPARE(m_process->waitForStatus(), 1);
}

void LifecycleTest::supervisorIsAskedToStopTheModule() {
    // This supervisor has no method "stopModule": the request is sent, its answer ignored, and the module goes on.
    ChildProcess supervisor;
    QVERIFY(supervisor.run(bustest::program(QStringLiteral("scripted-module")),
                           {QStringLiteral("--moduleName=ApplicationManager")}));
    QVERIFY(supervisor.waitForLine(QStringLiteral("hook run")));
    QVERIFY(start({QStringLiteral("--run=exit")}));
    QVERIFY(m_process->waitForLine(QStringLiteral("slot_exit Scripted")));
    VelDBusInterface proxy(name, m_other, nullptr);
    QCOMPARE(proxy.call(QStringLiteral("state"), {}).arguments(), QVariantList{QStringLiteral("RUN")});
    QVERIFY(bustest::publish(m_other, QStringLiteral("Other"), stopEvent));
    QCOMPARE(m_process->waitForStatus(), 1);
}

void LifecycleTest::supervisorStopsItself() {
    QVERIFY(start({QStringLiteral("--moduleName=ApplicationManager"), QStringLiteral("--run=exit")}));
    QCOMPARE(m_process->waitForStatus(), 1);
    QCOMPARE(story().mid(3), (QStringList{QStringLiteral("LOG debug: exit ApplicationManager"),
                                          QStringLiteral("hook stop"), exitNormally}));
}

void LifecycleTest::helpEndsBeforeTheBus_data() {
    QTest::addColumn<QStringList>("options");
    for (const char* option : {"-h", "--help", "help", "--h=1"})
        QTest::newRow(option) << QStringList{QStringLiteral("--moduleName=X"), QLatin1String(option)};
}

void LifecycleTest::helpEndsBeforeTheBus() {
    QFETCH(QStringList, options);
    QVERIFY(start(options));
    QCOMPARE(m_process->waitForStatus(), 1);
    QCOMPARE(m_process->lines(),
             (QStringList{QStringLiteral("The module parameters are :"),
                          QStringLiteral("  --moduleName=<name of the module> : References the module on DBus")}));
}

void LifecycleTest::coreFileIsLimitedOnlyByStop() {
    QVERIFY(start({QStringLiteral("--run=coreLimit"), QStringLiteral("--stop=coreLimit")}));
    QVERIFY(m_process->waitForLine(QStringLiteral("core limit")));
    QVERIFY(!m_process->lines().contains(QStringLiteral("core limit 1 1")));
    QVERIFY(bustest::publish(m_other, QStringLiteral("Other"), stopEvent));
    QCOMPARE(m_process->waitForStatus(), 1);
    QVERIFY(m_process->lines().contains(QStringLiteral("core limit 1 1")));
}

VEL_BUS_TEST_MAIN(LifecycleTest)
#include "LifecycleTest.moc"
