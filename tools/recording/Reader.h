// Reads recordings, whoever wrote them.
#pragma once

#include "recording/Monitor.h"
#include "recording/Traffic.h"

struct pcap;

namespace recording {

class Reader {
public:
    /// Opens a recording: pcap or pcapng, of the link type of D-Bus; "-" is standard input. Throws an Error for anything
    /// else.
    explicit Reader(const std::string& path);
    ~Reader();
    Reader(const Reader&) = delete;
    Reader& operator=(const Reader&) = delete;

    /// One message of the recording; its bytes are gone with the next one.
    struct Packet {
        Time time = 0;
        Header header;
        std::string_view message;
    };

    /// The next message. False at the end, and where the file goes on with what is no recording: see problem(). What is
    /// no message is left out, and counted.
    [[nodiscard]] bool next(Packet& packet);

    /// Why the rest of the file cannot be read, as a clause; empty when there is none.
    const std::string& problem() const { return m_problem; }

    /// How many packets were no messages.
    std::uint64_t unreadable() const { return m_unreadable; }

private:
    pcap* m_file = nullptr;
    std::string m_problem;
    std::uint64_t m_unreadable = 0;
};

} // namespace recording
