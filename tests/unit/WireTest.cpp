// A message's values and their written forms: what comes back, what is refused and why, and the limits.
#include "wire/Json.h"
#include "wire/Printable.h"
#include "wire/Text.h"

#include <QElapsedTimer>
#include <QJsonArray>
#include <QJsonDocument>
#include <QTest>

using wire::Appender;
using wire::Message;

namespace {

// One value in a message of its own, and the same value written.
template <typename Append>
Message messageOf(Append append) {
    Message message = wire::made(dbus_message_new_signal("/Tuner", "org.vel.module.VelInterface", "topic"));
    Appender to(message.get());
    append(to);
    return message;
}

template <typename Write>
QByteArray written(const Message& message, Write write) {
    DBusMessageIter at;
    dbus_message_iter_init(message.get(), &at);
    QByteArray text;
    write(&at, [&text](const QByteArray& piece) { text += piece; });
    return text;
}

QByteArray typedJson(const Message& message) {
    return written(message, wire::writeTypedJson);
}

QJsonObject objectOf(const QByteArray& json) {
    return QJsonDocument::fromJson(json).object();
}

Message messageOfJson(const QByteArray& json) {
    const QJsonObject object = objectOf(json);
    return messageOf([&](Appender& to) { wire::appendTypedJson(to, object); });
}

template <typename Append>
QString refusalOf(Append append) {
    try {
        messageOf(append);
    } catch (const wire::Error& error) {
        return error.reason;
    }
    return "taken";
}

QByteArray nestedVariants(int depth) {
    return QByteArray(R"({"type":"v","value":)").repeated(depth) + R"({"type":"i","value":1})" +
           QByteArray("}").repeated(depth);
}

} // namespace

class WireTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void valueComesBackFromItsJsonAndItsText_data();
    void valueComesBackFromItsJsonAndItsText();
    void textHasTheTypeOfItsForm_data();
    void textHasTheTypeOfItsForm();
    void listIsReadByItsType();
    void wrongJsonIsRefused_data();
    void wrongJsonIsRefused();
    void wrongTextIsRefused_data();
    void wrongTextIsRefused();
    void limitsAreThoseOfTheBus();
    void deepInputIsRefusedInTime();
    void messageComesBackFromItsBytes();
    void whatAStrangerWroteIsSafeForATerminal();
};

void WireTest::valueComesBackFromItsJsonAndItsText_data() {
    QTest::addColumn<QByteArray>("type");
    QTest::addColumn<QByteArray>("json");
    const auto row = [](const char* type, const QByteArray& json) {
        QTest::newRow(qPrintable(QString("%1 %2").arg(type, QString(json.left(40))))) << QByteArray(type) << json;
    };
    row("b", "true");
    row("y", "255");
    row("n", "-32768");
    row("q", "65535");
    row("i", "-2147483648");
    row("u", "4294967295");
    row("x", R"("-9223372036854775808")");
    row("t", R"("18446744073709551615")");
    for (const char* number : {"0.1", "98.5", "1e-320", "1000000000000000000", "1e+20", R"("-0")", R"("inf")",
                               R"("-inf")", R"("nan:7ff8000000000000")", R"("nan:fff0000000000001")"})
        row("d", number);
    row("s", R"("a \"text\"\\\n\t\u001b\b\f")");
    row("s", "\"\xc3\xa9\xf0\x9f\x8e\xb5\"");
    row("s", R"("\ufeff\u007f\u009b\u202e")"); // a byte-order mark is part of a text
    row("o", R"("/a/b")");
    row("g", R"("a{sv}")");
    row("g", R"("")");
    row("ay", R"("AAEC/w==")");
    row("as", R"(["a","b,c",""])");
    row("av", R"([{"type":"i","value":1},{"type":"s","value":"x"}])");
    row("a{sv}", R"([["z",{"type":"d","value":0.5}],["a",{"type":"b","value":false}],["a",{"type":"y","value":1}]])");
    row("a{y(sa{ss})}", R"([[7,["x",[["k","v"]]]]])");
    row("(ib(dd))", "[1,true,[0.5,2]]");
    row("aai", "[[1,2],[],[3]]");
    row("a(is)", "[]");
    row("v", nestedVariants(60));
}

void WireTest::valueComesBackFromItsJsonAndItsText() {
    QFETCH(QByteArray, type);
    QFETCH(QByteArray, json);
    const QByteArray typed = R"({"type":")" + type + R"(","value":)" + json + '}';
    const Message message = messageOfJson(typed);
    QCOMPARE(typedJson(message), typed);
    QVERIFY(type == dbus_message_get_signature(message.get()));
    const QString text = QString::fromUtf8(' ' + written(message, wire::writeText)).mid(1); // not at the beginning
    QCOMPARE(typedJson(messageOf([&](Appender& to) { wire::appendByType(to, type, text); })), typed);
}

void WireTest::textHasTheTypeOfItsForm_data() {
    QTest::addColumn<QString>("text");
    QTest::addColumn<QByteArray>("json");
    const auto row = [](const char* text, const char* json) {
        QTest::newRow(text) << QString(text) << QByteArray(json);
    };
    row("7", R"({"type":"i","value":7})");
    row("-7", R"({"type":"i","value":-7})");
    row("3000000000", R"({"type":"x","value":"3000000000"})");
    row("18446744073709551615", R"({"type":"t","value":"18446744073709551615"})");
    row("true", R"({"type":"b","value":true})");
    row("True", R"({"type":"s","value":"True"})");
    row("2.5", R"({"type":"d","value":2.5})");
    row(".5", R"({"type":"d","value":0.5})");
    row("-1e3", R"({"type":"d","value":-1000})");
    row("1.2.3", R"({"type":"s","value":"1.2.3"})");
    row("", R"({"type":"s","value":""})");
    row("[a, \"b,c\",d]", R"({"type":"as","value":["a","b,c","d"]})");
    row("[]", R"({"type":"as","value":[]})");
    row("[1,\"2\"]", R"({"type":"av","value":[{"type":"i","value":1},{"type":"s","value":"2"}]})");
    row("[[a],x]", R"({"type":"av","value":[{"type":"as","value":["a"]},{"type":"s","value":"x"}]})");
}

void WireTest::textHasTheTypeOfItsForm() {
    QFETCH(QString, text);
    QFETCH(QByteArray, json);
    const Message message = messageOf([&](Appender& to) { wire::appendByForm(to, text); });
    QCOMPARE(typedJson(message), json);
    QVERIFY(wire::typeByForm(text) == dbus_message_get_signature(message.get()));
}

void WireTest::listIsReadByItsType() {
    const auto read = [](const char* type, const char* text) {
        return typedJson(messageOf([&](Appender& to) { wire::appendByType(to, type, text); }));
    };
    QCOMPARE(read("as", "[1,2]"), QByteArray(R"({"type":"as","value":["1","2"]})")); // no JSON of that type
    QCOMPARE(read("ax", "[3000000000, 1]"), QByteArray(R"({"type":"ax","value":["3000000000","1"]})"));
    QCOMPARE(read("aas", "[[a,b],[c]]"), QByteArray(R"({"type":"aas","value":[["a","b"],["c"]]})"));
    QCOMPARE(read("v", "7"), QByteArray(R"({"type":"v","value":{"type":"i","value":7}})"));
}

void WireTest::wrongJsonIsRefused_data() {
    QTest::addColumn<QByteArray>("json");
    QTest::addColumn<QString>("reason");
    const auto row = [](const char* json, const char* reason) {
        QTest::newRow(json) << QByteArray(json) << QString(reason);
    };
    row(R"({"type":"z","value":1})", "\"z\" is no D-Bus type");
    row(R"({"type":"ii","value":1})", "\"ii\" is no D-Bus type");
    row(R"({"type":"i\u0000","value":1})", R"("i\u0000" is no D-Bus type)");
    row(R"({"type":"i"})", R"({"type":"i"} has no "value")");
    row(R"({"type":"y","value":256})", "256 is no value of type byte");
    row(R"({"type":"i","value":0.5})", "0.5 is no value of type int");
    row(R"({"type":"i","value":"1"})", "\"1\" is no value of type int");
    row(R"({"type":"x","value":1e300})", "1e+300 is no value of type int64");
    row(R"({"type":"t","value":-1})", "-1 is no value of type uint64");
    row(R"({"type":"b","value":1})", "1 is no value of type bool");
    row(R"({"type":"d","value":"nan:0"})", "\"nan:0\" is no value of type double");
    row(R"({"type":"s","value":"\u0000"})", R"("\u0000" is no value of type text)");
    row(R"({"type":"o","value":"a"})", "\"a\" is no value of type path");
    row(R"({"type":"g","value":"a"})", "\"a\" is no value of type signature");
    row(R"({"type":"ay","value":"AA"})", "\"AA\" is no value of type bytes");
    row(R"({"type":"h","value":null})", "a value of type h cannot be written as JSON");
    row(R"({"type":"ai","value":{}})", "{} is no value of type ai");
    row(R"~({"type":"(ii)","value":[1]})~", "[1] is no value of type (ii)");
    row(R"({"type":"a{ss}","value":[["k"]]})", "[\"k\"] is no value of type {ss}");
    row(R"({"type":"v","value":1})", R"(1 is no {"type": ..., "value": ...})");
}

void WireTest::wrongJsonIsRefused() {
    QFETCH(QByteArray, json);
    QFETCH(QString, reason);
    QCOMPARE(refusalOf([object = objectOf(json)](Appender& to) { wire::appendTypedJson(to, object); }), reason);
}

void WireTest::wrongTextIsRefused_data() {
    QTest::addColumn<QByteArray>("type");
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("reason");
    const auto row = [](const char* type, const char* text, const char* reason) {
        QTest::newRow(reason) << QByteArray(type) << QString(text) << QString(reason);
    };
    row("y", "256", "'256' is no byte");
    row("x", "9223372036854775808", "'9223372036854775808' is no int64");
    row("ai", "[1,x]", "'x' is no int");
    row("a{ss}", "[a]", "'[a]' is no a{ss}: illegal number");
    row("(i)", "{}", "'{}' is no (i): it is no JSON array");
    row("v", "99999999999999999999", "no type of a number can hold '99999999999999999999'");
    row("av", "[1e999]", "no type of a number can hold '1e999'");
}

void WireTest::wrongTextIsRefused() {
    QFETCH(QByteArray, type);
    QFETCH(QString, text);
    QFETCH(QString, reason);
    QCOMPARE(refusalOf([&](Appender& to) { wire::appendByType(to, type, text); }), reason);
}

void WireTest::limitsAreThoseOfTheBus() {
    const auto nested = [](int depth) {
        return refusalOf([&](Appender& to) { wire::appendTypedJson(to, objectOf(nestedVariants(depth))); });
    };
    QCOMPARE(nested(wire::deepestNesting), QString("taken"));
    QCOMPARE(nested(wire::deepestNesting + 1), QString("it is nested deeper than 63 levels"));

    const QByteArray mebibyte(1024 * 1024, 'x');
    const auto strings = [&](int count) { // each takes its length, a zero, and what brings the next to a place for it
        return refusalOf([&](Appender& to) {
            to.container("as", [&] {
                for (int index = 0; index < count; ++index)
                    to.text('s', mebibyte.left(mebibyte.size() - 8));
            });
        });
    };
    QCOMPARE(strings(64), QString("taken"));
    QCOMPARE(strings(65), QString("an array in it is longer than one can be, 64 MiB"));
    const QByteArray half(DBUS_MAXIMUM_ARRAY_LENGTH, '\0');
    QCOMPARE(refusalOf([&](Appender& to) { to.bytes(half + '\0'); }),
             QString("an array in it is longer than one can be, 64 MiB"));
    QCOMPARE(refusalOf([&](Appender& to) {
                 to.bytes(half);
                 to.bytes(half);
             }),
             QString("it is longer than a message can be, 128 MiB"));
    QCOMPARE(refusalOf([&](Appender& to) {
                 for (int index = 0; index <= DBUS_MAXIMUM_SIGNATURE_LENGTH; ++index)
                     to.truth(true);
             }),
             QString("its signature is longer than 255 characters"));
    for (const char* text : {"\xff", "\xed\xa0\x80", "a\xc0\x80"})
        QCOMPARE(refusalOf([&](Appender& to) { to.text('s', QByteArray(text)); }), QString("it holds what is no text"));
}

void WireTest::deepInputIsRefusedInTime() {
    QElapsedTimer timer;
    timer.start();
    const int depth = 2'000'000;
    const QString lists = QString(depth, '[') + QString(depth, ']');
    QCOMPARE(refusalOf([&](Appender& to) { wire::appendByForm(to, lists); }),
             QString("it is nested deeper than 63 levels"));
    QVERIFY(refusalOf([&](Appender& to) { wire::appendByType(to, "aai", lists); }) != "taken");
    QCOMPARE(refusalOf([&](Appender& to) { wire::appendByForm(to, '[' + QString("[],").repeated(depth / 4) + ']'); }),
             QString("taken"));
    QVERIFY2(timer.elapsed() < 60000 * VEL_TEST_SLOWNESS,
             "in proportion to the input"); // seconds; what is not in proportion takes hours
}

void WireTest::messageComesBackFromItsBytes() {
    const Message message = messageOfJson(R"({"type":"a{sv}","value":[["k",{"type":"d","value":0.5}]]})");
    const QByteArray bytes = wire::toBytes(message.get());
    const Message again = wire::fromBytes(bytes);
    QCOMPARE(wire::toBytes(again.get()), bytes);
    QCOMPARE(typedJson(again), typedJson(message));
    for (const QByteArray& wrong : {QByteArray(), bytes.left(20), bytes + '\0', bytes.left(bytes.size() - 1),
                                    QByteArray(bytes).replace(0, 1, "?"), QByteArray(100, '\xff')})
        QVERIFY_EXCEPTION_THROWN((void)wire::fromBytes(wrong), wire::Error);
}

void WireTest::whatAStrangerWroteIsSafeForATerminal() {
    const auto safe = [](const char* text) { return wire::printable(QString::fromUtf8(text)); };
    QCOMPARE(safe("plain \xc3\xa9 \xe6\x97\xa5 \xf0\x9f\x8e\xb5"),
             QString::fromUtf8("plain \xc3\xa9 \xe6\x97\xa5 \xf0\x9f\x8e\xb5"));
    QCOMPARE(safe("\x1b[31m\r\n\t\x7f\x07"), QString(R"(\u001b[31m\r\n\t\u007f\u0007)"));
    QCOMPARE(safe("\xc2\x9b"
                  "31m"),
             QString(R"(\u009b31m)"));
    QCOMPARE(safe("\xe2\x80\xae\xe2\x81\xa6\xe2\x80\x8f\xd8\x9c\xe2\x80\xa8"),
             QString(R"(\u202e\u2066\u200f\u061c\u2028)"));
    // In pieces too: a long text's are cut between characters.
    const QString text = QString::fromUtf8("\xe2\x80\xae\xc3\xa9").repeated(20000);
    const QByteArray json = wire::jsonString(text);
    QVERIFY(!json.contains("\xe2\x80\xae"));
    QCOMPARE(QJsonDocument::fromJson('[' + json + ']').array().at(0).toString(), text);
}

QTEST_GUILESS_MAIN(WireTest)
#include "WireTest.moc"
