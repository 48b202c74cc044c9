// Any bytes as the supervisor's configuration file.
#include "Target.h"

#include "Configuration.h"

#include <sys/mman.h>
#include <unistd.h>

namespace {

// A file without a disk, made once: only its content changes.
QString fileOf(const std::uint8_t* data, std::size_t size) {
    static const int file = memfd_create("configuration", MFD_CLOEXEC);
    const bool isWritten =
        file >= 0 && ftruncate(file, 0) == 0 && pwrite(file, data, size, 0) == static_cast<ssize_t>(size);
    fuzz::require(isWritten, "there is memory for the file");
    return QString("/proc/self/fd/%1").arg(file);
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const QString fileName = fileOf(data, size);
    QStringList mistakes;
    const Configuration configuration = Configuration::read(fileName, mistakes);

    const int lines = 1 + fuzz::bytesOf(data, size).count('\n');
    for (const QString& mistake : mistakes) {
        const int line = mistake.section(':', 1, 1).toInt();
        fuzz::require(line >= 1 && line <= lines, "a mistake names a line of the file");
        fuzz::require(!mistake.contains(QChar(0)), "a mistake can be shown to its end");
    }
    if (!mistakes.isEmpty())
        return 0;
    fuzz::require(!configuration.modules.isEmpty(), "a good configuration has a module");
    for (const ModuleConfiguration& module : configuration.modules) {
        fuzz::require(!module.name.isEmpty() && !module.program.isEmpty(), "every module can be started");
        for (const QString& argument : module.arguments)
            fuzz::require(!argument.contains(QChar(0)), "an argument can be passed on to its end");
    }
    return 0;
}
