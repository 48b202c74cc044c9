// How long a wait may take before what it waits for counts as missing: the one place that says so.
#pragma once

#include <QElapsedTimer>
#include <QString>

#include <functional>

namespace vel::testing {

/// How many times slower than a developer's machine this one is said to run: VEL_TEST_SLOWNESS in the environment, 1
/// where it is no number above 0. An emulator or an instrumented build wants 5 or more.
double slowness();

/// The limit of one wait, which begins with the construction: 20 s, times slowness(). Where more processes want to run
/// than there are processors, up to three times as long, in proportion. It is only reached by a test that fails.
///
/// 20 s are far above what starting a module takes (some 50 ms), and above what a person waits for gladly.
class TimeLimit {
public:
    TimeLimit();

    /// Milliseconds that are left; 0 when the limit has passed.
    int leftMs() const;

    /// "within 20 s": how long it was, for a message.
    QString text() const;

private:
    qint64 limitMs() const;

    QElapsedTimer m_timer;
};

/// Runs the event loop until `isTrue` answers true, or the limit passes: then false. It is asked again when the event loop
/// has done something, so what makes it true must come through the event loop.
///
/// Thread:   the one of the QCoreApplication, which must exist.
[[nodiscard]] bool waitUntil(const std::function<bool()>& isTrue, const TimeLimit& limit = TimeLimit());

} // namespace vel::testing
