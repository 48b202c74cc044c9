// Signals of the operating system that the event loop tells of.
#include "module/VelUnixSignals.h"

#include <QEventLoop>
#include <QObject>
#include <QTest>
#include <QTimer>

#include <csignal>
#include <memory>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

class UnixSignalsTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void aFloodHidesNoOtherSignal() {
        std::vector<int> heard;
        QObject context;
        velOnSignals({SIGUSR1, SIGUSR2}, &context, [&](int number) { heard.push_back(number); });
        for (int count = 0; count < 70000; ++count) // more than a pipe holds
            raise(SIGUSR1);
        raise(SIGUSR2);
        QTRY_VERIFY(!heard.empty());
        QCOMPARE(heard, (std::vector<int>{SIGUSR1, SIGUSR2}));
        raise(SIGUSR1); // comes after the flood as ever
        QTRY_COMPARE(heard.size(), std::size_t(3));
    }

    void aListenerThatWaitsKeepsNothingBack() {
        QObject context;
        QEventLoop loop;
        int heard = 0;
        velOnSignals({SIGUSR1}, &context, [&](int) {
            QTimer::singleShot(20000, &loop, [&] { loop.exit(1); });
            QCOMPARE(loop.exec(), 0); // until all of the others are told
        });
        const auto count = [&](int) {
            if (++heard == 2)
                loop.quit();
        };
        velOnSignals({SIGUSR1}, &context, count);
        velOnSignals({SIGUSR2}, &context, count);
        raise(SIGUSR1);
        raise(SIGUSR2);
        QTRY_COMPARE(heard, 2);
    }

    void everyListenerHearsUntilItsContextEnds() {
        int first = 0;
        int second = 0;
        auto context = std::make_unique<QObject>();
        QObject other;
        velOnSignals({SIGUSR1}, context.get(), [&](int) { ++first; });
        velOnSignals({SIGUSR1}, &other, [&](int) { ++second; });
        raise(SIGUSR1);
        QTRY_COMPARE(second, 1);
        QCOMPARE(first, 1);
        context.reset();
        raise(SIGUSR1);
        QTRY_COMPARE(second, 2);
        QCOMPARE(first, 1);
    }

    void whatIsIgnoredStaysIgnored() {
        std::signal(SIGHUP, SIG_IGN); // as "nohup" does
        std::signal(SIGCHLD, SIG_IGN);
        QObject context;
        velOnSignals({SIGHUP, SIGCHLD}, &context, [](int) {});
        struct sigaction action {};
        QCOMPARE(sigaction(SIGHUP, nullptr, &action), 0);
        QVERIFY(action.sa_handler == SIG_IGN);
        QCOMPARE(sigaction(SIGCHLD, nullptr, &action), 0);
        QVERIFY(action.sa_handler != SIG_IGN);
    }

    void aForkedProcessEndsByItsSignal() {
#ifdef __SANITIZE_THREAD__
        QSKIP("ThreadSanitizer calls no handler in a process forked from one with several threads");
#endif
        int heard = 0;
        QObject context;
        velOnSignals({SIGUSR2}, &context, [&](int) { ++heard; });
        const pid_t child = fork();
        if (child == 0) {
            raise(SIGUSR2);
            _exit(0);
        }
        int status = 0;
        QCOMPARE(waitpid(child, &status, 0), child);
        QVERIFY(WIFSIGNALED(status));
        QCOMPARE(WTERMSIG(status), SIGUSR2);
        QCoreApplication::processEvents();
        QCOMPARE(heard, 0);
    }
};

QTEST_GUILESS_MAIN(UnixSignalsTest)
#include "UnixSignalsTest.moc"
