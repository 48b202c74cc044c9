// One log line on its way into Qt's message logging.
#include "LogLine.h"

#include <QDebug>
#include <QMessageLogger>

namespace vellogging {
namespace {

// A stream and not the printf form: that one would read '%' in a text as a conversion and stop at a null character.
QDebug stream(Severity severity, const QMessageLogger& messages) {
    switch (severity) {
    case Severity::Error:
        return messages.critical();
    case Severity::Warning:
        return messages.warning();
    case Severity::Info:
        return messages.info();
    case Severity::Debug:
        break;
    }
    return messages.debug();
}

} // namespace

void writeLine(Severity severity, const QByteArray& category, const QString& text) {
    // No source position: it would be this one, the same for every line.
    const QMessageLogger messages(nullptr, 0, nullptr, category.constData());
    stream(severity, messages).noquote().nospace() << text;
}

} // namespace vellogging
