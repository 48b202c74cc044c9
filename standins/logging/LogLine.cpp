// One log line on its way into Qt's message logging.
#include "LogLine.h"

#include <QDebug>
#include <QMessageLogger>

namespace vellogging {
namespace {

// A stream and not the printf form: that one would read '%' in a text as a conversion and stop at a null character.
QDebug stream(VelSeverity severity, const QMessageLogger& messages) {
    switch (severity) {
    case VelSeverity::Error:
        return messages.critical();
    case VelSeverity::Warning:
        return messages.warning();
    case VelSeverity::Info:
        return messages.info();
    case VelSeverity::Debug:
        break;
    }
    return messages.debug();
}

} // namespace

void writeLine(VelSeverity severity, const QByteArray& category, const QString& text) {
    // No source position: it would be this one, the same for every line.
    const QMessageLogger messages(nullptr, 0, nullptr, category.constData());
    stream(severity, messages).noquote().nospace() << text;
}

} // namespace vellogging
