// Answering the call in progress with an error, where there is a call to answer.
#include "errors/ErrorName.h"
#include "module/VelModule.h"

#include <QThread>

void VelException::sendErrorReply() {
    // The context belongs to the event loop's thread; an event's delivery sets it too, but only a method call whose
    // caller did not renounce it requires a reply.
    if (m_module && QThread::currentThread() == m_module->thread() && m_module->calledFromDBus() &&
        m_module->message().isReplyRequired())
        m_module->QDBusContext::sendErrorReply(vel::errorNameOf(m_errorType), m_message);
}
