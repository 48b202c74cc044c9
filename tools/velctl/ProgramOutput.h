// What a program prints when it is run, within a time and a size.
#pragma once

#include <QByteArray>
#include <QDeadlineTimer>
#include <QList>
#include <QString>

#include <utility>

namespace velctl {

struct ProgramOutput {
    QByteArray text;
    QString problem; ///< why it is not whole: "it ended with status 2: no such option"; empty when it is
};

/// Runs a program, which is looked for in PATH like a command of a shell, with those arguments and additions to the
/// environment. Its standard input is empty. It leads a process group of its own, which is killed when the time or the size
/// is exceeded, and it dies with this process.
ProgramOutput outputOf(const QString& program, const QList<QByteArray>& arguments,
                       const QList<std::pair<QByteArray, QByteArray>>& environment, const QDeadlineTimer& end,
                       int mostBytes);

} // namespace velctl
