// The event record: a value with named arguments.
#include "events/VelEvent.h"

#include <QTest>

namespace {

const QString station = QStringLiteral("station");
const QString volume = QStringLiteral("volume");

using Types = QMap<QString, QString>;

VelEvent eventWith(const QVariantMap& arguments) {
    return VelEvent(QStringLiteral("event"), arguments, QString());
}

} // namespace

class EventTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void copyIsEqualAndItsOwn();
    void addingAgainReplaces();
    void askingAConstEventLeavesItUnchanged();
    void askingAnyOtherEventAddsWhatIsMissing();
    void indexedArgumentIsAPlainOne();
    void settingAllArgumentsKeepsEarlierTypeNames();
    void equalityAsksOnlyForTheLeftOnesArguments_data();
    void equalityAsksOnlyForTheLeftOnesArguments();
};

void EventTest::copyIsEqualAndItsOwn() {
    QObject parent;
    VelEvent original(QStringLiteral("tuned"), {{station, QStringLiteral("One")}, {volume, 7}},
                      QStringLiteral("night"));
    original.setParent(&parent);
    original.setObjectName(QStringLiteral("original"));
    original.addArgType(QStringLiteral("of a peer"), QStringLiteral("Station"));

    VelEvent copy(original);
    QVERIFY(!copy.parent());
    QCOMPARE(copy.objectName(), QString());
    QCOMPARE(copy.getEvtName(), QStringLiteral("tuned"));
    QCOMPARE(copy.getContext(), QStringLiteral("night"));
    QCOMPARE(copy.getArguments(), original.getArguments());
    QCOMPARE(copy.getArgTypes(), (Types{{QStringLiteral("of a peer"), QStringLiteral("Station")},
                                        {station, QStringLiteral("QString")},
                                        {volume, QStringLiteral("int")}}));
    QVERIFY(copy == original);

    copy.addArgument(8, volume);
    copy.setEvtName(QStringLiteral("other"));
    copy.setContext(QString());
    QCOMPARE(original.getArguments().value(volume), QVariant(7));
    QCOMPARE(original.getEvtName(), QStringLiteral("tuned"));
    QCOMPARE(original.getContext(), QStringLiteral("night"));
}

void EventTest::addingAgainReplaces() {
    VelEvent event;
    event.addArgument(1, volume);
    event.addArgument(2.5, volume);
    QCOMPARE(event.getArguments(), (QVariantMap{{volume, 2.5}}));
    QCOMPARE(event.getArgTypes(), (Types{{volume, QStringLiteral("double")}}));

    event.addArgument(QVariant(), QString());
    QCOMPARE(event.argumentCount(), 2); // the empty name is a name
    QVERIFY(event.getArgTypes().value(QString()).isNull());
}

void EventTest::askingAConstEventLeavesItUnchanged() {
    const VelEvent event = eventWith({{volume, 7}});
    QCOMPARE(event.getArgument(volume), QVariant(7));
    QCOMPARE(event.getArgument(QStringLiteral("Volume")), QVariant()); // names are exact
    QCOMPARE(event.getArgument(0, volume), QVariant());
    QCOMPARE(event.argumentCount(), 1);
}

void EventTest::askingAnyOtherEventAddsWhatIsMissing() {
    VelEvent event = eventWith({{volume, 7}});
    QCOMPARE(event.getArgument(volume), QVariant(7));
    QCOMPARE(event.argumentCount(), 1);
    QCOMPARE(event.getArgument(station), QVariant());
    QCOMPARE(event.getArgument(3, station), QVariant());
    QCOMPARE(event.getArguments(),
             (QVariantMap{{station, QVariant()}, {QStringLiteral("station_3"), QVariant()}, {volume, 7}}));
}

void EventTest::indexedArgumentIsAPlainOne() {
    VelEvent event;
    event.addArgument(QStringLiteral("One"), 0, station);
    event.addArgument(QStringLiteral("Two"), QStringLiteral("station_1"));
    QCOMPARE(event.getArgument(QStringLiteral("station_0")), QVariant(QStringLiteral("One")));
    QCOMPARE(event.getArgument(1, station), QVariant(QStringLiteral("Two")));
    QCOMPARE(event.getArgTypes().keys(), (QStringList{QStringLiteral("station_0"), QStringLiteral("station_1")}));
}

void EventTest::settingAllArgumentsKeepsEarlierTypeNames() {
    VelEvent event = eventWith({{volume, 7}});
    event.setArguments({{station, QStringLiteral("One")}});
    QCOMPARE(event.getArguments(), (QVariantMap{{station, QStringLiteral("One")}}));
    QCOMPARE(event.getArgTypes(), (Types{{station, QStringLiteral("QString")}, {volume, QStringLiteral("int")}}));

    event.setArguments(event.getArguments()); // its own map
    QCOMPARE(event.getArguments(), (QVariantMap{{station, QStringLiteral("One")}}));
    event.setArguments({});
    QCOMPARE(event.argumentCount(), 0);
}

void EventTest::equalityAsksOnlyForTheLeftOnesArguments_data() {
    QTest::addColumn<QVariantMap>("left");
    QTest::addColumn<QVariantMap>("right");
    QTest::addColumn<bool>("leftEqualsRight");
    QTest::addColumn<bool>("rightEqualsLeft");
    const QVariantMap one{{QStringLiteral("a"), 1}};
    const QVariantMap two{{QStringLiteral("a"), 1}, {QStringLiteral("b"), 2}};
    const auto only = [](const QVariant& value) { return QVariantMap{{QStringLiteral("a"), value}}; };
    QTest::newRow("same") << two << two << true << true;
    QTest::newRow("fewer on the left") << one << two << true << false;
    QTest::newRow("none on the left") << QVariantMap() << two << true << false;
    QTest::newRow("another value") << one << only(2) << false << false;
    QTest::newRow("another name") << one << QVariantMap{{QStringLiteral("A"), 1}} << false << false;
    QTest::newRow("last differs") << two << QVariantMap{{QStringLiteral("a"), 1}, {QStringLiteral("b"), 3}} << false
                                  << false;
    QTest::newRow("types that convert") << only(1) << only(QStringLiteral("1")) << true << true;
    QTest::newRow("invalid and absent") << only(QVariant()) << QVariantMap() << true << true;
}

void EventTest::equalityAsksOnlyForTheLeftOnesArguments() {
    QFETCH(QVariantMap, left);
    QFETCH(QVariantMap, right);
    const VelEvent leftEvent(QStringLiteral("left"), left, QStringLiteral("one context"));
    const VelEvent rightEvent(QStringLiteral("right"), right, QStringLiteral("another"));
    QTEST(leftEvent == rightEvent, "leftEqualsRight");
    QTEST(rightEvent == leftEvent, "rightEqualsLeft");
}

QTEST_GUILESS_MAIN(EventTest)
#include "EventTest.moc"
