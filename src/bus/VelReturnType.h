// Which Qt type a method of another module returns.
#pragma once

#include "platform/VelExport.h"

#include <QString>

/// Tells the Qt type that a method of a module's common interface returns, by the module's introspection data.
///
/// The first question about a module blocks for one introspection call, which describes all its methods; what was
/// described is answered from a cache for the life of the process, without bus traffic, also when the module has
/// changed or gone. A method that was not found is looked for again at the next question.
///
/// Thread:   the one of the event loop.
/// Result:   "type:container:key": "QString::", "int:list:", "QVariant:map:QString", "::" when nothing is known of
///           the type; an empty text when the module has no such method with an out argument of that `signature` (for
///           example "s" or "a{sv}"; empty for a method without out argument).
/// Errors:   throws a QString when the module does not answer the introspection call.
VEL_EXPORT QString getReturnType(const QString& moduleName, const QString& methodName, const QString& signature);
