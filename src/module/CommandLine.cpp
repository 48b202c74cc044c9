// The module's command line: `--key=value` options and the help text.
#include "module/CommandLine.h"

#include <cstdio>

QMap<QString, QString> vel::readCommandLine(const QStringList& arguments) {
    QMap<QString, QString> options;
    for (const QString& argument : arguments.mid(1)) {
        const int equalsSign = argument.indexOf(QLatin1Char('='));
        const QString key = argument.left(equalsSign).remove(QLatin1Char('-')); // all of it without a '='
        options.insert(key, equalsSign < 0 ? QString() : argument.mid(equalsSign + 1));
    }
    return options;
}

bool vel::asksForHelp(const QMap<QString, QString>& options) {
    return options.contains(QStringLiteral("h")) || options.contains(QStringLiteral("help"));
}

void vel::printHelp() {
    std::puts("The module parameters are :\n"
              "  --moduleName=<name of the module> : References the module on DBus");
}
