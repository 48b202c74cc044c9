// What a module tells about itself on the bus.
#include "module/ModuleInfo.h"

#include "bus/BusNames.h"
#include "log/GuardedLog.h"
#include "module/StartUpRecord.h"
#include "module/VelModule.h"

#include <QDBusConnection>

#include <algorithm>

namespace vel {

ModuleInfo::ModuleInfo(VelModule& module) : QObject(&module), m_module(module) {}

void ModuleInfo::exportOn(QDBusConnection& connection) {
    connection.registerObject(QStringLiteral("/vel/info"), bus::infoInterface(), this,
                              QDBusConnection::ExportScriptableProperties);
}

void ModuleInfo::subscribed(const QString& event, QObject* receiver, const char* slotSignature) {
    QVector<Subscription>& known = m_subscriptions[event];
    const QByteArray slot = QMetaObject::normalizedSignature(slotSignature);
    known.erase(std::remove_if(known.begin(), known.end(),
                               [&](const Subscription& one) { return !one.receiver || one.is(receiver, slot); }),
                known.end());
    known.append({receiver, slot});
}

void ModuleInfo::unsubscribed(const QString& event, const QObject* receiver, const char* slotSignature) {
    QVector<Subscription>& known = m_subscriptions[event];
    const QByteArray slot = QMetaObject::normalizedSignature(slotSignature);
    known.erase(std::remove_if(known.begin(), known.end(),
                               [&](const Subscription& one) { return !one.receiver || one.is(receiver, slot); }),
                known.end());
    if (known.isEmpty())
        m_subscriptions.remove(event);
}

QString ModuleInfo::state() const {
    return m_module.getState();
}

int ModuleInfo::pendingStatus() const {
    return m_module.m_exitCode;
}

QString ModuleInfo::lastErrorText() const {
    return lastError().text;
}

qlonglong ModuleInfo::lastErrorTime() const {
    return lastError().millisecondsUtc;
}

QStringList ModuleInfo::subscriptions() const {
    QStringList events;
    for (auto entry = m_subscriptions.cbegin(); entry != m_subscriptions.cend(); ++entry) {
        if (std::any_of(entry->cbegin(), entry->cend(), [](const Subscription& one) { return !one.receiver.isNull(); }))
            events << entry.key();
    }
    events.sort();
    return events;
}

QVariantMap ModuleInfo::version() const {
    QVariantMap stamp;
    forEachStampLine([&stamp](const char* key, const char* value) {
        stamp.insert(QString::fromLatin1(key), QString::fromUtf8(value));
    });
    return stamp;
}

int ModuleInfo::logLevel() const {
    return defaultLogger()->level();
}

} // namespace vel
