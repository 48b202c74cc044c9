// Text of others in a log line.
#include "log/SafeText.h"

namespace {

constexpr int longestShown = 200;

bool isSafe(ushort unit) {
    if (unit < 0x20 || (unit >= 0x7f && unit < 0xa0))
        return false; // C0, DEL, C1
    const bool turnsDirection = unit == 0x61c || unit == 0x200e || unit == 0x200f ||
                                (unit >= 0x202a && unit <= 0x202e) || (unit >= 0x2066 && unit <= 0x2069);
    const bool breaksLine = unit == 0x2028 || unit == 0x2029;
    return !turnsDirection && !breaksLine;
}

QString byNumber(ushort unit) {
    const bool isByte = unit < 0x100;
    return QStringLiteral("\\%1%2")
        .arg(isByte ? QLatin1Char('x') : QLatin1Char('u'))
        .arg(unit, isByte ? 2 : 4, 16, QLatin1Char('0'));
}

} // namespace

QString vel::safeText(const QString& text) {
    QString safe;
    for (const QChar character : text.left(longestShown)) {
        if (isSafe(character.unicode()))
            safe += character;
        else
            safe += byNumber(character.unicode());
    }
    if (text.size() > longestShown)
        safe += QLatin1String("...");
    return safe;
}

QString vel::quoted(const QString& text) {
    return QLatin1Char('\'') + safeText(text) + QLatin1Char('\'');
}
