// The cursor waits at the beginning of the line: what a module or the log writes in between takes the line's place, and the
// progress follows below it.
#include "ProgressLine.h"

#include "Fleet.h"
#include "Output.h"

#include <algorithm>
#include <sys/ioctl.h>
#include <unistd.h>
#include <utility>

namespace {

constexpr int fallbackWidth = 80;

int terminalWidth() {
    winsize size{};
    return ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0 ? size.ws_col : fallbackWidth;
}

QString seconds(qint64 milliseconds) {
    return QString::number(static_cast<double>(milliseconds) / 1000, 'f', 1) + " s";
}

} // namespace

ProgressLine::ProgressLine(const Fleet& fleet) : m_fleet(fleet), m_isShown(isatty(STDOUT_FILENO) == 1) {
    m_clock.start();
    if (!m_isShown)
        return;
    connect(&fleet, &Fleet::changed, this, &ProgressLine::refresh);
    connect(&m_second, &QTimer::timeout, this, [this] {
        m_shown.clear(); // it is shown again in any case: something may have been written over it
        refresh();
    });
    m_second.start(1000);
}

void ProgressLine::showEnd() {
    m_isEnding = true;
    m_clock.restart();
}

void ProgressLine::refresh() {
    using State = SupervisedModule::State;
    const auto& modules = m_fleet.modules();
    const bool isSettled = std::none_of(modules.begin(), modules.end(), [](const auto& module) {
        return module->state() == State::Starting || module->state() == State::Stopping ||
               module->state() == State::Pausing;
    });
    if (isSettled && m_isSettled)
        return;
    if (m_isSettled && !isSettled)
        m_clock.restart();
    m_isSettled = isSettled;
    const pid_t foreground = tcgetpgrp(STDOUT_FILENO); // -1: this terminal has no jobs
    if (foreground > 0 && foreground != getpgrp())
        return; // it runs in the background: the line is somebody else's
    const QString line = text(isSettled).left(terminalWidth() - 1);
    if (std::exchange(m_shown, line) == line)
        return;
    // Erases what stood there, and stays at the beginning of the line until the last text.
    Output::progress().write("\r\033[K" + line.toUtf8() + (isSettled ? "\n" : "\r"));
    if (isSettled && m_isEnding)
        m_second.stop();
}

QString ProgressLine::text(bool isSettled) const {
    using State = SupervisedModule::State;
    QStringList inWork;
    int reached = 0;
    for (const auto& module : m_fleet.modules()) {
        reached += module->state() == (m_isEnding ? State::Down : State::Up);
        if (module->state() == State::Starting || module->state() == State::Stopping)
            inWork += module->name() + ' ' + seconds(module->millisecondsInState());
        else if (module->state() == State::Pausing)
            inWork += module->name() + " again";
    }
    const QString count =
        QString("%1 of %2 %3").arg(reached).arg(m_fleet.modules().size()).arg(m_isEnding ? "down" : "up");
    return count + (isSettled ? " after " + seconds(m_clock.elapsed()) : ": " + inWork.join(", "));
}
