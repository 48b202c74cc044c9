// The reference supervisor: starts, watches, saves and ends the modules that its configuration file names.
#include "ApplicationManager.h"
#include "Guardian.h"
#include "Launcher.h"
#include "Output.h"

#include <VelApplication>
#include <VelExitCodes>
#include <VelUnixSignals>

#include <QCommandLineParser>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <memory>

namespace {

constexpr int longestFlushMs = 1000;

const QString ownName = QStringLiteral("ApplicationManager");

int fail(const QString& text) {
    std::fprintf(stderr, "%s\n", qPrintable(text));
    return VelInitError;
}

int supervise(const Configuration& configuration) {
    Output::takeOverLog();
    Guardian guardian; // before the first thread, which the module's connection to the bus is
    std::unique_ptr<Launcher> launcher;
    const auto& modules = configuration.modules;
    if (std::any_of(modules.begin(), modules.end(), [](const ModuleConfiguration& one) { return one.isForked; }))
        launcher = std::make_unique<Launcher>(guardian, configuration.launcherLibraries);
    ApplicationManager manager(configuration, guardian, launcher.get());
    guardian.keepAlive();
    velOnSignals({SIGTERM, SIGINT, SIGHUP}, &manager, [&manager](int) { manager.askToEnd(); });
    velOnSignals({SIGTSTP, SIGTTIN, SIGTTOU}, &manager, [&manager](int) { manager.suspend(); });
    velOnSignals({SIGCONT}, &manager, [&manager](int) { manager.goOn(); });
    return QCoreApplication::exec();
}

} // namespace

int main(int argc, char** argv) {
    VelApplication application(argc, argv);
    QCoreApplication::setApplicationName("vel-supervisor");
    QCoreApplication::setApplicationVersion(VEL_SUPERVISOR_VERSION);

    QCommandLineParser parser;
    parser.setApplicationDescription("Starts, watches, saves and ends modules, as the module 'ApplicationManager'.");
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
        std::printf("vel-supervisor %s\n", VEL_SUPERVISOR_VERSION);
        return 0;
    }
    if (parser.value(name) != ownName)
        return fail(QString("cannot run as '%1': modules know their supervisor as '%2'; nothing was started")
                        .arg(parser.value(name), ownName));
    if (parser.positionalArguments().size() != 1)
        return fail("cannot read the command line: one configuration file is needed; nothing was started");

    QStringList mistakes;
    const Configuration configuration = Configuration::read(parser.positionalArguments().first(), mistakes);
    if (!mistakes.isEmpty())
        return fail(mistakes.join('\n'));
    if (parser.isSet(check))
        return 0;
    const int status = supervise(configuration);
    Output::log().flush(longestFlushMs);
    return status;
}
