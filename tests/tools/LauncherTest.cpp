// vel-launcher: what it forks is what an executed process would be, whatever happens to the launcher meanwhile.
#include "process/LauncherProcess.h"
#include "process/ProcessInfo.h"
#include "testing/BuiltProgram.h"

#include <QDir>
#include <QRandomGenerator>
#include <QTemporaryFile>
#include <QTest>

#include <csignal>
#include <fcntl.h>
#include <map>
#include <poll.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

using launch::Reply;

namespace {

const QByteArray library = VEL_LIBRARY;

// Plays the supervisor: asks for processes, starts the launcher anew when it has ended, asks again for what was lost.
class Starter {
public:
    explicit Starter(std::vector<std::string> libraries = {library.toStdString()})
        : m_launcher({builtProgram("vel-launcher").toStdString(), std::move(libraries), {}}) {}

    bool start() { return m_launcher.start(); }
    launch::LauncherProcess& launcher() { return m_launcher; }

    launch::Request request(const std::vector<std::string>& arguments) {
        launch::Request request;
        request.id = ++m_lastId;
        request.object = (builtProgram("launched-peer") + ".so").toStdString();
        request.arguments = {builtProgram("launched-peer").toStdString()};
        request.arguments.insert(request.arguments.end(), arguments.cbegin(), arguments.cend());
        request.environment = {"LC_ALL=C.UTF-8", "ZEBRA=last", "DBUS_SESSION_BUS_ADDRESS=unix:path=/nonexistent"};
        request.folder = "/";
        request.input = launch::Descriptor(open("/dev/null", O_RDONLY | O_CLOEXEC));
        request.output = launch::Descriptor(fcntl(m_output.handle(), F_DUPFD_CLOEXEC, 0));
        request.error = launch::Descriptor(fcntl(m_output.handle(), F_DUPFD_CLOEXEC, 0));
        return request;
    }

    // Asks, and waits for the last word about it.
    Reply run(const launch::Request& request) {
        Reply answer;
        answer.kind = Reply::Refused;
        const bool isSent = m_launcher.send(request) == 0; // else it has ended, and has said why
        bool hasEnded = false;
        for (;;) {
            pollfd wait{m_launcher.socket(), POLLIN, 0};
            if (poll(&wait, 1, 10000) <= 0)
                return answer;
            while (m_launcher.next(answer, hasEnded)) {
                if (answer.kind == Reply::Refused || (isSent && answer.kind == Reply::Taken))
                    return answer;
            }
            if (hasEnded)
                return answer;
        }
    }

    // Waits until a process waits for the next request.
    bool waitForSpare() {
        Reply reply;
        bool hasEnded = false;
        while (m_launcher.spare() == 0 && !hasEnded) {
            pollfd wait{m_launcher.socket(), POLLIN, 0};
            if (poll(&wait, 1, 10000) <= 0)
                return false;
            if (!m_launcher.next(reply, hasEnded) && hasEnded)
                return false;
        }
        return !hasEnded;
    }

    // The status as waitpid() gives it; -1 when there is no such child.
    static int statusOf(pid_t process) {
        int status = -1;
        return waitpid(process, &status, 0) == process ? status : -1;
    }

    int outputFile() const { return m_output.handle(); }

    QByteArray output() {
        m_output.seek(0);
        return m_output.readAll();
    }

private:
    struct Output : QTemporaryFile {
        Output() { open(); }
    } m_output;
    launch::LauncherProcess m_launcher;
    std::uint32_t m_lastId = 0;
};

} // namespace

class LauncherTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { QVERIFY(launch::becomeSubreaper()); }

    // Whatever a test did, nobody goes on: this would wait for ever.
    void cleanup() {
        while (waitpid(-1, nullptr, 0) > 0)
            ;
    }

    void forkedProcessFindsWhatAnExecutedOneFinds() {
        Starter starter;
        QVERIFY(starter.start());
        const launch::Request request = starter.request({"report", "--two words", ""});
        const Reply reply = starter.run(request);
        QCOMPARE(reply.kind, Reply::Taken);
        const int status = Starter::statusOf(reply.process);
        QVERIFY2(status == 42 << 8, starter.output().constData());
        const QByteArray forked = starter.output();

        Starter other; // its output alone is used
        const launch::Request same = other.request({});
        const pid_t process = fork();
        if (process == 0) {
            setpgid(0, 0);
            std::vector<char*> arguments;
            for (const std::string& text : request.arguments)
                arguments.push_back(const_cast<char*>(text.c_str()));
            arguments.push_back(nullptr);
            std::vector<char*> variables;
            for (const std::string& text : request.environment)
                variables.push_back(const_cast<char*>(text.c_str()));
            variables.push_back(nullptr);
            dup2(same.input.number(), 0);
            dup2(starter.outputFile(), 1); // the same file: the same inode
            dup2(starter.outputFile(), 2);
            if (chdir("/") != 0 || ftruncate(1, 0) != 0 || lseek(1, 0, SEEK_SET) != 0)
                _exit(1);
            close_range(3, ~0u, 0);
            execve(arguments[0], arguments.data(), variables.data());
            _exit(1);
        }
        QCOMPARE(Starter::statusOf(process), 42 << 8);
        QVERIFY(forked.contains("argument --two words"));
        QCOMPARE(QString::fromUtf8(forked).split('\n'), QString::fromUtf8(starter.output()).split('\n'));
    }

    void endIsTheStartersToSee() {
        Starter starter;
        QVERIFY(starter.start());
        const Reply reply = starter.run(starter.request({"abort"}));
        QCOMPARE(reply.kind, Reply::Taken);
        QCOMPARE(Starter::statusOf(reply.process) & 0x7f, SIGABRT);
    }

    void hashSeedsDiffer() {
        Starter starter;
        QVERIFY(starter.start());
        for (int round = 0; round < 2; ++round) {
            const Reply reply = starter.run(starter.request({"seed"}));
            QCOMPARE(Starter::statusOf(reply.process), 0);
        }
        const QList<QByteArray> seeds = starter.output().trimmed().split('\n');
        QCOMPARE(seeds.size(), 2);
        QVERIFY(seeds[0] != seeds[1]);
    }

    void whatCannotBeStartedIsTold_data() {
        QTest::addColumn<QByteArray>("object");
        QTest::addColumn<QByteArray>("folder");
        QTest::addColumn<QByteArray>("reason");
        QTest::newRow("no such object") << QByteArray("/nonexistent.so") << QByteArray("/")
                                        << QByteArray("/nonexistent.so");
        QTest::newRow("not a module") << library << QByteArray("/") << QByteArray("velModuleMain");
        QTest::newRow("no such folder") << QByteArray() << QByteArray("/nonexistent")
                                        << QByteArray("cannot enter '/nonexistent'");
    }
    void whatCannotBeStartedIsTold() {
        QFETCH(QByteArray, object);
        QFETCH(QByteArray, folder);
        QFETCH(QByteArray, reason);
        Starter starter;
        QVERIFY(starter.start());
        launch::Request request = starter.request({"report"});
        if (!object.isEmpty())
            request.object = object.toStdString();
        request.folder = folder.toStdString();
        const Reply taken = starter.run(request);
        QCOMPARE(taken.kind, Reply::Taken);
        QCOMPARE(Starter::statusOf(taken.process), 127 << 8);
        Reply failed;
        bool hasEnded = false;
        do
            QVERIFY(starter.launcher().next(failed, hasEnded));
        while (failed.kind == Reply::Ready);
        QCOMPARE(failed.kind, Reply::Failed);
        QCOMPARE(failed.id, request.id);
        QVERIFY2(QByteArray(failed.reason).contains(reason), failed.reason);
    }

    void launcherRefusesWhatItCannotForkWith() {
        Starter starter({library.toStdString(), VEL_THREADED_LIBRARY});
        QVERIFY(starter.start());
        const Reply reply = starter.run(starter.request({"report"}));
        QCOMPARE(reply.kind, Reply::Refused);
        QVERIFY2(QByteArray(reply.reason).contains("starts a thread"), reply.reason);
        QVERIFY2(QByteArray(reply.reason).contains("threaded"), reply.reason);
    }

    void garbageEndsOnlyTheSpare() {
        Starter starter;
        QVERIFY(starter.start());
        QCOMPARE(::send(starter.launcher().socket(), "no request", 10, MSG_NOSIGNAL), ssize_t(10));
        const Reply reply = starter.run(starter.request({"seed"}));
        QCOMPARE(reply.kind, Reply::Taken);
        QCOMPARE(Starter::statusOf(reply.process), 0);
    }

    // Each request is carried out once, and nothing is left, whoever is killed at whatever moment.
    void launcherMayDieAtAnyMoment() {
        constexpr int rounds = 200;
        auto* random = QRandomGenerator::global();
        for (int round = 0; round < rounds; ++round) {
            Starter starter;
            QVERIFY(starter.start());
            std::map<std::uint32_t, launch::Request> wanted;
            std::map<std::uint32_t, pid_t> taken;
            const auto note = [&](const Reply& reply) {
                if (reply.kind == Reply::Taken)
                    QVERIFY(taken.emplace(reply.id, reply.process).second); // never twice
            };
            for (int number = 0; number < 4; ++number) {
                launch::Request request = starter.request({"seed"});
                QCOMPARE(starter.launcher().send(request), 0);
                const std::uint32_t id = request.id;
                wanted.emplace(id, std::move(request));
            }
            const int moment = random->bounded(12000); // µs; four starts take about as long
            for (int passed = 0; passed < moment; passed += 200) {
                pollfd wait{starter.launcher().socket(), POLLIN, 0};
                timespec step{0, 200000};
                if (ppoll(&wait, 1, &step, nullptr) > 0) {
                    Reply reply;
                    bool hasEnded = false;
                    while (starter.launcher().next(reply, hasEnded))
                        note(reply);
                    QVERIFY(!hasEnded);
                }
            }
            const pid_t spare = starter.launcher().spare();
            const pid_t victim = round % 2 == 0 && spare > 0 ? spare : starter.launcher().processId();
            kill(victim, SIGKILL);
            std::set<std::uint32_t> lost;
            for (const Reply& reply : starter.launcher().stop(lost))
                note(reply);
            QCOMPARE(taken.size() + lost.size(), wanted.size());
            QVERIFY(lost.empty() || starter.start());
            for (const std::uint32_t id : lost) {
                QVERIFY(taken.count(id) == 0);
                note(starter.run(wanted.at(id)));
            }
            int written = 0; // by all but the one that may have been killed when it was a module already
            for (const auto& [id, process] : taken) {
                const int status = Starter::statusOf(process);
                QVERIFY(status == 0 || (status == SIGKILL && process == victim));
                written += status == 0;
            }
            lost.clear();
            starter.launcher().stop(lost);
            const int lines = starter.output().count('\n');
            QVERIFY(lines >= written && lines <= 4);
        }
    }

    void manyForksLeaveNothingBehind() {
        const int forks =
            qEnvironmentVariableIsSet("VEL_TEST_FORKS") ? qEnvironmentVariableIntValue("VEL_TEST_FORKS") : 300;
        Starter starter;
        QVERIFY(starter.start());
        const auto descriptors = [&] {
            return QDir(QString("/proc/%1/fd").arg(starter.launcher().processId()))
                .entryList(QDir::NoDotAndDotDot | QDir::AllEntries | QDir::System)
                .size();
        };
        qint64 memory = 0;
        int files = 0;
        for (int number = 0; number < forks; ++number) {
            const Reply reply = starter.run(starter.request({"seed"}));
            QCOMPARE(reply.kind, Reply::Taken);
            QCOMPARE(Starter::statusOf(reply.process), 0);
            QVERIFY(starter.waitForSpare());
            if (number == forks / 3) {
                memory = processInfo(starter.launcher().processId()).memory;
                files = descriptors();
            }
        }
        QCOMPARE(descriptors(), files);
        QVERIFY(processInfo(starter.launcher().processId()).memory <= memory + 64 * 1024);
        QVERIFY(childrenOf(getpid()).size() <= 2); // launcher and spare
    }
};

QTEST_GUILESS_MAIN(LauncherTest)

#include "LauncherTest.moc"
