// Joins the buses of machines by an MQTT broker.
#include "Bridge.h"

#include <VelApplication>
#include <VelExitCodes>
#include <VelUnixSignals>

#include <QCommandLineParser>

#include <csignal>
#include <cstdio>

namespace {

const QString ownName = QStringLiteral("Bridge");

int fail(const QString& text) {
    std::fprintf(stderr, "%s\n", qPrintable(text));
    return VelInitError;
}

} // namespace

int main(int argc, char** argv) {
    VelApplication application(argc, argv);
    QCoreApplication::setApplicationName("vel-bridge");

    QCommandLineParser parser;
    parser.setApplicationDescription("Joins this machine's bus with those of others by an MQTT broker, as the module "
                                     "'Bridge'.");
    parser.addPositionalArgument("FILE", "The configuration, in JSON.");
    const QCommandLineOption help({"h", "help"}, "Shows this.");
    const QCommandLineOption version("version", "Shows the version.");
    const QCommandLineOption check("check", "Only checks the configuration: status 0 when it is good, 3 when not.");
    const QCommandLineOption name("moduleName", "For callers that tell every module its name.", ownName, ownName);
    parser.addOptions({help, version, check, name});

    if (!parser.parse(QCoreApplication::arguments()))
        return fail(QString("cannot read the command line: %1; nothing was started").arg(parser.errorText()));
    if (parser.isSet(help))
        parser.showHelp(0);
    if (parser.isSet(version)) {
        std::printf("vel-bridge %s\n", VEL_BRIDGE_VERSION);
        return 0;
    }
    if (parser.value(name) != ownName) // a bus has one bridge: two would carry events in a circle
        return fail(QString("cannot run as '%1': a bus has one bridge, called '%2'; nothing was started")
                        .arg(parser.value(name), ownName));
    if (parser.positionalArguments().size() != 1)
        return fail("cannot read the command line: one configuration file is needed; nothing was started");

    QStringList mistakes;
    const Configuration configuration = Configuration::read(parser.positionalArguments().first(), mistakes);
    if (!mistakes.isEmpty())
        return fail(mistakes.join('\n'));
    if (parser.isSet(check))
        return 0;
    Bridge bridge(configuration);
    velOnSignals({SIGTERM, SIGINT, SIGHUP}, &bridge, [&bridge](int) { Q_EMIT bridge.sig_stop(); });
    return QCoreApplication::exec();
}
