// The naming scheme: under which names a module is reached on the bus.
//
// Everything follows from the module's name alone, put in unchanged. This is the only place that knows the forms.
#pragma once

#include <QString>

namespace vel::bus {

/// PREFIX.VelInterface: the one interface of every module, for its methods and for its event signals.
const QString& commonInterface();

/// PREFIX.ModuleInfo: what a module tells about itself.
QString infoInterface();

/// PREFIX.%1Service: the well-known name of a module.
QString serviceName(const QString& moduleName);

/// "/%1": where a module's object is registered and from where its events are sent.
QString objectPath(const QString& moduleName);

/// The name of a module that was given none, and the one that a proxy without a name addresses.
QString defaultModuleName();

/// The module whose events come from `path`; the inverse of objectPath().
QString moduleNameOfPath(const QString& path);

/// Whether a text may stand in a message in that place. Qt and libdbus check some of this, some of it late and some
/// of it by aborting the process, so what comes from a caller is asked here first.
bool isValidServiceName(const QString& name);
bool isValidObjectPath(const QString& path);
bool isValidInterfaceName(const QString& name);
bool isValidMemberName(const QString& name);

/// The rule for a member, for people: what follows "cannot ... 'a-b': ".
QString memberNameRule();

/// Whether a module of that name can be on the bus at all: letters, digits and underscores, not beginning with a
/// digit.
bool isReachable(const QString& moduleName);

} // namespace vel::bus
