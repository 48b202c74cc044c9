// The header of a message in its wire form: 16 fixed bytes, the last four of them the length of an array of (number,
// variant) pairs, then zeros up to a multiple of eight, then the body.
#include "recording/Header.h"

#include <cstring>

namespace recording {

namespace {

enum Field : std::uint8_t { Path = 1, Interface, Member, ErrorName, ReplySerial, Destination, Sender, Signature };

constexpr std::size_t largestArray = 64 << 20;
constexpr std::size_t fieldAlignment = 8;

bool isSwapped(char order) {
#if __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
    return order == 'B';
#else
    return order == 'l';
#endif
}

std::uint32_t numberAt(const char* at, bool swapped) {
    std::uint32_t number = 0;
    std::memcpy(&number, at, sizeof number);
    return swapped ? __builtin_bswap32(number) : number;
}

std::size_t aligned(std::size_t offset, std::size_t alignment) {
    return (offset + alignment - 1) / alignment * alignment;
}

// Walks the array of fields; every step looks at the end first.
class Fields {
public:
    Fields(std::string_view message, std::size_t end, bool swapped)
        : m_bytes(message.data()), m_end(end), m_isSwapped(swapped) {}

    bool isAtEnd() const { return m_at >= m_end; }

    bool read(Header& header) {
        m_at = aligned(m_at, fieldAlignment);
        std::uint8_t code = 0, typeLength = 0;
        if (!byte(code) || !byte(typeLength))
            return false;
        const std::size_t type = m_at;
        if (m_end - m_at < typeLength + std::size_t(1))
            return false;
        m_at += typeLength + std::size_t(1);
        if (typeLength != 1)
            return false; // all fields that there are have simple types
        return value(code, m_bytes[type], header);
    }

private:
    bool byte(std::uint8_t& result) {
        if (m_at >= m_end)
            return false;
        result = static_cast<std::uint8_t>(m_bytes[m_at++]);
        return true;
    }

    bool number(std::uint32_t& result) {
        const std::size_t at = aligned(m_at, sizeof result);
        if (at > m_end || m_end - at < sizeof result)
            return false;
        result = numberAt(m_bytes + at, m_isSwapped);
        m_at = at + sizeof result;
        return true;
    }

    bool text(std::size_t length, std::string_view& result) {
        if (m_at > m_end || m_end - m_at < length + 1 || m_bytes[m_at + length] != 0)
            return false;
        result = {m_bytes + m_at, length};
        m_at += length + 1;
        return true;
    }

    bool value(std::uint8_t code, char type, Header& header) {
        std::string_view read;
        std::uint32_t count = 0;
        std::uint8_t length = 0;
        switch (type) {
        case 'u':
            if (!number(count))
                return false;
            if (code == ReplySerial)
                header.answers = count;
            return true;
        case 's':
        case 'o':
            if (!number(count) || !text(count, read))
                return false;
            break;
        case 'g':
            if (!byte(length) || !text(length, read))
                return false;
            break;
        default:
            return false;
        }
        if (std::string_view* const place = placeOf(code, header))
            *place = read;
        return true;
    }

    static std::string_view* placeOf(std::uint8_t code, Header& header) {
        switch (code) {
        case Path:
            return &header.path;
        case Interface:
            return &header.interface;
        case Member:
            return &header.member;
        case ErrorName:
            return &header.error;
        case Destination:
            return &header.destination;
        case Sender:
            return &header.sender;
        case Signature:
            return &header.signature;
        default:
            return nullptr;
        }
    }

    const char* const m_bytes;
    const std::size_t m_end;
    const bool m_isSwapped;
    std::size_t m_at = fixedHeaderSize;
};

} // namespace

std::size_t messageSize(const char* bytes) {
    if ((bytes[0] != 'l' && bytes[0] != 'B') || bytes[1] == 0 || bytes[3] != 1)
        return 0;
    const bool swapped = isSwapped(bytes[0]);
    const std::size_t body = numberAt(bytes + 4, swapped);
    const std::size_t fields = numberAt(bytes + 12, swapped);
    if (fields > largestArray || body > longestMessage)
        return 0;
    const std::size_t size = aligned(fixedHeaderSize + fields, fieldAlignment) + body;
    return size > longestMessage ? 0 : size;
}

bool readHeader(std::string_view message, Header& header) {
    constexpr char noReplyExpected = 1;
    if (message.size() < fixedHeaderSize || messageSize(message.data()) != message.size())
        return false;
    const char* const bytes = message.data();
    const bool swapped = isSwapped(bytes[0]);
    const std::size_t end = fixedHeaderSize + numberAt(bytes + 12, swapped);
    header = Header();
    const auto type = static_cast<unsigned char>(bytes[1]);
    header.type = type > static_cast<unsigned char>(Type::Signal) ? Type::Invalid : Type(type);
    header.wantsAnswer = header.type == Type::Call && (bytes[2] & noReplyExpected) == 0;
    header.serial = numberAt(bytes + 8, swapped);
    header.size = message.size();
    header.bodyBegin = aligned(end, fieldAlignment);
    Fields fields(message, end, swapped);
    while (!fields.isAtEnd()) {
        if (!fields.read(header))
            return false;
    }
    return header.serial != 0;
}

} // namespace recording
