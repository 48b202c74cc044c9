// The programs of this build, as a test starts them.
#include "testing/BuiltProgram.h"

#include <QCoreApplication>
#include <QFileInfo>

QString builtProgram(const QString& name) {
    const QString starters = qEnvironmentVariable("VEL_TEST_STARTERS");
    if (const QString starter = starters + QLatin1Char('/') + name; !starters.isEmpty() && QFileInfo::exists(starter))
        return starter;
#ifdef VEL_TEST_STARTERS
    return QStringLiteral(VEL_TEST_STARTERS "/") + name;
#else
    return QCoreApplication::applicationDirPath() + QLatin1Char('/') + name;
#endif
}
