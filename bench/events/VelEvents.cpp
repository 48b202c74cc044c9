// Events as modules publish and receive them. The ways to receive:
//
//     one      one subscription
//     twenty   twenty receivers in this process, each with a subscription of its own
//     shared   twenty receivers in this process behind one subscription, which hands the event on
//     beside   one subscription beside two hundred to other events
#include "support/Streaming.h"

#include <VelApplication>
#include <VelModule>

#include <QDBusConnectionInterface>
#include <QTimer>

namespace {

const QString eventName = QStringLiteral("measured");

/// Returns when the bus has taken what this process sent before.
void meetTheBus(const QDBusConnection& connection) {
    measure::require(connection.interface()->call(QStringLiteral("GetId")).type() == QDBusMessage::ReplyMessage,
                     "no answer from the bus");
}

} // namespace

class Publisher : public VelModule {
public:
    Publisher() : VelModule("Publisher") {}

    bool run() override {
        QTimer::singleShot(0, this, [this] {
            measure::servePublishing([this](int number, double now) { publish(number, now); },
                                     [this] { meetTheBus(m_connection); });
        });
        return true;
    }

private:
    void publish(int number, double now) {
        const bool published = notifyEvent(eventName, {{"count", number},
                                                       {"flag", true},
                                                       {"ratio", now},
                                                       {"tags", QStringList{"red", "green", "blue"}},
                                                       {"title", QStringLiteral("a title")}});
        measure::require(published, "cannot publish");
    }
};

class Receiver : public QObject {
    Q_OBJECT
public:
    Receiver(measure::Tally& tally, QObject* parent) : QObject(parent), m_tally(tally) {}

public Q_SLOTS:
    void take(const VelEvent& event) {
        const bool isWhole =
            event.argumentCount() == measure::argumentCount && event.getArgTypes().size() == measure::argumentCount &&
            event.getArgument("flag").toBool() && event.getArgument("tags").toStringList().size() == 3 &&
            event.getArgument("title").toString().size() == 7;
        m_tally.take({event.getArgument("count").toInt(), event.getArgument("ratio").toDouble(), isWhole});
    }

private:
    measure::Tally& m_tally;
};

class Listener : public VelModule {
    Q_OBJECT
public:
    Listener(int events, const QByteArray& way)
        : VelModule("Listener"), m_way(way), m_receivers(way == "twenty" || way == "shared" ? 20 : 1),
          m_tally(events, m_receivers) {}

    bool init() override {
        while (findChildren<Receiver*>().size() < m_receivers)
            new Receiver(m_tally, this);
        const QList<Receiver*> receivers = findChildren<Receiver*>();
        bool subscribed = true;
        if (m_way == "shared") {
            for (Receiver* receiver : receivers)
                connect(this, &Listener::arrived, receiver, &Receiver::take);
            subscribed = subscribeEvent(eventName, this, SIGNAL(arrived(VelEvent)));
        } else {
            for (Receiver* receiver : receivers)
                subscribed = subscribeEvent(eventName, receiver, SLOT(take(VelEvent))) && subscribed;
        }
        for (int other = 0; m_way == "beside" && other < 200; ++other)
            subscribed =
                subscribeEvent(QStringLiteral("other_%1").arg(other), this, SLOT(ignore(VelEvent))) && subscribed;
        return subscribed;
    }

    bool run() override {
        meetTheBus(m_connection);
        m_tally.begin();
        return true;
    }

public Q_SLOTS:
    void ignore(const VelEvent&) {}

Q_SIGNALS:
    void arrived(const VelEvent& event);

private:
    const QByteArray m_way;
    const int m_receivers;
    measure::Tally m_tally;
};

int main(int argc, char** argv) {
    VelApplication application(argc, argv);
    if (argc >= 4 && qstrcmp(argv[1], "receive") == 0) {
        Listener listener(QByteArray(argv[2]).toInt(), argv[3]);
        return application.exec();
    }
    Publisher publisher;
    return application.exec();
}

#include "VelEvents.moc"
