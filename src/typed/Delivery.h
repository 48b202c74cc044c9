// One event on its way to the handlers of this process, read once for all of them.
#pragma once

#include "platform/VelExport.h"
#include "typed/Form.h"

#include <QDBusMessage>
#include <QMetaType>
#include <QMutex>

#include <list>
#include <memory>
#include <utility>

class VelEvent;

namespace vel::typed {

/// Thread:   any; handlers in several threads share it.
class Delivery {
public:
    explicit Delivery(const QDBusMessage& signal);
    ~Delivery();

    /// The event; null when the signal carries none, which is logged as an error, once.
    VEL_EXPORT const VelEvent* event() const;

    /// The event as a struct of that form; null when a field is missing or of another type, which is logged as an error,
    /// once for each form.
    VEL_EXPORT const void* as(const Form& form) const;

private:
    const VelEvent* readEvent() const;
    QString described() const;

    const QDBusMessage m_signal;
    mutable QMutex m_mutex; // guards what follows
    mutable bool m_isRead = false;
    mutable std::unique_ptr<VelEvent> m_event;
    mutable std::list<std::pair<const Form*, std::shared_ptr<void>>> m_readings;
    Q_DISABLE_COPY(Delivery)
};

using DeliveryPointer = std::shared_ptr<const Delivery>;

} // namespace vel::typed

Q_DECLARE_METATYPE(vel::typed::DeliveryPointer)
