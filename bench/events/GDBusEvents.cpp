// The same events with GDBus: it reads every value, and has a thread for the bus as Qt has.
#include "support/Streaming.h"

#include <cstring>
#include <gio/gio.h>

namespace {

const char* const interface = "org.vel.bench.Events";

void publish(GDBusConnection* bus, int number, double now) {
    GVariantBuilder types;
    g_variant_builder_init(&types, G_VARIANT_TYPE("a{ss}"));
    g_variant_builder_add(&types, "{ss}", "count", "int");
    g_variant_builder_add(&types, "{ss}", "flag", "bool");
    g_variant_builder_add(&types, "{ss}", "ratio", "double");
    g_variant_builder_add(&types, "{ss}", "tags", "QStringList");
    g_variant_builder_add(&types, "{ss}", "title", "QString");
    const char* const tags[] = {"red", "green", "blue"};
    GVariantBuilder arguments;
    g_variant_builder_init(&arguments, G_VARIANT_TYPE("a{sv}"));
    g_variant_builder_add(&arguments, "{sv}", "count", g_variant_new_int32(number));
    g_variant_builder_add(&arguments, "{sv}", "flag", g_variant_new_boolean(true));
    g_variant_builder_add(&arguments, "{sv}", "ratio", g_variant_new_double(now));
    g_variant_builder_add(&arguments, "{sv}", "tags", g_variant_new_strv(tags, 3));
    g_variant_builder_add(&arguments, "{sv}", "title", g_variant_new_string("a title"));
    measure::require(g_dbus_connection_emit_signal(
                         bus, nullptr, "/Publisher", interface, "measured",
                         g_variant_new("((ssia{ss}a{sv}))", "measured", "", 5, &types, &arguments), nullptr),
                     "cannot publish");
}

// The kind tells the argument: each has a type of its own.
void readValue(GVariant* value, measure::Received& event) {
    switch (*g_variant_get_type_string(value)) {
    case 'i':
        event.number = g_variant_get_int32(value);
        break;
    case 'b':
        event.isWhole = event.isWhole && g_variant_get_boolean(value);
        break;
    case 'd':
        event.sentAt = g_variant_get_double(value);
        break;
    case 's':
        event.isWhole = event.isWhole && std::strlen(g_variant_get_string(value, nullptr)) == 7;
        break;
    default:
        gsize count = 0;
        g_free(g_variant_get_strv(value, &count));
        event.isWhole = event.isWhole && count == 3;
    }
}

void take(GDBusConnection*, const char*, const char*, const char*, const char*, GVariant* parameters, void* tally) {
    measure::Received event{0, 0, true};
    const char* name;
    const char* context;
    gint32 count;
    GVariantIter* types;
    GVariantIter* arguments;
    g_variant_get(parameters, "((&s&sia{ss}a{sv}))", &name, &context, &count, &types, &arguments);
    int typesRead = 0;
    while (g_variant_iter_loop(types, "{&s&s}", &name, &context))
        ++typesRead;
    int argumentsRead = 0;
    GVariant* value;
    while (g_variant_iter_loop(arguments, "{&sv}", &name, &value)) {
        readValue(value, event);
        ++argumentsRead;
    }
    g_variant_iter_free(types);
    g_variant_iter_free(arguments);
    event.isWhole = event.isWhole && count == measure::argumentCount && typesRead == measure::argumentCount &&
                    argumentsRead == measure::argumentCount;
    static_cast<measure::Tally*>(tally)->take(event);
}

/// Returns when the bus has taken what this process sent before.
void meetTheBus(GDBusConnection* bus) {
    GVariant* reply =
        g_dbus_connection_call_sync(bus, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
                                    "GetId", nullptr, nullptr, G_DBUS_CALL_FLAGS_NONE, -1, nullptr, nullptr);
    measure::require(reply, "no answer from the bus");
    g_variant_unref(reply);
}

} // namespace

int main(int argc, char** argv) {
    GDBusConnection* bus = g_bus_get_sync(G_BUS_TYPE_SESSION, nullptr, nullptr);
    measure::require(bus, "cannot connect");
    if (argc >= 3 && std::strcmp(argv[1], "receive") == 0) {
        measure::Tally tally(std::atoi(argv[2]));
        g_dbus_connection_signal_subscribe(bus, nullptr, interface, "measured", nullptr, nullptr,
                                           G_DBUS_SIGNAL_FLAGS_NONE, take, &tally, nullptr);
        meetTheBus(bus);
        tally.begin();
        g_main_loop_run(g_main_loop_new(nullptr, false));
        return 0;
    }
    return measure::servePublishing([bus](int number, double now) { publish(bus, number, now); },
                                    [bus] { meetTheBus(bus); });
}
