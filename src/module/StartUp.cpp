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

// What is made first is destroyed last when the process ends, and until Qt's D-Bus thread is destroyed it goes on: it reads
// what the bus sends, which needs the register of types, and gives up the calls that are open, each of which has a timer.
// So these two come first. A list that was given back is written into by that thread otherwise.
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
