// velctl: one command for a running system of modules.
#include "CommandLine.h"
#include "Output.h"
#include "Status.h"

#include "wire/Message.h"

#include <clocale>
#include <csignal>
#include <new>
#include <unistd.h>

namespace {

// At once, wherever the program is: nothing here has to be put in order before the end.
void endInterrupted(int) {
    _exit(velctl::Interrupted);
}

int run(const velctl::Invocation& invocation) {
    if (invocation.command)
        return invocation.command->run(invocation.request);
    velctl::Output::writeWhole(invocation.text.toUtf8() + '\n');
    return velctl::Ok;
}

int fail(const velctl::Failure& failure) {
    velctl::printFailure(failure.text, failure.status);
    return failure.status;
}

// What was written and not yet read goes out within the limit, and a little more for the message of its end.
int finish(int status, const velctl::TimeLimit& limit) {
    try {
        if (!velctl::Output::finish(limit.lastMoment())) {
            velctl::Output::giveUp();
            status = fail({velctl::TimeLimitReached, QString("cannot write the output: nobody has read it all within "
                                                             "%1; the rest is missing")
                                                         .arg(limit.text())});
        }
    } catch (const velctl::Failure& failure) {
        status = fail(failure);
    }
    // A reader of the messages that sleeps gets what there is room for.
    (void)velctl::Output::finish(QDeadlineTimer(0));
    return status;
}

} // namespace

int main(int argc, char** argv) {
    std::setlocale(LC_CTYPE, "");
    std::signal(SIGINT, endInterrupted);
    QStringList arguments;
    for (int index = 1; index < argc; ++index)
        arguments += QString::fromUtf8(argv[index]);
    if (arguments.mid(0, arguments.indexOf("--")).contains("--json"))
        velctl::Output::useJson();

    velctl::Invocation invocation;
    int status = velctl::Failed;
    try {
        invocation = velctl::readCommandLine(arguments);
        status = run(invocation);
    } catch (const velctl::Failure& failure) {
        status = fail(failure);
    } catch (const wire::Error& error) {
        status = fail({velctl::Failed, "cannot send: " + error.reason});
    } catch (const std::bad_alloc&) {
        status = fail({velctl::Failed, "cannot go on: there is not enough memory"});
    }
    _exit(finish(status, invocation.request.limit));
}
