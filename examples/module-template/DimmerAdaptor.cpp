#include "DimmerAdaptor.h"

#include "Dimmer.h"

#include <VelExceptionNet>

DimmerAdaptor::DimmerAdaptor(Dimmer* module) : QDBusAbstractAdaptor(module), m_module(*module) {}

int DimmerAdaptor::brightness() {
    return m_module.brightness();
}

// Guarded: what it throws has answered the call already.
void DimmerAdaptor::setBrightness(int percent) {
    velGuarded([&] { m_module.setBrightness(percent); });
}
