// Save and restore, the module's side: pre-save, answer, freeze; and the step after a restore.
//
// How a freeze works. The supervisor names the modules concerned; each pre-saves inside its critical section, so that
// no worker thread is half-way through its data, then publishes "stop_save_restore_OK" and stops its own process with
// SIGSTOP. It runs no code at all until another process sends SIGCONT, and goes on where it was.
//
// What must always hold: the answer is on the bus before the process stops. Sending only queues a message, which
// leaves from Qt's D-Bus thread; that thread would freeze with the rest. A round trip to the bus daemon on the same
// connection settles it: its answer comes after the daemon has taken everything sent before the question. Waiting for
// the output queue to drain was rejected because Qt offers no way to see it.
#include "module/VelModule.h"

#include "log/GuardedLog.h"

#include <QCoreApplication>
#include <QProcess>

namespace {

bool namesModule(const QString& list, const QString& moduleName) {
    return list.indexOf(moduleName, 0, Qt::CaseSensitive) != -1;
}

// Leaves the section on every way out, a throwing hook's too.
class CriticalSection {
public:
    explicit CriticalSection(VelModule& module) : m_module(module) { m_module.beginCriticalSection(); }
    ~CriticalSection() { m_module.endCriticalSection(); }

private:
    VelModule& m_module;
    Q_DISABLE_COPY(CriticalSection)
};

void waitUntilBusHasEverything(const QDBusConnection& connection) {
    connection.call(QDBusMessage::createMethodCall(QStringLiteral("org.freedesktop.DBus"),
                                                   QStringLiteral("/org/freedesktop/DBus"),
                                                   QStringLiteral("org.freedesktop.DBus"), QStringLiteral("GetId")));
}

} // namespace

void VelModule::stopForSaveRestore(VelEvent event) {
    const QString list = event.getArgument(QStringLiteral("ModulesPidsList")).toString();
    const bool save = event.getArgument(QStringLiteral("Save")).toBool();
    if (!namesModule(list, m_moduleName))
        return;

    if (save) {
        vel::logDebug([] { return QStringLiteral("Preparing for Save operations"); });
        const CriticalSection section(*this);
        vel::logDebug([] { return QStringLiteral("Pre-saving data"); });
        preSaveForSaveRestore();
        vel::logDebug([] { return QStringLiteral("Data pre-saved"); });
    }

    VelEvent answer(QStringLiteral("stop_save_restore_OK"), QVariantMap(), QStringLiteral(""));
    answer.addArgument(m_moduleName, QStringLiteral("ModuleName"));
    vel::logDebug([] { return QStringLiteral("Entering pause mode..."); });
    QStringList command =
        QProcess::splitCommand(QStringLiteral("kill -SIGSTOP %1").arg(QCoreApplication::applicationPid()));
    notifyEvent(answer);
    waitUntilBusHasEverything(m_connection);
    QProcess::execute(command.takeFirst(), command);
    vel::logDebug([] { return QStringLiteral("...Leaving pause mode"); });
}

void VelModule::preSaveForSaveRestore() {
    vel::logDebug([] { return QStringLiteral("Presaving for Save/Restore"); });
}

void VelModule::postOperationForRestore(VelEvent event) {
    if (namesModule(event.getArgument(QStringLiteral("modules")).toString(), m_moduleName))
        postRestoreForSaveRestore();
}

void VelModule::postRestoreForSaveRestore() {
    vel::logDebug([] { return QStringLiteral("Postrestoring for Save/Restore"); });
}
