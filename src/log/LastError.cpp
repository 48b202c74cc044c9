// The last error line that this library has written.
#include "log/LastError.h"

#include <QDateTime>

#include <mutex>

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

} // namespace

void vel::keepLastError(const QString& text) {
    const std::lock_guard<std::mutex> lock(kept().mutex);
    kept().error = {text.left(longestKept), QDateTime::currentMSecsSinceEpoch()};
}

vel::LastError vel::lastError() {
    const std::lock_guard<std::mutex> lock(kept().mutex);
    return kept().error;
}
