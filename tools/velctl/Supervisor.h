// What the supervisor knows of the modules in its configuration, and what it does with them when it is asked.
#pragma once

#include "Bus.h"

#include <QJsonObject>
#include <QMap>

namespace velctl {

/// The module that is the supervisor.
extern const QString supervisorName;

/// By the module's name, what the supervisor's method modules() tells of it, each value under its name: see the
/// supervisor's interface. Empty when there is no supervisor, or it does not answer before `end`.
QMap<QString, QJsonObject> supervisedModules(Bus& bus, const QDeadlineTimer& end);

/// "down: init() threw; starts again in 3 s", for people; empty for a module that is up.
QString whyDown(const QJsonObject& supervised);

} // namespace velctl
