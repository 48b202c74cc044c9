// A supervised module, put together from the lines of the supervisor's output.
#include "demo/SupervisedActor.h"

#include <QRegularExpression>

QMap<QString, QString> SupervisedActor::environment(const QString& name) {
    QMap<QString, QString> variables = actorEnvironment();
    variables["QT_MESSAGE_PATTERN"].prepend(name + "[%{pid}]: ");
    return variables;
}

bool SupervisedActor::hear(const QString& line) {
    static const QRegularExpression ownLine("^(\\w+)\\[(\\d+)\\]: (.*)$");
    const QRegularExpressionMatch own = ownLine.match(line);
    if (own.hasMatch() && own.captured(1) == role().name) {
        m_processId = own.captured(2).toLongLong();
        say(own.captured(3));
        return true;
    }
    static const QRegularExpression endOfModule("'(\\w+)' ended with ([^;,]+)");
    const QRegularExpressionMatch end = endOfModule.match(line);
    if (end.hasMatch() && end.captured(1) == role().name) {
        m_end = end.captured(2);
        m_staysDown = line.contains("stays down");
    } else if (line.contains(QString("starts '%1'").arg(role().name))) {
        m_end.clear();
    }
    return false;
}
