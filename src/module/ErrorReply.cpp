// Answering the call in progress with an error: the error types' table, and whether there is a call to answer.
#include "errors/VelException.h"

#include "module/VelModule.h"

#include <QDBusError>
#include <QThread>

#include <iterator>

namespace {

const QDBusError::ErrorType errorTypes[] = {
    QDBusError::ServiceUnknown, QDBusError::AccessDenied,  QDBusError::Timeout,
    QDBusError::InvalidArgs,    QDBusError::UnknownMethod, QDBusError::InvalidSignature,
};

} // namespace

void VelException::sendErrorReply() {
    // The context belongs to the event loop's thread; an event's delivery sets it too, but only a method call whose
    // caller did not renounce it requires a reply.
    if (!m_module || QThread::currentThread() != m_module->thread() || !m_module->calledFromDBus() ||
        !m_module->message().isReplyRequired())
        return;
    const auto type = static_cast<unsigned>(m_errorType);
    if (type < std::size(errorTypes))
        m_module->QDBusContext::sendErrorReply(errorTypes[type], m_message);
    else // QDBusError::Other has no D-Bus name that could be sent: sending it aborts
        m_module->QDBusContext::sendErrorReply(QStringLiteral("org.freedesktop.DBus.Error.Failed"), m_message);
}
