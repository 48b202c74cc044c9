// What the module promises, tried on a bus of its own.
#include <testing/ModuleProcess.h>
#include <testing/QtTest.h>
#include <testing/Recorder.h>

using namespace vel::testing;

class DimmerTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    // Before each test: a module of its own.
    void init() {
        m_module = std::make_unique<ModuleProcess>("Dimmer", VEL_MODULE_PROGRAM);
        VEL_VERIFY(m_module->bringUp());
        m_heard = std::make_unique<Recorder>(QList<Expectation>{published("brightness_changed")});
    }

    void brightnessIsSetByACall() {
        VEL_VERIFY(m_module->call("brightness").is({80}));
        VEL_VERIFY(m_module->call("setBrightness", {40}).is({}));
        VEL_VERIFY(m_heard->next(changedTo(40)));
        VEL_VERIFY(m_module->call("brightness").is({40}));
        VEL_VERIFY(m_module->call("setBrightness", {40}).is({})); // changes nothing, so it tells nobody
        VEL_VERIFY(m_heard->nothingMore());
    }

    void impossibleBrightnessIsRefused() {
        const Answer answer = m_module->call("setBrightness", {101});
        VEL_VERIFY(answer.failed("org.freedesktop.DBus.Error.InvalidArgs", "101 percent is no brightness"));
        VEL_VERIFY(m_module->call("brightness").is({80}));
    }

    void nightDims() {
        VEL_VERIFY(m_peer.publish("Test", "daylight_changed")); // without its field: changes nothing
        VEL_VERIFY(m_peer.publish("Test", "daylight_changed", {{"daylight", false}}));
        VEL_VERIFY(m_heard->next(changedTo(20)));
    }

    void resetRestoresTheDefault() {
        VEL_VERIFY(m_module->call("setBrightness", {40}).is({}));
        VEL_VERIFY(m_peer.publish("Test", "reset_data_default"));
        VEL_VERIFY(m_heard->next(changedTo(40)));
        VEL_VERIFY(m_heard->next(changedTo(80)));
    }

    // After each test: stopping is a normal end.
    void cleanup() { VEL_VERIFY(m_module->stop()); }

private:
    static Expectation changedTo(int percent) {
        return published("brightness_changed").from("Dimmer").withExactly({{"percent", percent}});
    }

    Peer m_peer;
    std::unique_ptr<ModuleProcess> m_module;
    std::unique_ptr<Recorder> m_heard;
};

VEL_TEST_MAIN(DimmerTest)
#include "DimmerTest.moc"
