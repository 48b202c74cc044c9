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
    void lifecycleRunsWithoutABus_data();
    void lifecycleRunsWithoutABus();
    void moduleOutlivesItsBus();

private:
    QTemporaryDir m_folder;
};

void NoBusTest::lifecycleRunsWithoutABus_data() {
    // A socket file whose listener is gone refuses connections.
    const QByteArray path = QFile::encodeName(m_folder.filePath(QStringLiteral("refusing")));
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, path.constData(), sizeof address.sun_path - 1);
    const int listener = socket(AF_UNIX, SOCK_STREAM, 0);
    QCOMPARE(bind(listener, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    close(listener);

    QTest::addColumn<QString>("busAddress");
    QTest::newRow("unset") << "";
    QTest::newRow("dead") << "unix:path=" + m_folder.filePath(QStringLiteral("absent"));
    QTest::newRow("refused") << "unix:path=" + QFile::decodeName(path);
    QTest::newRow("no address at all") << "nonsense";
}

void NoBusTest::lifecycleRunsWithoutABus() {
    QFETCH(QString, busAddress);
    ChildProcess module;
    module.setVariable(QStringLiteral("DBUS_SESSION_BUS_ADDRESS"), busAddress);
    module.setVariable(QStringLiteral("XDG_RUNTIME_DIR"), QString()); // where a bus would be looked for next
    module.setVariable(QStringLiteral("DISPLAY"), QString());
    QVERIFY(module.run(bustest::program(QStringLiteral("scripted-module")),
                       {QStringLiteral("--check=false"), QStringLiteral("--run=exit")}));
    QCOMPARE(module.waitForStatus(), 1);
    const QStringList hooks = module.lines().filter(QStringLiteral("hook "));
    QCOMPARE(hooks,
             (QStringList{QStringLiteral("hook check"), QStringLiteral("hook deploy"), QStringLiteral("hook init"),
                          QStringLiteral("hook run"), QStringLiteral("hook stop")}));
}

void NoBusTest::moduleOutlivesItsBus() {
    PrivateBus mortal;
    ChildProcess module;
    QVERIFY(module.run(bustest::program(QStringLiteral("scripted-module")), {QStringLiteral("--stdin=exit")}));
    QVERIFY(module.waitForLine(QStringLiteral("hook run")));
    mortal.stop();
    module.closeWriteChannel();
    QCOMPARE(module.waitForStatus(), 1);
    QVERIFY(module.lines().contains(QStringLiteral("hook stop")));
}

VEL_BUS_TEST_MAIN(NoBusTest)
#include "NoBusTest.moc"
