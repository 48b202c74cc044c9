// A file in memory, of a size that nobody can change: so no module can fill the memory with it, and none ever waits for the
// supervisor to read it, as it would with a pipe.
#include "LastError.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

namespace {

constexpr int size = 1024; // bytes, zeros behind the text

} // namespace

LastError::LastError() : m_file(memfd_create("vel-last-error", MFD_CLOEXEC | MFD_ALLOW_SEALING)) {
    if (m_file < 0 || (ftruncate(m_file, size) == 0 && fcntl(m_file, F_ADD_SEALS, F_SEAL_SHRINK | F_SEAL_GROW) == 0))
        return;
    close(m_file);
    m_file = -1;
}

LastError::~LastError() {
    if (m_file >= 0)
        close(m_file);
}

QString LastError::path() const {
    return m_file < 0 ? QString() : QString("/proc/%1/fd/%2").arg(getpid()).arg(m_file);
}

void LastError::clear() {
    const char zeros[size] = {};
    [[maybe_unused]] const ssize_t written = pwrite(m_file, zeros, size, 0);
}

QString LastError::text() const {
    char text[size + 1] = {};
    return pread(m_file, text, size, 0) > 0 ? QString::fromUtf8(text).trimmed() : QString();
}
