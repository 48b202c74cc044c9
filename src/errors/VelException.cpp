// Answering the call in progress: the error types' table, and whether there is a call to answer.
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

VelException::VelException(VelModule* module, ErrorType type, const QString& message)
    : QObject(), m_module(module), m_errorType(type), m_message(message) {
    sendErrorReply();
}

VelException::VelException(const VelException& other)
    : QObject(), m_module(other.m_module), m_errorType(other.m_errorType), m_message(other.m_message) {}

VelException::~VelException() = default;

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
