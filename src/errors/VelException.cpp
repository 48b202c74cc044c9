// The error that module code throws; answering a call with it is the module's affair.
#include "errors/VelException.h"

VelException::VelException(VelModule* module, ErrorType type, const QString& message)
    : QObject(), m_module(module), m_errorType(type), m_message(message) {
    sendErrorReply();
}

VelException::VelException(const VelException& other)
    : QObject(), m_module(other.m_module), m_errorType(other.m_errorType), m_message(other.m_message) {}

VelException::~VelException() = default;
