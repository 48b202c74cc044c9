// Allocation tracing by event: a real trace of a real process, and nothing for anybody else.
#include "testing/BusTest.h"

#include "module/VelModule.h"

#include <QFile>
#include <QTemporaryDir>
#include <QTest>

#include <algorithm>

namespace {

const QString scripted = "Scripted";
const QString tracingOn = "mtrace_on";
const QString tracingOff = "mtrace_off";
const QString moduleKey = "module";

// Where the C library keeps its tracing since version 2.34.
const QString preload = "libc_malloc_debug.so.0";

// The loader complains on standard error, and starts the program all the same.
bool preloadIsThere() {
    ChildProcess program;
    program.setVariable("LD_PRELOAD", preload);
    return program.run("true") && program.waitForStatus() == 0 && program.lines().isEmpty();
}

} // namespace

class MemoryTracingTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void namedModuleTracesItsAllocations() {
#ifdef VEL_TEST_SANITIZED
        QSKIP("a sanitizer brings its own allocator");
#endif
        if (!preloadIsThere())
            QSKIP("no libc_malloc_debug.so.0 here");
        // The C library's muntrace() crashes now and then while another thread allocates, as Qt D-Bus's does. That says
        // nothing about the module; a child that it ended is replaced.
        constexpr int attempts = 10;
        QList<QByteArray> lines;
        for (int attempt = 0; lines.isEmpty() && attempt < attempts; ++attempt)
            lines = traceOfAWholeLife();
        QVERIFY(!lines.isEmpty());
        QCOMPARE(lines.first(), QByteArray("= Start"));
        QCOMPARE(lines.last(), QByteArray("= End"));
        const auto count = [&lines](const char* what) {
            return std::count_if(lines.cbegin(), lines.cend(),
                                 [what](const QByteArray& line) { return line.contains(what); });
        };
        QVERIFY(count(" + 0x") > 0); // allocations
        QVERIFY(count(" - 0x") > 0); // and frees
    }

    void onlyTheExactNameIsMeant() {
        ChildProcess child;
        start(child);
        const int before = child.lines().size();
        for (const QVariantMap& other : {QVariantMap{{moduleKey, "Script"}}, QVariantMap{{moduleKey, "ScriptedPlayer"}},
                                         QVariantMap{{moduleKey, "scripted"}}, QVariantMap()}) {
            QVERIFY(m_module.notifyEvent(tracingOn, other));
            QVERIFY(m_module.notifyEvent(tracingOff, other));
        }
        // Later lines show that none came before.
        QVERIFY(m_module.notifyEvent(tracingOn, {{moduleKey, scripted}}));
        QVERIFY(m_module.notifyEvent(tracingOff, {{moduleKey, scripted}}));
        QVERIFY(child.waitForLine("LOG", before + 1));
        QCOMPARE(child.lines().mid(before, 2),
                 (QStringList{"LOG debug: Activate mtrace", "LOG debug: Deactivate mtrace"}));
        QVERIFY(!QFile::exists(m_trace));
    }

private:
    void start(ChildProcess& child) {
        QFile::remove(m_trace);
        child.setVariable("MALLOC_TRACE", m_trace);
        child.setVariable("VEL_TEST_LOG", "1");
        child.setVariable("VEL_LOG_LEVEL", "7");
        QVERIFY(child.run(bustest::program("scripted-module")));
        QVERIFY(child.waitForLine("hook run"));
    }

    // True when the scripted module has handled every event published before; false when it is gone.
    bool isAnswering() {
        return bustest::call(QDBusConnection::sessionBus(), scripted, "state").arguments() == QVariantList{"RUN"};
    }

    QList<QByteArray> traceOfAWholeLife() {
        ChildProcess child;
        child.setVariable("LD_PRELOAD", preload);
        start(child);
        const bool tracedTooEarly = QFile::exists(m_trace);
        const bool publishedOn = m_module.notifyEvent(tracingOn, {{moduleKey, scripted}});
        const bool isOn = isAnswering() && isAnswering(); // the second time traced
        const bool publishedOff = m_module.notifyEvent(tracingOff, {{moduleKey, scripted}});
        const bool isOff = isAnswering();
        QFile file(m_trace);
        const QByteArray trace = file.open(QIODevice::ReadOnly) ? file.readAll().trimmed() : QByteArray();
        const bool stopping = m_module.notifyEvent("stop_module_Scripted");
        const bool ended = child.waitForStatus() == 1;
        const bool logged = child.lines().contains("LOG debug: Activate mtrace") &&
                            child.lines().contains("LOG debug: Deactivate mtrace");
        if (tracedTooEarly || !publishedOn || !isOn || !publishedOff || !isOff || !stopping || !ended || !logged)
            return {};
        return trace.split('\n');
    }

    VelModule m_module{"Display"};
    QTemporaryDir m_folder;
    QString m_trace = m_folder.filePath("trace");
};

VEL_TEST_MAIN(MemoryTracingTest)
#include "MemoryTracingTest.moc"
