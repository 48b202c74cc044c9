// Start-up: from the command line to a module that is on the bus and whose lifecycle has been started.
#include "module/VelModule.h"

#include "errors/VelExitCodes.h"
#include "events/VelDBusTypes.h"
#include "module/CommandLine.h"
#include "module/StartUpRecord.h"

#include <QCoreApplication>

#include <cstdlib>

int moduleLogLevel = 0;
bool moduleIsDead = false;

namespace {

// The types come first. What is made first is destroyed last when the process ends, and until Qt's D-Bus thread is destroyed
// it goes on reading what the bus sends: it needs the register of types.
QDBusConnection sessionBusAfterTypes() {
    registerCoreDBusTypes();
    return QDBusConnection::sessionBus();
}

} // namespace

VelModule::VelModule(const QString& name)
    : m_connection(sessionBusAfterTypes()), m_exitCode(VelNormalExit), m_moduleName(name) {
    moduleLogLevel = 3;

    m_parameters = vel::readCommandLine(QCoreApplication::arguments());
    if (vel::asksForHelp(m_parameters)) {
        vel::printHelp();
        std::exit(VelNormalExit);
    }
    m_moduleName = m_parameters.value(QStringLiteral("moduleName"), m_moduleName);
    if (m_moduleName.isEmpty())
        m_moduleName = QStringLiteral("Default");

    initDBus(m_moduleName);
    subscribeEvent(QStringLiteral("mtrace_on"), this, SLOT(slot_mtrace(VelEvent)));
    subscribeEvent(QStringLiteral("mtrace_off"), this, SLOT(slot_muntrace(VelEvent)));
    connect(this, SIGNAL(sig_exit()), this, SLOT(slot_exit_module()));

    vel::recordVersions();
    vel::recordMemoryMap();

    initAutomate();
}

QMap<QString, QString> VelModule::getParameters() {
    return m_parameters;
}

const QString& VelModule::getModuleName() const {
    return m_moduleName;
}
