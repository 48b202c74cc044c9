// Watches a bus from outside, without Qt. One line for each message, its fields apart by tabs:
//
//     bus-watch names      NAME  MOMENT                     a name has got an owner, in nanoseconds
//     bus-watch messages   TYPE  SENDER  DESTINATION  SERIAL  ANSWERED-SERIAL  no-reply|reply  MEMBER  FIRST-TEXT
#include <dbus/dbus.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

namespace {

const char* text(const char* field) {
    return field && *field ? field : "-";
}

// A description has many lines, and is not worth a name.
const char* firstText(DBusMessage* message) {
    const char* first = nullptr;
    DBusMessageIter arguments;
    if (dbus_message_iter_init(message, &arguments) && dbus_message_iter_get_arg_type(&arguments) == DBUS_TYPE_STRING)
        dbus_message_iter_get_basic(&arguments, &first);
    return first && std::strpbrk(first, "\t\n") ? "..." : text(first);
}

DBusHandlerResult showName(DBusConnection*, DBusMessage* message, void*) {
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    const char* name = nullptr;
    const char* before = nullptr;
    const char* owner = nullptr;
    if (dbus_message_is_signal(message, DBUS_INTERFACE_DBUS, "NameOwnerChanged") &&
        dbus_message_get_args(message, nullptr, DBUS_TYPE_STRING, &name, DBUS_TYPE_STRING, &before, DBUS_TYPE_STRING,
                              &owner, DBUS_TYPE_INVALID) &&
        *name != ':' && *owner)
        std::printf("%s\t%lld\n", name, now.tv_sec * 1000000000LL + now.tv_nsec);
    return DBUS_HANDLER_RESULT_HANDLED;
}

DBusHandlerResult showMessage(DBusConnection*, DBusMessage* message, void*) {
    std::printf("%s\t%s\t%s\t%u\t%u\t%s\t%s\t%s\n", dbus_message_type_to_string(dbus_message_get_type(message)),
                text(dbus_message_get_sender(message)), text(dbus_message_get_destination(message)),
                dbus_message_get_serial(message), dbus_message_get_reply_serial(message),
                dbus_message_get_no_reply(message) ? "no-reply" : "reply", text(dbus_message_get_member(message)),
                firstText(message));
    return DBUS_HANDLER_RESULT_HANDLED;
}

void becomeMonitor(DBusConnection* bus) {
    DBusMessage* request =
        dbus_message_new_method_call(DBUS_SERVICE_DBUS, DBUS_PATH_DBUS, DBUS_INTERFACE_MONITORING, "BecomeMonitor");
    DBusMessageIter arguments;
    DBusMessageIter rules;
    const dbus_uint32_t flags = 0;
    dbus_message_iter_init_append(request, &arguments);
    dbus_message_iter_open_container(&arguments, DBUS_TYPE_ARRAY, DBUS_TYPE_STRING_AS_STRING, &rules);
    dbus_message_iter_close_container(&arguments, &rules); // none: everything
    dbus_message_iter_append_basic(&arguments, DBUS_TYPE_UINT32, &flags);
    DBusMessage* reply = dbus_connection_send_with_reply_and_block(bus, request, -1, nullptr);
    if (!reply)
        std::exit(EXIT_FAILURE);
    dbus_message_unref(reply);
    dbus_message_unref(request);
}

} // namespace

int main(int argc, char** argv) {
    DBusConnection* bus = dbus_bus_get_private(DBUS_BUS_SESSION, nullptr);
    if (!bus || argc != 2)
        return EXIT_FAILURE;
    setvbuf(stdout, nullptr, _IOLBF, 0);
    if (std::strcmp(argv[1], "messages") == 0) {
        becomeMonitor(bus);
        dbus_connection_add_filter(bus, showMessage, nullptr, nullptr);
    } else {
        dbus_bus_add_match(bus, "type='signal',sender='org.freedesktop.DBus',member='NameOwnerChanged'", nullptr);
        dbus_bus_get_id(bus, nullptr); // an answer, so the rule is in force
        dbus_connection_add_filter(bus, showName, nullptr, nullptr);
    }
    std::puts("ready");
    while (dbus_connection_read_write_dispatch(bus, -1)) {
    }
    return EXIT_SUCCESS;
}
