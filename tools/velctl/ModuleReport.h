// How a module is: on the bus, in the kernel's eyes, and whether its event loop answers.
#pragma once

#include "Bus.h"
#include "Output.h"
#include "Status.h"

#include "process/ProcessInfo.h"

#include <QJsonObject>

namespace velctl {

enum class ModuleState { Running, Saved, Stopped, Traced, Unresponsive };

struct ModuleReport {
    QString module;
    QString uniqueName;
    ProcessInfo process;
    ModuleState state = ModuleState::Unresponsive;
    QJsonObject info;      ///< what it told of itself under the names of its properties; empty when it was not asked
    QString introspection; ///< what it answered; empty unless it runs, and when no description is that long

    QString stateText() const;
    Colour stateColour() const;
    QJsonObject toJson() const;
};

/// What modules are asked, which is answered in the thread of their event loops: for their methods, or for what they
/// tell of themselves.
enum class Question { Methods, Info };

/// Looks at modules, all at once, until `end`. Modules whose process is stopped are not called: the call would wait in
/// the bus for them, and be answered to nobody when they go on. Those that are not on the bus are left out.
QList<ModuleReport> lookAt(Bus& bus, const QStringList& modules, const QDeadlineTimer& end,
                           Question question = Question::Methods);

/// What one module tells of itself; empty when it does not answer, or knows no such question.
QJsonObject infoOf(Bus& bus, const ModuleReport& report, const QDeadlineTimer& end);

/// Looks at one module that has to be there and not stopped. Throws a Failure otherwise, that says so:
/// "cannot VERB 'OBJECT': REASON; CONSEQUENCE".
ModuleReport requireModule(Bus& bus, const QString& verb, const QString& object, const QString& module,
                           const QDeadlineTimer& end);

/// The values of a dictionary with texts as keys, a{sv} in JSON, under their keys.
QJsonObject propertiesIn(const QJsonArray& dictionary);

/// A question that a module answers in the thread of its event loop.
wire::Message signOfLifeFrom(const ModuleReport& report);

/// Whether an answer to it is one: an error of the module's own is.
bool isSignOfLife(DBusMessage* answer);

/// Why a module does not do what it was asked, from what is known of its process now. For the end of the
/// time limit: asks the kernel only.
QString whySilent(const ModuleReport& report);

/// The status that a module which was needed and is in this state makes.
Status statusFor(ModuleState state);

} // namespace velctl
