// The error that module code throws, by pointer, to answer a D-Bus call with an error reply.
#pragma once

#include "platform/VelExport.h"

#include <QObject>
#include <QString>

class VelModule;

/// Answers the D-Bus call that a module is handling with an error reply.
///
/// Building one *is* replying. Throw it by pointer, from the module's own slot or from one of its adaptors':
///
///     throw new VelException(this, VelException::InvalidArgs, "no station at 0 MHz");
///
/// The slot's own return value is not sent then. Thrown on, it travels to VelApplication::notify(), which logs its
/// message, deletes it and goes on with the next event; the process does not end and the lifecycle state does not
/// change. Code that catches one itself deletes it.
///
/// Outside a method call that awaits a reply (a null module, a timer, an event's slot, another thread than the
/// module's) there is nothing to answer: nothing is sent, and only the throw has an effect.
///
/// Thread:   the one of the module's event loop.
class VEL_EXPORT VelException : public QObject {
    Q_OBJECT
public:
    /// The D-Bus error that the caller sees.
    enum ErrorType : int {
        ServiceUnknown = 0,   ///< org.freedesktop.DBus.Error.ServiceUnknown
        AccessDenied = 1,     ///< org.freedesktop.DBus.Error.AccessDenied
        Timeout = 2,          ///< org.freedesktop.DBus.Error.Timeout
        InvalidArgs = 3,      ///< org.freedesktop.DBus.Error.InvalidArgs
        UnknownMethod = 4,    ///< org.freedesktop.DBus.Error.UnknownMethod
        InvalidSignature = 5, ///< org.freedesktop.DBus.Error.InvalidSignature
        // Any other number is answered with org.freedesktop.DBus.Error.Failed.
    };

    /// Stores the three values and sends the error reply before it returns.
    VelException(VelModule* module, ErrorType type, const QString& message);

    /// Copies the three values; sends no reply.
    VelException(const VelException& other);

    ~VelException() override;

    /// Sends the reply again. The bus drops a second reply to one call.
    void sendErrorReply();

    VelModule* m_module;   ///< whose current call is answered; not owned, may be null
    ErrorType m_errorType; ///< what kind of error the caller sees
    QString m_message;     ///< the text: in the reply, unchanged, and in the log line
};
