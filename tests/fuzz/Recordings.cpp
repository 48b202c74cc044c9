// Any bytes as a message of a recording: its header is what libdbus makes of it, and what it says of names and calls is
// taken or left, but does no harm. And any bytes as a file.
#include "Target.h"

#include "recording/Reader.h"
#include "recording/Writer.h"

#include "wire/Message.h"

#include <sys/mman.h>
#include <unistd.h>

namespace {

bool isSame(std::string_view read, const char* real) {
    return read == (real ? real : "");
}

void compare(const recording::Header& header, DBusMessage* message) {
    fuzz::require(int(header.type) == dbus_message_get_type(message) || header.type == recording::Type::Invalid,
                  "type");
    fuzz::require(header.serial == dbus_message_get_serial(message), "serial");
    fuzz::require(header.answers == dbus_message_get_reply_serial(message), "reply serial");
    fuzz::require(isSame(header.sender, dbus_message_get_sender(message)), "sender");
    fuzz::require(isSame(header.destination, dbus_message_get_destination(message)), "destination");
    fuzz::require(isSame(header.path, dbus_message_get_path(message)), "path");
    fuzz::require(isSame(header.interface, dbus_message_get_interface(message)), "interface");
    fuzz::require(isSame(header.member, dbus_message_get_member(message)), "member");
    fuzz::require(isSame(header.error, dbus_message_get_error_name(message)), "error");
    fuzz::require(isSame(header.signature, dbus_message_get_signature(message)), "signature");
}

void readAsFile(const QByteArray& bytes) {
    const int file = memfd_create("recording", MFD_CLOEXEC);
    fuzz::require(file >= 0 && write(file, bytes.constData(), std::size_t(bytes.size())) == bytes.size(), "a file");
    try {
        recording::Reader reader("/proc/self/fd/" + std::to_string(file));
        recording::Reader::Packet packet;
        recording::Traffic traffic;
        while (reader.next(packet))
            traffic.take(packet.header, packet.message, packet.time);
    } catch (const recording::Error& error) {
        fuzz::require(*error.what() != 0, "a refusal has a reason");
    }
    close(file);
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const QByteArray bytes = fuzz::bytesOf(data, size);
    readAsFile(bytes);
    recording::Header header;
    const std::string_view view(bytes.constData(), size);
    const bool isRead = readHeader(view, header);
    try {
        const wire::Message message = wire::fromBytes(bytes);
        fuzz::require(isRead, "what libdbus reads has a header");
        compare(header, message.get());
    } catch (const wire::Error&) { // only the header is whole then, or not even that
    }
    if (isRead) {
        recording::Traffic traffic;
        traffic.take(header, view, 1);
        traffic.take(header, view, 2);
        int written = 0;
        traffic.writeNames([&](std::string_view message) {
            fuzz::require(readHeader(message, header), "names are written as messages");
            ++written;
        });
        fuzz::require(written % 2 == 0, "a question has an answer");
    }
    return 0;
}
