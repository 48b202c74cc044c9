// The version block and the memory map, kept in the process's memory from start-up on.
#include "module/StartUpRecord.h"

#include "VelVersionStamp.h" // made by the build from its configuration

#include <QCoreApplication>
#include <QFile>

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

// What is read stays for the life of the process, so nothing more than it may stay with it: QIODevice::readAll() takes
// several times the size of a file that does not tell its size, as those of /proc, and a heap seldom gives back.
void replaceByFile(QByteArray& content, const QString& path) {
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly | QIODevice::Text | QIODevice::Unbuffered))
        return;
    content.clear();
    char part[4096];
    for (qint64 size = file.read(part, sizeof part); size > 0; size = file.read(part, sizeof part))
        content.append(part, static_cast<int>(size));
    content.squeeze();
}

} // namespace

namespace vel {

QByteArray versionBlock;
QByteArray memoryMapSnapshot;

void recordVersions() {
    replaceByFile(versionBlock, QStringLiteral("/etc/") + QStringLiteral("/versions"));
    for (const StampLine& line : versionStamp)
        versionBlock.append('\n').append(line.key).append('=').append(line.value).append('\n');
}

void recordMemoryMap() {
    replaceByFile(memoryMapSnapshot, QStringLiteral("/proc/%1/maps").arg(QCoreApplication::applicationPid()));
}

} // namespace vel
