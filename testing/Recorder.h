// Hears what passes on the bus, in the bus's own order, and holds it against what a test expects.
#pragma once

#include "testing/Expectation.h"
#include "testing/Result.h"

#include <QList>

#include <memory>

namespace vel::testing {

class Connection;

/// Records events and calls, of all modules, in the one order in which the bus carried them.
///
///     Recorder heard({published("brightness_changed"), called("Tuner")});
///     ...
///     VEL_VERIFY(heard.next(published("brightness_changed").with("percent", 40)));
///
/// It is the bus's monitor. When the constructor returns, the bus has confirmed that: nothing that is sent from then on
/// is missed. An expectation takes from the record what it has looked at, so the next one goes on behind it.
///
/// A wait ends as soon as it is decided. What never comes is decided by the time limit of <testing/TimeLimit.h>.
///
/// Errors:   a Result says what was expected, and what came instead.
/// Thread:   the one of the QCoreApplication; its event loop runs during a wait. Between waits nothing is read: the bus
///           keeps it.
class Recorder {
public:
    /// Records what meets one of these; everything when there is none, the events of the lifecycle included.
    explicit Recorder(const QList<Expectation>& scope = {});
    ~Recorder();

    /// False, with the reason, when the bus refuses a monitor or there is no bus. Every expectation says it, too.
    const Result& isListening() const { return m_listens; }

    /// Whether something has come that no expectation has taken yet. Waits for nothing.
    bool hasNext();

    /// Waits for what comes next: it must be this.
    Result next(const Expectation& expected);

    /// Waits for all of these, one after the other; anything may come between them.
    Result inOrder(const QList<Expectation>& expected);

    /// Waits for `end`; `unwanted` must not come before.
    Result noneUntil(const Expectation& unwanted, const Expectation& end);

    /// Nothing more has passed until now. Let the module handle first what it was sent, by Peer::waitForModule() or
    /// ModuleProcess::waitUntilHandled(): what it publishes in doing so has passed then.
    Result nothingMore();

    /// Forgets what has passed until now.
    Result skipAll();

    /// All that an expectation has not taken yet, as far as it was read.
    QList<Passed> record() const { return m_record; }

private:
    bool read();
    Result readAll();

    const QList<Expectation> m_scope;
    std::unique_ptr<Connection> m_monitor;
    std::unique_ptr<Connection> m_marking;
    Result m_listens = Result::success();
    QList<Passed> m_record;
    int m_marksSent = 0;
    int m_marksSeen = 0;
};

} // namespace vel::testing
