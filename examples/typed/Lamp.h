// The lamp, and the events that it publishes and hears.
#pragma once

#include <VelModule>
#include <VelTypedEvents>

struct DaylightChanged {
    Q_GADGET
    Q_PROPERTY(bool daylight MEMBER daylight)
    Q_PROPERTY(std::optional<int> percent MEMBER percent)
public:
    static constexpr auto eventName = "daylight_changed";
    bool daylight = true;
    std::optional<int> percent; // how bright it is to be; may be missing
};

struct LampChanged {
    Q_GADGET
    Q_PROPERTY(int percent MEMBER percent)
    Q_PROPERTY(int before MEMBER before)
    Q_PROPERTY(Mode mode MEMBER mode)
public:
    enum Mode { Day, Night };
    Q_ENUM(Mode)
    static constexpr auto eventName = "lamp_changed";
    using FieldTypes = vel::FieldTypes<Mode>; // the fields' own types
    int percent = 0;
    int before = 0;
    Mode mode = Day;
};

class Lamp : public VelModule { // a handler needs no Q_OBJECT
public:
    Lamp();

    bool init() override;

private:
    void daylightChanged(const DaylightChanged& event);
    void stationChanged();

    int m_percent = 80;
};
