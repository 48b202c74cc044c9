// A module in the test's own process, without a framework.
#include <testing/Assert.h>
#include <testing/Recorder.h>

#include <VelModule>

using namespace vel::testing;

class Greeter : public VelModule {
public:
    Greeter() : VelModule("Greeter") {}
    bool run() override { return notifyEvent("greeting", {{"text", "hello"}}); }
};

int main(int argc, char** argv) {
    return runOnPrivateBus(argc, argv, [](int, char**) {
        Recorder heard;
        Greeter greeter;
        VEL_REQUIRE(heard.inOrder({published("end_of_init_Greeter"), published("greeting").with("text", "hello")}));
        return 0;
    });
}
