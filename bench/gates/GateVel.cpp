// The works of a module; another one of this program answers its calls: --moduleName=NAME
#include "gates/Works.h"
#include "process/BenchModule.h"

#include "bus/VelReturnType.h"
#include "log/GuardedLog.h"
#include "typed/VelTypedEvents.h"

#include <VelApplication>

#include <memory>

namespace {

const auto peer = QStringLiteral("Echo");
const auto text = QStringLiteral("a text of common length");

} // namespace

// The same event as a struct.
struct GateEvent {
    Q_GADGET
    Q_PROPERTY(int number MEMBER number)
    Q_PROPERTY(bool flag MEMBER flag)
    Q_PROPERTY(double ratio MEMBER ratio)
    Q_PROPERTY(QString text MEMBER text)
    Q_PROPERTY(QStringList names MEMBER names)
public:
    static constexpr auto eventName = "gate_event";
    int number = 0;
    bool flag = false;
    double ratio = 0;
    QString text;
    QStringList names;
};

class Gate : public BenchModule {
    Q_OBJECT
public:
    bool run() override {
        m_works = std::make_unique<gates::Works>(counted(), others());
        std::puts("ready");
        std::fflush(stdout);
        return true;
    }

    void hearTyped(const GateEvent& event) { m_hearing.heard(event.flag && event.names.size() == 2); }

public Q_SLOTS:
    void hearByHand(const VelEvent& heard) {
        GateEvent event;
        event.number = heard.getArgument("number").toInt();
        event.flag = heard.getArgument("flag").toBool();
        event.ratio = heard.getArgument("ratio").toDouble();
        event.text = heard.getArgument("text").toString();
        event.names = heard.getArgument("names").toStringList();
        hearTyped(event);
    }
    void hear(const VelEvent& event) { m_hearing.heard(event.argumentCount() == member::arguments().size()); }

private:
    std::map<std::string, gates::Work> counted() {
        return {
            {"proxy-text", [this](int times) { callProxy(times, QStringLiteral("echoText"), text); }},
            {"proxy-map", [this](int times) { callProxy(times, QStringLiteral("echoMap"), member::arguments()); }},
            {"module-text", [this](int times) { callModule(times, QStringLiteral("echoText"), text); }},
            {"module-map", [this](int times) { callModule(times, QStringLiteral("echoMap"), member::arguments()); }},
            {"self",
             [this](int times) {
                 while (times-- > 0)
                     syncRemoteCall(m_moduleName, QStringLiteral("answer"));
             }},
            {"types",
             [](int times) {
                 while (times-- > 0)
                     getReturnType(peer, QStringLiteral("echoMap"), QStringLiteral("a{sv}"));
             }},
            {"lines",
             [](int times) {
                 while (times-- > 0)
                     vel::logDebug([] { return QStringLiteral("the text is %1").arg(text); });
             }},
            {"publish",
             [this](int times) {
                 const QVariantMap arguments = member::arguments();
                 while (times-- > 0)
                     notifyEvent(gates::eventName, arguments);
                 gates::flush();
             }},
            {"publish-by-hand", // the arguments put together for each event, as a module does
             [this](int times) {
                 const GateEvent event = this->event();
                 while (times-- > 0)
                     notifyEvent(gates::eventName, {{"number", event.number},
                                                    {"flag", event.flag},
                                                    {"ratio", event.ratio},
                                                    {"text", event.text},
                                                    {"names", event.names}});
                 gates::flush();
             }},
            {"publish-typed",
             [this](int times) {
                 const GateEvent event = this->event();
                 while (times-- > 0)
                     vel::publish(*this, event);
                 gates::flush();
             }},
        };
    }

    std::map<std::string, gates::Work> others() {
        return {
            {"keep",
             [this](int number) {
                 keepProxies(number);
                 gates::answer("kept", proxies().size());
             }},
            {"mark",
             [](int) {
                 gates::flush();
                 gates::answer("marked", 1);
             }},
            {"hear",
             [this](int events) {
                 subscribeEvent(gates::eventName, this, SLOT(hear(VelEvent)));
                 gates::flush();
                 m_hearing.expect(events);
             }},
            {"hear-by-hand", // each argument asked for, and made what it is
             [this](int events) {
                 subscribeEvent(gates::eventName, this, SLOT(hearByHand(VelEvent)));
                 gates::flush();
                 m_hearing.expect(events);
             }},
            {"hear-typed",
             [this](int events) {
                 if (!m_typed.isActive())
                     m_typed = vel::onEvent<GateEvent>(*this, this, &Gate::hearTyped);
                 gates::flush();
                 m_hearing.expect(events);
             }},
        };
    }

    static GateEvent event() {
        const QVariantMap arguments = member::arguments();
        return {arguments["number"].toInt(), arguments["flag"].toBool(), arguments["ratio"].toDouble(),
                arguments["text"].toString(), arguments["names"].toStringList()};
    }

    void callProxy(int times, const QString& method, const QVariant& value) {
        if (!m_proxy)
            m_proxy = std::make_unique<VelDBusInterface>(peer, m_connection, nullptr);
        while (times-- > 0)
            require(m_proxy->call(method, {value}));
    }

    void callModule(int times, const QString& method, const QVariant& value) {
        while (times-- > 0)
            require(syncRemoteCall(peer, method, {value}));
    }

    static void require(const QDBusMessage& reply) {
        if (reply.arguments().size() != 1)
            std::exit(EXIT_FAILURE);
    }

    std::unique_ptr<VelDBusInterface> m_proxy;
    std::unique_ptr<gates::Works> m_works;
    gates::Hearing m_hearing;
    vel::Subscription m_typed;
};

int main(int argc, char** argv) {
    VelApplication application(argc, argv);
    Gate gate;
    return application.exec();
}

#include "GateVel.moc"
