// Any message as an event: what a module does with it, and what velctl does.
//
// The input is what fuzz::signalOf() takes.
#include "Peer.h"
#include "Target.h"

#include "Event.h"
#include "bus/BusNames.h"
#include "events/Marshallable.h"
#include "events/VelDBusTypes.h"

#include <QCoreApplication>
#include <QDBusMessage>
#include <QJsonDocument>
#include <QJsonObject>

namespace {

const QString eventSignature = "(ssia{ss}a{sv})";

QJsonObject lineOf(DBusMessage* event) {
    QByteArray line;
    wire::writeEventJson(event, [&line](const QByteArray& piece) { line += piece; });
    QJsonParseError error;
    QJsonObject object = QJsonDocument::fromJson(line, &error).object();
    fuzz::require(error.error == QJsonParseError::NoError && !line.contains('\n'), "an event is one line of JSON");
    object.remove("time");
    return object;
}

// Every event line that `velctl watch --json` writes is one that `velctl publish --json -` reads.
void comesBackFromItsLine(DBusMessage* event) {
    velctl::eventLine(event);
    const QJsonObject line = lineOf(event);
    try {
        const wire::Message again = wire::eventFromJson(line, "velctl");
        fuzz::require(lineOf(again.get()) == line, "an event comes back from its line");
    } catch (const wire::Error& error) {
        // A descriptor means nothing to another process; and libdbus itself takes one level more than others do.
        const QByteArray text = QJsonDocument(line).toJson(QJsonDocument::Compact);
        fuzz::require(text.contains('h') || error.reason.contains("nested deeper"), error.what());
    }
}

} // namespace

class Ear : public QObject {
    Q_OBJECT
public Q_SLOTS:
    void heard(const VelEvent& event, const QDBusMessage& message) {
        if (!message.signature().startsWith(eventSignature))
            fuzz::require(event.getEvtName().isEmpty() && event.getArguments().isEmpty() &&
                              event.getArgTypes().isEmpty(),
                          "what is no event is read as an empty one");
        const VelEvent copy(event);
        for (const QString& name : copy.getArguments().keys())
            vel::isMarshallable(QVariantList{event.getArgument(name)});
        fuzz::require(vel::isMarshallable(QVariantList{QVariant::fromValue(copy)}) || event.argumentCount() > 0,
                      "an event without arguments can be sent on");
    }
};

namespace {

struct Listening {
    Listening() {
        registerCoreDBusTypes();
        fuzz::require(peer.connection().connect(QString(), QString(), vel::bus::commonInterface(), "event", &ear,
                                                SLOT(heard(VelEvent, QDBusMessage))),
                      "Qt hears events");
    }

    int argumentCount = 0;
    QCoreApplication application{argumentCount, nullptr};
    fuzz::Peer peer;
    Ear ear;
};

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static auto* listening = new Listening; // for the life of the process: Qt's thread ends with it
    if (const RawMessage message = fuzz::signalOf(fuzz::bytesOf(data, size), "event")) {
        listening->peer.deliver(message.get());
        comesBackFromItsLine(message.get());
    }
    return 0;
}

#include "EventReader.moc"
