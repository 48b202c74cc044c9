// A handle on what a handler was subscribed to.
#pragma once

#include "platform/VelExport.h"

#include <QMetaObject>

#include <atomic>
#include <memory>

namespace vel {

/// What vel::onEvent() returns: the subscription of one handler. Copies are handles on the same subscription; one that is
/// dropped ends nothing.
///
/// Thread:   any.
class VEL_EXPORT Subscription {
public:
    /// An empty handle, which is not active.
    Subscription() = default;

    /// Ends it: the handler is not called again, also not with an event that has arrived and waits for the event loop of
    /// the handler's thread. In that thread it may be running at this moment. Has no effect the second time.
    void end();

    /// Whether the handler is still called: not ended, its context object and the module alive. False from the beginning
    /// when vel::onEvent() could not subscribe.
    [[nodiscard]] bool isActive() const;

    /// For vel::onEvent().
    Subscription(QMetaObject::Connection connection, std::shared_ptr<std::atomic<bool>> ended);

private:
    QMetaObject::Connection m_connection;
    std::shared_ptr<std::atomic<bool>> m_ended;
};

} // namespace vel
