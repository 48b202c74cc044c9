// What a person reads: aligned lines, in colours only where they are welcome.
#include "demo/Timeline.h"

#include <cstdio>
#include <unistd.h>

namespace {

constexpr int speakerWidth = 20; // "ApplicationManager" and a gap

bool coloursAreWelcome() {
    return isatty(STDOUT_FILENO) && qEnvironmentVariableIsEmpty("NO_COLOR") && qgetenv("TERM") != "dumb";
}

void print(const QString& line) {
    std::puts(line.toUtf8().constData());
    std::fflush(stdout); // whoever reads a pipe follows, too
}

const char* codeOf(Timeline::Tone tone) {
    switch (tone) {
    case Timeline::Tone::Plain:
        break;
    case Timeline::Tone::Faint:
        return "2";
    case Timeline::Tone::Bold:
        return "1";
    case Timeline::Tone::Good:
        return "32";
    case Timeline::Tone::Doubtful:
        return "33";
    case Timeline::Tone::Bad:
        return "31";
    }
    return "0";
}

} // namespace

Timeline::Timeline() : m_hasColours(coloursAreWelcome()) {
    m_clock.start();
}

void Timeline::heading(const QString& title) {
    print(QString());
    print(toned(title, Tone::Bold));
}

void Timeline::event(const QString& who, const QString& what, Tone tone) {
    print(toned(now().rightJustified(8), Tone::Faint) + QStringLiteral("  ") + who.leftJustified(speakerWidth) +
          toned(what, tone));
}

void Timeline::text(const QString& line, Tone tone) {
    print(toned(line, tone));
}

QString Timeline::now() const {
    return QString::number(static_cast<double>(m_clock.elapsed()) / 1000, 'f', 3);
}

QString Timeline::toned(const QString& text, Tone tone) const {
    if (!m_hasColours || tone == Tone::Plain)
        return text;
    return QStringLiteral("\033[%1m%2\033[0m").arg(QLatin1String(codeOf(tone)), text);
}
