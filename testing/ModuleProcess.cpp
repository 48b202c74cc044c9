// A module's program: its start, its end, and who it is on the bus.
#include "testing/ModuleProcess.h"

#include "testing/Recorder.h"

namespace vel::testing {

ModuleProcess::ModuleProcess(const QString& name, const QString& program) : m_name(name), m_program(program) {
    if (!processEnvironment().contains(QStringLiteral("VEL_LOG_LEVEL")))
        setVariable(QStringLiteral("VEL_LOG_LEVEL"), QStringLiteral("6"));
}

Result ModuleProcess::begin(const QStringList& options) {
    return run(m_program, QStringList(QStringLiteral("--moduleName=") + m_name) + options);
}

Result ModuleProcess::bringUp(const QStringList& options) {
    Recorder life({published(QStringLiteral("end_of_init_") + m_name).from(m_name)});
    if (!life.isListening())
        return life.isListening();
    if (const Result begun = begin(options); !begun)
        return begun;
    const TimeLimit limit;
    const auto hasEnded = [this] { return state() == QProcess::NotRunning; };
    const bool isDecided = waitUntil([&] { return life.hasNext() || hasEnded(); }, limit);
    if (life.hasNext()) // run() is entered in the same turn of its event loop
        return waitUntilHandled();
    const QString how = !isDecided                             ? QStringLiteral("is not initialised ") + limit.text()
                        : exitStatus() == QProcess::NormalExit ? QStringLiteral("ended with status %1").arg(exitCode())
                                                               : QStringLiteral("was ended by a signal");
    return Result::failure(QStringLiteral("'%1' does not come up: it %2").arg(m_name, how) + lastLines());
}

Result ModuleProcess::waitForState(const QString& state) {
    const TimeLimit limit;
    for (;;) {
        const Answer answer = m_peer.state(m_name);
        if (answer.is({state}))
            return Result::success();
        if (!answer || limit.leftMs() == 0)
            return Result::failure(QStringLiteral("expected: '%1' in the state %2 %3\nbut it:   %4")
                                       .arg(m_name, state, limit.text(), answer.text()));
    }
}

Result ModuleProcess::stop(int status) {
    if (const Result asked = m_peer.publish(m_name, QStringLiteral("stop_module_") + m_name); !asked)
        return asked;
    return waitForEnd(status);
}

} // namespace vel::testing
