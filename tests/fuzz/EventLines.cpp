// Any text as a line for `velctl publish --json -`: what is taken for an event is sent, and is then what the line said.
#include "Peer.h"
#include "Target.h"

#include "Event.h"
#include "Failure.h"
#include "ModuleNames.h"

#include <QCoreApplication>
#include <QDBusMessage>
#include <QJsonDocument>

class Ear : public QObject {
    Q_OBJECT
public:
    velctl::Event last;

public Q_SLOTS:
    void received(const QDBusMessage& message) { last = velctl::Event::fromMessage(message); }
};

namespace {

struct Publishing {
    Publishing() {
        fuzz::require(peer.connection().connect(QString(), QString(), velctl::commonInterface(), QString(), &ear,
                                                SLOT(received(QDBusMessage))),
                      "Qt hears events");
    }

    int argumentCount = 0;
    QCoreApplication application{argumentCount, nullptr};
    fuzz::Peer peer;
    Ear ear;
};

QJsonObject withoutTime(QJsonObject line) {
    line.remove(QStringLiteral("time"));
    return line;
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static auto* publishing = new Publishing; // for the life of the process: Qt's thread ends with it
    const QJsonDocument document = QJsonDocument::fromJson(fuzz::bytesOf(data, size));
    if (!document.isObject())
        return 0;
    try {
        const velctl::Event event = velctl::Event::fromJson(document.object(), QStringLiteral("velctl"));
        fuzz::require(publishing->peer.connection().send(event.toMessage()), "what can be sent is sent");
        publishing->peer.deliver(publishing->peer.receive().get());
        fuzz::require(withoutTime(publishing->ear.last.toJson()) == withoutTime(event.toJson()),
                      "what arrives is what the line said");
    } catch (const QString& reason) {
        fuzz::require(!reason.isEmpty(), "a refusal has a reason");
    } catch (const velctl::Failure& failure) {
        fuzz::require(!failure.text.isEmpty(), "a failure has a reason");
    }
    return 0;
}

#include "EventLines.moc"
