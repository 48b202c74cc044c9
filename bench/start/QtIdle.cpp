// What the module is held against: a Qt program that takes the same name and idles. --moduleName=NAME
#include "start/Member.h"
#include "support/HandWrittenEvent.h"

#include <QCoreApplication>

#include <cstdlib>

namespace {

const auto path = QStringLiteral("/Plain");
const auto interface = QStringLiteral(VEL_BUS_PREFIX ".VelInterface");
const auto tickName = QStringLiteral("tick");

} // namespace

class Idle : public QObject {
    Q_OBJECT
public:
    explicit Idle(const QDBusConnection& bus)
        : m_bus(bus), m_orders([this](const std::string& order) { obey(order); }) {}

public Q_SLOTS:
    void tick(HandWrittenEvent event) {
        if (event.arguments.value(QStringLiteral("number")).toInt() == 42)
            member::say("heard");
    }

private:
    void obey(const std::string& order) {
        if (order == "listen") {
            registerHandWrittenEvent();
            m_bus.connect(QString(), QString(), interface, tickName, this, SLOT(tick(HandWrittenEvent)));
            member::sayWhenSettled("listening");
        } else if (order == "publish") {
            member::say("publishing");
            QDBusMessage signal = QDBusMessage::createSignal(path, interface, tickName);
            signal << QVariant::fromValue(HandWrittenEvent(tickName, member::arguments()));
            m_bus.send(signal);
        }
    }

    QDBusConnection m_bus;
    member::Orders m_orders;
};

int main(int argc, char** argv) {
    QCoreApplication application(argc, argv);
    QDBusConnection bus = QDBusConnection::sessionBus();
    const QString option = application.arguments().value(1);
    if (!bus.registerService(QStringLiteral(VEL_BUS_PREFIX ".%1Service").arg(option.section(QLatin1Char('='), 1))))
        return EXIT_FAILURE;
    member::say("ready");
    member::sayWhenSettled("idle");
    Idle idle(bus);
    return application.exec();
}

#include "QtIdle.moc"
