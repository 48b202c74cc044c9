// Keeping and restoring the one pointer that a QDBusContext is.
#include "bus/DBusContextKeeper.h"

#include <QDBusAbstractAdaptor>
#include <QDBusContext>

#include <cstring>

namespace {

static_assert(sizeof(QDBusContext) == sizeof(void*), "a QDBusContext is expected to be one pointer");

void* contextOf(QObject* object) {
    return object->qt_metacast("QDBusContext");
}

} // namespace

vel::DBusContextKeeper::DBusContextKeeper(QObject* receiver) {
    // Qt sets the adapted object's context, not the adaptor's.
    QObject* holder = qobject_cast<QDBusAbstractAdaptor*>(receiver) ? receiver->parent() : receiver;
    m_place = holder ? contextOf(holder) : nullptr;
    if (!m_place)
        return;
    m_holder = holder;
    std::memcpy(&m_context, m_place, sizeof m_context);
}

vel::DBusContextKeeper::~DBusContextKeeper() {
    if (m_holder)
        std::memcpy(m_place, &m_context, sizeof m_context);
}

void vel::DBusContextKeeper::hide() {
    if (m_holder)
        std::memset(m_place, 0, sizeof m_context);
}
