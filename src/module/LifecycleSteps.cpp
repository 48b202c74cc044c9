// The lifecycle's steps: the entry actions of the states, as a table of what each calls and what follows.
#include "module/VelModule.h"

#include "bus/BusNames.h"
#include "errors/ThrownText.h"
#include "errors/VelException.h"
#include "errors/VelExitCodes.h"
#include "events/VelDBusTypes.h"
#include "log/GuardedLog.h"
#include "log/SafeText.h"
#include "module/StopRequest.h"

#include <QCoreApplication>
#include <QDBusMetaType>

#include <cerrno>
#include <cstring>
#include <cxxabi.h>
#include <exception>
#include <mcheck.h>
#include <memory>
#include <sys/resource.h>

namespace {

using Signal = void (VelModule::*)();

constexpr Signal nothing = nullptr;
constexpr int statusStays = -1;

bool registerStringMapAndInit(VelModule& module) {
    qRegisterMetaType<QMapQStringQString>("QMapQStringQString");
    qDBusRegisterMetaType<QMapQStringQString>();
    return module.init();
}

// A core file of a module that is being stopped says nothing: all but one byte of it is switched off.
void limitCoreFile() {
    const rlimit oneByte{1, 1};
    if (setrlimit(RLIMIT_CORE, &oneByte) == 0)
        return;
    const int reason = errno;
    vel::logError([&] { return QStringLiteral("setrlimit: %1").arg(QString::fromLocal8Bit(strerror(reason))); });
}

} // namespace

struct VelModule::Step {
    const char* state;                ///< the name recorded
    const char* hook;                 ///< the hook's name in log lines
    bool (*call)(VelModule&);         ///< the hook
    Signal onSuccess;                 ///< what it leads to
    Signal onFailure;                 ///< false, or an exception
    int statusOnFailure;              ///< the pending exit status then
    const char* consequence;          ///< of a failure, in words; %1 is the status
    bool stdExceptionIsNamed = false; ///< a std::exception's text goes into a debug line; else it is unknown
    bool mayAnswerFalse = false;      ///< an answer like any other, and no failure

    static const Step check, deploy, init, run, presentationLoaded, presentationStop, stop;
};

// clang-format off
using Module = VelModule;
const Module::Step Module::Step::check{
    "CHECK", "check", [](Module& m) { return m.check(); },
    &Module::sig_check_ok, &Module::sig_check_nok, statusStays, "deploy() follows", false, true};
const Module::Step Module::Step::deploy{
    "DEPLOY", "deploy", [](Module& m) { return m.deploy(); },
    &Module::sig_deploy_ok, &Module::sig_deploy_nok, VelDeployError, "the module ends with %1"};
const Module::Step Module::Step::init{
    "INIT", "init", registerStringMapAndInit,
    &Module::sig_init_ok, &Module::sig_init_nok, VelInitError, "the module ends with %1", true};
const Module::Step Module::Step::run{
    "RUN", "run", [](Module& m) { return m.run(); },
    nothing, nothing, VelRunError, "the module goes on and will end with %1", true};
const Module::Step Module::Step::presentationLoaded{
    "PRESENTATION_LOADED", "presentation_loaded", [](Module& m) { m.presentation_loaded(); return true; },
    nothing, nothing, statusStays, "the module goes on"};
const Module::Step Module::Step::presentationStop{
    "PRESENTATION_STOP", "presentation_stop", [](Module& m) { m.presentation_stop(); return true; },
    nothing, nothing, statusStays, "the module goes on"};
const Module::Step Module::Step::stop{
    "STOP", "stop", [](Module& m) { return m.stop(); },
    &Module::sig_stop_appli_done, &Module::sig_stop_appli_done, VelStopError, "the module ends with %1"};
// clang-format on

bool VelModule::hookSucceeds(const Step& step) {
    const QString hook = QString::fromLatin1(step.hook);
    const auto logUnknown = [&hook] {
        vel::logError([&] { return QStringLiteral("FSM Unknown Exception catched in %1 method").arg(hook); });
    };
    QString reason = QStringLiteral("it returned false");
    try {
        if (step.call(*this))
            return true;
        if (step.mayAnswerFalse)
            return false;
    } catch (abi::__forced_unwind&) {
        throw; // the thread is being cancelled: swallowing this would abort the process
    } catch (...) {
        reason = QStringLiteral("it threw ") + vel::describeCurrentException();
        try {
            throw;
        } catch (const QString& text) {
            vel::logError([&] { return QStringLiteral("FSM Exception catched in %1 method : %2").arg(hook, text); });
        } catch (const std::exception& exception) {
            if (step.stdExceptionIsNamed)
                vel::logDebug([&] {
                    return QStringLiteral("FSM Exception catched in %1 method: ").arg(hook) + exception.what();
                });
            else
                logUnknown();
        } catch (VelException* exception) {
            delete exception; // thrown by pointer: nobody else will
            logUnknown();
        } catch (...) {
            logUnknown();
        }
    }
    vel::logError([&] {
        QString consequence = QString::fromLatin1(step.consequence);
        if (step.statusOnFailure != statusStays)
            consequence = consequence.arg(getExitCodeInString(step.statusOnFailure));
        return QStringLiteral("cannot finish %1() of module %2: %3; %4")
            .arg(hook, vel::quoted(m_moduleName), reason, consequence);
    });
    return false;
}

void VelModule::take(const Step& step) {
    m_stateName = QString::fromLatin1(step.state);
    const bool succeeded = hookSucceeds(step);
    if (!succeeded && step.statusOnFailure != statusStays)
        m_exitCode = step.statusOnFailure;
    if (const Signal outcome = succeeded ? step.onSuccess : step.onFailure)
        Q_EMIT(this->*outcome)();
}

void VelModule::slot_check() {
    take(Step::check);
}

void VelModule::slot_deploy() {
    take(Step::deploy);
}

void VelModule::slot_init() {
    take(Step::init);
}

void VelModule::slot_end_of_init() {
    m_stateName = QStringLiteral("END_OF_INIT");
    // A module that nobody can reach has said so when it started.
    const QString event = QStringLiteral("end_of_init_") + m_moduleName;
    if (m_connection.isConnected() && vel::bus::isValidMemberName(event) &&
        vel::bus::isValidObjectPath(m_dbusObjectName))
        notifyEvent(event, QVariantMap());
    Q_EMIT sig_eoi_sent();
}

void VelModule::slot_run() {
    take(Step::run);
    if (vel::stopWasAskedFor())
        Q_EMIT sig_stop();
}

void VelModule::slot_presentation_loaded() {
    take(Step::presentationLoaded);
}

void VelModule::slot_presentation_stop() {
    take(Step::presentationStop);
}

void VelModule::slot_stop() {
    limitCoreFile();
    take(Step::stop);
}

void VelModule::slot_exit() {
    m_stateName = QStringLiteral("EXIT");
    vel::logDebug([&] { return QStringLiteral("Exit with code %1").arg(getExitCodeInString(m_exitCode)); });
    muntrace();
    QCoreApplication::exit(m_exitCode);
}

bool VelModule::check() {
    return true;
}

bool VelModule::deploy() {
    return true;
}

bool VelModule::init() {
    return true;
}

bool VelModule::run() {
    return true;
}

void VelModule::presentation_loaded() {}

void VelModule::presentation_stop() {}

bool VelModule::stop() {
    return true;
}
