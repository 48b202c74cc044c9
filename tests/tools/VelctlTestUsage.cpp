// velctl's command line: misuse, help, completion, the man page, and a bus that is not there or does not answer.
#include "VelctlRun.h"

#include "testing/BusTest.h"

#include <QFile>
#include <QTest>

#include <csignal>

namespace {

const QStringList commandNames = {"list", "status",   "watch",  "publish", "call",
                                  "wait", "loglevel", "mtrace", "reset",   "stop"};

QString sourceText(const char* name) {
    QFile file(QString(VELCTL_SOURCES "/") + name);
    return file.open(QIODevice::ReadOnly) ? QString::fromUtf8(file.readAll()) : QString();
}

} // namespace

class VelctlTestUsage : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void misuseGetsOneLine_data();
    void misuseGetsOneLine();
    void everyCommandHasHelpWithAnExample();
    void manPageAndCompletionsKnowEveryCommand();
    void completionOffersWhatFits_data();
    void completionOffersWhatFits();
    void noBusIsStatus7();
    void busThatDoesNotAnswerIsLeftAtTheLimit();
};

void VelctlTestUsage::misuseGetsOneLine_data() {
    QTest::addColumn<QStringList>("line");
    QTest::addColumn<QString>("text");
    const auto row = [](const QStringList& line, const char* text) {
        QTest::newRow(qPrintable("velctl " + line.join(' '))) << line << QString("velctl: cannot ") + text + '\n';
    };
    row({}, "run without a command; 'velctl --help' shows all of them");
    row({"lost"},
        "run 'lost': there is no such command; there are list, status, watch, publish, call, wait, loglevel, mtrace, "
        "reset, stop");
    row({"list", "x"}, "run 'list': 'x' is one argument too many; right is: velctl list");
    row({"list", "--jsn"}, "run 'list': there is no option '--jsn', there are --names, --json, --timeout, "
                           "--address, --help; right is: velctl list");
    row({"list", "--timeout"}, "run 'list': missing value after '--timeout'; right is: velctl list");
    row({"list", "--timeout", "-1"}, "run 'list': '-1' is no number of seconds; right is: velctl list");
    row({"watch", "--count", "0"}, "run 'watch': '0' is no number of events; right is: velctl watch [EVENT...]");
    row({"call", "Tuner"}, "run 'call': METHOD is missing; right is: velctl call MODULE METHOD [ARG...]");
    row({"publish", "a", "b"}, "publish 'b': there is no '=' in it; right is NAME=VALUE or NAME:=TYPE:VALUE");
    row({"publish", "a", "b:=int:x"}, "publish 'b:=int:x': 'x' is no int; right is NAME=VALUE or NAME:=TYPE:VALUE");
    row({"publish", "a", "b=1", "b=2"}, "publish 'b=2': 'b' is given twice; right is NAME=VALUE or NAME:=TYPE:VALUE");
    row({"publish", "-"}, "publish '-': standard input is read as JSON; right is: velctl publish --json -");
    row({"watch", "a-b"}, "watch 'a-b': that cannot be the name of an event; it is made of letters, digits and "
                          "underscores, and does not begin with a digit");
    row({"wait"},
        "run 'wait': it waits for exactly one thing; right is: velctl wait EVENT [NAME=VALUE...], or velctl wait "
        "--running MODULE, or velctl wait --gone MODULE");
    row({"loglevel", "8"}, "set the log level '8': there is no such level; right is 0 to 7, or silent, error, "
                           "warning, info, debug");
    row({"mtrace", "up", "Tuner"},
        "switch memory tracing 'up': it is on or off; right is: velctl mtrace on|off MODULE");
    row({"reset", "all"}, "reset to 'all': there is no such reset; right is: velctl reset default|factory");
}

void VelctlTestUsage::misuseGetsOneLine() {
    QFETCH(QStringList, line);
    QFETCH(QString, text);
    const Outcome outcome = velctl(line);
    QCOMPARE(outcome.err, text);
    QCOMPARE(outcome.status, 2);
    QVERIFY(outcome.out.isEmpty());
}

void VelctlTestUsage::everyCommandHasHelpWithAnExample() {
    const QString all = velctl({"--help"}).out.join('\n');
    for (const QString& name : commandNames) {
        QVERIFY2(all.contains("\n  " + name + ' '), qPrintable(name));
        const Outcome help = velctl({name, "--help"});
        QCOMPARE(help.status, 0);
        QVERIFY2(help.out.last().startsWith("  velctl " + name), qPrintable(help.out.last()));
    }
}

void VelctlTestUsage::manPageAndCompletionsKnowEveryCommand() {
    const QString manual = sourceText("velctl.1");
    for (const QString& name : commandNames) {
        QVERIFY2(manual.contains("\\fB" + name) || manual.contains(".BR " + name), qPrintable(name));
        QVERIFY2(sourceText("completion/velctl.bash").contains(name), qPrintable(name));
        QVERIFY2(sourceText("completion/_velctl").contains("'" + name + ':'), qPrintable(name));
    }
    for (const char* status : {"0|", "1|", "2|", "3|", "4|", "5|", "7|", "124|", "130|"})
        QVERIFY2(manual.contains(QString("\n") + status), status);
}

void VelctlTestUsage::completionOffersWhatFits_data() {
    QTest::addColumn<QString>("words");
    QTest::addColumn<QString>("offered");
    QTest::newRow("commands") << "'st'"
                              << "status stop";
    QTest::newRow("modules on the bus") << "status ''"
                                        << "Media Tuner";
    QTest::newRow("beginning of a module") << "call 'T'"
                                           << "Tuner";
    QTest::newRow("methods of the module") << "call Tuner 'sa'"
                                           << "sameMap sameList";
    QTest::newRow("after an option's value") << "--timeout 3 stop 'M'"
                                             << "Media";
    QTest::newRow("option's value") << "wait --running 'T'"
                                    << "Tuner";
    QTest::newRow("options of the command") << "wait --r"
                                            << "--running";
    QTest::newRow("kinds") << "reset ''"
                           << "default factory";
    QTest::newRow("module after the direction") << "mtrace on 'M'"
                                                << "Media";
}

void VelctlTestUsage::completionOffersWhatFits() {
    QFETCH(QString, words);
    QFETCH(QString, offered);
    const auto tuner = startPeer("Tuner");
    const auto media = startPeer("Media");
    QVERIFY(tuner && media);
    QProcess bash;
    bash.start("bash",
               {"-c", QString("source '%1' && COMP_WORDS=('%2' %3) && COMP_CWORD=$((${#COMP_WORDS[@]}-1)) && _velctl "
                              "&& echo \"${COMPREPLY[@]}\"")
                          .arg(VELCTL_SOURCES "/completion/velctl.bash", bustest::program("velctl"), words)});
    QVERIFY(bash.waitForFinished(60000));
    QCOMPARE(QString::fromUtf8(bash.readAllStandardOutput()).trimmed(), offered);
}

void VelctlTestUsage::noBusIsStatus7() {
    QProcess process;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert("DBUS_SESSION_BUS_ADDRESS", "unix:path=/nonexistent/bus");
    process.setProcessEnvironment(environment);
    process.start(bustest::program("velctl"), {"list"});
    QVERIFY(process.waitForFinished(60000));
    QCOMPARE(process.exitCode(), 7);
    QVERIFY(process.readAllStandardError().startsWith("velctl: cannot reach the bus 'unix:path=/nonexistent/bus': "));
}

void VelctlTestUsage::busThatDoesNotAnswerIsLeftAtTheLimit() {
    const auto daemon = static_cast<pid_t>(bustest::bus().processId());
    kill(daemon, SIGSTOP);
    const Outcome outcome = velctl({"list", "--timeout", "1"});
    kill(daemon, SIGCONT);
    QCOMPARE(outcome.status, 124);
    QVERIFY2(outcome.err.contains("cannot reach the bus: it does not answer; gave up after 1 s"),
             qPrintable(outcome.err));
}

VEL_BUS_TEST_MAIN(VelctlTestUsage)
#include "VelctlTestUsage.moc"
