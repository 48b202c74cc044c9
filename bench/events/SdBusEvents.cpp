// The same events with sd-bus: it reads every value but builds no containers, and has no threads.
#include "support/Streaming.h"

#include <cstring>
#include <systemd/sd-bus.h>

namespace {

constexpr int eventsPerFlush = 32;

void check(int result, const char* what) {
    if (result < 0)
        measure::fail(std::string(what) + ": " + std::strerror(-result));
}

void publish(sd_bus* bus, int number, double now) {
    sd_bus_message* signal = nullptr;
    check(sd_bus_message_new_signal(bus, &signal, "/Publisher", "org.vel.bench.Events", "measured"), "signal");
    check(sd_bus_message_append(signal, "(ssia{ss}a{sv})", "measured", "", 5, 5, "count", "int", "flag", "bool",
                                "ratio", "double", "tags", "QStringList", "title", "QString", 5, "count", "i", number,
                                "flag", "b", 1, "ratio", "d", now, "tags", "as", 3, "red", "green", "blue", "title",
                                "s", "a title"),
          "append");
    check(sd_bus_send(bus, signal, nullptr), "send");
    sd_bus_message_unref(signal);
}

// The kind tells the argument: each has a type of its own.
void readValue(sd_bus_message* signal, measure::Received& event) {
    const char* type;
    const char* text;
    int flag;
    check(sd_bus_message_peek_type(signal, nullptr, &type), "read");
    check(sd_bus_message_enter_container(signal, 'v', type), "read");
    switch (*type) {
    case 'i':
        check(sd_bus_message_read_basic(signal, 'i', &event.number), "read");
        break;
    case 'b':
        check(sd_bus_message_read_basic(signal, 'b', &flag), "read");
        break;
    case 'd':
        check(sd_bus_message_read_basic(signal, 'd', &event.sentAt), "read");
        break;
    case 's':
        check(sd_bus_message_read_basic(signal, 's', &text), "read");
        break;
    default:
        check(sd_bus_message_enter_container(signal, 'a', "s"), "read");
        while (sd_bus_message_read_basic(signal, 's', &text) > 0) {
        }
        check(sd_bus_message_exit_container(signal), "read");
    }
    check(sd_bus_message_exit_container(signal), "read");
}

int take(sd_bus_message* signal, void* tally, sd_bus_error*) {
    measure::Received event{};
    const char* name;
    const char* context;
    int count;
    int types = 0;
    int values = 0;
    check(sd_bus_message_enter_container(signal, 'r', "ssia{ss}a{sv}"), "read");
    check(sd_bus_message_read(signal, "ssi", &name, &context, &count), "read");
    check(sd_bus_message_enter_container(signal, 'a', "{ss}"), "read");
    while (sd_bus_message_read(signal, "{ss}", &name, &context) > 0)
        ++types;
    check(sd_bus_message_exit_container(signal), "read");
    check(sd_bus_message_enter_container(signal, 'a', "{sv}"), "read");
    while (sd_bus_message_enter_container(signal, 'e', "sv") > 0) {
        check(sd_bus_message_read_basic(signal, 's', &name), "read");
        readValue(signal, event);
        check(sd_bus_message_exit_container(signal), "read");
        ++values;
    }
    event.isWhole =
        count == measure::argumentCount && types == measure::argumentCount && values == measure::argumentCount;
    static_cast<measure::Tally*>(tally)->take(event);
    return 0;
}

int receive(sd_bus* bus, int events) {
    measure::Tally tally(events);
    check(sd_bus_match_signal(bus, nullptr, nullptr, nullptr, "org.vel.bench.Events", "measured", take, &tally),
          "subscribe");
    tally.begin();
    for (;;) {
        const int handled = sd_bus_process(bus, nullptr);
        check(handled, "process");
        if (handled == 0)
            check(sd_bus_wait(bus, UINT64_MAX), "wait");
    }
}

} // namespace

int main(int argc, char** argv) {
    sd_bus* bus = nullptr;
    check(sd_bus_open_user(&bus), "connect");
    if (argc >= 3 && std::strcmp(argv[1], "receive") == 0)
        return receive(bus, std::atoi(argv[2]));
    return measure::servePublishing(
        [bus](int number, double now) {
            publish(bus, number, now);
            if (number % eventsPerFlush == 0)
                check(sd_bus_flush(bus), "flush");
        },
        [bus] { check(sd_bus_flush(bus), "flush"); });
}
