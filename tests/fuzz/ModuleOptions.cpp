// Any words, one a line, as the command line of a module.
#include "Target.h"

#include "module/CommandLine.h"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const QStringList words = QString::fromUtf8(fuzz::bytesOf(data, size)).split(QLatin1Char('\n'));
    const QMap<QString, QString> options = vel::readCommandLine(words);

    QStringList written(words.first());
    for (auto option = options.cbegin(); option != options.cend(); ++option) {
        fuzz::require(!option.key().contains(QLatin1Char('-')) && !option.key().contains(QLatin1Char('=')),
                      "a key has neither dashes nor what separates it from its value");
        written += QStringLiteral("--%1=%2").arg(option.key(), option.value());
    }
    fuzz::require(vel::readCommandLine(written) == options, "what was read is read again from its own form");
    return 0;
}
