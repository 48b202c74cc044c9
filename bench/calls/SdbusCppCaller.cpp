// Calls with sdbus-c++, through a proxy that is kept.
#include "support/Calling.h"

#include <map>
#include <sdbus-c++/sdbus-c++.h>

namespace {

using Map = std::map<std::string, sdbus::Variant>;

Map sentMap() {
    return {{"count", sdbus::Variant(std::int32_t(42))},
            {"flag", sdbus::Variant(true)},
            {"ratio", sdbus::Variant(2.5)},
            {"tags", sdbus::Variant(std::vector<std::string>{"red", "green", "blue"})},
            {"title", sdbus::Variant(std::string("a title"))}};
}

} // namespace

int main(int argc, char** argv) {
    measure::require(argc == 4, "usage: bench-calls-sdbus-c++ SERVICE PATH INTERFACE");
    const std::string interface = argv[3];
    const auto bus = sdbus::createSessionBusConnection();
    const std::shared_ptr<sdbus::IProxy> proxy = sdbus::createProxy(*bus, argv[1], argv[2]);

    return measure::serveCalls([=](const std::string& way, bool isText) -> measure::Turn {
        if (way != "call")
            return {};
        if (isText)
            return {[=] {
                std::string text;
                proxy->callMethod("text")
                    .onInterface(interface)
                    .withArguments(std::string(measure::sentText))
                    .storeResultsTo(text);
                measure::require(text == measure::sentText, "wrong text");
            }};
        return {[=, map = sentMap()] {
            Map answer;
            proxy->callMethod("map").onInterface(interface).withArguments(map).storeResultsTo(answer);
            measure::require(answer.size() == measure::mapSize, "wrong map");
        }};
    });
}
