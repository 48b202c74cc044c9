// Writes messages into recordings that others read.
#include "recording/Writer.h"

#include "recording/Monitor.h"

#include <pcap/pcap.h>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

namespace recording {

namespace {

constexpr std::size_t mostKept = 256 * 1024;
constexpr Time second = 1000000000;

[[noreturn]] void refuse(const std::string& reason) {
    throw Error(reason);
}

} // namespace

ssize_t Writer::takeBytes(void* writer, const char* bytes, std::size_t count) {
    auto& kept = static_cast<Writer*>(writer)->m_kept;
    kept.insert(kept.end(), bytes, bytes + count);
    return static_cast<ssize_t>(count);
}

Writer::Writer(const std::string& path, const Rotation& rotation, Begin begin)
    : m_wanted(path), m_rotation(rotation), m_begin(std::move(begin)) {
    m_format = pcap_open_dead_with_tstamp_precision(DLT_DBUS, longestMessage, PCAP_TSTAMP_PRECISION_NANO);
    if (!m_format)
        throw std::bad_alloc();
    try {
        open();
    } catch (...) {
        pcap_close(m_format);
        throw;
    }
}

Writer::~Writer() {
    close();
    pcap_close(m_format);
}

// "a.pcap" to "a.00001.pcap".
std::string Writer::nextPath() {
    if (m_rotation.size == 0)
        return m_wanted;
    const std::size_t folderEnd = m_wanted.rfind('/') == std::string::npos ? 0 : m_wanted.rfind('/') + 1;
    std::size_t suffix = m_wanted.rfind('.');
    if (suffix == std::string::npos || suffix <= folderEnd)
        suffix = m_wanted.size();
    const auto numbered = [&](int number) {
        char text[16];
        std::snprintf(text, sizeof text, ".%05d", number);
        return m_wanted.substr(0, suffix) + text + m_wanted.substr(suffix);
    };
    std::string path;
    do
        path = numbered(++m_number);
    while (access(path.c_str(), F_OK) == 0);
    return path;
}

void Writer::open() {
    m_path = nextPath();
    const bool isOutput = m_path == "-";
    constexpr int mode = 0640; // what modules say to each other is not for everybody
    const int descriptor = isOutput ? fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 0)
                                    : ::open(m_path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, mode);
    if (descriptor < 0)
        refuse(errno == EEXIST ? "there is such a file already" : std::strerror(errno));
    m_descriptor = descriptor;
    m_size = 0;
    FILE* const file = fopencookie(this, "w", {nullptr, &Writer::takeBytes, nullptr, nullptr});
    if (!file)
        throw std::bad_alloc();
    std::setvbuf(file, nullptr, _IONBF, 0); // m_kept is the buffer
    m_dumper = pcap_dump_fopen(m_format, file);
    if (!m_dumper)
        refuse(pcap_geterr(m_format));
    m_files.push_back(m_path);
    ++m_counts.files;
    if (!flush())
        refuse(m_counts.reason);
}

void Writer::close() {
    if (!m_dumper)
        return;
    (void)flush();
    pcap_dump_close(m_dumper);
    m_dumper = nullptr;
    ::close(m_descriptor);
    m_descriptor = -1;
}

void Writer::rotate() {
    close();
    m_ownMessages = 0;
    try {
        open();
    } catch (const Error& error) { // the next message tries again
        m_counts.reason = error.what();
        return;
    }
    while (m_rotation.keep > 0 && m_files.size() > static_cast<std::size_t>(m_rotation.keep)) {
        (void)unlink(m_files.front().c_str());
        m_files.pop_front();
    }
    m_isBeginning = true; // what begins a file does not begin another one
    if (m_begin)
        m_begin(*this);
    m_isBeginning = false;
}

void Writer::add(Time time, std::string_view message) {
    constexpr std::size_t packetHeader = 16;
    const std::size_t size = packetHeader + message.size();
    const bool isOver = m_rotation.size > 0 && m_size + m_kept.size() + size > m_rotation.size;
    if (!m_isBeginning && (!m_dumper || (isOver && m_ownMessages > 0)))
        rotate();
    if (!m_dumper) {
        ++m_counts.lost;
        return;
    }
    if (m_kept.size() + size > mostKept)
        (void)flush();
    pcap_pkthdr header{};
    header.ts.tv_sec = static_cast<time_t>(time / second);
    header.ts.tv_usec = static_cast<suseconds_t>(time % second); // nanoseconds: the precision says so
    header.caplen = header.len = static_cast<bpf_u_int32>(message.size());
    pcap_dump(reinterpret_cast<u_char*>(m_dumper), &header, reinterpret_cast<const u_char*>(message.data()));
    ++m_keptMessages;
    m_ownMessages += m_isBeginning ? 0 : 1;
}

bool Writer::flush() {
    std::size_t written = 0;
    bool isWritten = true;
    while (written < m_kept.size() && isWritten) {
        const ssize_t count = write(m_descriptor, m_kept.data() + written, m_kept.size() - written);
        if (count > 0)
            written += static_cast<std::size_t>(count);
        else if (count == 0 || errno != EINTR)
            isWritten = false;
    }
    if (isWritten) {
        m_size += m_kept.size();
        m_counts.messages += m_keptMessages;
        m_counts.bytes += m_kept.size();
    } else {
        m_counts.reason = std::strerror(errno);
        m_counts.lost += m_keptMessages;
        // Back to the last whole packet; a pipe takes nothing back, but its reader has gone then.
        if (ftruncate(m_descriptor, static_cast<off_t>(m_size)) == 0)
            (void)lseek(m_descriptor, static_cast<off_t>(m_size), SEEK_SET);
    }
    m_kept.clear();
    m_keptMessages = 0;
    return isWritten;
}

} // namespace recording
