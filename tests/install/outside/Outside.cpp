// A module made outside the tree, of nothing but what was installed.
#include <Vel>

class Outside : public VelModule {
public:
    Outside() : VelModule("Outside") {}

    bool run() override {
        try {
            syncRemoteCall("Nobody", "anything");
        } catch (const QString& why) { // thrown in libvel, and caught here
            logger("")->error("caught: " + why);
            return true;
        }
        return false;
    }
};

int main(int argc, char** argv) {
    VelApplication application(argc, argv);
    Outside outside;
    return application.exec();
}
