// What a start costs without Qt: a program that takes the same name with sd-bus and idles. --moduleName=NAME
#include "start/Say.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <poll.h>
#include <string>
#include <systemd/sd-bus.h>
#include <unistd.h>

namespace {

constexpr char interface[] = VEL_BUS_PREFIX ".VelInterface";
constexpr char form[] = "ssia{ss}a{sv}";

void check(int result, const char* what) {
    if (result < 0) {
        std::cerr << "sdbus-idle: " << what << ": " << std::strerror(-result) << '\n';
        std::exit(EXIT_FAILURE);
    }
}

// What stands behind what was sent, on the way to the bus and back.
void settle(sd_bus* bus, const char* word) {
    check(sd_bus_call_method(bus, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus", "GetId",
                             nullptr, nullptr, nullptr),
          "ask");
    member::say(word);
}

void publish(sd_bus* bus) {
    sd_bus_message* signal = nullptr;
    check(sd_bus_message_new_signal(bus, &signal, "/Plain", interface, "tick"), "signal");
    check(sd_bus_message_append(signal, "(ssia{ss}a{sv})", "tick", "", 5, 5, "flag", "bool", "names", "QStringList",
                                "number", "int", "ratio", "double", "text", "QString", 5, "flag", "b", 1, "names", "as",
                                2, "one", "two", "number", "i", 42, "ratio", "d", 0.75, "text", "s",
                                "a text of common length"),
          "append");
    check(sd_bus_send(bus, signal, nullptr), "send");
    sd_bus_message_unref(signal);
    check(sd_bus_flush(bus), "flush");
}

// Says "heard" when the event's number is the one that was sent. The other values are passed over.
int take(sd_bus_message* signal, void*, sd_bus_error*) {
    const char* key;
    check(sd_bus_message_enter_container(signal, 'r', form), "read");
    check(sd_bus_message_skip(signal, "ssia{ss}"), "read");
    check(sd_bus_message_enter_container(signal, 'a', "{sv}"), "read");
    while (sd_bus_message_enter_container(signal, 'e', "sv") > 0) {
        int number = 0;
        check(sd_bus_message_read_basic(signal, 's', &key), "read");
        if (std::strcmp(key, "number") == 0)
            check(sd_bus_message_read(signal, "v", "i", &number), "read");
        else
            check(sd_bus_message_skip(signal, "v"), "read");
        check(sd_bus_message_exit_container(signal), "read");
        if (number == 42)
            member::say("heard");
    }
    return 0;
}

void obey(sd_bus* bus, const std::string& order) {
    if (order == "listen") {
        check(sd_bus_match_signal(bus, nullptr, nullptr, nullptr, interface, "tick", take, nullptr), "subscribe");
        settle(bus, "listening");
    } else if (order == "publish") {
        member::say("publishing");
        publish(bus);
    }
}

} // namespace

int main(int argc, char** argv) {
    const std::string option = argc > 1 ? argv[1] : "";
    const std::string name = VEL_BUS_PREFIX "." + option.substr(option.find('=') + 1) + "Service";
    sd_bus* bus = nullptr;
    check(sd_bus_open_user(&bus), "connect");
    check(sd_bus_request_name(bus, name.c_str(), 0), "take the name");
    member::say("ready");
    settle(bus, "idle");
    for (;;) {
        int handled;
        while ((handled = sd_bus_process(bus, nullptr)) > 0) {
        }
        check(handled, "process");
        pollfd waits[] = {{sd_bus_get_fd(bus), POLLIN, 0}, {STDIN_FILENO, POLLIN, 0}};
        poll(waits, 2, -1);
        if (waits[1].revents == 0)
            continue;
        std::string order;
        if (!std::getline(std::cin, order))
            return EXIT_SUCCESS; // the driver is gone
        obey(bus, order);
    }
}
