// Recordings: what is written is read again, on a disk that fills up as well; and what strangers write is no harm.
#include "recording/Reader.h"
#include "recording/Writer.h"

#include "wire/Event.h"

#include <QFile>
#include <QTemporaryDir>
#include <QTest>

#include <csignal>
#include <sys/resource.h>

using recording::Header;
using recording::Reader;
using recording::Time;
using recording::Traffic;
using recording::Writer;

namespace {

QByteArray eventNumber(int number, int padding = 0) {
    const wire::Message event =
        wire::makeEvent("Tuner", "topic", QString(padding, 'x'), {wire::intArgument("number", number)});
    dbus_message_set_serial(event.get(), static_cast<dbus_uint32_t>(number));
    dbus_message_set_sender(event.get(), ":1.7");
    return wire::toBytes(event.get());
}

std::string_view viewOf(const QByteArray& bytes) {
    return {bytes.constData(), static_cast<std::size_t>(bytes.size())};
}

struct Read {
    QList<QByteArray> messages;
    QList<Time> times;
    std::string problem;
    std::uint64_t unreadable = 0;
};

Read readAll(const QString& path) {
    Read read;
    Reader reader(path.toStdString());
    Reader::Packet packet;
    while (reader.next(packet)) {
        read.messages += QByteArray(packet.message.data(), static_cast<int>(packet.message.size()));
        read.times += packet.time;
    }
    read.problem = reader.problem();
    read.unreadable = reader.unreadable();
    return read;
}

// Files of a process may not become larger than that while this lives, and writing says so as for a full disk.
class FullDisk {
public:
    explicit FullDisk(rlim_t size) {
        std::signal(SIGXFSZ, SIG_IGN);
        getrlimit(RLIMIT_FSIZE, &m_before);
        const rlimit limit{size, m_before.rlim_max};
        setrlimit(RLIMIT_FSIZE, &limit);
    }
    ~FullDisk() { setrlimit(RLIMIT_FSIZE, &m_before); }

private:
    rlimit m_before{};
};

} // namespace

class RecordingTest : public QObject {
    Q_OBJECT
private:
    QTemporaryDir m_folder;
    QString file(const char* name) const { return m_folder.filePath(name); }

private Q_SLOTS:
    void whatIsWrittenIsRead() {
        constexpr Time time = 1763935185123456789;
        QList<QByteArray> written;
        {
            Writer writer(file("all.pcap").toStdString());
            for (int number = 1; number <= 3000; ++number) { // more than is kept in memory
                written += eventNumber(number);
                writer.add(time + number, viewOf(written.last()));
            }
        }
        const Read read = readAll(file("all.pcap"));
        QVERIFY(read.messages == written);
        QCOMPARE(read.times.first(), time + 1); // to the nanosecond
        QCOMPARE(read.problem, std::string());
        QVERIFY_EXCEPTION_THROWN(Writer(file("all.pcap").toStdString()), recording::Error);
        QVERIFY(readAll(file("all.pcap")).messages == written); // a recording is never written over
    }

    void aFullDiskLeavesWholePacketsAndACount() {
        Writer writer(file("full.pcap").toStdString());
        {
            const FullDisk disk(100000);
            for (int number = 1; number <= 1000; ++number) {
                writer.add(number, viewOf(eventNumber(number)));
                if (number % 100 == 0)
                    (void)writer.flush();
            }
        }
        QVERIFY(writer.counts().lost > 0);
        QVERIFY(!writer.counts().reason.empty());
        writer.add(2000, viewOf(eventNumber(2000))); // there is room again
        QVERIFY(writer.flush());
        const Read read = readAll(file("full.pcap"));
        QCOMPARE(read.problem, std::string());
        QCOMPARE(quint64(read.messages.size()), quint64(writer.counts().messages));
        QCOMPARE(quint64(read.messages.size()), 1001 - quint64(writer.counts().lost));
        QCOMPARE(read.messages.last(), eventNumber(2000));
    }

    void filesInTurnBeginWithNamesAndOldOnesGo() {
        constexpr int size = 20000;
        Writer writer(file("turn.pcap").toStdString(), {size, 3},
                      [](Writer& next) { next.add(1, viewOf(eventNumber(77777))); });
        for (int number = 1; number <= 1000; ++number)
            writer.add(number, viewOf(eventNumber(number)));
        QVERIFY(writer.flush());
        const QStringList files = QDir(m_folder.path()).entryList({"turn.*"}, QDir::Files, QDir::Name);
        QCOMPARE(files.size(), 3);
        int expected = 0;
        for (const QString& one : files) {
            QVERIFY(QFileInfo(m_folder.filePath(one)).size() <= size);
            const Read read = readAll(m_folder.filePath(one));
            QCOMPARE(read.messages.first(), eventNumber(77777));
            if (expected == 0)
                expected = int(read.times.at(1));
            for (int index = 1; index < read.messages.size(); ++index)
                QCOMPARE(read.messages.at(index), eventNumber(expected++));
        }
        QCOMPARE(expected, 1001);
    }

    void aFileThatIsCutIsReadUpToThere() {
        {
            Writer writer(file("cut.pcap").toStdString());
            for (int number = 1; number <= 10; ++number)
                writer.add(number, viewOf(eventNumber(number)));
        }
        QFile cut(file("cut.pcap"));
        QVERIFY(cut.resize(cut.size() - 5));
        const Read read = readAll(file("cut.pcap"));
        QCOMPARE(read.messages.size(), 9);
        QVERIFY(!read.problem.empty());
    }

    void whatIsNoRecordingIsRefused() {
        QFile text(file("text.pcap"));
        QVERIFY(text.open(QIODevice::WriteOnly));
        text.write("this is a text");
        text.close();
        QVERIFY_EXCEPTION_THROWN(Reader(text.fileName().toStdString()), recording::Error);
        QVERIFY_EXCEPTION_THROWN(Reader(file("none").toStdString()), recording::Error);
    }

    void namesOutliveTheFileInWhichTheyWereTold() {
        const auto take = [](Traffic& traffic, DBusMessage* message, Time time) {
            const QByteArray bytes = wire::toBytes(message);
            Header header;
            return readHeader(viewOf(bytes), header) ? traffic.take(header, viewOf(bytes), time) : recording::Seen();
        };
        Traffic traffic;
        const wire::Message owned =
            wire::made(dbus_message_new_signal(DBUS_PATH_DBUS, DBUS_INTERFACE_DBUS, "NameOwnerChanged"));
        const char *name = "org.vel.module.TunerService", *none = "", *owner = ":1.7";
        QVERIFY(dbus_message_append_args(owned.get(), DBUS_TYPE_STRING, &name, DBUS_TYPE_STRING, &none,
                                         DBUS_TYPE_STRING, &owner, DBUS_TYPE_INVALID));
        QVERIFY(dbus_message_set_sender(owned.get(), DBUS_SERVICE_DBUS));
        take(traffic, owned.get(), 5);

        Traffic next;
        traffic.writeNames([&](std::string_view message) {
            Header header;
            QVERIFY(readHeader(message, header));
            next.take(header, message, 10);
        });
        const wire::Message call =
            wire::made(dbus_message_new_method_call(":1.7", "/Tuner", "org.vel.module.VelInterface", "tune"));
        QVERIFY(dbus_message_set_sender(call.get(), ":1.9"));
        const recording::Seen seen = take(next, call.get(), 11);
        QCOMPARE(seen.kind, recording::Seen::Call);
        QCOMPARE(next.participant(seen.to), std::string("Tuner"));
        int open = 0;
        next.forEachOpen([&](const recording::OpenCall&) { ++open; });
        QCOMPARE(open, 1);
    }
};

QTEST_GUILESS_MAIN(RecordingTest)
#include "RecordingTest.moc"
