// Any text as a value on velctl's command line: VALUE, or TYPE:VALUE.
#include "Target.h"

#include "wire/Json.h"
#include "wire/Text.h"

#include <QJsonDocument>

namespace {

template <typename Append>
wire::Message messageOf(Append append) {
    wire::Message message = wire::made(dbus_message_new_signal("/Fuzz", "org.vel.Fuzz", "fuzz"));
    wire::Appender to(message.get());
    append(to);
    return wire::fromBytes(wire::toBytes(message.get())); // which validates, as a bus does
}

template <typename Write>
QByteArray written(const wire::Message& message, Write write) {
    QByteArray text;
    DBusMessageIter value;
    dbus_message_iter_init(message.get(), &value);
    write(&value, [&text](const QByteArray& piece) { text += piece; });
    return text;
}

// By what is written down: it has every type and every bit in it.
QByteArray typedJson(const wire::Message& message) {
    return written(message, wire::writeTypedJson);
}

void canBeWrittenAndRead(const wire::Message& message) {
    const QByteArray json = typedJson(message);
    const QByteArray type = dbus_message_get_signature(message.get());
    const QString text = QString::fromUtf8(' ' + written(message, wire::writeText)).mid(1);
    try {
        const wire::Message fromText = messageOf([&](wire::Appender& to) { wire::appendByType(to, type, text); });
        fuzz::require(typedJson(fromText) == json, "a value comes back from its text");
        const QJsonObject object = QJsonDocument::fromJson(json).object();
        const wire::Message fromJson = messageOf([&](wire::Appender& to) { wire::appendTypedJson(to, object); });
        fuzz::require(typedJson(fromJson) == json, "a value comes back from its JSON");
    } catch (const wire::Error& error) {
        fuzz::require(false, error.what());
    }
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const QString text = QString::fromUtf8(fuzz::bytesOf(data, size));
    const int colon = text.indexOf(QLatin1Char(':'));
    const QByteArray type = colon < 0 ? QByteArray() : wire::typeByName(text.left(colon));
    const auto byForm = [&](wire::Appender& to) { wire::appendByForm(to, text); };
    const auto byType = [&](wire::Appender& to) { wire::appendByType(to, type, text.mid(colon + 1)); };
    for (const bool isTyped : {false, true}) {
        if (isTyped && type.isEmpty())
            continue;
        try {
            const wire::Message message = isTyped ? messageOf(byType) : messageOf(byForm);
            fuzz::require((isTyped ? type : wire::typeByForm(text)) == dbus_message_get_signature(message.get()),
                          "a value has the type that was asked for");
            canBeWrittenAndRead(message);
        } catch (const wire::Error& error) {
            fuzz::require(!error.reason.isEmpty(), "a refusal has a reason");
        }
    }
    return 0;
}
