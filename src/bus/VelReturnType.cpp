// Return types by introspection: a module is asked for its description once, and what it said is kept for good.
#include "bus/VelReturnType.h"

#include "bus/IntrospectionReader.h"
#include "bus/VelDBusInterface.h"

#include <QDBusReply>
#include <QDebug>
#include <QMap>

namespace {

QString introspect(const QString& moduleName) {
    VelDBusInterface proxy(moduleName, QStringLiteral("org.freedesktop.DBus.Introspectable"),
                           QDBusConnection::sessionBus(), nullptr);
    const QDBusReply<QString> reply = proxy.call(QStringLiteral("Introspect"), QList<QVariant>());
    return reply.value();
}

} // namespace

QString getReturnType(const QString& moduleName, const QString& methodName, const QString& signature) {
    static QMap<QString, QString> returnTypeCache;
    const auto cached = returnTypeCache.constFind(methodName + moduleName + signature);
    if (cached != returnTypeCache.constEnd())
        return *cached;

    QString result;
    for (const vel::bus::ReturnType& type : vel::bus::returnTypesIn(introspect(moduleName))) {
        const QString key = type.method + moduleName + type.signature;
        const auto known = returnTypeCache.constFind(key);
        if (known == returnTypeCache.constEnd()) {
            returnTypeCache.insert(key, type.descriptor);
        } else if (*known != type.descriptor) {
            qDebug() << QString(QStringLiteral("new cache entry:") + key + QLatin1Char(' ') + type.descriptor);
            qDebug() << "ERROR: already cached with different value:" << *known;
        }
        if (type.method == methodName && type.signature == signature)
            result = type.descriptor;
    }
    return result;
}
