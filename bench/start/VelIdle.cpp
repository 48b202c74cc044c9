// An ordinary module without work of its own: --moduleName=NAME
#include "start/Member.h"

#include <VelApplication>
#include <VelModule>
#include <VelModuleMain>

class Idle : public VelModule {
    Q_OBJECT
public:
    Idle() : VelModule(QStringLiteral("Idle")), m_orders([this](const std::string& order) { obey(order); }) {}

    bool run() override {
        member::say("ready");
        member::sayWhenSettled("idle");
        return true;
    }

public Q_SLOTS:
    void tick(VelEvent event) {
        if (event.getArgument(QStringLiteral("number")).toInt() == 42)
            member::say("heard");
    }

private:
    void obey(const std::string& order) {
        if (order == "listen") {
            subscribeEvent(QStringLiteral("tick"), this, SLOT(tick(VelEvent)));
            member::sayWhenSettled("listening");
        } else if (order == "publish") {
            member::say("publishing");
            notifyEvent(QStringLiteral("tick"), member::arguments());
        }
    }

    member::Orders m_orders;
};

VEL_MODULE_MAIN(argc, argv) {
    VelApplication application(argc, argv);
    Idle idle;
    return application.exec();
}

#include "VelIdle.moc"
