// The version block and the memory map, kept in the process's memory from start-up on.
#include "module/StartUpRecord.h"

#include "VelVersionStamp.h" // made by the build from its configuration

#include <fcntl.h>
#include <unistd.h>

namespace {

struct StampLine {
    const char* key;
    const char* value;
};

const StampLine versionStamp[] = {
    {"VersionRelease", VEL_VERSION_RELEASE}, {"VersionSoft", VEL_VERSION_SOFT},
    {"VersionBuild", VEL_VERSION_BUILD},     {"VersionDate", VEL_VERSION_DATE},
    {"VersionRange", VEL_VERSION_RANGE},     {"VersionAppmode", VEL_VERSION_APPMODE},
};

// Plain system calls: a QFile costs a start more than the reading. What is read stays for the life of the process, so
// nothing more than it may stay with it.
void replaceByFile(QByteArray& content, const char* path) {
    const int file = open(path, O_RDONLY | O_CLOEXEC);
    if (file < 0)
        return;
    content.clear();
    char part[4096];
    for (ssize_t size = read(file, part, sizeof part); size > 0; size = read(file, part, sizeof part))
        content.append(part, static_cast<int>(size));
    close(file);
    if (content.contains('\r'))
        content.replace("\r", ""); // as a text's line ends are read
    content.squeeze();
}

} // namespace

namespace vel {

QByteArray versionBlock;
QByteArray memoryMapSnapshot;

void recordVersions() {
    replaceByFile(versionBlock, "/etc/versions");
    for (const StampLine& line : versionStamp)
        versionBlock.append('\n').append(line.key).append('=').append(line.value).append('\n');
}

void forEachStampLine(const std::function<void(const char* key, const char* value)>& visit) {
    for (const StampLine& line : versionStamp)
        visit(line.key, line.value);
}

void recordMemoryMap() {
    replaceByFile(memoryMapSnapshot, "/proc/self/maps");
}

} // namespace vel
