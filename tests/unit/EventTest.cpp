// The event record: a value with named arguments.
#include "events/VelEvent.h"

#include <QTest>

namespace {

const QString station = "station";
const QString volume = "volume";

using Types = QMap<QString, QString>;

VelEvent eventWith(const QVariantMap& arguments) {
    return VelEvent("event", arguments, QString());
}

} // namespace

class EventTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void copyIsEqualAndItsOwn() {
        QObject parent;
        VelEvent original("tuned", {{station, "One"}, {volume, 7}}, "night");
        original.setParent(&parent);
        original.setObjectName("original");
        original.addArgType("of a peer", "Station");

        VelEvent copy(original);
        QVERIFY(!copy.parent());
        QCOMPARE(copy.objectName(), QString());
        QCOMPARE(copy.getEvtName(), "tuned");
        QCOMPARE(copy.getContext(), "night");
        QCOMPARE(copy.getArguments(), original.getArguments());
        QCOMPARE(copy.getArgTypes(), (Types{{"of a peer", "Station"}, {station, "QString"}, {volume, "int"}}));
        QVERIFY(copy == original);

        copy.addArgument(8, volume);
        copy.setEvtName("other");
        copy.setContext(QString());
        QCOMPARE(original.getArguments().value(volume), QVariant(7));
        QCOMPARE(original.getEvtName(), "tuned");
        QCOMPARE(original.getContext(), "night");
    }

    void addingAgainReplaces() {
        VelEvent event;
        event.addArgument(1, volume);
        event.addArgument(2.5, volume);
        QCOMPARE(event.getArguments(), (QVariantMap{{volume, 2.5}}));
        QCOMPARE(event.getArgTypes(), (Types{{volume, "double"}}));

        event.addArgument(QVariant(), QString());
        QCOMPARE(event.argumentCount(), 2); // the empty name is a name
        QVERIFY(event.getArgTypes().value(QString()).isNull());
    }

    void askingAConstEventLeavesItUnchanged() {
        const VelEvent event = eventWith({{volume, 7}});
        QCOMPARE(event.getArgument(volume), QVariant(7));
        QCOMPARE(event.getArgument("Volume"), QVariant()); // names are exact
        QCOMPARE(event.getArgument(0, volume), QVariant());
        QCOMPARE(event.argumentCount(), 1);
    }

    void askingAnyOtherEventAddsWhatIsMissing() {
        VelEvent event = eventWith({{volume, 7}});
        QCOMPARE(event.getArgument(volume), QVariant(7));
        QCOMPARE(event.argumentCount(), 1);
        QCOMPARE(event.getArgument(station), QVariant());
        QCOMPARE(event.getArgument(3, station), QVariant());
        QCOMPARE(event.getArguments(), (QVariantMap{{station, QVariant()}, {"station_3", QVariant()}, {volume, 7}}));
    }

    void indexedArgumentIsAPlainOne() {
        VelEvent event;
        event.addArgument("One", 0, station);
        event.addArgument("Two", "station_1");
        QCOMPARE(event.getArgument("station_0"), QVariant("One"));
        QCOMPARE(event.getArgument(1, station), QVariant("Two"));
        QCOMPARE(event.getArgTypes().keys(), (QStringList{"station_0", "station_1"}));
    }

    void settingAllArgumentsKeepsEarlierTypeNames() {
        VelEvent event = eventWith({{volume, 7}});
        event.setArguments({{station, "One"}});
        QCOMPARE(event.getArguments(), (QVariantMap{{station, "One"}}));
        QCOMPARE(event.getArgTypes(), (Types{{station, "QString"}, {volume, "int"}}));

        event.setArguments(event.getArguments()); // its own map
        QCOMPARE(event.getArguments(), (QVariantMap{{station, "One"}}));
        event.setArguments({});
        QCOMPARE(event.argumentCount(), 0);
    }

    void equalityAsksOnlyForTheLeftOnesArguments_data() {
        QTest::addColumn<QVariantMap>("left");
        QTest::addColumn<QVariantMap>("right");
        QTest::addColumn<bool>("leftEqualsRight");
        QTest::addColumn<bool>("rightEqualsLeft");
        const QVariantMap one{{"a", 1}};
        const QVariantMap two{{"a", 1}, {"b", 2}};
        const auto only = [](const QVariant& value) { return QVariantMap{{"a", value}}; };
        QTest::newRow("same") << two << two << true << true;
        QTest::newRow("fewer on the left") << one << two << true << false;
        QTest::newRow("none on the left") << QVariantMap() << two << true << false;
        QTest::newRow("another value") << one << only(2) << false << false;
        QTest::newRow("another name") << one << QVariantMap{{"A", 1}} << false << false;
        QTest::newRow("last differs") << two << QVariantMap{{"a", 1}, {"b", 3}} << false << false;
        QTest::newRow("types that convert") << only(1) << only("1") << true << true;
        QTest::newRow("invalid and absent") << only(QVariant()) << QVariantMap() << true << true;
    }

    void equalityAsksOnlyForTheLeftOnesArguments() {
        QFETCH(QVariantMap, left);
        QFETCH(QVariantMap, right);
        const VelEvent leftEvent("left", left, "one context");
        const VelEvent rightEvent("right", right, "another");
        QTEST(leftEvent == rightEvent, "leftEqualsRight");
        QTEST(rightEvent == leftEvent, "rightEqualsLeft");
    }
};

QTEST_GUILESS_MAIN(EventTest)
#include "EventTest.moc"
