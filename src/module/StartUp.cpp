// Start-up: from the command line to a module that is on the bus and whose lifecycle has been started.
#include "module/VelModule.h"

#include "bus/BusNames.h"
#include "errors/VelExitCodes.h"
#include "events/VelDBusTypes.h"
#include "module/CommandLine.h"
#include "module/StartUpRecord.h"

#include <QAbstractEventDispatcher>
#include <QCoreApplication>

#include <cstdlib>

int moduleLogLevel = 0;
bool moduleIsDead = false;

namespace {

// Made by the first timer of the process: Qt's list of free timer numbers. Without an event dispatcher there are no timers.
void makeListOfTimerNumbers() {
    QObject owner;
    if (QAbstractEventDispatcher::instance())
        owner.killTimer(owner.startTimer(0));
}

// Static objects die in reverse order, and Qt's D-Bus thread outlives most of them. It still needs the type registry and
// the list of timer ids, so both are created before the connection.
QDBusConnection sessionBusAfterWhatItNeeds() {
    registerCoreDBusTypes();
    makeListOfTimerNumbers();
    return QDBusConnection::sessionBus();
}

} // namespace

VelModule::VelModule(const QString& name)
    : m_connection(sessionBusAfterWhatItNeeds()), m_exitCode(VelNormalExit), m_moduleName(name) {
    moduleLogLevel = 3;

    m_parameters = vel::readCommandLine(QCoreApplication::arguments());
    if (vel::asksForHelp(m_parameters)) {
        vel::printHelp();
        std::exit(VelNormalExit);
    }
    m_moduleName = m_parameters.value(QStringLiteral("moduleName"), m_moduleName);
    if (m_moduleName.isEmpty())
        m_moduleName = vel::bus::defaultModuleName();

    initDBus(m_moduleName);
    subscribe(QStringLiteral("mtrace_on"), this, SLOT(slot_mtrace(VelEvent)));
    subscribe(QStringLiteral("mtrace_off"), this, SLOT(slot_muntrace(VelEvent)));
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
