// A struct's fields to an event's arguments and back: which values are taken, and what is said of those that are not.
#include "typed/Catalogue.h"
#include "typed/Form.h"
#include "typed/Record.h"

#include <QDBusVariant>
#include <QJsonArray>
#include <QTest>
#include <QUrl>

#include <limits>

struct Station {
    Q_GADGET
    Q_PROPERTY(QString name MEMBER name)
    Q_PROPERTY(double megahertz MEMBER megahertz)
public:
    QString name;
    double megahertz = 0;
    bool operator==(const Station& other) const { return name == other.name && megahertz == other.megahertz; }
    bool operator!=(const Station& other) const { return !(*this == other); }
};

struct Everything {
    Q_GADGET
    Q_PROPERTY(int number MEMBER number)
    Q_PROPERTY(uint count MEMBER count)
    Q_PROPERTY(uchar byte MEMBER byte)
    Q_PROPERTY(signed char tiny MEMBER tiny)
    Q_PROPERTY(long wide MEMBER wide)
    Q_PROPERTY(qulonglong huge MEMBER huge)
    Q_PROPERTY(float coarse MEMBER coarse)
    Q_PROPERTY(double ratio MEMBER ratio)
    Q_PROPERTY(bool on MEMBER on)
    Q_PROPERTY(QString text MEMBER text)
    Q_PROPERTY(QUrl url MEMBER url)
    Q_PROPERTY(QChar letter MEMBER letter)
    Q_PROPERTY(Mode mode MEMBER mode)
    Q_PROPERTY(Sides sides READ theSides WRITE setSides) // moc has no MEMBER for flags
    Q_PROPERTY(Small small MEMBER small)
    Q_PROPERTY(QStringList names MEMBER names)
    Q_PROPERTY(QList<int> numbers MEMBER numbers)
    Q_PROPERTY(QVector<Mode> modes MEMBER modes)
    Q_PROPERTY(Station station MEMBER station)
    Q_PROPERTY(QList<Station> stations MEMBER stations)
    Q_PROPERTY(QMap<QString, Station> byName MEMBER byName)
    Q_PROPERTY(QMap<QString, int> levels MEMBER levels)
    Q_PROPERTY(QVariant anything MEMBER anything)
    Q_PROPERTY(QVariantMap map MEMBER map)
    Q_PROPERTY(std::optional<int> maybe MEMBER maybe)
    Q_PROPERTY(std::optional<Station> maybeStation MEMBER maybeStation)
public:
    enum Mode { Day, Night = 5 };
    Q_ENUM(Mode)
    enum Side { Left = 1, Right = 2 };
    Q_DECLARE_FLAGS(Sides, Side)
    Q_FLAG(Sides)
    enum class Small : quint8 { Low = 1, High = 200 };
    Q_ENUM(Small)
    Sides theSides() const { return sides; }
    void setSides(Sides set) { sides = set; }
    using FieldTypes = vel::FieldTypes<Mode, Small, Station>;

    int number = -7;
    uint count = 7;
    uchar byte = 255;
    signed char tiny = -3;
    long wide = std::numeric_limits<qint32>::min();
    qulonglong huge = std::numeric_limits<qulonglong>::max();
    float coarse = 0.1F;
    double ratio = 0.1;
    bool on = true;
    QString text = "text";
    QUrl url = QUrl("http://radio/1");
    QChar letter = 'x';
    Mode mode = Night;
    Sides sides = Sides(Left) | Right;
    Small small = Small::High;
    QStringList names = {"a", "b"};
    QList<int> numbers = {1, 2};
    QVector<Mode> modes = {Night, Day};
    Station station = {"Harbour", 98.5};
    QList<Station> stations = {{"One", 1.5}, {"Two", 2.5}};
    QMap<QString, Station> byName = {{"three", {"Three", 3.5}}};
    QMap<QString, int> levels = {{"left", 3}};
    QVariant anything = 12;
    QVariantMap map = {{"k", "v"}};
    std::optional<int> maybe;
    std::optional<Station> maybeStation = Station{"Maybe", 4.5};
};

struct Unlisted {
    Q_GADGET
    Q_PROPERTY(QMap<QString, QPointF> places MEMBER places)
public:
    QMap<QString, QPointF> places;
};

namespace {

QVariantMap asArguments(const Station& station) {
    return {{"name", station.name}, {"megahertz", station.megahertz}};
}

// What a struct with that property has there.
QVariant fieldOf(const Everything& everything, const QByteArray& name) {
    const QMetaObject& meta = Everything::staticMetaObject;
    return meta.property(meta.indexOfProperty(name)).readOnGadget(&everything);
}

} // namespace

class TypedValuesTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void everyFieldIsSentInItsForm() {
        QCOMPARE(m_form.record().problem(), QString());
        QVariantMap sent;
        vel::typed::Mismatch mismatch;
        QVERIFY(m_form.record().write(&m_everything, sent, mismatch));
        const QVariantMap expected{
            {"number", -7},
            {"count", 7U},
            {"byte", QVariant::fromValue(uchar(255))},
            {"tiny", QVariant::fromValue(short(-3))},
            {"wide", qlonglong(std::numeric_limits<qint32>::min())},
            {"huge", std::numeric_limits<qulonglong>::max()},
            {"coarse", double(0.1F)},
            {"ratio", 0.1},
            {"on", true},
            {"text", "text"},
            {"url", "http://radio/1"},
            {"letter", "x"},
            {"mode", "Night"},
            {"sides", "Left|Right"},
            {"small", "High"},
            {"names", QStringList{"a", "b"}},
            {"numbers", QVariant::fromValue(QList<int>{1, 2})},
            {"modes", QVariantList{"Night", "Day"}},
            {"station", asArguments(m_everything.station)},
            {"stations", QVariantList{asArguments({"One", 1.5}), asArguments({"Two", 2.5})}},
            {"byName", QVariantMap{{"three", asArguments({"Three", 3.5})}}},
            {"levels", QVariantMap{{"left", 3}}},
            {"anything", 12},
            {"map", QVariantMap{{"k", "v"}}},
            {"maybeStation", asArguments({"Maybe", 4.5})},
        };
        for (auto argument = expected.cbegin(); argument != expected.cend(); ++argument) {
            QCOMPARE(sent.value(argument.key()).userType(), argument->userType());
            if (argument.key() != "numbers") // Qt compares no such lists
                QCOMPARE(sent.value(argument.key()), *argument);
        }
        QCOMPARE(sent.keys(), expected.keys());

        // And back: what the reader makes of it is sent as the same again.
        Everything read = emptied();
        QVERIFY2(m_form.record().read(sent, &read, mismatch), qPrintable(mismatch.text()));
        QCOMPARE(read.numbers, m_everything.numbers);
        QCOMPARE(read.stations, m_everything.stations);
        QCOMPARE(read.byName, m_everything.byName);
        QVERIFY(read.small == Everything::Small::High && !read.maybe && read.maybeStation == m_everything.maybeStation);
        QVariantMap again;
        QVERIFY(m_form.record().write(&read, again, mismatch));
        again.remove("numbers");
        sent.remove("numbers");
        QCOMPARE(again, sent);
    }

    void receivedValue_data() {
        QTest::addColumn<QString>("field");
        QTest::addColumn<QVariant>("received");
        QTest::addColumn<QVariant>("taken"); // invalid: refused
        QTest::addColumn<QString>("said");
        const auto taken = [](const char* name, const char* field, const QVariant& received, const QVariant& value) {
            QTest::newRow(name) << field << received << value << QString();
        };
        const auto refused = [](const char* name, const char* field, const QVariant& received, const char* said) {
            QTest::newRow(name) << field << received << QVariant() << said;
        };
        const double beyond = 9007199254740994.0; // 2^53 + 2
        taken("a wider integer that fits", "number", qlonglong(40), 40);
        taken("a number without a fraction", "number", 40.0, 40);
        taken("an integer for a double", "ratio", 2, 2.0);
        taken("a variant in a variant", "number", QVariant::fromValue(QDBusVariant(40)), 40);
        taken("the largest that a double holds exactly", "ratio", qlonglong(1) << 53, 9007199254740992.0);
        taken("what a float holds exactly", "coarse", 0.5, 0.5F);
        refused("a number beyond the type", "number", qlonglong(1) << 31, "number 2147483648, wanted int");
        refused("below zero", "count", -1, "number -1, wanted uint");
        refused("a double at the very end of the range", "huge", 18446744073709551616.0,
                "number 18446744073709552000, wanted qulonglong");
        refused("not a number", "number", std::numeric_limits<double>::quiet_NaN(), "number nan, wanted int");
        refused("a fraction", "number", 40.5, "number 40.5, wanted int");
        refused("what a double does not hold", "ratio", qlonglong(beyond) - 1,
                "number 9007199254740993, wanted double");
        refused("what a float does not hold", "coarse", 0.1, "number 0.1, wanted float");
        refused("a number as a text", "number", "40", "text '40', wanted int");
        refused("a truth for a number", "number", true, "true, wanted int");
        refused("a number for a truth", "on", 1, "number 1, wanted bool");
        refused("a number for a text", "text", 1, "number 1, wanted QString");
        refused("bytes for a text", "text", QByteArray("a"), "an array of bytes, wanted QString");
        refused("an escape sequence", "number", "\x1b[31m\n", "text '\\x1b[31m\\x0a', wanted int");
        refused("two letters", "letter", "xy", "text 'xy', wanted QChar");

        taken("a key", "mode", "Night", Everything::Night);
        taken("a key's number", "mode", 5, Everything::Night);
        refused("no key", "mode", "Dusk", "text 'Dusk', wanted Everything::Mode");
        refused("no key's number", "mode", 3, "number 3, wanted Everything::Mode");
        taken("no side", "sides", "", 0);
        taken("both sides as a number", "sides", 3, 3);
        refused("no such side", "sides", 4, "number 4, wanted Everything::Sides");

        taken("texts in an array of variants", "names", QVariantList{"c"}, QStringList{"c"});
        refused("a number among texts", "names", QVariantList{"c", 1}, "wanted QString");
        refused("an element", "modes", QVariantList{"Day", "Dusk"}, "[1]' is text 'Dusk', wanted Everything::Mode");
        refused("no array", "stations", 1, "number 1, wanted QList<Station>");
        refused("a field in a list", "stations", QVariantList{asArguments({"a", 1}), QVariantMap{{"name", "b"}}},
                "'stations[1].megahertz' is missing, wanted double");
        refused("a field in a map", "byName", QVariantMap{{"a b", QVariantMap{{"name", "b"}, {"megahertz", "x"}}}},
                "'byName['a b'].megahertz' is text 'x', wanted double");
        refused("a field in a struct", "station", QVariantMap{{"megahertz", 1}}, "'station.name' is missing");
        refused("no dictionary", "station", QVariantList(), "an array, wanted Station");
        taken("numbers of other types in a map", "levels", QVariantMap{{"a", 2.0}},
              QVariant::fromValue(QMap<QString, int>{{"a", 2}}));
        taken("a value", "maybe", 3, QVariant::fromValue(std::optional<int>(3)));
        refused("a wrong value that may be missing", "maybe", "three", "text 'three', wanted int");
    }
    void receivedValue() {
        QFETCH(QString, field);
        QFETCH(QVariant, received);
        QFETCH(QVariant, taken);
        QFETCH(QString, said);
        QVariantMap arguments;
        vel::typed::Mismatch mismatch;
        QVERIFY(m_form.record().write(&m_everything, arguments, mismatch));
        arguments.insert(field, received);
        arguments.insert("of a newer publisher", 1);
        Everything read;
        QCOMPARE(m_form.record().read(arguments, &read, mismatch), taken.isValid());
        if (!taken.isValid()) {
            QVERIFY2(mismatch.text().contains(said), qPrintable(mismatch.text()));
            return;
        }
        const QVariant value = fieldOf(read, field.toLatin1());
        if (taken.userType() == QMetaType::Int)
            QCOMPARE(value.toInt(), taken.toInt());
        else if (taken.userType() == qMetaTypeId<std::optional<int>>())
            QVERIFY(value.value<std::optional<int>>() == taken.value<std::optional<int>>());
        else if (taken.userType() == qMetaTypeId<QMap<QString, int>>())
            QVERIFY((value.value<QMap<QString, int>>() == taken.value<QMap<QString, int>>()));
        else
            QCOMPARE(value, taken);
    }

    void valueWithoutAFormIsNotSent() {
        QVariantMap sent;
        vel::typed::Mismatch mismatch;
        Everything everything;
        everything.modes = {Everything::Day, Everything::Mode(3)};
        QVERIFY(!m_form.record().write(&everything, sent, mismatch));
        QVERIFY2(mismatch.text().startsWith("field 'modes[1]' is number 3, wanted "), qPrintable(mismatch.text()));
        everything = Everything();
        everything.anything = QVariant();
        QVERIFY(!m_form.record().write(&everything, sent, mismatch));
        QCOMPARE(mismatch.text(), "field 'anything' is nothing, wanted QVariant");
    }

    // Names of types are not enough to compare two programs: what is inside is told too.
    void descriptionGoesIntoContainersAndStructs() {
        QMap<QString, QJsonObject> fields;
        for (const QJsonValue& field : vel::typed::describedEvent("x", m_form)["fields"].toArray())
            fields.insert(field.toObject()["name"].toString(), field.toObject());
        QCOMPARE(fields.size(), Everything::staticMetaObject.propertyCount());
        QCOMPARE(fields["number"], (QJsonObject{{"name", "number"}, {"type", "int"}}));
        const QJsonArray keys{"Day", "Night"};
        QCOMPARE(fields["mode"], (QJsonObject{{"name", "mode"}, {"type", "Everything::Mode"}, {"keys", keys}}));
        QCOMPARE(fields["modes"]["keys"].toArray(), keys);
        for (const char* of : {"station", "stations", "byName", "maybeStation"})
            QCOMPARE(fields[of]["fields"].toArray().at(1).toObject()["name"].toString(), "megahertz");
        QVERIFY(fields["maybeStation"]["optional"].toBool());
        QCOMPARE(fields["maybeStation"]["type"].toString(), "Station");
    }

    void unknownTypeIsNamed() {
        const QString problem = vel::typed::formOf<Unlisted>().record().problem();
        QVERIFY2(problem.contains("'places'") && problem.contains("QMap<QString,QPointF>") &&
                     problem.contains("name it in FieldTypes"),
                 qPrintable(problem));
    }

private:
    static Everything emptied() {
        Everything empty;
        empty.numbers = {9, 9, 9};
        empty.stations.clear();
        empty.byName.clear();
        empty.mode = Everything::Day;
        empty.sides = {};
        empty.maybeStation.reset();
        empty.map.clear();
        return empty;
    }

    const vel::typed::Form& m_form = vel::typed::formOf<Everything>();
    const Everything m_everything{};
};

QTEST_GUILESS_MAIN(TypedValuesTest)
#include "TypedValuesTest.moc"
