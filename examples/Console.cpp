// Calls the method that --call names, about which it knows nothing else, and shows the typed answer: --call=Tuner.reception
#include <VelApplication>
#include <VelLogger>
#include <VelModule>
#include <VelModuleMain>
#include <VelReturnType>
#include <VelUnixSignals>

#include <QDBusArgument>

#include <csignal>

class Console : public VelModule {
    Q_OBJECT
public:
    Console() : VelModule("Console") {}

    bool run() override {
        const QStringList target = getParameters().value("call").split('.');
        try {
            showAnswer(target.value(0), target.value(1));
        } catch (const QString& text) {
            logger("")->error("the call failed: " + text);
        }
        exit(); // the work is done: asks to be stopped
        return true;
    }

private:
    void showAnswer(const QString& module, const QString& method) {
        const QDBusMessage reply = syncRemoteCall(module, method);
        const QVariant answer = reply.arguments().value(0);
        // "TYPE:CONTAINER:KEY", from the module's own description of its methods
        const QStringList type = getReturnType(module, method, reply.signature()).split(':');
        if (type.value(1) == "map") {
            logger("")->info(QString("%1.%2 returns a map of %3 to %4").arg(module, method, type[2], type[0]));
            const auto map = qdbus_cast<QVariantMap>(answer); // a map travels in its D-Bus form
            for (auto entry = map.cbegin(); entry != map.cend(); ++entry)
                logger("")->info(QString("  %1 = %2").arg(entry.key(), entry->toString()));
        } else {
            logger("")->info(QString("%1.%2 returns %3: %4").arg(module, method, type[0], answer.toString()));
        }
    }
};

VEL_MODULE_MAIN(argc, argv) {
    VelApplication application(argc, argv);
    Console console;
    velStopOnSignals(console, {SIGTERM, SIGINT});
    return application.exec();
}

#include "Console.moc"
