// The base class of every module: its presence on the bus, its lifecycle, its events and calls.
#pragma once

#include "events/VelEvent.h"
#include "platform/QtStateMachine.h"
#include "platform/VelExport.h"

#include <QDBusConnection>
#include <QDBusContext>
#include <QDBusMessage>
#include <QDBusPendingCall>
#include <QList>
#include <QMap>
#include <QMutex>
#include <QObject>
#include <QString>
#include <QVariant>

class VelDBusInterface;

namespace vel {
class ModuleInfo;
} // namespace vel

/// The last log level applied by an event: 0 before a module exists, 3 from its construction on, then what each
/// "log_level_changed" brought. For module code; the library itself only asks its loggers. A plain variable: no lock.
extern VEL_EXPORT int moduleLogLevel;

/// True from the moment the module's destructor begins. A plain variable: no lock.
extern VEL_EXPORT bool moduleIsDead;

/// A module's presence on the bus, its lifecycle, its events and calls.
///
/// A module is one process with one object of a class derived from this one:
///
///     int main(int argc, char** argv) {
///         VelApplication application(argc, argv);
///         Tuner tuner; // its constructor calls VelModule("Tuner")
///         return application.exec();
///     }
///
/// What the class does is done in overridden hooks, one for each step of the lifecycle:
///
/// ![Ten states, from CHECK to EXIT, and the twelve transitions between them](docs/lifecycle.svg)
///
/// Thread:   everything here runs on the thread that made the object, which is the one of the event loop, unless its
///           own line "Thread" says otherwise.
/// Errors:   a hook that fails, by false or by an exception, is told in one error line, with what follows; only check()
///           answers false as an answer like any other.
class VEL_EXPORT VelModule : public QObject, protected QDBusContext {
    Q_OBJECT
public:
    /// Puts the module on the bus and starts its lifecycle; the first hook runs from the event loop, never from here.
    ///
    /// `name` is the module's name unless the command line says `--moduleName=NAME`; an empty one becomes "Default".
    /// Only letters, digits and underscores, not beginning with a digit, make a name that other modules can reach;
    /// under any other the module runs its lifecycle but cannot be called. Without a bus it does the same, and when
    /// another process takes the name at the same moment. One error line says each of these.
    ///
    /// Precondition: the VelApplication exists.
    /// Ends the process: with status 1 after "-h", "--help" or "help" on the command line (two lines on standard
    ///                   output, nothing reaches the bus); with status 7 when another process already answers for
    ///                   this name (a warning and an error line are logged).
    explicit VelModule(const QString& name);

    /// Marks the module dead, drops the proxies, leaves the bus and takes the state machine apart.
    ///
    /// Do not:   use QDBusConnection::sessionBus() in this process afterwards, or make another module: Qt keeps handing
    ///           out the connection that is closed here.
    ~VelModule() override;

    /// The command line's `key=value` options, dashes removed from the key, "moduleName" included. An option without
    /// '=' has an empty value; of an option given twice the last one counts.
    QMap<QString, QString> getParameters();

    /// The lifecycle step last entered: "CHECK", "DEPLOY", "INIT", "END_OF_INIT", "RUN", "PRESENTATION_LOADED",
    /// "PRESENTATION_STOP", "STOP" or "EXIT"; empty before the first.
    QString getState();

    /// Asks for this module to be stopped: the module "ApplicationManager" stops itself, every other one asks it with
    /// its method "stopModule", without waiting, and stops itself when there is no such module on the bus. What the
    /// supervisor does with the request, refusing it included, is the supervisor's affair. Has an effect only in RUN
    /// and the presentation states.
    void exit();

    /// Whether the level of the logger called `loggerName` is strictly above `level` (2 for an error line, 3 for a
    /// warning, 5 for info, 6 for debug). False for an unknown logger and before the logger list exists.
    ///
    /// Thread:   any, as far as the platform's logging library allows it.
    bool LogIn(QString loggerName, int level);

    void initDBus(const QString& name); ///< A step of the constructor: do not call it.
    void initAutomate();                ///< A step of the constructor: do not call it.
    void clearAutomate();               ///< A step of the destructor: do not call it.

    /// Whether the module is ready to initialise; runs first.
    ///
    /// Default:  returns true.
    /// Result:   true leads to init(); false, or any exception, to deploy().
    virtual bool check();

    /// Prepares what the module needs; runs once, before init(), only when check() answered false.
    ///
    /// Default:  returns true.
    /// Result:   true leads to init(); false, or any exception, ends the process with status 2, stop() not called.
    /// Do not:   wait here for another module's answer: it may be waiting for this one.
    virtual bool deploy();

    /// Initialises the module; when it has succeeded, the event "end_of_init_NAME" tells everybody.
    ///
    /// Default:  returns true.
    /// Result:   true leads to run(); false, or any exception, ends the process with status 3, stop() not called.
    /// Do not:   call exit() here: nothing but run() and what follows can be stopped.
    virtual bool init();

    /// Starts the module's work; the module then serves events and calls until it is stopped.
    ///
    /// Default:  returns true.
    /// Result:   false, or any exception, makes the final status 4; the module goes on all the same.
    /// Do not:   loop here: return, and let the event loop work.
    virtual bool run();

    /// The presentation has been loaded: the event "presentationLoaded" arrived in RUN or after a presentation stop.
    ///
    /// Default:  does nothing.
    /// Result:   an exception is logged and changes nothing.
    virtual void presentation_loaded();

    /// The presentation has been stopped: sig_web_stop() was emitted while it was loaded.
    ///
    /// Default:  does nothing.
    /// Result:   an exception is logged and changes nothing.
    virtual void presentation_stop();

    /// Ends the module's work; runs once, last.
    ///
    /// Default:  returns true.
    /// Result:   false, or any exception, makes the final status 5. The process ends in either case.
    virtual bool stop();

Q_SIGNALS:
    // Outcomes of the lifecycle's steps and the requests that drive it. They stay inside the process.
    void sig_check_ok();            ///< check() answered true
    void sig_check_nok();           ///< check() answered false or threw
    void sig_deploy_ok();           ///< deploy() answered true
    void sig_deploy_nok();          ///< deploy() answered false or threw
    void sig_init_ok();             ///< init() answered true
    void sig_init_nok();            ///< init() answered false or threw
    void sig_eoi_sent();            ///< "end_of_init_NAME" is published
    void sig_stop();                ///< the module is to stop
    void sig_stop_appli_done();     ///< stop() is over, whatever came of it
    void sig_presentation_loaded(); ///< "presentationLoaded" arrived
    /// Emit it, or call stopWebclientEvent(), to leave the presentation: nothing else does.
    void sig_web_stop();
    void sig_exit(); ///< exit() wants "ApplicationManager" to be asked

    // None of these slots is a D-Bus method: only the adaptors that a module attaches to itself are exported.
public Q_SLOTS:
    /// Asks "ApplicationManager" to stop this module, without waiting; stops it when the request cannot be sent.
    void slot_exit_module();

    /// Handler of "log_level_changed": hands "syslog_facility" (text) and "syslog_level" (int, a syslog priority; 0
    /// when missing or no number) to the logging library and sets moduleLogLevel.
    void loggerChanged(VelEvent event);

    /// Whether a module of that name is on the bus now. Makes a temporary proxy each time, so it costs round trips.
    bool isModuleConnected(const QString& moduleName);

    /// The module's side of a save or a restore; not subscribed by the library: connect it to the supervisor's event.
    ///
    /// When "ModulesPidsList" (text) contains this module's name: with "Save" true, runs preSaveForSaveRestore() in
    /// the critical section; publishes "stop_save_restore_OK" with "ModuleName"; when that is certain to be on the
    /// bus freezes the whole process with SIGSTOP, until another process sends SIGCONT. Otherwise does nothing.
    ///
    /// Errors:   what the hook throws leaves the slot: the section is free then, nothing is published, nothing stops.
    /// Do not:   hold the critical section on this thread when the event arrives.
    void stopForSaveRestore(VelEvent event);

    /// Saves what a save must find on disk; runs inside the critical section, right before the process freezes.
    ///
    /// Default:  logs a debug line.
    virtual void preSaveForSaveRestore();

    /// The last step of a restore; not subscribed by the library. When "modules" (text) contains this module's name,
    /// runs postRestoreForSaveRestore(). Otherwise does nothing.
    void postOperationForRestore(VelEvent event);

    /// Takes over restored data.
    ///
    /// Default:  logs a debug line.
    virtual void postRestoreForSaveRestore();

    /// Handler of "reset_data_default": runs restoreDataToDefault(), then publishes "reset_default_done" with
    /// "ModuleName" (text) and "NeedReboot" (bool). When the hook throws, nothing is published.
    void resetToDefault();

    /// Resets the module's data to its defaults.
    ///
    /// Default:  logs a debug line, returns false.
    /// Result:   true when the reset takes effect only after a reboot.
    virtual bool restoreDataToDefault();

    /// Handler of "reset_data_factory": runs restoreDataToFactory(), then publishes "reset_factory_done" with
    /// "ModuleName" (text). When the hook throws, nothing is published.
    void resetToFactory();

    /// Resets the module's data to the factory state.
    ///
    /// Default:  logs a debug line.
    virtual void restoreDataToFactory();

    /// Enters the module's critical section, in which its data must not be saved; waits while another thread is in
    /// it.
    ///
    /// Thread:   any of the module.
    /// Do not:   enter it twice on one thread: the second entry waits for ever.
    void beginCriticalSection();

    /// Leaves the critical section. A thread that is not in it changes nothing.
    ///
    /// Thread:   the one that entered.
    void endCriticalSection();

    /// The module's name; it does not change after construction.
    const QString& getModuleName() const;

    /// Publishes an event: a D-Bus signal that every module subscribed to its name hears, this one included.
    ///
    /// Waits for nobody; delivery, also to this module's own slots, always comes later, from the event loop.
    ///
    /// Thread:   any.
    /// Result:   true when the event was queued for sending; false, and nothing reaches the bus, when its name is no
    ///           valid member name, an argument has no D-Bus form, it is too large for the bus (an array above 64 MiB,
    ///           a message above 128 MiB), this module's name is not reachable, or there is no bus. One error line
    ///           says which, with the path to the argument; that there is no bus is said once.
    bool notifyEvent(const VelEvent& evt) const;

    /// The same for an event of that name, with an empty context.
    bool notifyEvent(const QString& evtName, QVariantMap args = QVariantMap()) const;

    /// Connects `slotSignature` (from SLOT(), taking a VelEvent or nothing) of `receiver` to every module's events of
    /// that name, until it is unsubscribed or `receiver` is destroyed; the empty name means every event. The same
    /// subscription made twice is one. It is in force when the bus has taken it, which the return does not wait for:
    /// before anything that this module sends later, "end_of_init_NAME" for one, but what another process publishes
    /// at the same moment may still be missed.
    ///
    /// Result:   false when receiver or slot is null or unknown, the name is no valid member name, or there is no
    ///           bus; one error line says which.
    bool subscribeEvent(const VelEvent& evt, QObject* receiver, const char* slotSignature) const;

    /// The same for the events called `evtName`.
    bool subscribeEvent(const QString& evtName, QObject* receiver, const char* slotSignature) const;

    /// Removes a subscription that was made with this module's own service and path, by QDBusConnection::connect().
    /// It does not remove one that subscribeEvent() made: use the overload with the name alone for that.
    ///
    /// Result:   true when there was such a subscription.
    bool unsubscribeEvent(const VelEvent& evt, QObject* receiver, const char* slotSignature) const;

    /// The same for the service and path of the module called `moduleName`.
    bool unsubscribeEvent(const QString& moduleName, const QString& evtName, QObject* receiver,
                          const char* slotSignature) const;

    /// Removes the subscription that subscribeEvent() made with the same three values.
    ///
    /// Result:   true when there was one; false, in all three overloads, is told in one error line.
    bool unsubscribeEvent(const QString& evtName, QObject* receiver, const char* slotSignature) const;

    /// Calls a method of another module and waits for its answer, at most 25 s (the bus library's default limit). The
    /// event loop does not run meanwhile.
    ///
    /// The first call to a module makes its proxy, which is kept for the life of this object.
    ///
    /// Result:   the reply, always a method return.
    /// Errors:   throws a QString: "Invalid interface: is module 'NAME' started ?", the error reply's text, or why
    ///           the call could not be made; a warning is logged.
    QDBusMessage syncRemoteCall(const QString& moduleName, const QString& methodName,
                                const QList<QVariant>& args = QList<QVariant>());

    /// Calls a method of another module and returns the pending call at once.
    ///
    /// Errors:   throws a QString when it is known at once that the call cannot be made.
    QDBusPendingCall asyncRemoteCall(const QString& moduleName, const QString& methodName,
                                     const QList<QVariant>& args = QList<QVariant>());

    /// Calls a method of another module; its reply goes to the slot `callback` of `receiver` (which takes the reply's
    /// values), an error to its slot `errCallback` (which takes a QDBusError).
    ///
    /// Result:   true when the call was queued for sending, or when an argument has no D-Bus form: `errCallback` is told
    ///           then. False when it cannot be a call at all (its name, its size); one error line says why.
    /// Errors:   throws a QString when the module is not there.
    bool remoteCallWithCallback(const QString& moduleName, const QString& methodName, QObject* receiver,
                                const char* callback, const char* errCallback,
                                const QList<QVariant>& args = QList<QVariant>());

    const QString& getDbusObjectName() const;    ///< This module's object path.
    const QString& getDbusServiceName() const;   ///< This module's service name.
    const QString& getDbusInterfaceName() const; ///< The interface of all modules.

    /// Any module's bus names; always true, and touches no bus.
    bool getDBusServiceInfos(const QString& moduleName, QString& dbusObject, QString& dbusService,
                             QString& dbusInterface) const;

    /// @name Entry actions of the lifecycle's states
    /// @{

    /// Invoked by the state machine: do not call it.
    void slot_exit();
    void slot_stop();
    void slot_check();
    void slot_deploy();
    void slot_init();
    void slot_run();
    void slot_presentation_loaded();
    void slot_presentation_stop();
    void slot_end_of_init();
    /// @}

    /// Handler of "stop_module_NAME": leads to STOP from RUN and the presentation states.
    void stopModuleEvent(VelEvent evt);

    /// Leads from PRESENTATION_LOADED to PRESENTATION_STOP; the library subscribes it to nothing.
    void stopWebclientEvent(VelEvent evt);

    /// Handler of "presentationLoaded": leads to PRESENTATION_LOADED from RUN and PRESENTATION_STOP.
    void presentationLoadedEvent(VelEvent evt);

    /// Handler of "mtrace_on": switches the C library's allocation tracing on when the argument "module" is exactly this
    /// module's name. On glibc 2.34 and later it produces something only in a process started with
    /// LD_PRELOAD=libc_malloc_debug.so.0 and with MALLOC_TRACE naming the trace file.
    void slot_mtrace(VelEvent evt);

    /// Handler of "mtrace_off": switches the tracing off, on the same condition.
    void slot_muntrace(VelEvent evt);

protected:
    QObject* m_ownedObject = nullptr;                  ///< for the subclass: deleted with the module
    QDBusConnection m_connection;                      ///< the session bus
    QMap<QString, QString> m_parameters;               ///< the command line's options
    qint32 m_exitCode;                                 ///< the status the process will end with
    QMutex m_criticalSectionMutex;                     ///< held by the thread that is in the critical section
    QString m_moduleName;                              ///< from which all bus names derive
    QString m_dbusObjectName;                          ///< `/NAME`
    QString m_dbusServiceName;                         ///< `PREFIX.NAMEService`
    QString m_spareName;                               ///< for the subclass: the library never touches it
    QMap<QString, VelDBusInterface*> m_dbusInterfaces; ///< the proxies made so far, by module name
    QString m_stateName;                               ///< what getState() answers
    /// @name The lifecycle's state machine
    /// @{

    /// Made by initAutomate(), taken apart by clearAutomate(): leave it alone.
    automatonZeta::QtStateMachine m_stateMachine;
    automatonZeta::QtState* m_stopState = nullptr;
    automatonZeta::QtState* m_checkState = nullptr;
    automatonZeta::QtState* m_initState = nullptr;
    automatonZeta::QtState* m_deployState = nullptr;
    automatonZeta::QtState* m_endOfInitState = nullptr;
    automatonZeta::QtState* m_runningState = nullptr;
    automatonZeta::QtState* m_runState = nullptr;
    automatonZeta::QtState* m_presentationLoadedState = nullptr;
    automatonZeta::QtState* m_presentationStopState = nullptr;
    automatonZeta::QtFinalState* m_exitState = nullptr;
    /// @}

private:
    friend class VelException; // answers the call that the QDBusContext base holds
    friend class vel::ModuleInfo;
    struct Lifecycle; // the tables of states and transitions
    struct Step;      // one row of the table of steps

    void take(const Step& step);
    bool hookSucceeds(const Step& step);
    // Without a word when they fail: why the library's own subscriptions do has been told at the start.
    bool subscribe(const QString& eventName, QObject* receiver, const char* slotSignature) const;
    bool unsubscribe(const QString& eventName, QObject* receiver, const char* slotSignature) const;

    VelDBusInterface& proxyTo(const QString& moduleName);
    VelDBusInterface& validProxyTo(const QString& moduleName);

    vel::ModuleInfo* m_info = nullptr; ///< null in a build without it

    Q_DISABLE_COPY(VelModule)
};
