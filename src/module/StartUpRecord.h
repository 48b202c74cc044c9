// What a running module knows of its build and of its own memory: for whoever reads the memory of a dead process.
#pragma once

#include <QByteArray>

#include <functional>

namespace vel {

/// The content of /etc/versions, then the six lines of the build's version stamp. Nothing in the library reads it: it
/// is found in a core file or a memory dump, next to the map that says what was loaded where.
extern QByteArray versionBlock;

/// /proc/PID/maps as it was at start-up.
extern QByteArray memoryMapSnapshot;

/// Fills both. A file that cannot be read contributes nothing.
void recordVersions();
void recordMemoryMap();

/// The lines of the build's version stamp, in their order.
void forEachStampLine(const std::function<void(const char* key, const char* value)>& visit);

} // namespace vel
