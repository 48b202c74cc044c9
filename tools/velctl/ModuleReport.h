// How a module is: on the bus, in the kernel's eyes, and whether its event loop answers.
#pragma once

#include "Bus.h"
#include "Failure.h"
#include "Table.h"
#include "process/ProcessInfo.h"

#include <QJsonObject>

namespace velctl {

enum class ModuleState { Running, Saved, Stopped, Traced, Unresponsive };

struct ModuleReport {
    QString module;
    QString uniqueName;
    ProcessInfo process;
    ModuleState state = ModuleState::Unresponsive;
    QString introspection; ///< what it answered; empty unless it runs

    QString stateText() const;
    Colour stateColour() const;
    QJsonObject toJson() const;
};

/// Looks at modules, all at once. Modules whose process is stopped are not called: the call would wait in the
/// bus for them, and be answered to nobody when they go on. Those that are not on the bus are left out.
QList<ModuleReport> lookAt(Bus& bus, const QStringList& modules, int patienceMs);

/// Looks at one module that has to be there and not stopped. Throws a Failure otherwise, that says so:
/// "cannot VERB 'OBJECT': REASON; CONSEQUENCE".
ModuleReport requireModule(Bus& bus, const QString& verb, const QString& object, const QString& module, int patienceMs);

/// Why a module does not do what it was asked, from what is known of its process now. For the end of the
/// time limit: asks the kernel only.
QString whySilent(const ModuleReport& report);

/// The status that a module which was needed and is in this state makes.
Status statusFor(ModuleState state);

} // namespace velctl
