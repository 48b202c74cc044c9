// A program on the bus under a module's name that no module is: what it describes, answers and publishes is what the
// test wants, as long as libdbus lets it out.
//
//     hostile-peer MODULE OPTION...
//
//     --describe XML       its introspection
//     --answer JSON        a value of its answer to any call: {"type": ..., "value": ...}
//     --huge               its answer is 20 MiB long, and six times that in JSON
//     --error TEXT         it answers every call with that error
//     --leave              it leaves the bus when it is called
//     --flood EVENT        it publishes that event without end, once it has written "ready"
//     --answers COUNT      it is up, answers a save that often, never freezes, and writes "asked" for each call that it gets
//     --forge MODULE       it says that MODULE has done its reset, when one is asked for
#include "wire/Json.h"

#include <QJsonDocument>
#include <QStringList>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <sys/prctl.h>

namespace {

const char interface[] = "org.vel.module.VelInterface";

QString valueOf(const QStringList& options, const char* name) {
    const int at = options.indexOf(name);
    return at < 0 ? QString() : options.value(at + 1);
}

wire::Message eventOf(const QString& publisher, const QString& name, const QString& module, const QByteArray& padding) {
    wire::Message event = wire::made(dbus_message_new_signal(qPrintable('/' + publisher), interface, qPrintable(name)));
    wire::Appender to(event.get());
    to.container("(ssia{ss}a{sv})", [&] {
        to.text('s', name);
        to.text('s', padding);
        to.number('i', 1);
        to.container("a{ss}", [] {});
        to.container("a{sv}", [&] {
            to.container("{sv}", [&] {
                to.text('s', QByteArray("ModuleName"));
                to.variant("s", [&] { to.text('s', module); });
            });
        });
    });
    return event;
}

wire::Message answerTo(DBusMessage* call, const QStringList& options) {
    if (dbus_message_has_member(call, "Introspect")) {
        wire::Message description = wire::made(dbus_message_new_method_return(call));
        wire::Appender(description.get()).text('s', valueOf(options, "--describe"));
        return description;
    }
    if (const QString text = valueOf(options, "--error"); !text.isNull())
        return wire::made(dbus_message_new_error(call, "org.vel.Error.Hostile", text.toUtf8().constData()));
    wire::Message answer = wire::made(dbus_message_new_method_return(call));
    wire::Appender to(answer.get());
    if (options.contains("--huge")) {
        to.container("as", [&] {
            for (int count = 0; count < 20; ++count)
                to.text('s', QByteArray(1 << 20, '\1')); // six characters each in JSON
        });
    }
    const QString json = valueOf(options, "--answer");
    if (!json.isNull())
        wire::appendTypedJson(to, QJsonDocument::fromJson(json.toUtf8()).object());
    return answer;
}

void send(DBusConnection* connection, const wire::Message& message) {
    dbus_connection_send(connection, message.get(), nullptr);
    dbus_connection_flush(connection);
}

} // namespace

int main(int argc, char** argv) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    QStringList options;
    for (int index = 1; index < argc; ++index)
        options += QString::fromUtf8(argv[index]);
    const QString module = options.takeFirst();
    DBusConnection* const connection = dbus_bus_get_private(DBUS_BUS_SESSION, nullptr);
    if (!connection)
        return EXIT_FAILURE;
    const QString service = "org.vel.module." + module + "Service";
    dbus_bus_request_name(connection, qPrintable(service), DBUS_NAME_FLAG_DO_NOT_QUEUE, nullptr);
    dbus_bus_add_match(connection, "type='signal',member='reset_data_default'", nullptr);
    dbus_connection_flush(connection);
    if (options.contains("--answers"))
        send(connection, eventOf(module, "end_of_init_" + module, module, {}));
    std::puts("ready");
    std::fflush(stdout);
    if (const QString flood = valueOf(options, "--flood"); !flood.isNull()) {
        const wire::Message event = eventOf(module, flood, "x", QByteArray(1000, '\1'));
        for (;;)
            send(connection, event);
    }
    while (dbus_connection_read_write(connection, -1)) {
        while (const wire::Message message{dbus_connection_pop_message(connection)}) {
            const QString forged = valueOf(options, "--forge");
            if (dbus_message_has_member(message.get(), "reset_data_default") && !forged.isNull())
                send(connection, eventOf(forged, "reset_default_done", forged, {}));
            const int answers = valueOf(options, "--answers").toInt();
            for (int count = 0; count < answers && dbus_message_has_member(message.get(), "prepare_save_restore");
                 ++count)
                send(connection, eventOf(module, "stop_save_restore_OK", module, {}));
            if (dbus_message_get_type(message.get()) != DBUS_MESSAGE_TYPE_METHOD_CALL)
                continue;
            if (answers > 0) {
                std::puts("asked");
                std::fflush(stdout);
            }
            if (options.contains("--leave") && !dbus_message_has_member(message.get(), "Introspect"))
                return EXIT_SUCCESS;
            send(connection, answerTo(message.get(), options));
        }
    }
}
