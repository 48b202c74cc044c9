// Reads recordings, whoever wrote them.
#include "recording/Reader.h"

#include <pcap/pcap.h>

namespace recording {

Reader::Reader(const std::string& path) {
    char problem[PCAP_ERRBUF_SIZE] = {};
    m_file = pcap_open_offline_with_tstamp_precision(path.c_str(), PCAP_TSTAMP_PRECISION_NANO, problem);
    if (!m_file)
        throw Error(problem);
    if (const int type = pcap_datalink(m_file); type != DLT_DBUS) {
        const char* const name = pcap_datalink_val_to_name(type);
        pcap_close(m_file);
        throw Error("it is a recording of something else than D-Bus: " + (name ? name : std::to_string(type)));
    }
}

Reader::~Reader() {
    pcap_close(m_file);
}

bool Reader::next(Packet& packet) {
    constexpr Time second = 1000000000;
    pcap_pkthdr* header = nullptr;
    const u_char* bytes = nullptr;
    for (;;) {
        const int result = pcap_next_ex(m_file, &header, &bytes);
        if (result == PCAP_ERROR_BREAK)
            return false;
        if (result < 0) {
            m_problem = pcap_geterr(m_file);
            return false;
        }
        packet.message = {reinterpret_cast<const char*>(bytes), header->caplen};
        if (header->caplen == header->len && readHeader(packet.message, packet.header)) {
            packet.time = Time(header->ts.tv_sec) * second + header->ts.tv_usec;
            return true;
        }
        ++m_unreadable;
    }
}

} // namespace recording
