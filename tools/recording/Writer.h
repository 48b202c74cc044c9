// Writes messages into recordings that others read: pcap with the link type of D-Bus and times in nanoseconds.
//
// What must always hold: on the disk stand whole packets. libpcap writes into memory here, and from there whole packets
// go to the file; when the disk takes less than that, what it took of the last one is cut off again. So a process that is
// killed leaves a good file behind, which lacks what came in the last moment.
//
// Thread: one.
#pragma once

#include "recording/Traffic.h"

#include <cstdio>
#include <deque>
#include <memory>
#include <string>
#include <vector>

struct pcap;
struct pcap_dumper;

namespace recording {

/// A recording in files of bounded size: how large one may become, and how many are kept.
struct Rotation {
    std::uint64_t size = 0; ///< bytes; 0 is without end
    int keep = 0;           ///< files; 0 keeps all
};

class Writer {
public:
    /// Called at the beginning of each file but the first one; what it adds stands before everything else.
    using Begin = std::function<void(Writer&)>;

    /// Makes the file; "-" is standard output. With rotation, "a.pcap" becomes "a.00001.pcap" and so on, from the first
    /// number on that is free. Throws an Error when there is such a file, or none can be made.
    explicit Writer(const std::string& path, const Rotation& rotation = {}, Begin begin = nullptr);
    ~Writer();
    Writer(const Writer&) = delete;
    Writer& operator=(const Writer&) = delete;

    void add(Time time, std::string_view message);

    /// Writes what is kept in memory. False when not all of it could be written; it is lost then, and counted.
    bool flush();

    struct Counts {
        std::uint64_t messages = 0; ///< in all files, those included that were removed
        std::uint64_t bytes = 0;
        std::uint64_t lost = 0; ///< messages that could not be written
        std::string reason;     ///< the last one why not; empty while all went well
        int files = 0;
    };
    const Counts& counts() const { return m_counts; }

    /// The file that is being written.
    const std::string& path() const { return m_path; }

private:
    static ssize_t takeBytes(void* writer, const char* bytes, std::size_t count);
    void open();
    void close();
    void rotate();
    std::string nextPath();

    const std::string m_wanted;
    const Rotation m_rotation;
    const Begin m_begin;
    std::string m_path;
    std::deque<std::string> m_files; // written, the oldest first
    int m_number = 0;
    int m_descriptor = -1;
    pcap* m_format = nullptr;
    pcap_dumper* m_dumper = nullptr;
    std::vector<char> m_kept;
    std::uint64_t m_keptMessages = 0;
    std::uint64_t m_size = 0;        // of the file, whole packets
    std::uint64_t m_ownMessages = 0; // in the file, those at its beginning not counted
    bool m_isBeginning = false;
    Counts m_counts;
};

} // namespace recording
