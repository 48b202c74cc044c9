// The naming scheme, and libdbus's own rules for what is a valid name.
#include "bus/BusNames.h"

#include <dbus/dbus.h>

namespace vel::bus {

namespace {

// The same check that libdbus makes before it aborts. It reads a C string, so a text with a zero inside is refused
// here.
bool passes(dbus_bool_t (*validate)(const char*, DBusError*), const QString& text) {
    const QByteArray utf8 = text.toUtf8();
    return !utf8.contains('\0') && validate(utf8.constData(), nullptr);
}

} // namespace

const QString& commonInterface() {
    static const QString name = QStringLiteral(VEL_BUS_PREFIX ".VelInterface");
    return name;
}

QString infoInterface() {
    return QStringLiteral(VEL_BUS_PREFIX ".ModuleInfo");
}

QString serviceName(const QString& moduleName) {
    return QStringLiteral(VEL_BUS_PREFIX ".%1Service").arg(moduleName);
}

QString objectPath(const QString& moduleName) {
    return QLatin1Char('/') + moduleName;
}

QString defaultModuleName() {
    return QStringLiteral("Default");
}

QString moduleNameOfPath(const QString& path) {
    return path.mid(1);
}

bool isValidServiceName(const QString& name) {
    return passes(dbus_validate_bus_name, name);
}

bool isValidObjectPath(const QString& path) {
    return passes(dbus_validate_path, path);
}

bool isValidInterfaceName(const QString& name) {
    return passes(dbus_validate_interface, name);
}

bool isValidMemberName(const QString& name) {
    return passes(dbus_validate_member, name);
}

QString memberNameRule() {
    return QStringLiteral(
        "a name must consist of 1 to 255 letters (A to Z, a to z), digits and underscores, not beginning "
        "with a digit");
}

bool isReachable(const QString& moduleName) {
    return isValidServiceName(serviceName(moduleName)) && isValidObjectPath(objectPath(moduleName));
}

} // namespace vel::bus
