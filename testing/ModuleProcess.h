// The module under test, in a process of its own.
#pragma once

#include "testing/ChildProcess.h"
#include "testing/Peer.h"

namespace vel::testing {

/// A program that is one module, under a name that the test chooses.
///
///     ModuleProcess dimmer("Dimmer", DIMMER_PROGRAM);
///     VEL_VERIFY(dimmer.bringUp({"--percent=30"}));
///     VEL_VERIFY(dimmer.call("brightness").is({30}));
///     VEL_VERIFY(dimmer.stop());
///
/// Its log lines from level 6 (info) on are among lines(), unless VEL_LOG_LEVEL in the environment says otherwise. Its end
/// is that of ChildProcess: it never outlives the test.
///
/// Thread:   the one of the QCoreApplication; its event loop runs during a wait, unless ChildProcess says otherwise.
class ModuleProcess : public ChildProcess {
public:
    ModuleProcess(const QString& name, const QString& program);

    /// Starts the program and goes on at once: for one that is not to come up, whose status waitForEnd() tells.
    Result begin(const QStringList& options = {});

    /// Starts the program and waits until run() has returned: the module is in RUN and serves calls and events.
    ///
    /// Errors:   it ended before, and with which status; the time limit passed. The message shows its last lines.
    Result bringUp(const QStringList& options = {});

    /// Waits until the module has handled everything that was sent to it before, see Peer::waitForModule().
    Result waitUntilHandled() { return m_peer.waitForModule(m_name); }

    /// Waits until the module is in that step of its lifecycle: "RUN", "PRESENTATION_RUNNING". It is asked again as soon
    /// as it has answered, so nothing but the step is waited for.
    ///
    /// Errors:   it does not answer, or the time limit passed. The message shows the step in which it is.
    Result waitForState(const QString& state);

    /// Calls a method of the module, see Peer::call().
    Answer call(const QString& method, const QVariantList& values = {}) { return m_peer.call(m_name, method, values); }

    /// Asks the module to stop, by the event for it, and waits for its end with that status; 1 is a normal one.
    Result stop(int status = 1);

    /// The module's name on the bus.
    const QString& name() const { return m_name; }

private:
    const QString m_name;
    const QString m_program;
    Peer m_peer;
};

} // namespace vel::testing
