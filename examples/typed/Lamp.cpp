// A lamp: as bright as it is told, and dark at night. It tells what it does, and asks how strong the radio is. Its events and
// its calls have types.
#include "Lamp.h"

#include <VelApplication>
#include <VelLogger>
#include <VelModuleMain>
#include <VelTypedCalls>

using namespace std::chrono_literals;

// What this module calls, declared once.
inline const vel::Method<int()> strength{"Tuner", "strength"};

Lamp::Lamp() : VelModule("Lamp") {}

bool Lamp::init() {
    vel::onEvent<DaylightChanged>(*this, this, &Lamp::daylightChanged);
    vel::onEvent(*this, "station_changed", this, &Lamp::stationChanged);
    return true;
}

void Lamp::daylightChanged(const DaylightChanged& event) {
    const int before = m_percent;
    m_percent = event.daylight ? event.percent.value_or(80) : 20;
    vel::publish(*this, LampChanged{m_percent, before, event.daylight ? LampChanged::Day : LampChanged::Night});
}

void Lamp::stationChanged() {
    vel::ask(*this, vel::within(2s), strength)
        .then(
            this, [](int percent) { logger("")->info(QString("the radio is heard with %1 percent").arg(percent)); },
            [](const vel::CallError& error) { logger("")->warning(error.what()); });
}

VEL_MODULE_MAIN(argc, argv) {
    VelApplication application(argc, argv);
    Lamp lamp;
    return application.exec();
}
