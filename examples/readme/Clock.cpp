// A module that publishes the time once a second.
#include <VelApplication>
#include <VelModule>
#include <VelModuleMain>

#include <QTime>
#include <QTimer>

class Clock : public VelModule {
public:
    Clock() : VelModule("Clock") {
        connect(&m_second, &QTimer::timeout, this, [this] {
            notifyEvent("clock_ticked", {{"time", QTime::currentTime().toString()}});
        });
    }

    bool run() override {
        m_second.start(1000);
        return true;
    }

private:
    QTimer m_second;
};

VEL_MODULE_MAIN(argc, argv) {
    VelApplication application(argc, argv);
    Clock clock;
    return application.exec();
}
