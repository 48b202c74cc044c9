// velctl among strangers and in crowds: what they write does not reach the terminal, what they flood does not make it late
// or large, and who does not read it is left in time.
#include "testing/BusTest.h"
#include "testing/TimeLimit.h"

#include <QDBusConnectionInterface>
#include <QElapsedTimer>
#include <QJsonDocument>
#include <QRegularExpression>
#include <QTest>

#include <csignal>
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

// What a run of velctl left behind.
struct Outcome {
    int status;
    QStringList out; // lines of standard output
    QString err;
};

Outcome velctl(const QStringList& arguments, const QByteArray& input = QByteArray()) {
    QProcess process;
    process.start(bustest::program("velctl"), arguments);
    process.write(input);
    process.closeWriteChannel();
    if (!process.waitForFinished(60000))
        return {-1, {}, "velctl did not end"};
    return {process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1,
            QString::fromUtf8(process.readAllStandardOutput()).split('\n', Qt::SkipEmptyParts),
            QString::fromUtf8(process.readAllStandardError())};
}

// A module that is as modules are, once it answers.
std::unique_ptr<ChildProcess> startPeer(const QString& name, const QStringList& options = {}) {
    auto peer = std::make_unique<ChildProcess>();
    const bool runs =
        peer->run(bustest::program("tool-peer"), QStringList{"--moduleName=" + name, "--tells"} + options) &&
        velctl({"wait", "--running", name, "--timeout", "60"}).status == 0;
    return runs ? std::move(peer) : nullptr;
}

bool makeBusy(ChildProcess& peer, const QString& name) {
    const QDBusMessage call = QDBusMessage::createMethodCall("org.vel.module." + name + "Service", '/' + name,
                                                             "org.vel.module.VelInterface", "block");
    return QDBusConnection::sessionBus().send(call) && peer.waitForLine("blocking");
}

QString describe(const QString& type, const QString& method = "talk") {
    return QString("<node><interface name='org.vel.module.VelInterface'><method name='%1'><arg name='a' type='%2' "
                   "direction='in'/></method></interface></node>")
        .arg(method, type.toHtmlEscaped());
}

const QString noArguments = "<node><interface name='org.vel.module.VelInterface'><method name='talk'/>"
                            "<method name='x&#x9b;31m&#x202e;'/></interface></node>";

QString json(const char* text) {
    return QString(text).replace('\'', '"');
}

std::unique_ptr<ChildProcess> startHostile(const QString& name, const QStringList& options) {
    auto peer = std::make_unique<ChildProcess>();
    const bool isReady =
        peer->run(bustest::program("hostile-peer"), QStringList(name) + options) && peer->waitForLine("ready");
    return isReady ? std::move(peer) : nullptr;
}

// A run whose output goes into a pipe that nobody reads, or to a file; and what the kernel counted of it.
struct Ended {
    int status;      // as a shell tells it: 128 and the number of the signal that ended it
    long mostMemory; // KiB
    double seconds;
    double processorSeconds;
};

Ended runInto(int output, const QStringList& arguments, int errors = STDERR_FILENO, bool ignoresPipes = false) {
    // AddressSanitizer keeps freed memory for a while, up to 256 MB of it by default: that is not what velctl holds.
    const QByteArray sanitizerOptions =
        qgetenv("ASAN_OPTIONS") + ":quarantine_size_mb=8:thread_local_quarantine_size_kb=64";
    QElapsedTimer timer;
    timer.start();
    const pid_t process = fork();
    if (process == 0) {
        dup2(output, STDOUT_FILENO);
        dup2(errors, STDERR_FILENO);
        signal(SIGPIPE, ignoresPipes ? SIG_IGN : SIG_DFL); // Qt's D-Bus has made this process ignore it
        setenv("ASAN_OPTIONS", sanitizerOptions.constData(), 1);
        QList<QByteArray> words = {bustest::program("velctl").toUtf8()};
        for (const QString& argument : arguments)
            words += argument.toUtf8();
        std::vector<char*> pointers;
        for (QByteArray& word : words)
            pointers.push_back(word.data());
        pointers.push_back(nullptr);
        execv(pointers.front(), pointers.data());
        _exit(127);
    }
    int status = 0;
    rusage used{};
    wait4(process, &status, 0, &used);
    const auto seconds = [](const timeval& time) { return double(time.tv_sec) + double(time.tv_usec) / 1000000; };
    return {WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status), used.ru_maxrss,
            double(timer.elapsed()) / 1000, seconds(used.ru_utime) + seconds(used.ru_stime)};
}

// Within the limit and a tenth (0.3 s for a short limit), and what a loaded machine adds.
bool isInTime(const Ended& ended, double limit) {
    return ended.seconds < std::max(limit * 1.1, limit + 0.3) * 1.5 * vel::testing::slowness();
}

class UnreadPipe {
public:
    UnreadPipe() {
        if (pipe2(m_ends, O_CLOEXEC) != 0)
            qFatal("no pipe");
    }
    ~UnreadPipe() {
        close(m_ends[0]);
        close(m_ends[1]);
    }
    int input() const { return m_ends[1]; }
    void closeReader() {
        close(m_ends[0]);
        m_ends[0] = -1;
    }
    QByteArray content() const {
        char bytes[4096];
        fcntl(m_ends[0], F_SETFL, O_NONBLOCK);
        const ssize_t count = read(m_ends[0], bytes, sizeof bytes);
        return QByteArray(bytes, static_cast<int>(std::max<ssize_t>(count, 0)));
    }

private:
    int m_ends[2];
};

constexpr int boundedMemory = 300 * 1024; // KiB: a message of the greatest length, and what velctl needs besides

} // namespace

class VelctlHostileTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void whatStrangersWriteIsMadeSafe_data() {
        QTest::addColumn<QStringList>("line");
        QTest::addColumn<int>("status");
        QTest::newRow("answer") << QStringList{"call", "Evil", "talk"} << 0;
        QTest::newRow("answer in JSON") << QStringList{"call", "Evil", "talk", "--json"} << 0;
        QTest::newRow("error") << QStringList{"call", "Rude", "talk"} << 5;
        QTest::newRow("error in JSON") << QStringList{"call", "Rude", "talk", "--json"} << 5;
        QTest::newRow("names of methods") << QStringList{"status", "Evil"} << 0;
        QTest::newRow("names only") << QStringList{"status", "Evil", "--names"} << 0;
        QTest::newRow("unknown method") << QStringList{"call", "Evil", "none"} << 4;
        QTest::newRow("list") << QStringList{"list"} << 0;
    }

    void whatStrangersWriteIsMadeSafe() {
        QFETCH(QStringList, line);
        QFETCH(int, status);
        const auto evil = startHostile(
            "Evil",
            {"--describe", noArguments, "--answer",
             json(
                 "{'type':'as','value':['\\u001b[31mred','a\\nvelctl: all is well','\\u009b\\u202e\\u2028\\u007f']}")});
        const auto rude =
            startHostile("Rude", {"--describe", noArguments, "--error", "\033]0;title\a\nvelctl: all is well\n"});
        QVERIFY(evil && rude);
        const Outcome outcome = velctl(line);
        QCOMPARE(outcome.status, status);
        const QString all = outcome.out.join("") + outcome.err.chopped(outcome.err.endsWith('\n') ? 1 : 0);
        QVERIFY(!all.isEmpty());
        for (const QChar character : all)
            QVERIFY2(character.category() != QChar::Other_Control && character != QChar(0x202e) &&
                         character != QChar(0x2028),
                     qPrintable(all));
        if (line.contains("--json"))
            QVERIFY(QJsonDocument::fromJson(all.toUtf8()).isObject());
    }

    void eventsOfStrangersAreMadeSafe() {
        QProcess watch;
        watch.setReadChannel(QProcess::StandardError);
        watch.start(bustest::program("velctl"), {"watch", "--count", "1"});
        QVERIFY(watch.waitForReadyRead(60000)); // it says that it watches
        const QByteArray event =
            json("{'event':'e','path':'/x','body':[{'type':'s','value':'\\u001b[31m\\n\\u009b'},{'type':'o','value':'/"
                 "'}]}")
                .toUtf8();
        QCOMPARE(velctl({"publish", "--json", "-"}, event).status, 0);
        QVERIFY(watch.waitForFinished(60000));
        const QByteArray line = watch.readAllStandardOutput();
        QCOMPARE(line.count('\n'), 1);
        QVERIFY2(line.contains("text:\\u001b[31m\\n\\u009b, path:/"), line.constData());
    }

    void impossibleTypesAreTold_data() {
        QTest::addColumn<QString>("type");
        for (const char* type : {"", "z", "a", "(", ")", "()", "{sv}", "a{vs}", "a{s}", "ii", "i)", "(i", "aaaaa",
                                 "a{sv", "r", "e", "\xc3\xa9"})
            QTest::newRow(qPrintable("type " + QString(type))) << QString::fromUtf8(type);
        QTest::newRow("long") << QString(60000, 'a') + 'i';
        QTest::newRow("deep") << QString(60000, '(') + 'i' + QString(60000, ')');
    }

    void impossibleTypesAreTold() {
        QFETCH(QString, type);
        const auto peer = startHostile("Wrong", {"--describe", describe(type)});
        QVERIFY(peer);
        const Outcome outcome = velctl({"call", "Wrong", "talk", "1"});
        QCOMPARE(outcome.status, 1);
        QVERIFY2(outcome.err.contains("which is no type; nothing was sent"), qPrintable(outcome.err));
        QCOMPARE(velctl({"status", "Wrong"}).status, 0);
    }

    void moduleThatLeavesIsNotRunning() {
        for (const char* limit : {"5", "0"}) {
            const auto peer = startHostile("Leaver" + QString(limit), {"--describe", noArguments, "--leave"});
            QVERIFY(peer);
            const Outcome outcome = velctl({"call", "Leaver" + QString(limit), "talk", "--timeout", limit});
            QCOMPARE(outcome.status, 3);
            QVERIFY(outcome.err.contains("left the bus without an answer"));
        }
    }

    void callWithoutLimitWaits() {
        const auto peer = startPeer("Peer");
        QVERIFY(peer);
        QVERIFY(makeBusy(*peer, "Peer"));
        QProcess call;
        call.start(bustest::program("velctl"), {"call", "Peer", "add", "1", "2", "--timeout", "0"});
        QVERIFY(call.waitForStarted());
        QVERIFY(!call.waitForFinished(7000)); // longer than any limit that a call might have of its own
        peer->write("\n");
        QVERIFY(peer->waitForBytesWritten());
        QVERIFY(call.waitForFinished(60000));
        QCOMPARE(call.readAllStandardOutput(), QByteArray("int 3\n"));
    }

    void forgedAnswersDoNotCount() {
        const auto victim = startPeer("Victim", {"--reset=throw"});
        const auto forger = startHostile("Forger", {"--forge", "Victim"});
        QVERIFY(victim && forger);
        const Outcome outcome = velctl({"reset", "default", "--timeout", "2"});
        QCOMPARE(outcome.status, 124);
        QVERIFY2(outcome.out.join('\n').contains("Victim  missing"), qPrintable(outcome.out.join('\n')));
    }

    void hugeAnswerAndAReaderThatSleepsEndItInTime_data() {
        QTest::addColumn<QStringList>("line");
        QTest::newRow("people") << QStringList{"call", "Huge", "talk", "--timeout", "3"};
        QTest::newRow("JSON") << QStringList{"call", "Huge", "talk", "--timeout", "3", "--json"};
    }

    void hugeAnswerAndAReaderThatSleepsEndItInTime() {
        QFETCH(QStringList, line);
        const auto peer = startHostile("Huge", {"--describe", noArguments, "--huge"});
        QVERIFY(peer);
        const UnreadPipe pipe;
        const Ended ended = runInto(pipe.input(), line);
        QCOMPARE(ended.status, 124);
        QVERIFY2(isInTime(ended, 3), qPrintable(QString::number(ended.seconds)));
        QVERIFY2(ended.mostMemory < boundedMemory, qPrintable(QString::number(ended.mostMemory)));
    }

    void fullDiskEndsItAtOnce() {
        const int full = open("/dev/full", O_WRONLY | O_CLOEXEC);
        QVERIFY(full >= 0);
        QCOMPARE(runInto(full, {"--help"}).status, 1);
        const auto flood = startHostile("Flood", {"--flood", "noise"});
        QVERIFY(flood);
        QCOMPARE(runInto(full, {"watch", "--timeout", "60"}).status, 1);
        close(full);
    }

    // As it ends other programs: by SIGPIPE, or with the reason where that signal is ignored.
    void readerThatHasGoneEndsItSilently() {
        const auto peer = startPeer("Peer");
        const auto flood = startHostile("Flood", {"--flood", "noise"});
        QVERIFY(peer && flood);
        for (const QStringList& line :
             {QStringList{"list", "--json"}, QStringList{"status", "Peer"}, QStringList{"watch", "--rate"}}) {
            UnreadPipe out;
            const UnreadPipe errors;
            out.closeReader();
            QCOMPARE(runInto(out.input(), line, errors.input()).status, 128 + SIGPIPE);
            QCOMPARE(errors.content(), line.first() == "watch" ? "velctl: counting every event\n" : QByteArray());
        }
        UnreadPipe out;
        const UnreadPipe errors;
        out.closeReader();
        QCOMPARE(runInto(out.input(), {"status", "Peer"}, errors.input(), true).status, 1);
        QVERIFY(errors.content().contains("Broken pipe"));
    }

    // What a person waits for: 100 modules, then with five among them that hang. The figures are printed.
    void crowdIsListedAtOnce() {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
        constexpr int count = 20; // each module takes some fifty megabytes more
#else
        const int count = vel::testing::slowness() > 1 ? 20 : 100;
#endif
        std::vector<std::unique_ptr<ChildProcess>> peers;
        for (int number = 0; number < count; ++number) {
            peers.push_back(std::make_unique<ChildProcess>());
            QVERIFY(peers.back()->run(bustest::program("tool-peer"),
                                      {QString("--moduleName=Crowd%1").arg(number), "--tells"}));
        }
        for (int number = 0; number < count; ++number)
            QCOMPARE(velctl({"wait", "--running", QString("Crowd%1").arg(number), "--timeout", "60"}).status, 0);
        const int file = open("/dev/null", O_WRONLY | O_CLOEXEC);
        Ended least{0, 0, 1000, 1000};
        for (int round = 0; round < 10; ++round) {
            const Ended ended = runInto(file, {"list"});
            QCOMPARE(ended.status, 0);
            least.seconds = std::min(least.seconds, ended.seconds);
            least.processorSeconds = std::min(least.processorSeconds, ended.processorSeconds);
        }
        constexpr int hanging = 5;
        for (int number = 0; number < hanging; ++number)
            QVERIFY(makeBusy(*peers.at(std::size_t(number)), QString("Crowd%1").arg(number)));
        const Ended withHanging = runInto(file, {"list"});
        close(file);
        qInfo("velctl list, %d modules: %.0f ms, of which it runs %.0f ms; with %d that hang: %.0f ms", count,
              least.seconds * 1000, least.processorSeconds * 1000, hanging, withHanging.seconds * 1000);
        // The rest of the time is the modules' and the bus daemon's, who share the machine with others.
        QVERIFY(least.processorSeconds < 0.15 * vel::testing::slowness());
        QCOMPARE(withHanging.status, 0);
        QVERIFY(isInTime(withHanging, 5));
        const Outcome table = velctl({"list"});
        QCOMPARE(table.out.filter("unresponsive").size(), hanging);
        QCOMPARE(table.out.filter("running").size(), count - hanging);
    }

    void floodMakesItNeitherLateNorLarge_data() {
        QTest::addColumn<QStringList>("line");
        QTest::addColumn<int>("status");
        QTest::newRow("wait") << QStringList{"wait", "nothing", "--timeout", "2"} << 124;
        QTest::newRow("watch nobody reads") << QStringList{"watch", "--timeout", "2"} << 124;
        QTest::newRow("watch in JSON") << QStringList{"watch", "--json", "--timeout", "2"} << 124;
        QTest::newRow("rate") << QStringList{"watch", "--rate", "--timeout", "2"} << 0;
        QTest::newRow("list") << QStringList{"list", "--timeout", "2"} << 0;
    }

    void floodMakesItNeitherLateNorLarge() {
        QFETCH(QStringList, line);
        QFETCH(int, status);
        const auto one = startHostile("Flood", {"--flood", "noise"});
        const auto other = startHostile("Other", {"--flood", "noise"});
        QVERIFY(one && other);
        const UnreadPipe pipe;
        const Ended ended = runInto(pipe.input(), line);
        if (line.first() != "list") { // which asks the flooders, who do not answer
            QCOMPARE(ended.status, status);
        }
        QVERIFY2(isInTime(ended, 2), qPrintable(QString::number(ended.seconds)));
        QVERIFY2(ended.mostMemory < boundedMemory, qPrintable(QString::number(ended.mostMemory)));
    }

    // The last test: there is no bus after it.
    void busThatDiesIsStatusSevenEverywhere() {
        const auto peer = startPeer("Peer", {"--stop=hang", "--reset=hang"});
        QVERIFY(peer);
        QVERIFY(makeBusy(*peer, "Peer"));
        const auto connections = [] {
            const QStringList names = QDBusConnection::sessionBus().interface()->registeredServiceNames();
            return names.filter(QRegularExpression("^:")).size();
        };
        const int before = connections();
        std::vector<std::unique_ptr<QProcess>> runs;
        for (const QStringList& line :
             {QStringList{"call", "Peer", "block", "--timeout", "0"}, QStringList{"wait", "e"}, QStringList{"watch"},
              QStringList{"wait", "--gone", "Peer", "--timeout", "60"}, QStringList{"publish", "--json", "-"},
              QStringList{"loglevel", "6", "--timeout", "60"}}) {
            runs.push_back(std::make_unique<QProcess>());
            runs.back()->start(bustest::program("velctl"), line);
            QVERIFY(runs.back()->waitForStarted());
        }
        QTRY_COMPARE(connections(), before + int(runs.size()));
        bustest::bus().stop();
        for (const auto& run : runs) {
            QVERIFY(run->waitForFinished(60000));
            QVERIFY2(run->exitCode() == 7, qPrintable(run->arguments().join(' ')));
            QVERIFY(!run->readAllStandardError().isEmpty());
        }
    }
};

VEL_TEST_MAIN(VelctlHostileTest)
#include "VelctlHostileTest.moc"
