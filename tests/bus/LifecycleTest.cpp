// Whole module processes: which hooks run, what is logged, and with which status each process ends.
#include "testing/BusTest.h"

#include "bus/VelDBusInterface.h"

#include <QHash>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>

#include <csignal>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

const QString name = "Scripted";
const QString stopEvent = "stop_module_Scripted";
const QString exitNormally = "LOG debug: Exit with code NORMAL_EXIT [1]";

} // namespace

class LifecycleTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init() { m_process = std::make_unique<ChildProcess>(); }

    void everyOutcomeOfEveryStep_data() {
        QTest::addColumn<QString>("options");
        QTest::addColumn<int>("status");
        QTest::addColumn<QString>("expected"); // the lines in short: hook names, and log lines by severity
        const QString toRun = "check|init|run|";
        const QString stopped = "debug: stopModuleEvent for module Scripted in RUN state |stop|";
        const auto ended = [](const char* text) { return QString("debug: Exit with code ") + QLatin1String(text); };
        const QString normally = ended("NORMAL_EXIT [1]");
        // The line that says what follows, at the level at which a module runs.
        const auto failed = [](const char* hook, const QString& reason) {
            const QHash<QString, QString> consequences = {
                {"check", "deploy() follows"},
                {"deploy", "the module ends with DEPLOY_ERROR [2]"},
                {"init", "the module ends with INIT_ERROR [3]"},
                {"run", "the module goes on and will end with RUN_ERROR [4]"},
                {"stop", "the module ends with STOP_ERROR [5]"},
            };
            return QString("error: cannot finish %1() of module 'Scripted': it %2; %3|")
                .arg(hook, reason, consequences.value(hook));
        };
        const auto answeredFalse = [&](const char* hook) { return failed(hook, "returned false"); };
        const auto thrown = [&](const char* hook, const QString& kind) {
            const QHash<QString, QString> reasons = {{"QString", "'thrown text'"},
                                                     {"int", "int"},
                                                     {"VelException", "VelException 'thrown exception'"},
                                                     {"std", "std::runtime_error 'thrown what'"}};
            const bool isNamed = qstrcmp(hook, "init") == 0 || qstrcmp(hook, "run") == 0;
            QString line = "error: FSM Unknown Exception catched in %1 method|";
            if (kind == "QString")
                line = "error: FSM Exception catched in %1 method : thrown text|";
            else if (kind == "std" && isNamed)
                line = "debug: FSM Exception catched in %1 method: thrown what|";
            return line.arg(hook) + failed(hook, "threw " + reasons.value(kind));
        };

        QTest::newRow("all succeed") << "" << 1 << toRun + stopped + normally;
        QTest::newRow("check fails") << "--check=false" << 1 << "check|deploy|init|run|" + stopped + normally;
        QTest::newRow("deploy fails") << "--check=false --deploy=false" << 2
                                      << "check|deploy|" + answeredFalse("deploy") + ended("DEPLOY_ERROR [2]");
        QTest::newRow("init fails") << "--init=false" << 3
                                    << "check|init|" + answeredFalse("init") + ended("INIT_ERROR [3]");
        QTest::newRow("run fails") << "--run=false" << 4
                                   << toRun + answeredFalse("run") + stopped + ended("RUN_ERROR [4]");
        QTest::newRow("stop fails") << "--stop=false" << 5
                                    << toRun + stopped + answeredFalse("stop") + ended("STOP_ERROR [5]");
        QTest::newRow("run and stop fail")
            << "--run=false --stop=false" << 5
            << toRun + answeredFalse("run") + stopped + answeredFalse("stop") + ended("STOP_ERROR [5]");
        for (const char* kind : {"QString", "int", "VelException", "std"}) {
            const auto row = [&](const char* hook) { return QString("%1 throws %2").arg(hook, kind).toLatin1(); };
            const auto option = [&](const char* hook) { return QString("--%1=%2").arg(hook, kind); };
            QTest::newRow(row("check")) << option("check") << 1
                                        << "check|" + thrown("check", kind) + "deploy|init|run|" + stopped + normally;
            QTest::newRow(row("deploy")) << "--check=false " + option("deploy") << 2
                                         << "check|deploy|" + thrown("deploy", kind) + ended("DEPLOY_ERROR [2]");
            QTest::newRow(row("init")) << option("init") << 3
                                       << "check|init|" + thrown("init", kind) + ended("INIT_ERROR [3]");
            QTest::newRow(row("run")) << option("run") << 4
                                      << toRun + thrown("run", kind) + stopped + ended("RUN_ERROR [4]");
            QTest::newRow(row("stop")) << option("stop") << 5
                                       << toRun + stopped + thrown("stop", kind) + ended("STOP_ERROR [5]");
        }
    }

    void everyOutcomeOfEveryStep() {
        QFETCH(QString, options);
        QFETCH(int, status);
        QFETCH(QString, expected);
        QVERIFY(start(options.split(' ', Qt::SkipEmptyParts)));
        if (expected.contains("|run|")) {
            QVERIFY(m_process->waitForLine("hook run"));
            QVERIFY(bustest::publish(m_other, "Other", stopEvent));
        }
        QCOMPARE(m_process->waitForStatus(), status);
        QStringList story = this->story();
        story.replaceInStrings(QRegularExpression("^(hook|LOG) "), QString());
        QCOMPARE(story.join('|'), expected);
    }

    void presentationAlternates() {
        QVERIFY(start({"--presentation_loaded=QString", "--presentation_stop=int"}));
        QVERIFY(m_process->waitForLine("hook run"));
        VelDBusInterface proxy(name, m_other, nullptr);
        const auto state = [&] { return proxy.call("state", {}).arguments().value(0).toString(); };
        const auto load = [&] { return bustest::publish(m_other, "Other", "presentationLoaded"); };
        QCOMPARE(state(), "RUN");
        QVERIFY(load());
        QVERIFY(load()); // the second one finds no transition
        QCOMPARE(state(), "PRESENTATION_LOADED");
        proxy.call("stopPresentation", {});
        QCOMPARE(state(), "PRESENTATION_STOP");
        QVERIFY(load());
        QCOMPARE(state(), "PRESENTATION_LOADED");
        QVERIFY(bustest::publish(m_other, "Other", stopEvent));
        QCOMPARE(m_process->waitForStatus(), 1);

        const QString event = "LOG debug: presentationLoadedEvent for module Scripted";
        const QStringList entered{"hook presentation_loaded",
                                  "LOG error: FSM Exception catched in presentation_loaded method : thrown text",
                                  "LOG error: cannot finish presentation_loaded() of module 'Scripted': it threw "
                                  "'thrown text'; the module goes on"};
        QCOMPARE(story(), QStringList() << "hook check"
                                        << "hook init"
                                        << "hook run" << event << entered << event
                                        << "LOG debug: stopWebclientEvent for module Scripted"
                                        << "hook presentation_stop"
                                        << "LOG error: FSM Unknown Exception catched in "
                                           "presentation_stop method"
                                        << "LOG error: cannot finish presentation_stop() of module 'Scripted': it "
                                           "threw int; the module goes on"
                                        << event << entered
                                        << "LOG debug: stopModuleEvent for module Scripted in "
                                           "PRESENTATION_LOADED state "
                                        << "hook stop" << exitNormally);
    }

    void requestToStopBeforeRunChangesNothing() {
        // Without a supervisor the request falls back to sig_stop(), which has no transition from INIT.
        QVERIFY(start({"--init=exit"}));
        QVERIFY(m_process->waitForLine("hook run"));
        VelDBusInterface proxy(name, m_other, nullptr);
        QCOMPARE(proxy.call("state", {}).arguments(), QVariantList{"RUN"});
        QVERIFY(bustest::publish(m_other, "Other", "stop_module_Other"));
        QCOMPARE(proxy.call("state", {}).arguments(), QVariantList{"RUN"});
        QVERIFY(bustest::publish(m_other, "Other", stopEvent));
        QCOMPARE(m_process->waitForStatus(), 1);
    }

    void supervisorIsAskedToStopTheModule() {
        // This supervisor has no method "stopModule": the request is sent, its answer ignored, and the module goes on.
        ChildProcess supervisor;
        QVERIFY(supervisor.run(bustest::program("scripted-module"), {"--moduleName=ApplicationManager"}));
        QVERIFY(supervisor.waitForLine("hook run"));
        QVERIFY(start({"--run=exit"}));
        QVERIFY(m_process->waitForLine("slot_exit Scripted"));
        VelDBusInterface proxy(name, m_other, nullptr);
        QCOMPARE(proxy.call("state", {}).arguments(), QVariantList{"RUN"});
        QVERIFY(bustest::publish(m_other, "Other", stopEvent));
        QCOMPARE(m_process->waitForStatus(), 1);
    }

    void supervisorStopsItself() {
        QVERIFY(start({"--moduleName=ApplicationManager", "--run=exit"}));
        QCOMPARE(m_process->waitForStatus(), 1);
        QCOMPARE(story().mid(3), (QStringList{"LOG debug: exit ApplicationManager", "hook stop", exitNormally}));
    }

    void helpEndsBeforeTheBus_data() {
        QTest::addColumn<QStringList>("options");
        for (const char* option : {"-h", "--help", "help", "--h=1"})
            QTest::newRow(option) << QStringList{"--moduleName=X", QLatin1String(option)};
    }

    void helpEndsBeforeTheBus() {
        QFETCH(QStringList, options);
        QVERIFY(start(options));
        QCOMPARE(m_process->waitForStatus(), 1);
        QCOMPARE(m_process->lines(),
                 (QStringList{"The module parameters are :",
                              "  --moduleName=<name of the module> : References the module on DBus"}));
    }

    void coreFileIsLimitedOnlyByStop() {
        QVERIFY(start({"--run=coreLimit", "--stop=coreLimit"}));
        QVERIFY(m_process->waitForLine("core limit"));
        QVERIFY(!m_process->lines().contains("core limit 1 1"));
        QVERIFY(bustest::publish(m_other, "Other", stopEvent));
        QCOMPARE(m_process->waitForStatus(), 1);
        QVERIFY(m_process->lines().contains("core limit 1 1"));
    }

    void signalLeadsToTheNormalEnd() {
        QVERIFY(start({"--signals=stop"}, 3));
        QVERIFY(m_process->waitForLine("hook run"));
        VelDBusInterface(name, m_other, nullptr).call("state", {}); // answered when run() has returned
        m_process->terminate();
        QCOMPARE(m_process->waitForStatus(), 1);
        QVERIFY(m_process->lines().contains("hook stop"));

        // A signal before RUN is remembered, and run() comes before stop(): whether init() waits without an event loop, or
        // with a loop of its own, in which the signal is told while there is no transition for it.
        const QTemporaryDir folder;
        const QByteArray gate = QFile::encodeName(folder.filePath("gate"));
        QCOMPARE(mkfifo(gate.constData(), 0600), 0);
        for (const char* wait : {"--init=wait", "--init=loop"}) {
            const int opener = open(gate.constData(), O_RDWR | O_CLOEXEC); // a fresh pipe each time
            init();
            QVERIFY(start({"--signals=stop", wait, "--run=false", "--gate=" + QFile::decodeName(gate)}, 3));
            QVERIFY(m_process->waitForLine("hook init"));
            m_process->terminate();
            m_process->write("\n");
            QCOMPARE(write(opener, "\n", 1), ssize_t(1));
            QCOMPARE(m_process->waitForStatus(), 4);
            QCOMPARE(m_process->lines().filter("hook "),
                     (QStringList{"hook check", "hook init", "hook run", "hook stop"}));
            close(opener);
        }
    }

    void secondSignalEndsAtOnce() {
        for (const char* hook : {"init", "run", "stop"}) {
            init();
            QVERIFY(start({"--signals=stop", QString("--%1=wait").arg(hook)}, 3));
            const bool waitsInStop = qstrcmp(hook, "stop") == 0;
            QVERIFY(m_process->waitForLine(QString("hook %1").arg(waitsInStop ? "run" : hook)));
            m_process->terminate();
            if (waitsInStop)
                QVERIFY(m_process->waitForLine("hook stop"));
            // Another signal than the first: two of one kind that are pending together are one.
            ::kill(static_cast<pid_t>(m_process->processId()), SIGINT);
            QCOMPARE(m_process->waitForStatus(), -1);
        }
    }

private:
    // Starts the scripted module with log lines on its output.
    bool start(const QStringList& options, int level = 7) {
        m_process->setVariable("VEL_TEST_LOG", "1");
        m_process->setVariable("VEL_LOG_LEVEL", QString::number(level));
        return m_process->run(bustest::program("scripted-module"), options);
    }

    // What it wrote after its two lines of registration.
    QStringList story() const { return m_process->lines().mid(2); }

    QDBusConnection m_other = bustest::connectAs("other");
    std::unique_ptr<ChildProcess> m_process;
};

VEL_TEST_MAIN(LifecycleTest)
#include "LifecycleTest.moc"
