// Reset to default and to factory: run the hook, then answer with an event that names this module.
#include "module/VelModule.h"

#include "log/GuardedLog.h"

namespace {

const QString moduleNameKey = QStringLiteral("ModuleName");

VelEvent answer(const QString& name) {
    return VelEvent(name, QVariantMap(), QStringLiteral(""));
}

} // namespace

void VelModule::resetToDefault() {
    const bool needReboot = restoreDataToDefault();
    VelEvent done = answer(QStringLiteral("reset_default_done"));
    done.addArgument(m_moduleName, moduleNameKey);
    done.addArgument(needReboot, QStringLiteral("NeedReboot"));
    notifyEvent(done);
}

bool VelModule::restoreDataToDefault() {
    vel::logDebug([] { return QStringLiteral("Restore data to default"); });
    return false;
}

void VelModule::resetToFactory() {
    restoreDataToFactory();
    VelEvent done = answer(QStringLiteral("reset_factory_done"));
    done.addArgument(m_moduleName, moduleNameKey);
    notifyEvent(done);
}

void VelModule::restoreDataToFactory() {
    vel::logDebug([] { return QStringLiteral("Restore data to factory"); });
}
