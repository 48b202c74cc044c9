// Diagnostics that other modules switch by events: the log level and the C library's allocation tracing.
#include "module/VelModule.h"

#include "log/GuardedLog.h"

#include <mcheck.h>

bool VelModule::LogIn(QString loggerName, int level) {
    if (!LoggerList::_instance)
        return false;
    VelLogger* named = LoggerList::_instance->value(loggerName);
    return named && named->level() > level;
}

void VelModule::loggerChanged(VelEvent event) {
    const QString facility = event.getArgument(QStringLiteral("syslog_facility")).toString();
    const int level = event.getArgument(QStringLiteral("syslog_level")).toInt();
    if (!LoggerList::_instance) {
        vel::logError([&] { return QStringLiteral("No loggerlist for : ") + m_moduleName; });
        return;
    }
    LoggerList::_instance->updateLoggerList(LoggerList::_instance, facility, level);
    moduleLogLevel = level;
}

void VelModule::slot_mtrace(VelEvent evt) {
    if (evt.getArgument(QStringLiteral("module")).toString() != m_moduleName)
        return;
    vel::logDebug([] { return QStringLiteral("Activate mtrace"); });
    mtrace();
}

void VelModule::slot_muntrace(VelEvent evt) {
    if (evt.getArgument(QStringLiteral("module")).toString() != m_moduleName)
        return;
    vel::logDebug([] { return QStringLiteral("Deactivate mtrace"); });
    muntrace();
}
