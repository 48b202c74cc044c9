// The one kind of logger there is: a Qt logging category with a level.
#include "StandinLogger.h"

#include "LogLine.h"

namespace vellogging {
namespace {

// Every VelLogger of this library is a StandinLogger; the interface has no virtual call to get there.
void writeIfPassing(VelLogger* logger, VelSeverity severity, const QString& text) {
    auto* self = static_cast<StandinLogger*>(logger);
    if (passes(severity, self->level()))
        writeLine(severity, self->category(), text);
}

} // namespace

StandinLogger::StandinLogger(const QString& name, int level)
    : m_level(level), m_category(name.isEmpty() ? QByteArrayLiteral("vel") : "vel." + name.toUtf8()) {}

} // namespace vellogging

VelLogger::~VelLogger() = default;

void VelLogger::error(const QString& text) {
    vellogging::writeIfPassing(this, VelSeverity::Error, text);
}
void VelLogger::warning(const QString& text) {
    vellogging::writeIfPassing(this, VelSeverity::Warning, text);
}
void VelLogger::info(const QString& text) {
    vellogging::writeIfPassing(this, VelSeverity::Info, text);
}
void VelLogger::debug(const QString& text) {
    vellogging::writeIfPassing(this, VelSeverity::Debug, text);
}

void VelLogger::debug(const char* text) {
    // Asked here already: the conversion allocates.
    if (vellogging::passes(VelSeverity::Debug, level()))
        debug(QString::fromUtf8(text));
}
