// What somebody has thrown, in words.
#pragma once

#include <QString>

#include <typeinfo>

namespace vel {

/// The readable name of a type, without the mark of an anonymous namespace.
QString nameOfType(const std::type_info& type);

/// The readable name of the type of the exception that is being handled. To be called in a catch block.
QString typeOfCurrentException();

/// The exception that is being handled, for a log line: "std::runtime_error 'no such device'", "'text'" for a QString,
/// "int" for a type without a text; the text made safe. To be called in a catch block; deletes nothing.
QString describeCurrentException();

} // namespace vel
