// No bus, or a bus that dies: the module runs its lifecycle all the same and can be stopped by its own code.
#include "testing/BusTest.h"

#include <QTest>

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>

class NoBusTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void lifecycleRunsWithoutABus_data() {
        // A socket file whose listener is gone refuses connections.
        const QByteArray path = QFile::encodeName(m_folder.filePath("refusing"));
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::strncpy(address.sun_path, path.constData(), sizeof address.sun_path - 1);
        const int listener = socket(AF_UNIX, SOCK_STREAM, 0);
        QCOMPARE(bind(listener, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
        close(listener);

        QTest::addColumn<QString>("busAddress");
        QTest::newRow("unset") << "";
        QTest::newRow("dead") << "unix:path=" + m_folder.filePath("absent");
        QTest::newRow("refused") << "unix:path=" + QFile::decodeName(path);
        QTest::newRow("no address at all") << "nonsense";
    }

    void lifecycleRunsWithoutABus() {
        QFETCH(QString, busAddress);
        ChildProcess module;
        module.setVariable("DBUS_SESSION_BUS_ADDRESS", busAddress);
        module.setVariable("XDG_RUNTIME_DIR", QString()); // where a bus would be looked for next
        module.setVariable("DISPLAY", QString());
        module.setVariable("VEL_TEST_LOG", "1");
        QVERIFY(module.run(bustest::program("scripted-module"),
                           {"--deaf", "--check=false", "--init=useBus", "--run=exit"}));
        QCOMPARE(module.waitForStatus(), 1);
        const QString address = busAddress.isEmpty() ? QString("not set") : QString("'%1'").arg(busAddress);
        const QStringList lines = module.lines().filter("LOG error: cannot put module 'Scripted' on the bus: ");
        QCOMPARE(lines.size(), 1);
        QVERIFY2(lines.first().endsWith("(DBUS_SESSION_BUS_ADDRESS is " + address +
                                        "); it runs, but hears nobody and is heard by nobody"),
                 qPrintable(lines.first()));
        const QStringList refused = module.lines().filter("there is no bus");
        QCOMPARE(
            refused,
            (QStringList{"LOG error: cannot publish 'topic': there is no bus; neither it nor any later event is sent",
                         "LOG error: cannot subscribe 'ScriptedModule::stopWebclientEvent(VelEvent)' to 'topic': "
                         "there is no bus; it will not be called",
                         "LOG error: cannot call 'Scripted.state': there is no bus; nothing was sent"}));
        const QStringList hooks = module.lines().filter("hook ");
        QCOMPARE(hooks, (QStringList{"hook check", "hook deploy", "hook init", "hook run", "hook stop"}));
    }

    void moduleOutlivesItsBus() {
        PrivateBus mortal;
        ChildProcess module;
        QVERIFY(module.run(bustest::program("scripted-module"), {"--stdin=exit"}));
        QVERIFY(module.waitForLine("hook run"));
        mortal.stop();
        module.closeWriteChannel();
        QCOMPARE(module.waitForStatus(), 1);
        QVERIFY(module.lines().contains("hook stop"));
    }

private:
    QTemporaryDir m_folder;
};

VEL_TEST_MAIN(NoBusTest)
#include "NoBusTest.moc"
