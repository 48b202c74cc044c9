// The last error line that this library has written.
#include "log/LastError.h"

#include <QDateTime>

#include <algorithm>
#include <fcntl.h>
#include <mutex>
#include <unistd.h>

namespace {

constexpr int longestKept = 1000;

struct Kept {
    std::mutex mutex;
    vel::LastError error;
};

// Never destroyed: Qt's D-Bus thread may log while static objects are.
Kept& kept() {
    static auto* const one = new Kept;
    return *one;
}

// A supervisor names a file, in memory, for the line: so that it can be read when this process has ended.
void leaveForSupervisor(const QString& text) {
    static const int file = open(qgetenv("VEL_LAST_ERROR").constData(), O_WRONLY | O_CLOEXEC);
    constexpr int size = 1024; // of that file, which cannot grow
    char bytes[size] = {};
    const QByteArray utf8 = text.toUtf8().left(size);
    std::copy(utf8.cbegin(), utf8.cend(), bytes);
    if (file >= 0) [[maybe_unused]]
        const ssize_t written = pwrite(file, bytes, size, 0);
}

} // namespace

void vel::keepLastError(const QString& text) {
    const std::lock_guard<std::mutex> lock(kept().mutex);
    leaveForSupervisor(text);
    kept().error = {text.left(longestKept), QDateTime::currentMSecsSinceEpoch()};
}

vel::LastError vel::lastError() {
    const std::lock_guard<std::mutex> lock(kept().mutex);
    return kept().error;
}
