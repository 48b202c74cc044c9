#include "Dimmer.h"

#include "DimmerAdaptor.h"

#include <VelException>
#include <VelLogger>

namespace {

constexpr int byDefault = 80;
constexpr int atNight = 20;

} // namespace

// Nothing of the module runs yet: the first hook is called from the event loop.
Dimmer::Dimmer() : VelModule("Dimmer"), m_percent(byDefault) {
    new DimmerAdaptor(this); // deleted with this object
}

// False ends the process with status 3.
bool Dimmer::init() {
    return vel::onEvent<DaylightChanged>(*this, this, &Dimmer::daylightChanged).isActive();
}

// Starts the work and returns: the event loop does the rest.
bool Dimmer::run() {
    logger("")->info(QString("the brightness is %1 percent").arg(m_percent));
    return true;
}

// False: nobody needs to reboot for it.
bool Dimmer::restoreDataToDefault() {
    setBrightness(byDefault);
    return false;
}

void Dimmer::setBrightness(int percent) {
    if (percent < 0 || percent > 100)
        throw new VelException(this, VelException::InvalidArgs, QString("%1 percent is no brightness").arg(percent));
    if (percent == m_percent)
        return;
    m_percent = percent;
    vel::publish(*this, BrightnessChanged{percent});
}

// Anybody can publish anything under this name: what is not such an event is logged, and does not come here.
void Dimmer::daylightChanged(const DaylightChanged& event) {
    setBrightness(event.daylight ? byDefault : atNight);
}
