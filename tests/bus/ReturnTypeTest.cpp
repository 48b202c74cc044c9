// Return types by introspection: every form of description, peers that answer badly, and a cache that is asked first.
#include "testing/BusTest.h"
#include "testing/RawClient.h"

#include "bus/BusNames.h"
#include "bus/VelReturnType.h"
#include "module/VelModule.h"

#include <QElapsedTimer>
#include <QTest>

#include <atomic>
#include <mutex>
#include <thread>

namespace {

// What a peer does when it is asked to describe itself.
enum class Answer { Text, Nothing, Number, TwoTexts, Error };

// A module of libdbus alone on a thread of its own, since a question blocks the thread that asks it. It describes
// itself with whatever text it was given.
class Peer {
public:
    explicit Peer(const QString& moduleName, const QString& description = QString())
        : m_name(vel::bus::serviceName(moduleName)), m_description(description.toUtf8()),
          m_connection(dbus_bus_get_private(DBUS_BUS_SESSION, nullptr)) {
        dbus_connection_set_exit_on_disconnect(m_connection, FALSE);
        dbus_bus_request_name(m_connection, m_name.toUtf8().constData(), 0, nullptr);
        m_thread = std::thread([this] { serve(); });
    }

    ~Peer() {
        QDBusConnection::sessionBus().call(QDBusMessage::createMethodCall(m_name, "/", QString(), "Leave"));
        m_thread.join();
        dbus_connection_close(m_connection);
        dbus_connection_unref(m_connection);
    }

    void describe(const QString& description, Answer answer = Answer::Text) {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_description = description.toUtf8();
        m_answer = answer;
    }

    int questions() const { return m_questions; }

private:
    void serve() {
        bool leaving = false;
        while (!leaving && dbus_connection_read_write(m_connection, -1)) {
            while (DBusMessage* message = dbus_connection_pop_message(m_connection)) {
                if (dbus_message_get_type(message) == DBUS_MESSAGE_TYPE_METHOD_CALL) {
                    leaving = leaving || dbus_message_has_member(message, "Leave");
                    reply(message);
                }
                dbus_message_unref(message);
            }
        }
    }

    void reply(DBusMessage* question) {
        const std::lock_guard<std::mutex> lock(m_mutex);
        const bool introspects = dbus_message_has_member(question, "Introspect");
        m_questions += introspects;
        const char* text = m_description.constData();
        const dbus_int32_t number = 5;
        DBusMessage* answer = introspects && m_answer == Answer::Error
                                  ? dbus_message_new_error(question, DBUS_ERROR_ACCESS_DENIED, "not for you")
                                  : dbus_message_new_method_return(question);
        if (introspects && (m_answer == Answer::Text || m_answer == Answer::TwoTexts))
            dbus_message_append_args(answer, DBUS_TYPE_STRING, &text, DBUS_TYPE_INVALID);
        if (introspects && m_answer == Answer::TwoTexts)
            dbus_message_append_args(answer, DBUS_TYPE_STRING, &text, DBUS_TYPE_INVALID);
        if (introspects && m_answer == Answer::Number)
            dbus_message_append_args(answer, DBUS_TYPE_INT32, &number, DBUS_TYPE_INVALID);
        dbus_connection_send(m_connection, answer, nullptr);
        dbus_connection_flush(m_connection);
        dbus_message_unref(answer);
    }

    const QString m_name;
    std::mutex m_mutex;
    QByteArray m_description;
    Answer m_answer = Answer::Text;
    std::atomic<int> m_questions{0};
    DBusConnection* m_connection;
    std::thread m_thread;
    Q_DISABLE_COPY(Peer)
};

QString methodReturning(const QString& name, const QString& type, const QString& annotation = QString()) {
    QString text = QString("<method name='%1'><arg name='in' type='i' direction='in'/>").arg(name);
    if (!type.isEmpty())
        text += QString("<arg type='%1' direction='out'/>").arg(type);
    if (!annotation.isEmpty())
        text += QString("<annotation name='org.qtproject.QtDBus.QtTypeName.Out0' value='%1'/>")
                    .arg(annotation.toHtmlEscaped());
    return text + "</method>";
}

QString interfaceWith(const QString& methods, const QString& name = vel::bus::commonInterface()) {
    return QString("<interface name='%1'>%2</interface>").arg(name, methods);
}

QString objectWith(const QString& interfaces) {
    return QString("<!DOCTYPE node PUBLIC '-//freedesktop//DTD D-BUS Object Introspection 1.0//EN' "
                   "'http://www.freedesktop.org/standards/dbus/1.0/introspect.dtd'>\n<node>%1</node>")
        .arg(interfaces);
}

QString described(const QString& methods) {
    return objectWith(interfaceWith(methods));
}

const QString station = "station";
const QString text = "s";

} // namespace

class ReturnTypeTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init() { m_peerName = QString("Peer%1").arg(++m_peers); } // what was described once stays cached
    void descriptorFollowsFromTheDescription_data() {
        QTest::addColumn<QString>("signature");
        QTest::addColumn<QString>("annotation");
        QTest::addColumn<QString>("expected");
        const auto row = [](const char* signature, const char* annotation, const char* expected) {
            QTest::addRow("%s %s", signature, annotation)
                << QString::fromLatin1(signature) << QString::fromLatin1(annotation) << QString::fromLatin1(expected);
        };
        row("s", "", "QString::");
        row("i", "", "int::");
        row("b", "", "bool::");
        row("u", "", "uint::");
        row("x", "", "long::");
        row("d", "", "double::");
        row("y", "", "uchar::");
        row("n", "", "short::");
        row("q", "", "ushort::");
        row("t", "", "ulong::");
        for (const char* other : {"", "as", "ss", "a{sv}", "(ii)", "v", "o", "g", "h"})
            row(other, "", "::");
        row("as", "ListQString", "QString:list:");
        row("ai", "QList<int>", "int:list:");
        row("a(ss)", "QList<QPair<QString,QString>>", "QPair<QString,QString>:list:");
        row("as", "List", ":list:");
        row("as", "QList<", ":list:");
        row("a{sv}", "QVariantMap", "QVariant:map:QString");
        row("a{sv}", "QVariantMapOfSorts", "QVariant:map:QString");
        row("a{sv}", "MapQStringQVariant", "QVariant:map:QString");
        row("a{ss}", "MapQStringQString", "QString:map:QString");
        row("a{si}", "MapQString", ":map:QString");
        row("(ssia{ss}a{sv})", "VelEvent", "VelEvent::");
        row("s", "Station", "Station::"); // the annotation counts, not the signature
        row("", "Station", "Station::");
        row("ai", "listOfInt", "listOfInt::");
        row("ai", "MyQList<int>", "MyQList<int>::");
        row("a{ss}", "mapQString", "mapQString::");
        row("s", "%1%2%3", "%1%2%3::");
    }

    void descriptorFollowsFromTheDescription() {
        QFETCH(QString, signature);
        QFETCH(QString, annotation);
        const Peer peer(m_peerName, described(methodReturning(station, signature, annotation)));
        QTEST(getReturnType(m_peerName, station, signature), "expected");
        QTEST(getReturnType(m_peerName, station, signature), "expected"); // from the cache
    }

    void knownMethodIsAnsweredWithoutTheBus() {
        const QString list = "stations";
        RawClient monitor;
        {
            const Peer peer(m_peerName,
                            described(methodReturning(station, text) + methodReturning(list, "as", "ListQString")));
            QCOMPARE(getReturnType(m_peerName, station, text), "QString::");
            QVERIFY(monitor.becomeMonitor());
            QVERIFY(m_module.notifyEvent("watching"));
            monitor.seenUntilSignal("watching");
            const int questions = peer.questions();
            // The other method was described with it.
            QCOMPARE(getReturnType(m_peerName, list, "as"), "QString:list:");
            QCOMPARE(getReturnType(m_peerName, station, text), "QString::");
            QVERIFY(m_module.notifyEvent("asked"));
            QCOMPARE(monitor.seenUntilSignal("asked"), QStringList{"signal asked"});
            QCOMPARE(peer.questions(), questions);
        }
        // The peer has left the bus.
        QCOMPARE(getReturnType(m_peerName, station, text), "QString::");
        QCOMPARE(getReturnType(m_peerName, list, "as"), "QString:list:");
        QVERIFY_EXCEPTION_THROWN(getReturnType(m_peerName, "other", text), QString);
    }

    void unknownMethodIsAskedForAgain() {
        Peer peer(m_peerName, described(methodReturning(station, text)));
        QCOMPARE(getReturnType(m_peerName, station, "as"), QString());
        const int questions = peer.questions();
        QCOMPARE(getReturnType(m_peerName, station, "as"), QString());
        QVERIFY(peer.questions() > questions);
        peer.describe(described(methodReturning(station, "as")));
        QCOMPARE(getReturnType(m_peerName, station, "as"), "::");
        QCOMPARE(getReturnType(m_peerName, station, text), "QString::");
    }

    void changedDescriptionIsReportedAndNotBelieved() {
        Peer peer(m_peerName, described(methodReturning(station, text)));
        QCOMPARE(getReturnType(m_peerName, station, text), "QString::");
        peer.describe(described(methodReturning(station, text, "Station")));
        QCOMPARE(getReturnType(m_peerName, station, text), "QString::");

        const QByteArray newEntry = QString("\"new cache entry:station%1s Station::\"").arg(m_peerName).toUtf8();
        QTest::ignoreMessage(QtDebugMsg, newEntry.constData());
        QTest::ignoreMessage(QtDebugMsg, "ERROR: already cached with different value: \"QString::\"");
        QCOMPARE(getReturnType(m_peerName, "other", text), QString());
        QCOMPARE(getReturnType(m_peerName, station, text), "QString::");
    }

    void twoMethodsOfOneNameAreToldApartByTheirSignatures() {
        const Peer peer(m_peerName, described(methodReturning(station, text) + methodReturning(station, "i") +
                                              methodReturning(station, QString())));
        QCOMPARE(getReturnType(m_peerName, station, "i"), "int::");
        QCOMPARE(getReturnType(m_peerName, station, text), "QString::");
        QCOMPARE(getReturnType(m_peerName, station, QString()), "::");
    }

    void twoMethodsOfOneNameAndSignatureDisagree() {
        const Peer peer(m_peerName,
                        described(methodReturning(station, text, "First") + methodReturning(station, text, "Last")));
        const QByteArray newEntry = QString("\"new cache entry:station%1s Last::\"").arg(m_peerName).toUtf8();
        QTest::ignoreMessage(QtDebugMsg, newEntry.constData());
        QTest::ignoreMessage(QtDebugMsg, "ERROR: already cached with different value: \"First::\"");
        QCOMPARE(getReturnType(m_peerName, station, text), "Last::");
        QCOMPARE(getReturnType(m_peerName, station, text), "First::");
    }

    void badAnswerIsNoDescription_data() {
        QTest::addColumn<QString>("description");
        QTest::addColumn<int>("answer");
        const QString good = described(methodReturning(station, text));
        const auto row = [](const char* title, const QString& description, Answer answer = Answer::Text) {
            QTest::newRow(title) << description << int(answer);
        };
        row("nothing", good, Answer::Nothing);
        row("a number", good, Answer::Number);
        row("empty text", QString());
        row("no XML", "station");
        row("cut off behind the method", good.left(good.indexOf("</interface>")));
        row("cut off before the end", good.left(good.size() - 1));
        row("text after the end", good + "<node/>");
        row("wrong nesting", described(methodReturning(station, text) + "<a><b></a></b>"));
        const int depth = 300000;
        row("nested without need",
            described(methodReturning(station, text) + QString("<a>").repeated(depth) + QString("</a>").repeated(depth)));

        QString bomb = "<!DOCTYPE node [<!ENTITY e0 'ha'>";
        for (int level = 1; level <= 30; ++level)
            bomb +=
                QString("<!ENTITY e%1 '&e%2;&e%2;&e%2;&e%2;&e%2;&e%2;&e%2;&e%2;&e%2;&e%2;'>").arg(level).arg(level - 1);
        row("entities that multiply in a text", bomb + "]><node>&e30;</node>");
        row("entities that multiply in an attribute",
            bomb + "]>" + objectWith(interfaceWith("<method name='&e30;'/>")).section('\n', 1));
        row("an entity that holds itself", "<!DOCTYPE node [<!ENTITY a '&b;'><!ENTITY b '&a;'>]><node>&a;</node>");
    }

    void badAnswerIsNoDescription() {
        QFETCH(QString, description);
        QFETCH(int, answer);
        Peer peer(m_peerName);
        peer.describe(description, static_cast<Answer>(answer));
        QElapsedTimer timer;
        timer.start();
        QCOMPARE(getReturnType(m_peerName, station, text), QString());
        QVERIFY2(timer.elapsed() < 10000, "a bad description must not keep the module busy");
        // Nothing of it stayed.
        peer.describe(described(methodReturning(station, text, "Station")));
        QCOMPARE(getReturnType(m_peerName, station, text), "Station::");
    }

    void failedQuestionThrows_data() {
        QTest::addColumn<bool>("isThere");
        QTest::newRow("not running") << false;
        QTest::newRow("error reply") << true;
    }

    void failedQuestionThrows() {
        QFETCH(bool, isThere);
        std::unique_ptr<Peer> peer;
        if (isThere) {
            peer = std::make_unique<Peer>(m_peerName);
            peer->describe(QString(), Answer::Error);
        }
        try {
            getReturnType(m_peerName, station, text);
            QFAIL("must throw");
        } catch (const QString& thrown) {
            if (isThere)
                QCOMPARE(thrown, "not for you");
            else if (PrivateBus::isBroker()) // names nobody: it knows of no service files, and does not look for any
                QCOMPARE(thrown, "The name is not activatable");
            else
                QVERIFY2(thrown.contains(vel::bus::serviceName(m_peerName)), qUtf8Printable(thrown));
        }
        // The failure was not kept.
        peer.reset();
        const Peer good(m_peerName, described(methodReturning(station, text)));
        QCOMPARE(getReturnType(m_peerName, station, text), "QString::");
    }

    void hugeDescriptionIsRead() {
        QString methods;
        int count = 0;
        while (methods.size() < 5000000)
            methods += methodReturning(QString("method%1").arg(++count), text);
        const Peer peer(m_peerName, described(methods));
        QElapsedTimer timer;
        timer.start();
        QCOMPARE(getReturnType(m_peerName, QString("method%1").arg(count), text), "QString::");
        qInfo("%d methods read in %d ms", count, static_cast<int>(timer.elapsed()));
        const int questions = peer.questions();
        QCOMPARE(getReturnType(m_peerName, "method1", text), "QString::");
        QCOMPARE(peer.questions(), questions);
    }

private:
    const VelModule m_module{"Display"};
    QString m_peerName;
    int m_peers = 0;
};

VEL_BUS_TEST_MAIN(ReturnTypeTest)
#include "ReturnTypeTest.moc"
