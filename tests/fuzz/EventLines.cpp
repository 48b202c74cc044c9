// Any text as a line for `velctl publish --json -`: what is taken for an event goes over a bus, and is then what the
// line said.
#include "Target.h"

#include "Event.h"

#include <QJsonDocument>

namespace {

QByteArray lineOf(DBusMessage* event) {
    QByteArray line;
    wire::writeEventJson(event, [&line](const QByteArray& piece) { line += piece; });
    QJsonObject object = QJsonDocument::fromJson(line).object();
    object.remove("time");
    return QJsonDocument(object).toJson(QJsonDocument::Compact);
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const QJsonDocument document = QJsonDocument::fromJson(fuzz::bytesOf(data, size));
    if (!document.isObject())
        return 0;
    try {
        const wire::Message event = wire::eventFromJson(document.object(), "velctl");
        const wire::Message received = wire::fromBytes(wire::toBytes(event.get())); // which validates, as a bus does
        fuzz::require(lineOf(received.get()) == lineOf(event.get()), "what arrives is what was sent");
        const wire::Message again =
            wire::eventFromJson(QJsonDocument::fromJson(lineOf(event.get())).object(), "velctl");
        fuzz::require(wire::toBytes(again.get()) == wire::toBytes(event.get()), "its line gives the same bytes");
        velctl::eventLine(event.get());
    } catch (const wire::Error& error) {
        fuzz::require(!error.reason.isEmpty(), "a refusal has a reason");
    }
    return 0;
}
