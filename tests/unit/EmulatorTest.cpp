// What starts the programs of another machine here must keep them from ending everything that runs: qemu-arm 7.2 makes
// QProcess take -1 for the number of its child, and kill() takes it for everybody.
#include <QProcess>
#include <QTest>

#include <cerrno>
#include <csignal>

class EmulatorTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void droppedProcessEndsAlone() {
        const int everybody = -1;
        QCOMPARE(kill(everybody, 0), -1); // asks only; were it allowed, this test would not go on
        QCOMPARE(errno, EPERM);

        QProcess bystander;
        bystander.start("cat", QStringList());
        QVERIFY(bystander.waitForStarted());
        {
            QProcess dropped;
            dropped.start("cat", QStringList());
            QVERIFY(dropped.waitForStarted());
            QVERIFY(dropped.processId() > 0);
        }
        bystander.write("alive\n");
        QVERIFY(bystander.waitForReadyRead(60000));
        QCOMPARE(bystander.readLine(), QByteArray("alive\n"));
    }
};

QTEST_GUILESS_MAIN(EmulatorTest)
#include "EmulatorTest.moc"
