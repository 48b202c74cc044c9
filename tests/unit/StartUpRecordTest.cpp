// What a process keeps of its build and of its memory for whoever reads its core file.
#include "module/StartUpRecord.h"

#include <QFile>
#include <QTest>

class StartUpRecordTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void versionBlockIsTheFileAndTheBuildsStamp() {
        QByteArray expected;
        QFile versions("/etc/versions"); // most machines have none
        if (versions.open(QIODevice::ReadOnly))
            expected = versions.readAll();
        for (const QByteArray& line : QByteArray(VEL_CONFIGURED_STAMP).split('|'))
            expected += '\n' + line + '\n';

        QVERIFY(vel::versionBlock.isEmpty());
        vel::recordVersions();
        QCOMPARE(vel::versionBlock, expected);
    }

    void memoryMapIsThatOfThisProcess() {
        QVERIFY(vel::memoryMapSnapshot.isEmpty());
        vel::recordMemoryMap();
        QVERIFY(vel::memoryMapSnapshot.contains("libQt" QT_STRINGIFY(QT_VERSION_MAJOR) "Core"));
        QVERIFY(vel::memoryMapSnapshot.contains(QCoreApplication::applicationFilePath().toUtf8()));
        QVERIFY(vel::memoryMapSnapshot.endsWith('\n'));
    }
};

QTEST_GUILESS_MAIN(StartUpRecordTest)
#include "StartUpRecordTest.moc"
