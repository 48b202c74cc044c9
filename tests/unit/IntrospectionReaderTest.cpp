// What a module's description says of the types that its methods return, and descriptions that say nothing.
#include "bus/IntrospectionReader.h"
#include "bus/BusNames.h"

#include <QElapsedTimer>
#include <QTest>

namespace {

QString methodReturning(const QString& type, const QString& annotation = QString()) {
    QString text = "<method name='station'><arg name='in' type='i' direction='in'/>";
    if (!type.isEmpty())
        text += QString("<arg type='%1' direction='out'/>").arg(type);
    if (!annotation.isEmpty())
        text += QString("<annotation name='org.qtproject.QtDBus.QtTypeName.Out0' value='%1'/>")
                    .arg(annotation.toHtmlEscaped());
    return text + "</method>";
}

QString described(const QString& methods) {
    return QString("<!DOCTYPE node PUBLIC '-//freedesktop//DTD D-BUS Object Introspection 1.0//EN' "
                   "'http://www.freedesktop.org/standards/dbus/1.0/introspect.dtd'>\n"
                   "<node><interface name='%1'>%2</interface></node>")
        .arg(vel::bus::commonInterface(), methods);
}

} // namespace

class IntrospectionReaderTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void descriptorFollowsFromTheDescription_data() {
        QTest::addColumn<QString>("signature");
        QTest::addColumn<QString>("annotation");
        QTest::addColumn<QString>("expected");
        const auto row = [](const char* signature, const char* annotation, const char* expected) {
            QTest::addRow("%s %s", signature, annotation) << signature << annotation << expected;
        };
        row("s", "", "QString::");
        row("x", "", "long::");
        row("t", "", "ulong::");
        row("", "", "::");
        row("a{sv}", "", "::");
        row("as", "ListQString", "QString:list:");
        row("a(ss)", "QList<QPair<QString,QString>>", "QPair<QString,QString>:list:");
        row("as", "List", ":list:");
        row("as", "QList<", ":list:");
        row("a{sv}", "QVariantMapOfSorts", "QVariant:map:QString");
        row("a{ss}", "MapQStringQString", "QString:map:QString");
        row("a{si}", "MapQString", ":map:QString");
        row("s", "Station", "Station::"); // the annotation counts, not the signature
        row("ai", "MyQList<int>", "MyQList<int>::");
        row("s", "%1%2%3", "%3::%3"); // the fields are filled one after the other
    }

    void descriptorFollowsFromTheDescription() {
        QFETCH(QString, signature);
        QFETCH(QString, annotation);
        const auto types = vel::bus::returnTypesIn(described(methodReturning(signature, annotation)));
        QCOMPARE(types.size(), 1);
        QCOMPARE(types.first().method, "station");
        QCOMPARE(types.first().signature, signature);
        QTEST(types.first().descriptor, "expected");
    }

    void onlyAWholeDescriptionIsBelieved_data() {
        QTest::addColumn<QString>("description");
        const QString good = described(methodReturning("s"));
        QTest::newRow("empty") << QString();
        QTest::newRow("no XML") << "station";
        QTest::newRow("cut off behind the method") << good.left(good.indexOf("</interface>"));
        QTest::newRow("cut off before the end") << good.left(good.size() - 1);
        QTest::newRow("text after the end") << good + "<node/>";
        QTest::newRow("wrong nesting") << described(methodReturning("s") + "<a><b></a></b>");
        const int depth = 300000;
        QTest::newRow("nested without need")
            << described(methodReturning("s") + QString("<a>").repeated(depth) + QString("</a>").repeated(depth));
        QString bomb = "<!DOCTYPE node [<!ENTITY e0 'ha'>";
        for (int level = 1; level <= 30; ++level)
            bomb += QString("<!ENTITY e%1 '%2'>").arg(level).arg(QString("&e%1;").arg(level - 1).repeated(10));
        QTest::newRow("entities that multiply in a text") << bomb + "]><node>&e30;</node>";
        QTest::newRow("entities that multiply in an attribute")
            << bomb + "]>" + described("<method name='&e30;'/>").section('\n', 1);
        QTest::newRow("an entity that holds itself")
            << "<!DOCTYPE node [<!ENTITY a '&b;'><!ENTITY b '&a;'>]><node>&a;</node>";
    }

    void onlyAWholeDescriptionIsBelieved() {
        QFETCH(QString, description);
        QElapsedTimer timer;
        timer.start();
        QVERIFY(vel::bus::returnTypesIn(description).isEmpty());
        QVERIFY2(timer.elapsed() < 10000, "a bad description must not keep the module busy");
    }

    void hugeDescriptionIsRead() {
        constexpr int methods = 50000;
        const auto types = vel::bus::returnTypesIn(described(methodReturning("s").repeated(methods)));
        QCOMPARE(types.size(), methods);
        QCOMPARE(types.last().descriptor, "QString::");
    }
};

QTEST_GUILESS_MAIN(IntrospectionReaderTest)
#include "IntrospectionReaderTest.moc"
