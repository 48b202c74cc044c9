// A module that fails on request: --fail=deploy, --fail=init, --fail=run or --fail=stop.
#include <VelApplication>
#include <VelLogger>
#include <VelModule>
#include <VelModuleMain>
#include <VelUnixSignals>

#include <csignal>

class Faulty : public VelModule {
    Q_OBJECT
public:
    Faulty() : VelModule("Faulty") {}

    bool check() override { return !failsIn("deploy"); } // false leads to deploy()

    bool deploy() override {
        logger("")->info("deploy: failing");
        return false;
    }

    // An exception counts as false; its text becomes an error line.
    bool init() override {
        if (failsIn("init"))
            throw QString("the disk is full");
        return true;
    }

    // The module goes on after this failure; its status remembers it.
    bool run() override {
        logger("")->info(failsIn("run") ? "run: failing" : "run: fine");
        return !failsIn("run");
    }

    bool stop() override {
        logger("")->info(failsIn("stop") ? "stop: failing" : "stop: fine");
        return !failsIn("stop");
    }

private:
    bool failsIn(const QString& step) { return getParameters().value("fail") == step; }
};

VEL_MODULE_MAIN(argc, argv) {
    VelApplication application(argc, argv);
    Faulty faulty;
    velStopOnSignals(faulty, {SIGTERM, SIGINT});
    return application.exec();
}

#include "Faulty.moc"
