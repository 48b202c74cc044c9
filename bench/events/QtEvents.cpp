// The same events, written by hand with Qt D-Bus. The ways to receive are those of VelEvents.cpp; none is shared.
#include "support/HandWrittenEvent.h"
#include "support/Streaming.h"

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>

namespace {

const QString interface = QStringLiteral("org.vel.bench.Events");
const QString member = QStringLiteral("measured");

/// Returns when the bus has taken what this process sent before.
void meetTheBus(const QDBusConnection& connection) {
    measure::require(connection.interface()->call(QStringLiteral("GetId")).type() == QDBusMessage::ReplyMessage,
                     "no answer from the bus");
}

void publish(const QDBusConnection& connection, int number, double now) {
    static const QMap<QString, QString> types{
        {"count", "int"}, {"flag", "bool"}, {"ratio", "double"}, {"tags", "QStringList"}, {"title", "QString"}};
    HandWrittenEvent event;
    event.name = member;
    event.count = measure::argumentCount;
    event.types = types;
    event.arguments = {{"count", number},
                       {"flag", true},
                       {"ratio", now},
                       {"tags", QStringList{"red", "green", "blue"}},
                       {"title", QStringLiteral("a title")}};
    QDBusMessage signal = QDBusMessage::createSignal(QStringLiteral("/Publisher"), interface, member);
    signal << QVariant::fromValue(event);
    measure::require(connection.send(signal), "cannot publish");
}

} // namespace

class Receiver : public QObject {
    Q_OBJECT
public:
    explicit Receiver(measure::Tally& tally) : m_tally(tally) {}

public Q_SLOTS:
    void take(const HandWrittenEvent& event) {
        const QVariantMap& arguments = event.arguments;
        const bool isWhole = event.count == measure::argumentCount && arguments.size() == measure::argumentCount &&
                             event.types.size() == measure::argumentCount && arguments.value("flag").toBool() &&
                             arguments.value("tags").toStringList().size() == 3 &&
                             arguments.value("title").toString().size() == 7;
        m_tally.take({arguments.value("count").toInt(), arguments.value("ratio").toDouble(), isWhole});
    }
    void ignore(const HandWrittenEvent&) {}

private:
    measure::Tally& m_tally;
};

int receive(QCoreApplication& application, QDBusConnection& connection, int events, const QByteArray& way) {
    const int receivers = way == "twenty" ? 20 : 1;
    measure::Tally tally(events, receivers);
    bool connected = true;
    for (int each = 0; each < receivers; ++each) {
        auto* receiver = new Receiver(tally);
        receiver->setParent(&application);
        connected = connection.connect("", "", interface, member, receiver, SLOT(take(HandWrittenEvent))) && connected;
    }
    Receiver aside(tally);
    for (int other = 0; way == "beside" && other < 200; ++other)
        connected = connection.connect("", "", interface, QStringLiteral("other_%1").arg(other), &aside,
                                       SLOT(ignore(HandWrittenEvent))) &&
                    connected;
    measure::require(connected, "cannot subscribe");
    meetTheBus(connection);
    tally.begin();
    return application.exec();
}

int main(int argc, char** argv) {
    QCoreApplication application(argc, argv);
    registerHandWrittenEvent();
    QDBusConnection connection = QDBusConnection::sessionBus();
    if (argc >= 4 && qstrcmp(argv[1], "receive") == 0)
        return receive(application, connection, QByteArray(argv[2]).toInt(), argv[3]);
    return measure::servePublishing([&](int number, double now) { publish(connection, number, now); },
                                    [&] { meetTheBus(connection); });
}

#include "QtEvents.moc"
