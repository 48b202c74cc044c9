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

#include <algorithm>

namespace {

const QString eventSignature = "(ssia{ss}a{sv})";

bool holdsDescriptor(const velctl::Value& value) {
    return value.type.contains('h') || std::any_of(value.children.begin(), value.children.end(), holdsDescriptor);
}

// Every event line that `velctl watch --json` writes is one that `velctl publish --json -` reads.
void comesBackFromItsLine(const velctl::Event& event) {
    if (std::any_of(event.body.begin(), event.body.end(), holdsDescriptor))
        return; // a descriptor means nothing to another process
    QJsonObject line = event.toJson();
    try {
        const QJsonObject read = QJsonDocument::fromJson(QJsonDocument(line).toJson(QJsonDocument::Compact)).object();
        QJsonObject again = velctl::Event::fromJson(read, "velctl").toJson();
        line.remove("time");
        again.remove("time");
        fuzz::require(again == line, "an event comes back from its line");
    } catch (const QString& reason) {
        fuzz::require(false, qPrintable(reason));
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
            vel::isMarshallable(event.getArgument(name));
        fuzz::require(vel::isMarshallable(QVariant::fromValue(copy)) || event.argumentCount() > 0,
                      "an event without arguments can be sent on");
    }

    void received(const QDBusMessage& message) {
        const velctl::Event event = velctl::Event::fromMessage(message);
        event.line();
        comesBackFromItsLine(event);
    }
};

namespace {

struct Listening {
    Listening() {
        registerCoreDBusTypes();
        const auto connect = [this](const char* slot) {
            return peer.connection().connect(QString(), QString(), vel::bus::commonInterface(), "event", &ear, slot);
        };
        fuzz::require(connect(SLOT(heard(VelEvent, QDBusMessage))) && connect(SLOT(received(QDBusMessage))),
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
    if (const RawMessage message = fuzz::signalOf(fuzz::bytesOf(data, size), "event"))
        listening->peer.deliver(message.get());
    return 0;
}

#include "EventReader.moc"
