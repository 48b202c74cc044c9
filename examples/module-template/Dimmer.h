// The display's brightness: set by a call, low at night, and told to everybody when it changes.
#pragma once

#include <VelModule>
#include <VelTypedEvents>

/// Published when the brightness has changed.
struct BrightnessChanged {
    Q_GADGET
    Q_PROPERTY(int percent MEMBER percent)
public:
    static constexpr auto eventName = "brightness_changed";
    int percent = 0;
};

/// Heard: whether there is daylight.
struct DaylightChanged {
    Q_GADGET
    Q_PROPERTY(bool daylight MEMBER daylight)
public:
    static constexpr auto eventName = "daylight_changed";
    bool daylight = true;
};

class Dimmer : public VelModule {
public:
    Dimmer();

    bool init() override;
    bool run() override;
    bool restoreDataToDefault() override;

    int brightness() const { return m_percent; }

    /// Sets the brightness and publishes BrightnessChanged when that changes it.
    ///
    /// Errors:   throws a VelException, which is the caller's answer, unless `percent` is 0 to 100.
    void setBrightness(int percent);

private:
    // Without daylight the display is dimmed.
    void daylightChanged(const DaylightChanged& event);

    int m_percent;
};
