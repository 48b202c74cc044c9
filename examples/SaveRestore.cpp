// The supervisor's side of a save or a restore.
//
// A module announces that it is ready and stops itself after that. A SIGCONT that came in between would be lost, and
// the module would stop for good: resume only what is stopped. Only a module's parent process is told of the stop;
// anybody else reads it in /proc.
#include "SaveRestore.h"

#include <VelException>
#include <VelLogger>
#include <VelModule>

#include <QDBusConnectionInterface>
#include <QFile>

#include <csignal>

namespace {

bool isStopped(uint process) {
    QFile file(QString("/proc/%1/stat").arg(process)); // "PID (NAME) STATE ...", and the name may hold anything
    if (!file.open(QIODevice::ReadOnly))
        return false;
    const QByteArray stat = file.readAll();
    return stat.mid(stat.lastIndexOf(')') + 2, 1) == "T";
}

uint processOf(const VelModule& supervisor, const QString& module) {
    QString path, service, interface;
    supervisor.getDBusServiceInfos(module, path, service, interface);
    return QDBusConnection::sessionBus().interface()->servicePid(service);
}

} // namespace

void SaveRestore::prepare(const QStringList& modules, Operation operation) {
    m_operation = operation;
    m_processes.clear();
    for (const QString& module : modules) {
        const uint process = processOf(m_supervisor, module);
        if (process == 0)
            throw new VelException(&m_supervisor, VelException::ServiceUnknown, module + " is not on the bus");
        m_processes.insert(module, process);
    }
    m_supervisor.notifyEvent("prepare_save_restore",
                             {{"ModulesPidsList", modules.join(' ')}, {"Save", operation == Save}});
}

void SaveRestore::noteAnswer(VelEvent event) {
    logger("")->info(event.getArgument("ModuleName").toString() + " is ready and stops its process");
}

void SaveRestore::resume() {
    for (auto module = m_processes.cbegin(); module != m_processes.cend(); ++module) {
        if (!isStopped(module.value()))
            throw new VelException(&m_supervisor, VelException::AccessDenied, module.key() + " is not stopped yet");
    }
    for (const uint process : qAsConst(m_processes))
        kill(static_cast<pid_t>(process), SIGCONT);
    if (m_operation == Restore)
        m_supervisor.notifyEvent("restore_done", {{"modules", QStringList(m_processes.keys()).join(' ')}});
}
