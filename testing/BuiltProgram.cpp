// The programs of this build, as a test starts them.
#include "testing/BuiltProgram.h"

#include <QCoreApplication>

QString builtProgram(const QString& name) {
#ifdef VEL_TEST_STARTERS
    return QStringLiteral(VEL_TEST_STARTERS "/") + name;
#else
    return QCoreApplication::applicationDirPath() + QLatin1Char('/') + name;
#endif
}
