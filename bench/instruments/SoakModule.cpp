// One of many modules that publish and call as fast as their neighbours answer, and count everything.
//
// Each turn publishes an event and calls a neighbour. At most so many calls are open at a time: that is what keeps the
// events from outrunning their receivers. An event carries its number and its publisher's incarnation, so that every
// receiver sees by itself whether one is missing.
#include <VelApplication>
#include <VelModule>

#include <QDBusAbstractAdaptor>
#include <QDBusPendingCallWatcher>
#include <QDBusReply>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTimer>

namespace {

constexpr int openCalls = 8;
const QString text = "hello soak";

} // namespace

class SoakModule : public VelModule {
    Q_OBJECT
public:
    SoakModule();

    bool init() override;

    bool run() override {
        m_turns.start();
        return true;
    }

    void pause() {
        m_isPaused = true;
        m_turns.stop();
    }

    QString echo(const QString& said) {
        ++m_served;
        return said;
    }

    QString report() const;

public Q_SLOTS:
    void take(VelEvent event);
    void noteBusLoss() { exit(); }

private:
    void turn();
    void call(const QString& neighbour);

    /// What came from one incarnation of a publisher.
    struct Stream {
        qint64 first = 0;
        qint64 last = 0;
        qint64 received = 0;
        qint64 outOfOrder = 0;
    };

    QTimer m_turns;
    QString m_incarnation;
    QStringList m_neighbours;
    int m_nextNeighbour = 0;
    int m_open = 0;
    bool m_isPaused = false;
    qint64 m_published = 0;
    qint64 m_notPublished = 0;
    qint64 m_served = 0;
    qint64 m_called = 0;
    qint64 m_answered = 0;
    qint64 m_wrongAnswers = 0;
    QMap<QString, qint64> m_failures; // by the kind of error
    QMap<QString, Stream> m_streams;  // by "NAME/INCARNATION"
};

class SoakAdaptor : public QDBusAbstractAdaptor {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.vel.module.VelInterface")
public:
    explicit SoakAdaptor(SoakModule* module) : QDBusAbstractAdaptor(module), m_module(*module) {}

public Q_SLOTS:
    QString echo(const QString& said) { return m_module.echo(said); }
    void pause() { m_module.pause(); }
    QString report() { return m_module.report(); }

private:
    SoakModule& m_module;
};

SoakModule::SoakModule() : VelModule("Soak") {
    new SoakAdaptor(this);
    connect(&m_turns, &QTimer::timeout, this, &SoakModule::turn);
}

bool SoakModule::init() {
    m_incarnation = getParameters().value("incarnation");
    m_neighbours = getParameters().value("neighbours").split(',', Qt::SkipEmptyParts);
    m_connection.connect(QString(), "/org/freedesktop/DBus/Local", "org.freedesktop.DBus.Local", "Disconnected", this,
                         SLOT(noteBusLoss()));
    bool isSubscribed = !m_neighbours.isEmpty();
    for (const QString& neighbour : qAsConst(m_neighbours))
        isSubscribed = subscribeEvent("tick_" + neighbour, this, SLOT(take(VelEvent))) && isSubscribed;
    return isSubscribed;
}

void SoakModule::turn() {
    if (m_open == openCalls)
        return m_turns.stop(); // an answer starts it again
    const bool isPublished = notifyEvent("tick_" + m_moduleName, {{"number", m_published + 1},
                                                                  {"incarnation", m_incarnation},
                                                                  {"publisher", m_moduleName},
                                                                  {"ratio", 2.5},
                                                                  {"tags", QStringList{"red", "green", "blue"}}});
    isPublished ? ++m_published : ++m_notPublished;
    call(m_neighbours.at(m_nextNeighbour));
    m_nextNeighbour = (m_nextNeighbour + 1) % m_neighbours.size();
}

void SoakModule::call(const QString& neighbour) {
    ++m_called;
    try {
        auto* watcher = new QDBusPendingCallWatcher(asyncRemoteCall(neighbour, "echo", {text}), this);
        ++m_open;
        connect(watcher, &QDBusPendingCallWatcher::finished, this, [this, watcher] {
            watcher->deleteLater();
            const QDBusReply<QString> reply = *watcher;
            if (!reply.isValid())
                ++m_failures[reply.error().name()];
            else if (reply.value() == text)
                ++m_answered;
            else
                ++m_wrongAnswers;
            --m_open;
            if (!m_isPaused && !m_turns.isActive())
                m_turns.start();
        });
    } catch (const QString&) {
        ++m_failures["not there"];
    }
}

void SoakModule::take(VelEvent event) {
    const qint64 number = event.getArgument("number").toLongLong();
    Stream& stream =
        m_streams[event.getArgument("publisher").toString() + '/' + event.getArgument("incarnation").toString()];
    if (stream.received++ == 0)
        stream.first = number;
    else if (number != stream.last + 1)
        ++stream.outOfOrder;
    stream.last = number;
}

QString SoakModule::report() const {
    QJsonObject streams;
    for (auto one = m_streams.cbegin(); one != m_streams.cend(); ++one)
        streams[one.key()] = QJsonObject{
            {"first", one->first}, {"last", one->last}, {"received", one->received}, {"outOfOrder", one->outOfOrder}};
    QJsonObject failures;
    for (auto one = m_failures.cbegin(); one != m_failures.cend(); ++one)
        failures[one.key()] = *one;
    const QJsonObject all{{"incarnation", m_incarnation},
                          {"published", m_published},
                          {"notPublished", m_notPublished},
                          {"served", m_served},
                          {"called", m_called},
                          {"answered", m_answered},
                          {"wrongAnswers", m_wrongAnswers},
                          {"open", m_open},
                          {"failures", failures},
                          {"streams", streams}};
    return QJsonDocument(all).toJson(QJsonDocument::Compact);
}

int main(int argc, char** argv) {
    VelApplication application(argc, argv);
    SoakModule module;
    return application.exec();
}

#include "SoakModule.moc"
