// The module's command line.
#pragma once

#include <QMap>
#include <QString>
#include <QStringList>

namespace vel {

/// The options of a command line whose first element is the program: key -> value. Every element is an option; its
/// key is what stands before the first '=' without any dash, its value what stands after it. The last of a key
/// counts.
QMap<QString, QString> readCommandLine(const QStringList& arguments);

/// True when the options ask for the help text.
bool asksForHelp(const QMap<QString, QString>& options);

/// Writes the help text to standard output.
void printHelp();

} // namespace vel
