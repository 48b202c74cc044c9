// Any text as a value on velctl's command line: VALUE, or TYPE:VALUE.
#include "Target.h"

#include "Signature.h"
#include "ValueJson.h"
#include "ValueText.h"

namespace {

using velctl::Value;

// By what is written down: it has every type and every bit in it.
bool areSame(const Value& one, const Value& other) {
    return velctl::jsonText(velctl::toTypedJson(one)) == velctl::jsonText(velctl::toTypedJson(other));
}

void canBeWrittenAndRead(const Value& value) {
    try {
        fuzz::require(areSame(velctl::byType(value.type, velctl::plainText(value)), value),
                      "a value comes back from its text");
        fuzz::require(areSame(velctl::fromTypedJson(velctl::toTypedJson(value)), value),
                      "a value comes back from its JSON");
    } catch (const QString& reason) {
        fuzz::require(false, qPrintable(reason));
    }
    try {
        velctl::toSend(value);
    } catch (const QString&) {
        // deeper than the bus allows, or one container type too many
    }
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const QString text = QString::fromUtf8(fuzz::bytesOf(data, size));
    canBeWrittenAndRead(velctl::byForm(text));

    const int colon = text.indexOf(QLatin1Char(':'));
    const QByteArray type = velctl::typeByName(text.left(colon));
    if (colon < 0 || type.isEmpty())
        return 0;
    Value value;
    try {
        value = velctl::byType(type, text.mid(colon + 1));
    } catch (const QString& reason) {
        fuzz::require(!reason.isEmpty(), "a refusal has a reason");
        return 0;
    }
    fuzz::require(value.type == type, "a value has the type that was asked for");
    canBeWrittenAndRead(value);
    return 0;
}
