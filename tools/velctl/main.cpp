// velctl: one command for a running system of modules.
#include "CommandLine.h"
#include "Failure.h"
#include "Table.h"

#include <QCoreApplication>

#include <csignal>
#include <cstdio>
#include <unistd.h>

namespace {

// At once, wherever the program is: nothing here has to be put in order before the end.
void endInterrupted(int) {
    _exit(velctl::Interrupted);
}

// The library below warns of what the program says in its own words.
void dropMessages(QtMsgType, const QMessageLogContext&, const QString&) {}

int run(const QStringList& arguments) {
    const velctl::Errand errand = velctl::readCommandLine(arguments);
    if (errand.command)
        return errand.command->run(errand.request);
    velctl::printLine(errand.text);
    return velctl::Ok;
}

} // namespace

int main(int argc, char** argv) {
    std::signal(SIGINT, endInterrupted);
    if (!qEnvironmentVariableIsSet("VELCTL_DEBUG"))
        qInstallMessageHandler(dropMessages);
    QCoreApplication application(argc, argv);
    int status = velctl::Failed;
    try {
        status = run(QCoreApplication::arguments().mid(1));
    } catch (const velctl::Failure& failure) {
        velctl::printMessage(failure.text);
        status = failure.status;
    }
    if (std::ferror(stdout)) {
        velctl::printMessage("cannot write the output: standard output does not take it");
        status = velctl::Failed;
    }
    // Every line has been written. Qt's own end would wait for its D-Bus thread, outside of any time limit.
    _exit(status);
}
