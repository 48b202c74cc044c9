// The display's brightness: set by a call, low at night, and told to everybody when it changes.
#pragma once

#include <VelModule>

class Dimmer : public VelModule {
    Q_OBJECT
public:
    Dimmer();

    bool init() override;
    bool run() override;
    bool restoreDataToDefault() override;

    int brightness() const { return m_percent; }

    /// Sets the brightness and publishes "brightness_changed" when that changes it.
    ///
    /// Errors:   throws a VelException, which is the caller's answer, unless `percent` is 0 to 100.
    void setBrightness(int percent);

public Q_SLOTS:
    /// Handler of "daylight_changed": without daylight the display is dimmed.
    void daylightChanged(const VelEvent& event);

private:
    int m_percent;
};
