// What the parts of the bridge share: between which machine and which broker, and by what.
#pragma once

#include "Configuration.h"
#include "LocalBus.h"
#include "Mqtt.h"
#include "Store.h"
#include "Topics.h"

#include <QElapsedTimer>

struct Link {
    const Configuration& configuration;
    LocalBus& bus;
    Mqtt& mqtt;
    Store& store;
    QElapsedTimer clock;

    const QString& machine() const { return configuration.machine; }
};

/// So many of something in a second, in bursts of as many.
class Rate {
public:
    explicit Rate(int perSecond) : m_perSecond(perSecond), m_left(perSecond) {}

    bool allows(qint64 nowMs) {
        m_left = std::min(m_perSecond, m_left + m_perSecond * static_cast<double>(nowMs - m_at) / 1000);
        m_at = nowMs;
        if (m_left < 1)
            return false;
        m_left -= 1;
        return true;
    }

private:
    double m_perSecond;
    double m_left;
    qint64 m_at = 0;
};

/// Says the first of many alike, and again only after that was over.
class Once {
public:
    bool first() { return !std::exchange(m_isSaid, true); }
    void over() { m_isSaid = false; }

private:
    bool m_isSaid = false;
};
