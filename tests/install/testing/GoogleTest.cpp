// A module in its own process, with GoogleTest.
#include <testing/FakeModule.h>
#include <testing/GoogleTest.h>
#include <testing/ModuleProcess.h>
#include <testing/Recorder.h>

using namespace vel::testing;

TEST(Outside, CallsNobody) {
    FakeModule nobody("Nobody");
    nobody.answer("anything", {});
    VEL_ASSERT(nobody.appear());
    Recorder heard({called("Nobody")});
    ModuleProcess outside("Outside", VEL_MODULE_PROGRAM);
    VEL_ASSERT(outside.bringUp());
    VEL_EXPECT(heard.next(called("Nobody", "anything").withValues({})));
    VEL_EXPECT(outside.stop(4)); // its run() is content only when nobody answers
}

int main(int argc, char** argv) {
    return runOnPrivateBus(argc, argv, [](int count, char** arguments) {
        testing::InitGoogleTest(&count, arguments);
        return RUN_ALL_TESTS();
    });
}
