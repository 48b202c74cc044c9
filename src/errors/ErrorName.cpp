// The D-Bus error that each type of a VelException is.
#include "errors/ErrorName.h"

#include <QDBusError>

#include <iterator>

namespace {

const QDBusError::ErrorType errorTypes[] = {
    QDBusError::ServiceUnknown, QDBusError::AccessDenied,  QDBusError::Timeout,
    QDBusError::InvalidArgs,    QDBusError::UnknownMethod, QDBusError::InvalidSignature,
};

} // namespace

QString vel::errorNameOf(VelException::ErrorType type) {
    const auto index = static_cast<unsigned>(type);
    return QDBusError::errorString(index < std::size(errorTypes) ? errorTypes[index] : QDBusError::Failed);
}
