// Modules that the supervisor starts by fork, and a launcher that fails in every way.
#include "SupervisorRun.h"

#include "process/ProcessInfo.h"

#include <QFile>
#include <QJsonArray>
#include <QRandomGenerator>
#include <QTest>

#include <csignal>

namespace {

pid_t launcherOf(SupervisorRun& run) {
    for (const ChildInfo& child : childrenOf(run.process().processId())) {
        if (child.name == "vel-launcher")
            return static_cast<pid_t>(child.pid);
    }
    return 0;
}

bool isForked(pid_t process) {
    return QFile::symLinkTarget(QString("/proc/%1/exe").arg(process)).endsWith("/vel-launcher");
}

} // namespace

class SupervisorLaunchTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init() { qputenv("VEL_TEST_LAUNCH", "fork"); }

    void modulesAreForkedAndOutliveTheirLauncher() {
        SupervisorRun run;
        run.addModule("A");
        run.addModule("B", {}, {{"launch", "exec"}});
        QVERIFY(run.start());
        QVERIFY(run.waitUntilUp({"A", "B"}));
        const pid_t forked = run.processOf("A");
        QVERIFY(isForked(forked));
        QVERIFY(!isForked(run.processOf("B")));
        QCOMPARE(processInfo(forked).name, "scripted-module");
        QCOMPARE(processInfo(forked).program, builtProgram("scripted-module"));

        const pid_t launcher = launcherOf(run);
        QVERIFY(launcher > 0);
        kill(launcher, SIGKILL);
        QVERIFY(run.waitForLine("warning: the launcher has ended: another one takes its place"));
        QVERIFY(run.answer("restartModule", "B").startsWith("'B' is up"));
        QCOMPARE(run.processOf("A"), forked);
        QVERIFY(run.answer("restartModule", "A").startsWith("'A' is up"));
        QVERIFY(isForked(run.processOf("A")));
        QVERIFY(run.processOf("A") != forked);
    }

    void whatCannotBeForkedIsExecuted_data() {
        QTest::addColumn<QString>("key");
        QTest::addColumn<QJsonValue>("value");
        QTest::addColumn<QString>("line");
        QTest::newRow("no shared object") << "command" << QJsonValue("sh") << "there is no '/usr/bin/sh.so'";
        QTest::newRow("a variable of the dynamic linker")
            << "environment" << QJsonValue(QJsonObject{{"LD_PRELOAD", ""}})
            << "its variable 'LD_PRELOAD' is read before a process has forked";
        QTest::newRow("a library that does not load")
            << "libraries" << QJsonValue(QJsonArray{"/nonexistent.so"}) << "/nonexistent.so";
        QTest::newRow("a library with a thread")
            << "libraries" << QJsonValue(QJsonArray{VEL_THREADED_LIBRARY}) << "starts a thread when it is loaded";
    }
    void whatCannotBeForkedIsExecuted() {
        QFETCH(QString, key);
        QFETCH(QJsonValue, value);
        QFETCH(QString, line);
        SupervisorRun run;
        if (key == "command")
            run.addModule("A", {"-c", builtProgram("scripted-module") + " \"$@\"", "sh"}, {{key, value}});
        else
            run.addModule("A");
        if (key == "libraries") {
            qunsetenv("VEL_TEST_LAUNCH");
            run.set("launch", "fork");
            run.set("launcher", QJsonObject{{key, value}});
        } else if (key == "environment") {
            run.setOfModule("A", key, value);
        }
        QVERIFY(run.start());
        QVERIFY(run.waitUntilUp({"A"}));
        QVERIFY(!isForked(run.processOf("A")));
        QVERIFY2(run.hasLine(line) && run.hasLine("executed instead"), qPrintable(run.process().lines().join('\n')));
    }

    // A launcher that is stopped is found out, and replaced; the supervisor goes on meanwhile.
    void launcherThatDoesNotAnswerIsReplaced() {
        SupervisorRun run;
        run.addModule("A");
        QVERIFY(run.start());
        QVERIFY(run.waitUntilUp({"A"}));
        const pid_t launcher = launcherOf(run);
        QVERIFY(launcher > 0); // 0 would stop this test and its starter
        kill(launcher, SIGSTOP);
        QVERIFY(run.answer("restartModule", "A").startsWith("'A' is up")); // by the spare
        QVERIFY(run.answer("restartModule", "A").startsWith("'A' is up")); // by nobody, so it is executed
        QVERIFY(run.waitForLine("warning: the launcher does not answer: another one takes its place"));
        QVERIFY(run.answer("restartModule", "A").startsWith("'A' is up"));
        QVERIFY(isForked(run.processOf("A")));
    }

    // Every module comes up, once, whenever the launcher is killed.
    void launcherMayBeKilledAtAnyMoment() {
        constexpr int modules = 5;
        const int rounds =
            qEnvironmentVariableIsSet("VEL_TEST_ROUNDS") ? qEnvironmentVariableIntValue("VEL_TEST_ROUNDS") : 10;
        for (int round = 0; round < rounds; ++round) {
            SupervisorRun run;
            QStringList names;
            for (int number = 0; number < modules; ++number) {
                names += QString("Module%1").arg(number);
                run.addModule(names.last());
            }
            QVERIFY(run.start());
            QVERIFY(run.waitForLine("starts 'Module0'"));
            const int kills = QRandomGenerator::global()->bounded(1, 4);
            for (int number = 0; number < kills; ++number) {
                if (const pid_t launcher = launcherOf(run))
                    kill(launcher, SIGKILL);
            }
            QVERIFY2(run.waitUntilUp(names), qPrintable(run.process().lines().join('\n')));
            for (const QString& name : qAsConst(names)) {
                QVERIFY(run.waitForLine(name + " run"));
                QCOMPARE(run.process().lines().filter(QString("starts '%1'").arg(name)).size(), 1);
                QCOMPARE(run.process().lines().filter(name + " run").size(), 1);
            }
        }
    }
};

QTEST_GUILESS_MAIN(SupervisorLaunchTest)

#include "SupervisorLaunchTest.moc"
