// Destruction in every lifecycle state; what it must not touch shows under AddressSanitizer.
#include "testing/BusTest.h"
#include "testing/RawClient.h"

#include <QTest>

class DestructionTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void cleanInEveryState_data() {
        QTest::addColumn<QString>("state");
        QTest::newRow("before the loop ran") << QString();
        for (const char* state : {"CHECK", "DEPLOY", "INIT", "END_OF_INIT", "RUN", "PRESENTATION_LOADED",
                                  "PRESENTATION_STOP", "STOP", "EXIT"})
            QTest::newRow(state) << QString::fromLatin1(state);
    }

    void cleanInEveryState() {
        QFETCH(QString, state);
        for (const bool withBus : {true, false}) {
            ChildProcess module;
            if (!withBus)
                module.setVariable("DBUS_SESSION_BUS_ADDRESS", "unix:path=/nonexistent");
            QVERIFY(module.run(bustest::program("destroyed-module"),
                               state.isEmpty() ? QStringList() : QStringList{QString("--in=") + state}));
            const int status = module.waitForStatus();
            QVERIFY2(status == 0, qPrintable(module.lines().join('\n')));
            // Without a bus there is an error line, too.
            QCOMPARE(module.lines().last(), QString("destroyed in '%1'").arg(state));
        }
    }

    void cleanInTheMiddleOfTraffic() {
        RawClient silent;
        QVERIFY(silent.isConnected());
        for (int round = 0; round < 20; ++round) {
            ChildProcess module;
            QVERIFY(module.run(bustest::program("destroyed-module"), {QString("--calls=") + silent.uniqueName()}));
            const int status = module.waitForStatus();
            QVERIFY2(status == 0, qPrintable(module.lines().join('\n')));
            QCOMPARE(module.lines(), QStringList{"destroyed in 'EXIT'"});
        }
    }
};

VEL_TEST_MAIN(DestructionTest)
#include "DestructionTest.moc"
