// The form of an event on the bus, as a peer that knows nothing of this library sees it, and what comes back of it.
#include "testing/BusTest.h"
#include "testing/EventListener.h"

#include "bus/BusNames.h"
#include "events/VelDBusTypes.h"
#include "module/VelModule.h"

#include <QDBusArgument>
#include <QDBusMetaType>
#include <QTest>

namespace {

const QString topic = "topic";
const QString eventSignature = "(ssia{ss}a{sv})";

} // namespace

// Takes signals as they are.
class SignalReader : public QObject {
    Q_OBJECT
public:
    QList<QDBusMessage> messages;

public Q_SLOTS:
    void take(const QDBusMessage& message) { messages << message; }
};

class EventMarshallingTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init() {
        m_reader = std::make_unique<SignalReader>();
        m_listener = std::make_unique<EventListener>();
        const QString interface = vel::bus::commonInterface();
        QVERIFY(m_peer.connect(QString(), QString(), interface, topic, m_reader.get(), SLOT(take(QDBusMessage))));
        QVERIFY(m_peer.connect(QString(), QString(), interface, topic, m_listener.get(), SLOT(heard(VelEvent))));
        bustest::waitForBus(m_peer);
    }

    void everyFieldIsWhereAPeerExpectsIt_data() {
        QTest::addColumn<QString>("context");
        QTest::addColumn<QVariantMap>("arguments");
        QTest::addColumn<QStringList>("typeNames");
        const QVariantMap arguments{
            {"b", 2}, {"a", 1.5}, {"B", true}, {"", "text"}, {"c", QVariant::fromValue(uchar(3))}};
        const QStringList typeNames{"QString", "bool", "double", "int", "uchar"};
        QTest::newRow("a name alone") << QString() << QVariantMap() << QStringList();
        QTest::newRow("a name and arguments") << QString() << arguments << typeNames;
        QTest::newRow("an event") << "night" << arguments << typeNames;
    }

    void everyFieldIsWhereAPeerExpectsIt() {
        QFETCH(QString, context);
        QFETCH(QVariantMap, arguments);
        QFETCH(QStringList, typeNames);
        QVERIFY(context.isEmpty() ? m_module.notifyEvent(topic, arguments)
                                  : m_module.notifyEvent(VelEvent(topic, arguments, context)));
        QVERIFY(m_listener->waitForEvents(1));
        QTRY_COMPARE(m_reader->messages.size(), 1); // the two are told in no order

        const QDBusMessage& message = m_reader->messages.first();
        QCOMPARE(message.type(), QDBusMessage::SignalMessage);
        QCOMPARE(message.path(), "/Display");
        QCOMPARE(message.interface(), vel::bus::commonInterface());
        QCOMPARE(message.member(), topic);
        QCOMPARE(message.signature(), eventSignature);
        const auto structure = message.arguments().first().value<QDBusArgument>();
        QString name, itsContext;
        int count = -1;
        QMap<QString, QString> types;
        QVariantMap values;
        structure.beginStructure();
        structure >> name >> itsContext >> count >> types >> values;
        QVERIFY(structure.atEnd());
        structure.endStructure();
        QCOMPARE(name, topic);
        QCOMPARE(itsContext, context);
        QCOMPARE(count, arguments.size());
        QCOMPARE(types.keys(), arguments.keys());
        QCOMPARE(types.values(), typeNames);
        QCOMPARE(values, arguments);
    }

    void basicTypesComeBackAsTheyWere_data() {
        QTest::addColumn<QVariant>("value");
        const QVariant values[] = {
            true,
            std::numeric_limits<int>::min(),
            std::numeric_limits<uint>::max(),
            std::numeric_limits<qlonglong>::min(),
            std::numeric_limits<qulonglong>::max(),
            QVariant::fromValue(std::numeric_limits<short>::min()),
            QVariant::fromValue(std::numeric_limits<ushort>::max()),
            QVariant::fromValue(std::numeric_limits<uchar>::max()),
            -0.1,
            "größer €",
            QStringList{QString("a"), QString(), QString("b")},
            QByteArray("\0\xff", 2),
        };
        for (const QVariant& value : values)
            QTest::newRow(value.typeName()) << value;
        QTest::newRow("empty text list") << QVariant(QStringList());
    }

    void basicTypesComeBackAsTheyWere() {
        QFETCH(QVariant, value);
        const VelEvent sent(topic, {{"value", value}, {"also", 1}}, QString());
        QVERIFY(m_module.notifyEvent(sent));
        QVERIFY(m_listener->waitForEvents(1));
        const VelEvent& received = m_listener->events().front();
        QCOMPARE(received.getArguments().value("value").userType(), value.userType());
        QVERIFY(received == sent);
        QVERIFY(sent == received);
        QCOMPARE(received.getArgTypes(), sent.getArgTypes());
    }

    void containersComeBackToBeRead() {
        const QVariantMap map{{"a", 1}, {"b", QStringList{"x", "y"}}, {"c", QByteArray("\0z", 2)}};
        const VelEvent sent("inner", map, "context");
        QVERIFY(m_module.notifyEvent(topic, {{"map", map}, {"event", QVariant::fromValue(sent)}}));
        QVERIFY(m_listener->waitForEvents(1));
        // What came can be sent on as it is, by whoever cannot read it.
        QVERIFY(m_module.notifyEvent(topic, m_listener->events().front().getArguments()));
        QVERIFY(m_listener->waitForEvents(2));

        for (const VelEvent& event : m_listener->events()) {
            const auto argument = event.getArguments().value("map").value<QDBusArgument>();
            QCOMPARE(argument.currentSignature(), "a{sv}");
            QCOMPARE(qdbus_cast<QVariantMap>(argument), map);
            const auto inner = qdbus_cast<VelEvent>(event.getArguments().value("event"));
            QCOMPARE(inner.getEvtName(), sent.getEvtName());
            QCOMPARE(inner.getContext(), sent.getContext());
            QCOMPARE(inner.getArguments(), map);
        }
    }

    void typeNamesArriveAsTheyWereSent() {
        // They are words for people: none is made of a value, none is compared with one.
        VelEvent sent;
        sent.setEvtName(topic);
        sent.addArgument(1, "without", false);
        sent.addArgument(2, "with another", false);
        sent.addArgType("with another", "Station");
        sent.addArgType("of no argument", QString());
        QVERIFY(m_module.notifyEvent(sent));
        QVERIFY(m_listener->waitForEvents(1));
        QCOMPARE(m_listener->events().front().getArgTypes(), sent.getArgTypes());
        QCOMPARE(m_listener->events().front().getArguments(), sent.getArguments());
    }

private:
    VelModule m_module{"Display"};
    QDBusConnection m_peer = bustest::connectAs("peer");
    std::unique_ptr<SignalReader> m_reader;
    std::unique_ptr<EventListener> m_listener;
};

VEL_TEST_MAIN(EventMarshallingTest)
#include "EventMarshallingTest.moc"
