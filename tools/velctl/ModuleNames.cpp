// From a module's name to its names on the bus, and back.
#include "ModuleNames.h"

#include "Failure.h"

#include <VelDBusInterface>

#include <QRegularExpression>

namespace velctl {

namespace {

// Under a name that nobody uses, so that what stands before and after it can be told apart.
const char placeholder[] = "velctl_placeholder";

// A proxy on a connection that does not exist sends nothing.
struct Scheme {
    Scheme() : proxy(placeholder, QDBusConnection("velctl has no such connection"), nullptr) {
        service = proxy.service();
        interface = proxy.interface();
        path = proxy.path();
    }
    VelDBusInterface proxy;
    QString service, interface, path;
};

const Scheme& scheme() {
    static const Scheme theScheme;
    return theScheme;
}

QString fill(const QString& pattern, const QString& module) {
    return QString(pattern).replace(placeholder, module);
}

} // namespace

QString serviceOf(const QString& module) {
    return fill(scheme().service, module);
}

QString pathOf(const QString& module) {
    return fill(scheme().path, module);
}

const QString& commonInterface() {
    return scheme().interface;
}

QString moduleOfService(const QString& service) {
    const int start = scheme().service.indexOf(placeholder);
    const QString before = scheme().service.left(start);
    const QString after = scheme().service.mid(start + int(sizeof placeholder) - 1);
    if (!service.startsWith(before) || !service.endsWith(after) || service.size() <= before.size() + after.size())
        return QString();
    const QString module = service.mid(before.size(), service.size() - before.size() - after.size());
    return isValidName(module) ? module : QString();
}

QString moduleOfPath(const QString& path) {
    return path.mid(1);
}

bool isValidName(const QString& name) {
    static const QRegularExpression form("\\A[A-Za-z_][A-Za-z0-9_]{0,254}\\z");
    return form.match(name).hasMatch();
}

void requireValidName(const QString& verb, const QString& what, const QString& name) {
    if (!isValidName(name))
        throw Failure{Usage, QString("cannot %1 '%2': that cannot be the name of %3; it is made of letters, "
                                     "digits and underscores, and does not begin with a digit")
                                 .arg(verb, name, what)};
}

} // namespace velctl
