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
    /// Result:   the reply, always a method return.
    /// Errors:   throws a QString: the error reply's text, or why the call could not be sent.
    QDBusMessage call(const QString& method, const QList<QVariant>& args);

    /// Calls a method without waiting.
    ///
    /// Errors:   throws a QString when it is known at once that the call cannot be made; what fails later is seen in
    ///           the pending call.
    QDBusPendingCall asyncCall(const QString& method, const QList<QVariant>& args);

    /// Calls a method; the reply goes to the slot `returnMethod` of `receiver`, an error to its slot `errorMethod`,
    /// as QDBusAbstractInterface::callWithCallback() says.
    ///
    /// Result:   true when the call was queued for sending.
    /// Errors:   throws nothing.
    bool callWithCallback(const QString& method, const QList<QVariant>& args, QObject* receiver,
                          const char* returnMethod, const char* errorMethod);

    /// Makes this proxy a child of the other's parent; what it addresses stays.
    VelDBusInterface& operator=(const VelDBusInterface& other);
};
