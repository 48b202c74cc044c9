// The form in which Qt prints the lines, where the program has not chosen its own.
#include "LogPattern.h"

#include <QString>
#include <QtGlobal>

namespace vellogging {
namespace {

// Qt has no getter for the pattern, but it formats a line on request: only its default pattern, which is
// "%{if-category}%{category}: %{endif}%{message}", makes this of the probe.
bool defaultPatternIsInForce() {
    const QMessageLogContext probe("probe.cpp", 1, "probe", "vel.probe");
    return qFormatLogMessage(QtInfoMsg, probe, QStringLiteral("text")) == QLatin1String("vel.probe: text");
}

QString priorityOrTime() {
    if (qEnvironmentVariableIsSet("JOURNAL_STREAM"))
        return QStringLiteral("<%{if-fatal}3%{endif}%{if-critical}3%{endif}%{if-warning}4%{endif}"
                              "%{if-info}6%{endif}%{if-debug}7%{endif}>");
    return QStringLiteral("%{time yyyy-MM-dd hh:mm:ss.zzz} ");
}

} // namespace

void setPatternUnlessChosen() {
    if (qEnvironmentVariableIsSet("QT_MESSAGE_PATTERN") || !defaultPatternIsInForce())
        return;
    qSetMessagePattern(priorityOrTime() +
                       QStringLiteral("%{category}[%{pid}] %{if-fatal}fatal%{endif}%{if-critical}error%{endif}"
                                      "%{if-warning}warning%{endif}%{if-info}info%{endif}%{if-debug}debug%{endif}"
                                      ": %{message}"));
}

} // namespace vellogging
