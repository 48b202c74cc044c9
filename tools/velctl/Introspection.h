// What a module says of its methods.
#pragma once

#include <QByteArray>
#include <QList>
#include <QString>

namespace velctl {

struct MethodArgument {
    QString name;
    QByteArray type;
    QString qtType; ///< the name of the Qt type, where the module gives it
};

struct Method {
    QString interface;
    QString name;
    QList<MethodArgument> in;
    QList<MethodArgument> out;

    /// "tune(int preset) -> text"
    QString text() const;

    /// A type of an argument to be given that the bus does not know; null when there is none.
    QByteArray impossibleType() const;
};

/// The methods in an introspection text, without those of the standard interfaces.
QList<Method> methodsIn(const QString& introspection);

} // namespace velctl
