// The texts of exit statuses and of process errors: people search logs for them.
#include "errors/VelExitCodes.h"

#include <QProcess>
#include <QTest>

#include <climits>

class ExitCodesTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void exitStatusHasItsText_data() {
        QTest::addColumn<int>("status");
        for (const char* text :
             {"0 UNKNOWN_ERROR [0]", "1 NORMAL_EXIT [1]", "2 DEPLOY_ERROR [2]", "3 INIT_ERROR [3]", "4 RUN_ERROR [4]",
              "5 STOP_ERROR [5]", "6 KILLED [6]", "7 ALREADY_RUNNING [7]", "8 [8]", "126 [126]", "127 LIBS_ERROR [127]",
              "128 [128]", "-1 [-1]", "-2147483648 [-2147483648]"})
            QTest::newRow(text) << QString::fromLatin1(text).section(' ', 0, 0).toInt();
    }

    void exitStatusHasItsText() {
        QFETCH(int, status);
        QCOMPARE(getExitCodeInString(status), QString::fromLatin1(QTest::currentDataTag()).section(' ', 1));
    }

    void processErrorHasItsText_data() {
        QTest::addColumn<int>("error");
        QTest::newRow("FailedToStart [0]") << int(QProcess::FailedToStart);
        QTest::newRow("Crashed [1]") << int(QProcess::Crashed);
        QTest::newRow("Timedout [2]") << int(QProcess::Timedout);
        QTest::newRow("ReadError [3]") << int(QProcess::ReadError);
        QTest::newRow("WriteError [4]") << int(QProcess::WriteError);
        QTest::newRow("UnknownError [5]") << int(QProcess::UnknownError);
        QTest::newRow("[6]") << 6;
        QTest::newRow("[-1]") << -1;
        QTest::newRow("[2147483647]") << INT_MAX;
        QTest::newRow("[-2147483648]") << INT_MIN;
    }

    void processErrorHasItsText() {
        QFETCH(int, error);
        QCOMPARE(getProcessErrorInString(error), QString::fromLatin1(QTest::currentDataTag()));
    }
};

QTEST_GUILESS_MAIN(ExitCodesTest)
#include "ExitCodesTest.moc"
