// velctl call: conversions, answers, and every way in which a call fails.
#include "VelctlRun.h"

#include "testing/BusTest.h"

#include <QJsonArray>
#include <QTest>

class VelctlTestCall : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void answerIsShownWithItsType_data();
    void answerIsShownWithItsType();
    void answerInJsonKeepsItsType();
    void failureTellsWhy_data();
    void failureTellsWhy();
    void stoppedModuleIsNotCalled_data();
    void stoppedModuleIsNotCalled();
    void moduleThatDoesNotAnswerEndsTheCallAtItsLimit_data();
    void moduleThatDoesNotAnswerEndsTheCallAtItsLimit();
    void moduleThatEndsWhileItIsCalledIsNotRunning();
};

void VelctlTestCall::answerIsShownWithItsType_data() {
    QTest::addColumn<QStringList>("call");
    QTest::addColumn<QStringList>("answer");
    const auto row = [](const char* name, const QStringList& call, const QStringList& answer) {
        QTest::newRow(name) << call << answer;
    };
    row("whole numbers", {"add", "2", "-5"}, {"int -3"});
    row("the overload that the arguments fit", {"add", "a", "b"}, {"text ab"});
    row("64 bits", {"twice", "4503599627370497000"}, {"int64 9007199254740994000"});
    row("number", {"half", "5"}, {"double 2.5"});
    row("truth", {"negated", "true"}, {"bool false"});
    row("texts as a list", {"joined", "[a, \"b,c\", d]"}, {"text a+b,c+d"});
    row("texts as JSON", {"joined", R"(["a","b"])"}, {"text a+b"});
    row("several texts, a line each", {"split", "a b+c"}, {"texts", "  a b", "  c"});
    row("one text in a list", {"split", "a b"}, {R"(texts ["a b"])"});
    row("list", {"sameList", "[1,x]"}, {R"(list [{"type":"i","value":1},{"type":"s","value":"x"}])"});
    row("map", {"sameMap", R"([["k",{"type":"ai","value":[1,2]}]])"}, {R"(map [["k",{"type":"ai","value":[1,2]}]])"});
    row("no answer but the end", {"nothing"}, {});
}

void VelctlTestCall::answerIsShownWithItsType() {
    QFETCH(QStringList, call);
    QFETCH(QStringList, answer);
    const auto peer = startPeer("Peer");
    QVERIFY(peer);
    const Outcome outcome = velctl(QStringList({"call", "Peer"}) + call);
    QCOMPARE(outcome.err, QString());
    QCOMPARE(outcome.out, answer);
    QCOMPARE(outcome.status, 0);
}

void VelctlTestCall::answerInJsonKeepsItsType() {
    const auto peer = startPeer("Peer");
    QVERIFY(peer);
    const QJsonObject json = velctl({"call", "Peer", "twice", "3", "--json"}).objects().value(0);
    QCOMPARE(json, (QJsonObject{{"module", "Peer"},
                                {"method", "twice"},
                                {"answer", QJsonArray{QJsonObject{{"type", "x"}, {"value", "6"}}}}}));
}

void VelctlTestCall::failureTellsWhy_data() {
    QTest::addColumn<QStringList>("call");
    QTest::addColumn<int>("status");
    QTest::addColumn<QString>("text");
    const auto row = [](const char* name, const QStringList& call, int status, const char* text) {
        QTest::newRow(name) << call << status << QString("velctl: cannot call ") + text + '\n';
    };
    row("error of the module", {"Peer", "refuse", "not today"}, 5,
        "'Peer.refuse': Peer answered org.freedesktop.DBus.Error.AccessDenied: not today");
    row("unknown method", {"Peer", "ad", "1"}, 4,
        "'Peer.ad': Peer has no such method; there are add, twice, half, negated, joined, split, sameMap, sameList, "
        "nothing, logLevel, refuse, block, vanish");
    row("no such module", {"Pear", "add"}, 3, "'Pear.add': there is no module 'Pear' on the bus; there is only Peer");
    row("impossible name", {"a-b", "add"}, 2,
        "'a-b': that cannot be the name of a module; it is made of letters, digits and underscores, and does not "
        "begin with a digit");
    row("number of arguments", {"Peer", "half"}, 2,
        "'Peer.half': it takes another number of arguments than 0; right is: half(double number) -> double");
    row("not of the type", {"Peer", "half", "much"}, 2,
        "'Peer.half': 'much' is no double; right is: half(double number) -> double");
    row("out of range", {"Peer", "twice", "9223372036854775808"}, 2,
        "'Peer.twice': '9223372036854775808' is no int64; right is: twice(int64 number) -> int64");
}

void VelctlTestCall::failureTellsWhy() {
    QFETCH(QStringList, call);
    QFETCH(int, status);
    QFETCH(QString, text);
    const auto peer = startPeer("Peer");
    QVERIFY(peer);
    const Outcome outcome = velctl(QStringList("call") + call);
    QCOMPARE(outcome.err, text);
    QCOMPARE(outcome.status, status);
    QVERIFY(outcome.out.isEmpty());
}

void VelctlTestCall::stoppedModuleIsNotCalled_data() {
    QTest::addColumn<bool>("isSaved");
    QTest::addColumn<QString>("reason");
    QTest::newRow("saved") << true << "it is saved: it has stopped its process %1 itself";
    QTest::newRow("stopped from outside") << false << "its process %1 was stopped from outside";
}

void VelctlTestCall::stoppedModuleIsNotCalled() {
    QFETCH(bool, isSaved);
    QFETCH(QString, reason);
    const auto peer = startPeer("Peer");
    QVERIFY(peer);
    QVERIFY(isSaved ? save(*peer, "Peer") : stopFromOutside(*peer));
    const Outcome outcome = velctl({"call", "Peer", "vanish"});
    QCOMPARE(outcome.status, 3);
    QVERIFY2(outcome.err.contains(reason.arg(peer->processId())), qPrintable(outcome.err));
    resume(*peer);
    QCOMPARE(velctl({"call", "Peer", "add", "1", "1", "--timeout", "60"}).out, QStringList("int 2"));
}

void VelctlTestCall::moduleThatDoesNotAnswerEndsTheCallAtItsLimit_data() {
    QTest::addColumn<bool>("isBusyBefore");
    QTest::newRow("busy before the call") << true;
    QTest::newRow("made busy by the call") << false;
}

void VelctlTestCall::moduleThatDoesNotAnswerEndsTheCallAtItsLimit() {
    QFETCH(bool, isBusyBefore);
    const auto peer = startPeer("Peer");
    QVERIFY(peer);
    if (isBusyBefore)
        QVERIFY(makeBusy(*peer, "Peer"));
    const Outcome outcome = velctl({"call", "Peer", "block", "--timeout", "3"});
    QCOMPARE(outcome.status, 124);
    QVERIFY2(outcome.err.startsWith("velctl: cannot call 'Peer.block': it does not answer: its process "),
             qPrintable(outcome.err));
    if (tellsSystemCalls(*peer))
        QVERIFY2(outcome.err.contains("waits for input (read)"), qPrintable(outcome.err));
    release(*peer);
}

void VelctlTestCall::moduleThatEndsWhileItIsCalledIsNotRunning() {
    const auto peer = startPeer("Peer");
    QVERIFY(peer);
    const Outcome outcome = velctl({"call", "Peer", "vanish"});
    QCOMPARE(outcome.err, QString("velctl: cannot call 'Peer.vanish': Peer left the bus without an answer\n"));
    QCOMPARE(outcome.status, 3);
}

VEL_BUS_TEST_MAIN(VelctlTestCall)
#include "VelctlTestCall.moc"
