// The delivery of one event, for the line that tells who threw.
#pragma once

#include <QString>

#include <typeinfo>

namespace vel {

struct Delivery {
    const std::type_info& receiverClass; ///< the true class, also of one without Q_OBJECT
    QString receiverName;                ///< its object name
};

/// Does what velLogCurrentException() does; `delivery`, when it is known, is told in a second line.
void logCurrentException(const Delivery* delivery);

} // namespace vel
