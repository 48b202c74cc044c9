// Texts of the exit statuses and of the QProcess errors.
#include "errors/VelExitCodes.h"

#include <QMap>
#include <QStringList>

namespace {

QString bracketed(int number) {
    return QLatin1Char('[') + QString::number(number) + QLatin1Char(']');
}

QString named(const QString& name, int number) {
    return name + QLatin1Char(' ') + bracketed(number);
}

} // namespace

QString getExitCodeInString(int code) {
    const QMap<int, QString> names{
        {VelUnknownError, QStringLiteral("UNKNOWN_ERROR")},
        {VelNormalExit, QStringLiteral("NORMAL_EXIT")},
        {VelDeployError, QStringLiteral("DEPLOY_ERROR")},
        {VelInitError, QStringLiteral("INIT_ERROR")},
        {VelRunError, QStringLiteral("RUN_ERROR")},
        {VelStopError, QStringLiteral("STOP_ERROR")},
        {VelKilled, QStringLiteral("KILLED")},
        {VelAlreadyRunning, QStringLiteral("ALREADY_RUNNING")},
        {VelLibsError, QStringLiteral("LIBS_ERROR")},
    };
    const auto row = names.constFind(code);
    return row == names.constEnd() ? bracketed(code) : named(*row, code);
}

QString getProcessErrorInString(int error) {
    const QStringList names{
        QStringLiteral("FailedToStart"), QStringLiteral("Crashed"),    QStringLiteral("Timedout"),
        QStringLiteral("ReadError"),     QStringLiteral("WriteError"), QStringLiteral("UnknownError"),
    };
    if (error < 0 || error >= names.size())
        return bracketed(error);
    return named(names.at(error), error);
}
