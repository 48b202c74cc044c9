// Calls with GDBus, which has a thread for the bus as Qt has.
#include "support/Calling.h"

#include <cstring>
#include <gio/gio.h>

namespace {

GVariant* sentMap() {
    GVariantBuilder map;
    g_variant_builder_init(&map, G_VARIANT_TYPE("a{sv}"));
    const char* const tags[] = {"red", "green", "blue"};
    g_variant_builder_add(&map, "{sv}", "count", g_variant_new_int32(42));
    g_variant_builder_add(&map, "{sv}", "flag", g_variant_new_boolean(true));
    g_variant_builder_add(&map, "{sv}", "ratio", g_variant_new_double(2.5));
    g_variant_builder_add(&map, "{sv}", "tags", g_variant_new_strv(tags, 3));
    g_variant_builder_add(&map, "{sv}", "title", g_variant_new_string("a title"));
    return g_variant_new("(a{sv})", &map);
}

} // namespace

int main(int argc, char** argv) {
    measure::require(argc == 4, "usage: bench-calls-gdbus SERVICE PATH INTERFACE");
    GDBusConnection* bus = g_bus_get_sync(G_BUS_TYPE_SESSION, nullptr, nullptr);
    measure::require(bus, "cannot connect");

    return measure::serveCalls([=](const std::string& way, bool isText) -> measure::Turn {
        if (way != "call")
            return {};
        return {[=] {
            GVariant* sent = isText ? g_variant_new("(s)", measure::sentText) : sentMap();
            GVariant* reply = g_dbus_connection_call_sync(bus, argv[1], argv[2], argv[3], isText ? "text" : "map", sent,
                                                          G_VARIANT_TYPE(isText ? "(s)" : "(a{sv})"),
                                                          G_DBUS_CALL_FLAGS_NONE, -1, nullptr, nullptr);
            measure::require(reply, "cannot call");
            if (isText) {
                const char* text;
                g_variant_get(reply, "(&s)", &text);
                measure::require(std::strcmp(text, measure::sentText) == 0, "wrong text");
            } else {
                GVariantIter* entries;
                g_variant_get(reply, "(a{sv})", &entries);
                int size = 0;
                const char* key;
                GVariant* value;
                while (g_variant_iter_loop(entries, "{&sv}", &key, &value))
                    ++size;
                g_variant_iter_free(entries);
                measure::require(size == measure::mapSize, "wrong map");
            }
            g_variant_unref(reply);
        }};
    });
}
