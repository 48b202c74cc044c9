// The proxy through which another module is called.
#pragma once

#include "platform/VelExport.h"

#include <QDBusConnection>
#include <QDBusInterface>
#include <QDBusMessage>
#include <QDBusPendingCall>
#include <QList>
#include <QVariant>

/// A QDBusInterface addressed by module name.
///
/// The module called NAME is reached at the service `PREFIX.NAMEService` and the path `/NAME`, on the interface
/// `PREFIX.VelInterface`. A name that no module can have on the bus ("A-B", "a.b", "é", "9x") gives a proxy that is never valid. Whether the
/// module is there is read with isValid(); it says no more than "the name has an owner", and follows the bus through
/// the event loop. Building one to a module that owns its name but does not answer (a stopped process) may block for
/// 25 seconds, the bus library's reply limit.
///
/// The remote methods are not meta-methods of the proxy: call them with call(), asyncCall() and callWithCallback().
///
/// Thread:   the one of the event loop.
class VEL_EXPORT VelDBusInterface : public QDBusInterface {
    Q_OBJECT
public:
    /// A proxy for the module called "Default", on the session bus.
    explicit VelDBusInterface(QObject* parent);

    /// A proxy for what `other` addresses, over the same connection, under another parent.
    VelDBusInterface(const VelDBusInterface& other, QObject* parent);

    /// A proxy for the common interface of a module.
    VelDBusInterface(const QString& moduleName, const QDBusConnection& connection, QObject* parent);

    /// A proxy for another interface of a module's object, such as "org.freedesktop.DBus.Introspectable".
    VelDBusInterface(const QString& moduleName, const QString& interfaceName, const QDBusConnection& connection,
                     QObject* parent);

    ~VelDBusInterface() override;

    /// Calls a method and waits for the answer, at most the bus library's default reply limit (25 s) or setTimeout().
    ///
    /// Of "name.signature" the part before the dot is called, as in QDBusAbstractInterface.
    ///
    /// Result:   the reply, always a method return.
    /// Errors:   throws a QString: the error reply's text, or why the call could not be sent; that is told in an error
    ///           line, too. A VelException of a slot in this very process becomes its text.
    QDBusMessage call(const QString& method, const QList<QVariant>& args);

    /// Calls a method without waiting.
    ///
    /// Errors:   throws a QString when it is known at once that the call cannot be made, or when this very process has
    ///           answered it with an error; what fails later is seen in the pending call.
    QDBusPendingCall asyncCall(const QString& method, const QList<QVariant>& args);

    /// Calls a method; the reply goes to the slot `returnMethod` of `receiver`, an error to its slot `errorMethod`,
    /// as QDBusAbstractInterface::callWithCallback() says.
    ///
    /// Result:   true when the call was queued for sending, or when an argument has no D-Bus form: the slot
    ///           `errorMethod` is called then. False when it cannot be a call at all (a method's name that is none, more
    ///           than 63 levels, an array above 64 MiB, a message above 128 MiB); one error line says why.
    /// Errors:   throws nothing. A call to this very process runs at once: a VelException or a QString that its slot
    ///           throws goes to the slot `errorMethod`; any other exception of that slot comes out, to the net.
    bool callWithCallback(const QString& method, const QList<QVariant>& args, QObject* receiver,
                          const char* returnMethod, const char* errorMethod);

    /// Makes this proxy a child of the other's parent; what it addresses stays.
    VelDBusInterface& operator=(const VelDBusInterface& other);
};
