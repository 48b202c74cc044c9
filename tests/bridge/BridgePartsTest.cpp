// What the bridge decides without a broker.
#include "Configuration.h"
#include "Inbox.h"
#include "Outbox.h"
#include "Topics.h"

#include <QFile>
#include <QTemporaryDir>
#include <QTest>

#include <csignal>
#include <sys/resource.h>

class BridgePartsTest : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void topicsAreTakenApartOrNotAtAll();
    void answersStayBelowTheOwnName();
    void everyMistakeIsToldWithItsLine();
    void anEventIsTakenOnceAndInOrder();
    void theQueueGoesBackToWhatAReceiverLacks();
    void receiversOutliveTheBridge();
    void whatIsRefusedHoldsUpNothing();
    void aFullDiskIsToldAndTheQueueGoesOn();
};

void BridgePartsTest::topicsAreTakenApartOrNotAtAll() {
    for (const QString text : {"vel/1/front/state", "vel/1/a-b/module/Media", "vel/1/front/event/Media/played",
                               "vel/1/front/call/Media/play", "vel/1/front/answer/rear", "vel/1/front/received/rear"})
        QCOMPARE(Topic::parse(text).text(), text);
    for (const QString text : {"", "vel/1/", "vel/2/front/state", "vel/1/front/state/x", "vel/1//state",
                               "vel/1/+/state", "vel/1/front/event/Media", "vel/1/front/event/Me.dia/x",
                               "vel/1/front/event/Media/a-b", "vel/1/front/call/1Media/x", "vel/1/front/answer/a b"})
        QCOMPARE(Topic::parse(text).kind, Topic::None);
}

void BridgePartsTest::answersStayBelowTheOwnName() {
    QVERIFY(isAnswerTopic("vel/1/rear/answer/front", "rear"));
    QVERIFY(isAnswerTopic("vel/1/rear/answer/phone/7", "rear"));
    for (const QString topic : {"vel/1/front/answer/rear", "vel/1/rear/event/A/b", "vel/1/rear/answer/",
                                "vel/1/rear/answer/+", "vel/1/rear/answer/a/b/c/d/e"})
        QVERIFY(!isAnswerTopic(topic, "rear"));
}

void BridgePartsTest::everyMistakeIsToldWithItsLine() {
    QTemporaryDir folder;
    QFile file(folder.filePath("c.json"));
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write(R"({"machine": "fr/ont",
"broker": {"host": "example.org",
           "passwordFile": "nowhere"},
"export": {"modules": ["A-B", "Bridge"], "events": ["a-b"]},
"import": {"rear": {"modules": ["Media"], "evens": []},
           "third": {"modules": ["Media"]}},
"store": "no/where",
"limits": {"queueEvents": 1}, "more": 1})");
    file.close();
    QStringList mistakes;
    Configuration::read(file.fileName(), mistakes);
    const QStringList expected = {":1: machine: must be letters",
                                  ":2: broker: 'example.org' is another machine",
                                  ":3: broker.passwordFile: there is",
                                  ":3: broker.passwordFile: a password needs",
                                  ":4: export.modules: 'A-B' cannot",
                                  ":4: export.modules: the bridge itself",
                                  ":4: export.events: 'a-b' is",
                                  ":5: import.rear.evens: unknown key",
                                  ":6: import.third.modules: 'Media' is imported from 'rear'",
                                  ":7: store: cannot be",
                                  ":8: limits.queueEvents: must be",
                                  ":8: more: unknown key"};
    for (const QString& one : expected)
        QVERIFY2(!mistakes.filter(one).isEmpty(), qPrintable(one + " is not in:\n" + mistakes.join('\n')));
    QCOMPARE(mistakes.size(), expected.size());
}

void BridgePartsTest::anEventIsTakenOnceAndInOrder() {
    Inbox inbox;
    QCOMPARE(inbox.decide("p", 8, 7), Inbox::Gap); // of a new one, too: the older ones may have waited for this machine
    QCOMPARE(inbox.decide("p", 7, 0), Inbox::Take);
    inbox.take("p", 7);
    QCOMPARE(inbox.decide("p", 7, 6), Inbox::Duplicate);
    QCOMPARE(inbox.decide("p", 7, 0), Inbox::Duplicate);
    QCOMPARE(inbox.decide("p", 9, 8), Inbox::Gap);
    QCOMPARE(inbox.decide("p", 8, 7), Inbox::Take);
    QCOMPARE(inbox.decide("p", 9, 7), Inbox::Take);  // the broker did not want 8
    QCOMPARE(inbox.decide("p", 12, 0), Inbox::Take); // those between are gone
    inbox.take("p", 12);
    QCOMPARE(inbox.missed(), 4);
    QCOMPARE(inbox.decide("q", 1, 0), Inbox::Take); // its store is a new one
    QCOMPARE(inbox.decide("", 0, 0), Inbox::Take);  // it does not count
}

void BridgePartsTest::theQueueGoesBackToWhatAReceiverLacks() {
    QTemporaryDir folder;
    QString reason;
    const QByteArray publisher = [&] {
        Store store;
        if (!store.open(folder.filePath("store"), reason))
            return QByteArray();
        Outbox outbox(store, {5, 1000, 1000});
        for (int n = 1; n <= 7; ++n)
            outbox.accept("t", QByteArray::number(n));
        outbox.commit();
        return store.publisher();
    }();
    Store store;
    QVERIFY2(store.open(folder.filePath("store"), reason), qPrintable(reason));
    QCOMPARE(store.publisher(), publisher);
    Store second;
    QVERIFY(!second.open(folder.filePath("store"), reason)); // one bridge has it
    Outbox outbox(store, {5, 1000, 1000});
    QCOMPARE(outbox.count(), 5);
    QCOMPARE(outbox.first(), quint64(3));
    const auto sendAll = [&] {
        QList<quint64> sent;
        while (const QueuedEvent* event = outbox.next(0)) {
            sent += event->number;
            outbox.sent(static_cast<int>(event->number));
        }
        return sent;
    };
    outbox.receiverHas("rear", {publisher, 2}, "x", 0);
    outbox.receiverIs("rear", true, 0);
    QCOMPARE(sendAll(), (QList<quint64>{3, 4, 5, 6, 7}));
    for (int packet = 3; packet <= 7; ++packet)
        outbox.acknowledged(packet);
    QCOMPARE(outbox.count(), 5); // the broker has them: that is not enough
    outbox.receiverHas("rear", {publisher, 4}, "x", 0);
    QCOMPARE(outbox.count(), 3);
    outbox.receiverHas("rear", {publisher, 5}, "y", 0); // one was lost on the way
    QCOMPARE(sendAll(), (QList<quint64>{6, 7}));
    outbox.receiverIs("rear", false, 0);
    outbox.acknowledged(6);
    outbox.acknowledged(7);
    QCOMPARE(outbox.count(), 2);
    outbox.lookAtReceivers(1001); // away for too long
    QCOMPARE(outbox.count(), 0);
}

void BridgePartsTest::receiversOutliveTheBridge() {
    constexpr qint64 awayMs = 1000;
    QTemporaryDir folder;
    Store store;
    QString reason;
    QVERIFY2(store.open(folder.filePath("store"), reason), qPrintable(reason));
    const auto sendAll = [](Outbox& outbox, int from, int to) { // to a broker that has nobody to give it to
        outbox.connected(0);
        for (int packet = from; packet <= to && outbox.next(0); ++packet) {
            outbox.sent(packet);
            outbox.acknowledged(packet);
        }
    };
    {
        Outbox outbox(store, {5, 1000, awayMs});
        outbox.receiverHas("rear", {}, "x", 0); // it has had nothing yet
        outbox.receiverIs("rear", true, 0);
        for (int n = 1; n <= 3; ++n)
            outbox.accept("t", QByteArray::number(n));
    }
    Outbox again(store, {5, 1000, awayMs});
    QCOMPARE(again.receivers(), QStringList("rear"));
    sendAll(again, 1, 3);
    again.lookAtReceivers(awayMs - 1);
    QCOMPARE(again.count(), 3);
    again.receiverHas("rear", {}, "y", 0);
    QVERIFY(again.next(0) && again.next(0)->number == 1);
    sendAll(again, 1, 3);
    again.receiverHas("rear", {store.publisher(), 2}, "y", 0);
    QCOMPARE(again.count(), 1);
    // The broker is away for long: that is not the receiver's fault.
    again.receiverIs("rear", true, 0);
    again.disconnected(0);
    again.connected(10 * awayMs);
    again.lookAtReceivers(10 * awayMs);
    QCOMPARE(again.count(), 1);

    Outbox third(store, {5, 1000, awayMs});
    third.connected(0);
    third.forget("rear");
    third.receiverHas("new", {}, "x", 0);
    QVERIFY(third.next(0) && third.next(0)->number == 3); // what waits is for it, too
    third.forget("new");
    QVERIFY(Outbox(store, {5, 1000, awayMs}).receivers().isEmpty());
}

// By the connection, as too large, or by the broker; in the middle, at the beginning and at the end of the queue.
void BridgePartsTest::whatIsRefusedHoldsUpNothing() {
    QTemporaryDir folder;
    Store store;
    QString reason;
    QVERIFY2(store.open(folder.filePath("store"), reason), qPrintable(reason));
    Outbox outbox(store, {100, 1000, 1000});
    outbox.receiverHas("rear", {store.publisher(), 0}, "x", 0);
    outbox.receiverIs("rear", true, 0);
    for (int n = 1; n <= 6; ++n)
        outbox.accept("t", "12345678");
    Inbox inbox;
    const QList<quint64> refused = {1, 3, 4, 6};
    while (const QueuedEvent* event = outbox.next(0)) {
        const quint64 number = event->number;
        if (number == 3) {
            outbox.refuse();
            continue;
        }
        if (!refused.contains(number)) {
            QCOMPARE(inbox.decide(store.publisher(), number, outbox.before(number)), Inbox::Take);
            inbox.take(store.publisher(), number);
        }
        outbox.sent(static_cast<int>(number));
        outbox.acknowledged(static_cast<int>(number), refused.contains(number));
    }
    QCOMPARE(inbox.mark().number, quint64(5));
    QCOMPARE(outbox.dropped(), 4);
    QCOMPARE(outbox.bytes(), 16);
    outbox.receiverHas("rear", {store.publisher(), 2}, "y", 0); // and from there once more
    QCOMPARE(outbox.next(0)->number, quint64(5));
    QCOMPARE(outbox.before(5), quint64(0));
    outbox.receiverHas("rear", {store.publisher(), 5}, "y", 0);
    QCOMPARE(outbox.count(), 0);
    QCOMPARE(outbox.bytes(), 0);
}

// As a disk is full for this process: its files cannot grow.
void BridgePartsTest::aFullDiskIsToldAndTheQueueGoesOn() {
    QTemporaryDir folder;
    Store store;
    QString reason;
    QVERIFY2(store.open(folder.filePath("store"), reason), qPrintable(reason));
    Outbox outbox(store, {100, 10000000, 1000});
    rlimit before{};
    QCOMPARE(getrlimit(RLIMIT_FSIZE, &before), 0);
    const auto handler = std::signal(SIGXFSZ, SIG_IGN);
    rlimit full = before;
    full.rlim_cur = 300 * 1024;
    QCOMPARE(setrlimit(RLIMIT_FSIZE, &full), 0);
    for (int n = 1; n <= 50; ++n) {
        outbox.accept("t", QByteArray(20000, 'x'));
        outbox.commit();
    }
    const bool wasWritable = store.isWritable();
    QCOMPARE(setrlimit(RLIMIT_FSIZE, &before), 0);
    std::signal(SIGXFSZ, handler);
    QVERIFY(!wasWritable);
    QCOMPARE(outbox.count(), 50);
    for (int packet = 1; packet <= 50; ++packet) {
        QVERIFY(outbox.next(0) && outbox.next(0)->number == quint64(packet));
        outbox.sent(packet);
        outbox.acknowledged(packet);
    }
    QCOMPARE(outbox.count(), 0);
}

QTEST_GUILESS_MAIN(BridgePartsTest)
#include "BridgePartsTest.moc"
