// From a module's name to its names on the bus, and back.
#include "ModuleNames.h"

#include "Status.h"

#include <QRegularExpression>

namespace velctl {

QString moduleOfService(const QString& service) {
    static const QString marker = "velctl_marker";
    static const QStringList around = serviceOf(marker).split(marker);
    if (!service.startsWith(around.first()) || !service.endsWith(around.last()))
        return QString();
    const int length = service.size() - around.first().size() - around.last().size();
    const QString module = service.mid(around.first().size(), std::max(length, 0));
    return isValidName(module) ? module : QString();
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

QString knownNames(const QStringList& names) {
    constexpr int mostShown = 20;
    if (names.isEmpty())
        return "there is none at all";
    if (names.size() == 1)
        return "there is only " + names.first();
    const QString rest = names.size() > mostShown ? QString(" and %1 more").arg(names.size() - mostShown) : QString();
    return "there are " + QStringList(names.mid(0, mostShown)).join(", ") + rest;
}

} // namespace velctl
