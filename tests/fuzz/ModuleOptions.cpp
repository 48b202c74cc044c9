// Any words, one a line, as the command line of a module.
#include "Target.h"

#include "module/CommandLine.h"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const QStringList words = QString::fromUtf8(fuzz::bytesOf(data, size)).split('\n');
    const QMap<QString, QString> options = vel::readCommandLine(words);

    QStringList written(words.first());
    for (auto option = options.cbegin(); option != options.cend(); ++option) {
        fuzz::require(!option.key().contains('-') && !option.key().contains('='),
                      "a key has neither dashes nor what separates it from its value");
        written += QString("--%1=%2").arg(option.key(), option.value());
    }
    fuzz::require(vel::readCommandLine(written) == options, "what was read is read again from its own form");
    return 0;
}
