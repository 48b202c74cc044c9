// The header of a message in its wire form, without a message object.
//
// A recorder looks at each message that passes, and at nothing but who sends what to whom. libdbus reads a message only
// as a whole: it copies it and checks every value in its body.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace recording {

/// What libdbus calls the types of messages, as numbers of the wire form.
enum class Type : std::uint8_t { Invalid, Call, Return, Error, Signal };

/// The texts are pieces of the message, and live as long as it; those that it has not are empty.
struct Header {
    Type type = Type::Invalid;
    bool wantsAnswer = false; ///< of a call
    std::uint32_t serial = 0;
    std::uint32_t answers = 0; ///< the serial of the call that this answers; 0 when it is no answer
    std::size_t size = 0;      ///< of the whole message
    std::size_t bodyBegin = 0;
    std::string_view sender;
    std::string_view destination;
    std::string_view path;
    std::string_view interface;
    std::string_view member;
    std::string_view error;
    std::string_view signature;
};

/// What a message begins with, whatever it is; enough to know how long it is.
constexpr std::size_t fixedHeaderSize = 16;

/// The longest message that a bus carries.
constexpr std::size_t longestMessage = 128 << 20;

/// The size of the message that begins there, of which at least fixedHeaderSize bytes are there; 0 for what is no
/// message.
std::size_t messageSize(const char* bytes);

/// Reads the header of exactly one message. False for what is none. It accepts every message that libdbus accepts; that
/// the values in its body are whole is not looked at.
[[nodiscard]] bool readHeader(std::string_view message, Header& header);

} // namespace recording
