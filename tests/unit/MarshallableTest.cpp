// What may go into a message: whatever is let through wrongly ends the process in libdbus.
#include "events/Marshallable.h"

#include "events/VelDBusTypes.h"

#include <QDBusArgument>
#include <QDBusMetaType>
#include <QDBusObjectPath>
#include <QDBusSignature>
#include <QDBusUnixFileDescriptor>
#include <QDBusVariant>
#include <QTest>

#include <unistd.h>

namespace {

// A type that Qt D-Bus was never told about.
struct Unregistered {};

QVariant inMap(const QVariant& value) {
    return QVariantMap{{"good", 1}, {"value", value}};
}

QVariant inList(const QVariant& value) {
    return QVariantList{1, value};
}

QVariant inVariant(const QVariant& value) {
    return QVariant::fromValue(QDBusVariant(value));
}

QVariant inEvent(const QVariant& value) {
    return QVariant::fromValue(VelEvent("event", inMap(value).toMap(), QString()));
}

QVariant nested(QVariant (*container)(const QVariant&), int times) {
    QVariant value(1);
    while (times-- > 0)
        value = container(value);
    return value;
}

} // namespace
Q_DECLARE_METATYPE(Unregistered)

class MarshallableTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { registerCoreDBusTypes(); }
    void onlyWhatHasADBusFormMayTravel_data() {
        QTest::addColumn<QVariant>("value");
        QTest::addColumn<bool>("expected");
        const auto travels = [](const char* title, const QVariant& value) { QTest::newRow(title) << value << true; };
        const auto stays = [](const char* title, const QVariant& value) { QTest::newRow(title) << value << false; };

        travels("int", 1);
        travels("null text", QString());
        travels("text list", QStringList{QString()});
        travels("bytes", QByteArray());
        travels("empty containers", inMap(inList(inVariant(inEvent(QVariantMap())))));
        travels("object path", QVariant::fromValue(QDBusObjectPath("/Tuner")));
        travels("signature", QVariant::fromValue(QDBusSignature("a{sv}")));
        travels("file descriptor", QVariant::fromValue(QDBusUnixFileDescriptor(STDIN_FILENO)));

        const QVariant misfits[] = {
            QVariant(),
            QVariant::fromValue(Unregistered()),
            QVariant(1.0f), // the bus knows only one floating-point type
            QVariant(QChar('a')),
            QVariant::fromValue(QDBusObjectPath()),
            QVariant::fromValue(QDBusSignature()),
            QVariant::fromValue(QDBusUnixFileDescriptor()),
            QVariant::fromValue(QDBusArgument()),
        };
        for (const QVariant& misfit : misfits) {
            const QByteArray type = misfit.isValid() ? misfit.typeName() : "invalid";
            stays(type, misfit);
            stays("in a map: " + type, inMap(misfit));
            stays("in a list: " + type, inList(misfit));
            stays("in a hash: " + type, QVariantHash{{"value", misfit}});
            stays("in a variant: " + type, inVariant(misfit));
            stays("in an event: " + type, inEvent(misfit));
            stays("deep inside: " + type, inEvent(inMap(inList(inVariant(misfit)))));
        }

        // 64 MiB in all.
        constexpr int mebibyte = 1024 * 1024;
        travels("60 MiB of bytes", inMap(QByteArray(60 * mebibyte, 'a')));
        stays("64 MiB of bytes", inMap(QByteArray(64 * mebibyte, 'a')));
        travels("60 MiB of text", inMap(QString(60 * mebibyte, 'a')));
        stays("64 MiB in three texts",
              inList(QStringList{QString(30 * mebibyte, 'a'), QString(), QString(17 * mebibyte, QChar(0xe4))}));

        travels("1,900,000 short texts", QStringList(QStringList::fromVector(QVector<QString>(1'900'000, "ab"))));
        travels("2,200,000 numbers", QVariantList::fromVector(QVector<QVariant>(2'200'000, 7)));
        stays("many registered numbers",
              inMap(QVariant::fromValue(QList<double>::fromVector(QVector<double>(8'400'000)))));

        // 63 levels in all: a list of variants is two, a map of variants three, an event four.
        travels("31 lists", nested(inList, 31));
        stays("32 lists", nested(inList, 32));
        travels("21 maps", nested(inMap, 21));
        stays("22 maps", nested(inMap, 22));
        travels("63 variants", nested(inVariant, 63));
        stays("64 variants", nested(inVariant, 64));
        travels("15 events", nested(inEvent, 15));
        stays("16 events", nested(inEvent, 16));
    }

    void onlyWhatHasADBusFormMayTravel() {
        QFETCH(QVariant, value);
        QTEST(vel::isMarshallable(QVariantList{value}), "expected");
    }
};

QTEST_GUILESS_MAIN(MarshallableTest)
#include "MarshallableTest.moc"
