// The critical section: stretches of a module's work during which its data must not be saved.
//
// The mutex is the whole state. Who holds it is remembered by each thread for itself, so that no second lock is
// needed and a thread that does not hold the section cannot release it: unlocking another thread's mutex would be
// undefined.
#include "module/VelModule.h"

#include "log/GuardedLog.h"

namespace {

thread_local const VelModule* sectionHeldHere = nullptr;

} // namespace

void VelModule::beginCriticalSection() {
    vel::logDebug([] { return QStringLiteral("Entering critical section"); });
    m_criticalSectionMutex.lock();
    sectionHeldHere = this;
}

void VelModule::endCriticalSection() {
    if (sectionHeldHere != this)
        return;
    vel::logDebug([] { return QStringLiteral("Leaving critical section"); });
    sectionHeldHere = nullptr;
    m_criticalSectionMutex.unlock();
}
