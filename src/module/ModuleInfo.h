// What a module tells about itself on the bus, for those who operate a system: read-only properties.
//
//     object      /vel/info of every module's service; no module's own path has two elements
//     interface   PREFIX.ModuleInfo; no methods and no signals
//     read with   org.freedesktop.DBus.Properties.Get and GetAll
//
//     State          s      the lifecycle step last entered, "CHECK" to "EXIT"; empty before the first
//     PendingStatus  i      the status with which the process will end as things stand: 1, or 4 after a failed run()
//     LastError      s      the last error line of this library, at most 1,000 characters; empty: there was none. What
//                           the module's own code has written to a logger is not seen. Below level 3 none is written
//     LastErrorTime  x      when that was: milliseconds since 1970, UTC; 0: there was none
//     Subscriptions  as     the names of the events that are subscribed with subscribeEvent(), in ascending order, the
//                           library's own among them; an empty name stands for every event
//     Version        a{sv}  the build's stamp: VersionRelease, VersionSoft, VersionBuild, VersionDate, VersionRange,
//                           VersionAppmode, all texts
//     LogLevel       i      the default logger's level
//
// Whoever reads them waits for the module's event loop, as with every call: a module that hangs in a hook does not
// answer. Nothing is sent on the bus unless it is asked for. A build with VEL_MODULE_INFO off has no such object.
#pragma once

#include <QByteArray>
#include <QHash>
#include <QObject>
#include <QPointer>
#include <QStringList>
#include <QVariantMap>
#include <QVector>

class QDBusConnection;
class VelModule;

namespace vel {

class ModuleInfo : public QObject {
    Q_OBJECT
    // Qt's Get, unlike its GetAll, asks the class for its interface, not the registration of the object.
    Q_CLASSINFO("D-Bus Interface", VEL_BUS_PREFIX ".ModuleInfo")
    Q_PROPERTY(QString State READ state)
    Q_PROPERTY(int PendingStatus READ pendingStatus)
    Q_PROPERTY(QString LastError READ lastErrorText)
    Q_PROPERTY(qlonglong LastErrorTime READ lastErrorTime)
    Q_PROPERTY(QStringList Subscriptions READ subscriptions)
    Q_PROPERTY(QVariantMap Version READ version)
    Q_PROPERTY(int LogLevel READ logLevel)
public:
    /// Belongs to the module.
    explicit ModuleInfo(VelModule& module);

    /// Puts the object on the bus; sends nothing.
    void exportOn(QDBusConnection& connection);

    /// Remembers a subscription that was made, or removed. The same one made twice is one.
    void subscribed(const QString& event, QObject* receiver, const char* slotSignature);
    void unsubscribed(const QString& event, const QObject* receiver, const char* slotSignature);

    QString state() const;
    int pendingStatus() const;
    QString lastErrorText() const;
    qlonglong lastErrorTime() const;
    QStringList subscriptions() const;
    QVariantMap version() const;
    int logLevel() const;

private:
    struct Subscription {
        QPointer<QObject> receiver; // Qt drops the subscriptions of one that is destroyed
        QByteArray slotSignature;

        bool is(const QObject* other, const QByteArray& otherSlot) const {
            return receiver == other && slotSignature == otherSlot;
        }
    };

    VelModule& m_module;
    QHash<QString, QVector<Subscription>> m_subscriptions; // by event
};

} // namespace vel
