// One instance of a module: the second is refused, and many at once leave at least one.
#include "testing/BusTest.h"

#include "bus/VelDBusInterface.h"

#include <QRegularExpression>
#include <QTest>

#include <algorithm>
#include <vector>

class SingleInstanceTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void secondInstanceEndsWithStatus7_data() {
        QTest::addColumn<QString>("level");
        QTest::addColumn<QStringList>("lines");
        const QString warning = "LOG warning: Media is already running: Stopping new instance.";
        QTest::newRow("level 3") << "3" << QStringList();
        QTest::newRow("level 4") << "4" << QStringList{warning};
        QTest::newRow("level 6") << "6" << QStringList{"LOG info: The module's DBus name is Media", warning};
    }

    void secondInstanceEndsWithStatus7() {
        QFETCH(QString, level);
        QFETCH(QStringList, lines);
        ChildProcess first;
        QVERIFY(first.run(bustest::program("scripted-module"), {"--moduleName=Media"}));
        QVERIFY(first.waitForLine("hook run"));

        ChildProcess second;
        second.setVariable("VEL_TEST_LOG", "1");
        second.setVariable("VEL_LOG_LEVEL", level);
        QVERIFY(second.run(bustest::program("scripted-module"), {"--moduleName=Media"}));
        QCOMPARE(second.waitForStatus(), 7);
        lines << QString("LOG error: cannot start module 'Media': process %1 is it already; this one ends with "
                         "ALREADY_RUNNING [7]")
                     .arg(bustest::processOf("Media"));
        QCOMPARE(second.lines(), lines);

        VelDBusInterface proxy("Media", m_other, nullptr);
        QCOMPARE(proxy.call("state", {}).arguments(), QVariantList{"RUN"});
    }

    void fiftyAtOnceLeaveAtLeastOne() {
        std::vector<std::unique_ptr<ChildProcess>> processes;
        for (int index = 0; index < 50; ++index) {
            processes.push_back(std::make_unique<ChildProcess>());
            processes.back()->setVariable("VEL_TEST_LOG", "1");
            processes.back()->setVariable("VEL_LOG_LEVEL", "4");
            processes.back()->start(bustest::program("scripted-module"), {"--moduleName=Display"});
        }
        // Each one either sees another and ends, or gets through to RUN.
        std::vector<ChildProcess*> running;
        for (const auto& process : processes) {
            if (process->waitForLine("hook run")) {
                running.push_back(process.get());
                continue;
            }
            QCOMPARE(process->waitForStatus(), 7);
            QCOMPARE(process->lines().value(0), "LOG warning: Display is already running: Stopping new instance.");
        }
        QVERIFY(!running.empty());
        const QRegularExpression withoutName("^LOG error: cannot take the name 'org.vel.module.DisplayService' for "
                                             "module 'Display': process \\d+ took the "
                                             "name at the same moment; it runs, but nobody can call it$");
        QCOMPARE(std::count_if(running.begin(), running.end(),
                               [&](const ChildProcess* process) { return process->lines().indexOf(withoutName) >= 0; }),
                 static_cast<qptrdiff>(running.size() - 1));
        QVERIFY(VelDBusInterface("Display", m_other, nullptr).isValid());

        QVERIFY(bustest::publish(m_other, "Other", "stop_module_Display"));
        for (ChildProcess* process : running)
            QCOMPARE(process->waitForStatus(), 1);
    }

private:
    QDBusConnection m_other = bustest::connectAs("other");
};

VEL_TEST_MAIN(SingleInstanceTest)
#include "SingleInstanceTest.moc"
