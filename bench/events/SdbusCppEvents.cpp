// The same events with sdbus-c++, which builds maps of variants as Qt does.
#include "support/Streaming.h"

#include <cstring>
#include <map>
#include <sdbus-c++/sdbus-c++.h>

namespace {

using Types = std::map<std::string, std::string>;
using Arguments = std::map<std::string, sdbus::Variant>;
using Event = sdbus::Struct<std::string, std::string, std::int32_t, Types, Arguments>;

const std::string interface = "org.vel.bench.Events";

void publish(sdbus::IObject& object, int number, double now) {
    const Types types{
        {"count", "int"}, {"flag", "bool"}, {"ratio", "double"}, {"tags", "QStringList"}, {"title", "QString"}};
    const Arguments arguments{{"count", sdbus::Variant(std::int32_t(number))},
                              {"flag", sdbus::Variant(true)},
                              {"ratio", sdbus::Variant(now)},
                              {"tags", sdbus::Variant(std::vector<std::string>{"red", "green", "blue"})},
                              {"title", sdbus::Variant(std::string("a title"))}};
    object.emitSignal("measured")
        .onInterface(interface)
        .withArguments(Event{std::string("measured"), std::string(), 5, types, arguments});
}

measure::Received read(const Event& event) {
    const Arguments& arguments = event.get<4>();
    const bool isWhole = event.get<2>() == measure::argumentCount && event.get<3>().size() == measure::argumentCount &&
                         arguments.size() == measure::argumentCount && arguments.at("flag").get<bool>() &&
                         arguments.at("tags").get<std::vector<std::string>>().size() == 3 &&
                         arguments.at("title").get<std::string>().size() == 7;
    return {arguments.at("count").get<std::int32_t>(), arguments.at("ratio").get<double>(), isWhole};
}

} // namespace

int main(int argc, char** argv) {
    const auto bus = sdbus::createSessionBusConnection();
    if (argc >= 3 && std::strcmp(argv[1], "receive") == 0) {
        measure::Tally tally(std::atoi(argv[2]));
        const auto proxy = sdbus::createProxy(*bus, "org.vel.bench.Publisher", "/Publisher");
        proxy->uponSignal("measured").onInterface(interface).call([&tally](const Event& event) {
            tally.take(read(event));
        });
        proxy->finishRegistration();
        tally.begin();
        bus->enterEventLoop();
        return 0;
    }
    bus->requestName("org.vel.bench.Publisher");
    const auto object = sdbus::createObject(*bus, "/Publisher");
    object->registerSignal("measured").onInterface(interface).withParameters<Event>();
    object->finishRegistration();
    bus->enterEventLoopAsync();
    const auto daemon = sdbus::createProxy(*bus, "org.freedesktop.DBus", "/org/freedesktop/DBus");
    return measure::servePublishing(
        [&object](int number, double now) { publish(*object, number, now); },
        [&daemon] {
            std::string id;
            daemon->callMethod("GetId").onInterface("org.freedesktop.DBus").storeResultsTo(id);
        });
}
