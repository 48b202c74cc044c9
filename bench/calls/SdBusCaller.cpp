// Calls with sd-bus, which has no threads and builds no containers: the floor.
#include "support/Calling.h"

#include <cstring>
#include <systemd/sd-bus.h>

namespace {

void check(int result, const char* what) {
    if (result < 0)
        measure::fail(std::string(what) + ": " + std::strerror(-result));
}

void readValue(sd_bus_message* message, const char* type) {
    const char* text;
    double number; // large enough for every basic type here
    if (*type == 's') {
        check(sd_bus_message_read_basic(message, 's', &text), "read");
    } else if (*type == 'a') {
        check(sd_bus_message_enter_container(message, 'a', "s"), "read");
        while (sd_bus_message_read_basic(message, 's', &text) > 0) {
        }
        check(sd_bus_message_exit_container(message), "read");
    } else {
        check(sd_bus_message_read_basic(message, *type, &number), "read");
    }
}

int readMap(sd_bus_message* message) {
    int size = 0;
    check(sd_bus_message_enter_container(message, 'a', "{sv}"), "read");
    while (sd_bus_message_enter_container(message, 'e', "sv") > 0) {
        const char* key;
        const char* type;
        check(sd_bus_message_read_basic(message, 's', &key), "read");
        check(sd_bus_message_peek_type(message, nullptr, &type), "read");
        check(sd_bus_message_enter_container(message, 'v', type), "read");
        readValue(message, type);
        check(sd_bus_message_exit_container(message), "read");
        check(sd_bus_message_exit_container(message), "read");
        ++size;
    }
    return size;
}

} // namespace

int main(int argc, char** argv) {
    measure::require(argc == 4, "usage: bench-calls-sd-bus SERVICE PATH INTERFACE");
    sd_bus* bus = nullptr;
    check(sd_bus_open_user(&bus), "connect");

    return measure::serveCalls([=](const std::string& way, bool isText) -> measure::Turn {
        if (way != "call")
            return {};
        return {[=] {
            sd_bus_message* call = nullptr;
            sd_bus_message* reply = nullptr;
            check(sd_bus_message_new_method_call(bus, &call, argv[1], argv[2], argv[3], isText ? "text" : "map"),
                  "call");
            check(isText ? sd_bus_message_append(call, "s", measure::sentText)
                         : sd_bus_message_append(call, "a{sv}", 5, "count", "i", 42, "flag", "b", 1, "ratio", "d", 2.5,
                                                 "tags", "as", 3, "red", "green", "blue", "title", "s", "a title"),
                  "append");
            check(sd_bus_call(bus, call, 0, nullptr, &reply), "call");
            if (isText) {
                const char* text = nullptr;
                check(sd_bus_message_read_basic(reply, 's', &text), "read");
                measure::require(std::strcmp(text, measure::sentText) == 0, "wrong text");
            } else {
                measure::require(readMap(reply) == measure::mapSize, "wrong map");
            }
            sd_bus_message_unref(call);
            sd_bus_message_unref(reply);
        }};
    });
}
