// velctl loglevel, mtrace, reset and stop: what they publish, and what they report.
#include "VelctlRun.h"

#include "SkipList.h"
#include "testing/BusTest.h"

#include <QTest>

class VelctlTestControl : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void logLevelReachesModulesAndTellsWhoIsMissing();
    void tracingTellsWhatTheProcessWasStartedWithout();
    void resetTellsWhoAnsweredAndWhoIsMissing();
    void resetThatSomebodyDoesNotConfirmEndsAtTheLimit_data();
    void resetThatSomebodyDoesNotConfirmEndsAtTheLimit();
    void stopWaitsForTheEndOfTheProcess();
    void stopTellsWhyTheModuleStays_data();
    void stopTellsWhyTheModuleStays();
};

void VelctlTestControl::logLevelReachesModulesAndTellsWhoIsMissing() {
    const auto one = startPeer("One");
    const auto stopped = startPeer("Two");
    QVERIFY(one && stopped);
    QCOMPARE(velctl({"loglevel", "error"}).out, QStringList({"One  sent", "Two  sent"}));
    QVERIFY(stopFromOutside(*stopped));
    Background watch({"watch", "log_level_changed", "--count", "1"});
    const Outcome outcome = velctl({"loglevel", "debug", "--facility", "One", "--json"});
    QCOMPARE(outcome.status, 3);
    const QList<QJsonObject> modules = outcome.objects();
    QCOMPARE(modules.size(), 2);
    QVERIFY(modules.at(0).value("sent").toBool());
    QVERIFY(!modules.at(1).value("sent").toBool(true));
    QVERIFY(modules.at(1).value("reason").toString().contains("was stopped from outside"));
    QVERIFY(watch.outcome().out.value(0).contains("syslog_facility:=text:One syslog_level:=int:7"));
    QCOMPARE(velctl({"call", "One", "logLevel"}).out, QStringList("int 7"));
}

void VelctlTestControl::tracingTellsWhatTheProcessWasStartedWithout() {
    const auto unprepared = startPeer("Bare");
    const auto half = startPeer("Half", {}, "MALLOC_TRACE", "/dev/null");
    QVERIFY(unprepared && half);
    Background watch({"watch", "mtrace_on", "mtrace_off", "--count", "2"});
    const Outcome on = velctl({"mtrace", "on", "Bare"});
    QCOMPARE(on.status, 1);
    QVERIFY2(on.err.contains("was started without") && on.err.contains("MALLOC_TRACE=FILE"), qPrintable(on.err));
    QCOMPARE(on.out, QStringList("Bare  sent"));
    QCOMPARE(velctl({"mtrace", "off", "Bare"}).status, 0);
    const QStringList published = watch.outcome().out;
    QVERIFY(published.value(0).endsWith("module:=text:Bare"));
    QVERIFY(published.value(1).contains("mtrace_off"));

    QVERIFY(!velctl({"mtrace", "on", "Half"}).err.contains("MALLOC_TRACE"));
    QCOMPARE(velctl({"mtrace", "on", "Nobody"}).status, 3);
}

void VelctlTestControl::resetTellsWhoAnsweredAndWhoIsMissing() {
    const auto plain = startPeer("Plain");
    const auto rebooter = startPeer("Rebooter", {"--reset=reboot"});
    QVERIFY(plain && rebooter);
    const Outcome complete = velctl({"reset", "default", "--timeout", "60"});
    QCOMPARE(complete.out, QStringList({"Plain     done", "Rebooter  done  wants a reboot"}));
    QCOMPARE(complete.status, 0);
    QCOMPARE(velctl({"reset", "factory", "--timeout", "60"}).out, QStringList({"Plain     done", "Rebooter  done"}));

    QVERIFY(save(*plain, "Plain"));
    const Outcome incomplete = velctl({"reset", "default", "--json", "--timeout", "60"});
    QCOMPARE(incomplete.status, 3); // long before the limit: it is known that no answer will come
    QVERIFY(!incomplete.objects().value(0).value("answered").toBool(true));
    QVERIFY(incomplete.objects().value(0).value("reason").toString().contains("it is saved"));
    QCOMPARE(incomplete.objects().value(1),
             (QJsonObject{{"module", "Rebooter"}, {"answered", true}, {"needReboot", true}}));
}

void VelctlTestControl::resetThatSomebodyDoesNotConfirmEndsAtTheLimit_data() {
    QTest::addColumn<QString>("action");
    QTest::newRow("its reset failed") << "throw";
    QTest::newRow("its reset goes on") << "hang";
}

void VelctlTestControl::resetThatSomebodyDoesNotConfirmEndsAtTheLimit() {
    VEL_SKIP_WHERE_IMPOSSIBLE();
    QFETCH(QString, action);
    const auto silent = startPeer("Silent", {"--reset=" + action});
    QVERIFY(silent);
    const Outcome outcome = velctl({"reset", "default", "--timeout", "2"});
    QCOMPARE(outcome.status, 124);
    QVERIFY2(outcome.out.value(0).startsWith("Silent  missing  no answer: its reset "),
             qPrintable(outcome.out.join('\n')));
}

void VelctlTestControl::stopWaitsForTheEndOfTheProcess() {
    const auto peer = startPeer("Peer");
    QVERIFY(peer);
    const Outcome outcome = velctl({"stop", "Peer", "--timeout", "60"});
    QCOMPARE(outcome.out, QStringList(QString("Peer has ended, process %1").arg(peer->processId())));
    QCOMPARE(outcome.status, 0);
    QCOMPARE(peer->waitForStatus(), 1);
    QCOMPARE(velctl({"stop", "Peer"}).status, 3);
}

void VelctlTestControl::stopTellsWhyTheModuleStays_data() {
    QTest::addColumn<QString>("how");
    QTest::addColumn<int>("status");
    QTest::addColumn<QString>("reason");
    QTest::newRow("saved") << "saved" << 3 << "it is saved";
    QTest::newRow("busy") << "busy" << 124 << "it does not answer";
    QTest::newRow("its stop() does not end") << "hang" << 124 << "it has the event and is still there";
}

void VelctlTestControl::stopTellsWhyTheModuleStays() {
    QFETCH(QString, how);
    QFETCH(int, status);
    QFETCH(QString, reason);
    const auto peer = startPeer("Peer", how == "hang" ? QStringList("--stop=hang") : QStringList());
    QVERIFY(peer);
    if (how == "saved")
        QVERIFY(save(*peer, "Peer"));
    if (how == "busy")
        QVERIFY(makeBusy(*peer, "Peer"));
    const Outcome outcome = velctl({"stop", "Peer", "--timeout", "2"});
    QCOMPARE(outcome.status, status);
    QVERIFY2(outcome.err.contains(reason), qPrintable(outcome.err));
}

VEL_BUS_TEST_MAIN(VelctlTestControl)
#include "VelctlTestControl.moc"
