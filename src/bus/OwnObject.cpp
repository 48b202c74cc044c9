// The module's own object: calls to it are delivered inside of the call.
#include "bus/OwnObject.h"

#include <QObject>
#include <QString>
#include <QThread>

namespace {

QObject* ownObject = nullptr;
QString ownPath;

} // namespace

void vel::bus::setOwnObject(QObject* object, const QString& path) {
    ownObject = object;
    ownPath = path;
}

QObject* vel::bus::ownObjectAt(const QString& path) {
    return ownObject && path == ownPath && ownObject->thread() == QThread::currentThread() ? ownObject : nullptr;
}
