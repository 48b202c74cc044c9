// What the commands that read recordings share.
#include "Recordings.h"

#include "Output.h"

#include <QLocale>

namespace velctl {

void readRecording(const Request& request, const QString& verb,
                   const std::function<bool(const recording::Reader::Packet&)>& use) {
    const QString& path = request.arguments.first();
    try {
        recording::Reader reader(path.toLocal8Bit().toStdString());
        recording::Reader::Packet packet;
        quint64 messages = 0;
        while (reader.next(packet)) {
            ++messages;
            if (!use(packet))
                break;
        }
        if (messages == 0 && !reader.problem().empty())
            throw recording::Error(reader.problem());
        if (!reader.problem().empty())
            printMessage(QString("'%1' cannot be read to its end: %2; what stands before that is used")
                             .arg(path, QString::fromStdString(reader.problem())));
        if (reader.unreadable() > 0)
            printMessage(
                QString("%1 packets in '%2' are no messages; they are left out").arg(reader.unreadable()).arg(path));
    } catch (const recording::Error& error) {
        throw Failure{Failed, QString("cannot %1 '%2': %3").arg(verb, path, QString::fromUtf8(error.what()))};
    }
}

double numberOption(const Request& request, const char* name, double otherwise, bool isSize) {
    const auto option = request.others.constFind(QLatin1String(name));
    if (option == request.others.constEnd())
        return otherwise;
    QString digits = option.value();
    double unit = 1;
    if (isSize && !digits.isEmpty()) {
        const int place = QString("KMG").indexOf(digits.back().toUpper());
        for (int power = 0; power <= place; ++power)
            unit *= 1024;
        digits.chop(place >= 0 ? 1 : 0);
    }
    bool isNumber = false;
    const double number = digits.toDouble(&isNumber) * unit;
    constexpr double largest = 1e15;
    if (!isNumber || !(number > 0) || number > largest)
        throw Failure{Usage, QString("cannot use '%1' for --%2: it is no positive number%3")
                                 .arg(option.value(), name, isSize ? QString(" of bytes, such as 64M") : QString())};
    return number;
}

QString timeText(recording::Time nanoseconds) {
    constexpr double microsecond = 1e3, millisecond = 1e6, second = 1e9;
    const auto text = [](double number, const char* unit) {
        return QString("%1 %2").arg(number, 0, 'f', number < 10 ? 1 : 0).arg(unit);
    };
    const auto number = static_cast<double>(nanoseconds);
    if (number < millisecond)
        return text(number / microsecond, "µs");
    return number < second ? text(number / millisecond, "ms") : text(number / second, "s");
}

QString sizeText(std::uint64_t bytes) {
    return QLocale::c().formattedDataSize(static_cast<qint64>(bytes), 1, QLocale::DataSizeSIFormat);
}

} // namespace velctl
