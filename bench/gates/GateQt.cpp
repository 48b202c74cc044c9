// The same works as somebody would write them with Qt alone.
#include "gates/Works.h"
#include "support/HandWrittenEvent.h"

#include <QCoreApplication>
#include <QDBusInterface>

namespace {

const auto peerService = QStringLiteral(VEL_BUS_PREFIX ".EchoService");
const auto peerPath = QStringLiteral("/Echo");
const auto interface = QStringLiteral(VEL_BUS_PREFIX ".VelInterface");
const auto text = QStringLiteral("a text of common length");

} // namespace

class Gate : public QObject {
    Q_OBJECT
public:
    Gate() : m_bus(QDBusConnection::sessionBus()), m_proxy(peerService, peerPath, interface, m_bus) {
        registerHandWrittenEvent();
    }

public Q_SLOTS:
    void hear(const HandWrittenEvent& event) { m_hearing.heard(event.arguments.size() == member::arguments().size()); }

private:
    void call(int times, const QString& method, const QVariant& value) {
        while (times-- > 0) {
            const QDBusMessage reply = m_proxy.call(method, value);
            if (reply.type() != QDBusMessage::ReplyMessage || reply.arguments().size() != 1)
                std::exit(EXIT_FAILURE);
        }
    }

    void publish(int times) {
        const HandWrittenEvent event(gates::eventName, member::arguments()); // by hand, its types are made once
        while (times-- > 0) {
            QDBusMessage signal = QDBusMessage::createSignal(QStringLiteral("/Gate"), interface, gates::eventName);
            signal << QVariant::fromValue(event);
            m_bus.send(signal);
        }
        gates::flush();
    }

    void hearEvents(int events) {
        m_bus.connect(QString(), QString(), interface, gates::eventName, this, SLOT(hear(HandWrittenEvent)));
        gates::flush();
        m_hearing.expect(events);
    }

    QDBusConnection m_bus;
    QDBusInterface m_proxy;
    gates::Hearing m_hearing;
    gates::Works m_works{
        {
            {"proxy-text", [this](int times) { call(times, QStringLiteral("echoText"), text); }},
            {"proxy-map", [this](int times) { call(times, QStringLiteral("echoMap"), member::arguments()); }},
            {"publish", [this](int times) { publish(times); }},
        },
        {{"hear", [this](int events) { hearEvents(events); }}}};
};

int main(int argc, char** argv) {
    QCoreApplication application(argc, argv);
    Gate gate;
    std::puts("ready");
    std::fflush(stdout);
    return application.exec();
}

#include "GateQt.moc"
