// Tells what it finds when it starts, or does what its first argument says; executed or forked, it must be the same.
#include <VelApplication>
#include <VelModule>
#include <VelModuleMain>

#include <QFile>
#include <QTextStream>

#include <algorithm>
#include <csignal>
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

// Runs until it is stopped; then its status is 1.
class Peer : public VelModule {
public:
    Peer() : VelModule("Launched") {}
};

QStringList linesOf(const char* file) {
    QFile opened(file);
    return opened.open(QIODevice::ReadOnly) ? QString::fromUtf8(opened.readAll()).split('\n') : QStringList();
}

void report(int argc, char** argv) {
    QTextStream out(stdout);
    for (int index = 0; index < argc; ++index)
        out << "argument " << argv[index] << '\n';
    QStringList variables;
    for (char** variable = environ; *variable; ++variable)
        variables += *variable;
    std::sort(variables.begin(), variables.end());
    out << variables.join('\n') << '\n';
    char folder[4096];
    out << "folder " << getcwd(folder, sizeof folder) << '\n';
    for (int number = 0; number < 256; ++number) {
        struct stat status {};
        if (fstat(number, &status) == 0)
            out << "descriptor " << number << " inode " << status.st_ino << " flags " << fcntl(number, F_GETFL) << '\n';
    }
    for (const QString& line : linesOf("/proc/self/status")) {
        for (const char* name :
             {"Name:", "Umask:", "SigBlk:", "SigIgn:", "SigCgt:", "ShdPnd:", "SigPnd:", "Threads:"}) {
            if (line.startsWith(name))
                out << line << '\n';
        }
    }
    out << linesOf("/proc/self/limits").join('\n') << '\n';
    out << "command line " << linesOf("/proc/self/cmdline").join(' ').replace(QChar(0), '|') << '\n';
    out << "group of its own " << (getpgrp() == getpid()) << ", session of its own " << (getsid(0) == getpid()) << '\n';
}

} // namespace

VEL_MODULE_MAIN(argc, argv) {
    const QByteArray what = argc > 1 ? argv[1] : "";
    if (what == "report") {
        report(argc, argv);
        return 42;
    }
    if (what == "seed") { // of hash tables: to be guessed by nobody who knows another module's
        qSetGlobalQHashSeed(-1);
        QTextStream(stdout) << qHash(QString("a text"), uint(qGlobalQHashSeed())) << '\n';
        return 0;
    }
    if (what == "abort")
        abort();
    VelApplication application(argc, argv);
    Peer peer;
    return application.exec();
}
