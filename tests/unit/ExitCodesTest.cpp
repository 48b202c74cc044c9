// The texts of exit statuses and of process errors: people search logs for them.
#include "errors/VelExitCodes.h"

#include <QProcess>
#include <QTest>

class ExitCodesTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void numberStandsBehindItsName() {
        QCOMPARE(getExitCodeInString(0), "UNKNOWN_ERROR [0]");
        QCOMPARE(getExitCodeInString(7), "ALREADY_RUNNING [7]");
        QCOMPARE(getExitCodeInString(127), "LIBS_ERROR [127]");
        QCOMPARE(getProcessErrorInString(QProcess::FailedToStart), "FailedToStart [0]");
        QCOMPARE(getProcessErrorInString(QProcess::UnknownError), "UnknownError [5]");
    }

    void numberWithoutANameStandsAlone() {
        for (const int number : {8, 126, 128, -1, INT_MAX, INT_MIN}) {
            QCOMPARE(getExitCodeInString(number), QString("[%1]").arg(number));
            QCOMPARE(getProcessErrorInString(number), QString("[%1]").arg(number));
        }
    }
};

QTEST_GUILESS_MAIN(ExitCodesTest)
#include "ExitCodesTest.moc"
