// Calls with types: answers, errors, time limits, and continuations.
#include "doubles/RecordingLogger.h"
#include "testing/BusTest.h"

#include "app/VelExceptionNet.h"
#include "errors/VelException.h"
#include "module/VelModule.h"
#include "typed/VelTypedCalls.h"

#include <QDBusAbstractAdaptor>
#include <QElapsedTimer>
#include <QTest>
#include <QThread>

#include <csignal>
#include <memory>
#include <stdexcept>

using namespace std::chrono_literals;

struct Range {
    Q_GADGET
    Q_PROPERTY(int low MEMBER low)
    Q_PROPERTY(int high MEMBER high)
public:
    int low = 0;
    int high = 0;
};

// A module as the bus sees it, in a thread of its own.
class Tuner : public QObject, protected QDBusContext {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.vel.module.VelInterface")
public Q_SLOTS:
    int strength() { return 72; }
    QVariantMap widened(const QVariantMap& range, int by) {
        return {{"low", range.value("low").toInt() - by}, {"high", range.value("high").toInt() + by}};
    }
    int range(QString& unit) {
        unit = "MHz";
        return 108;
    }
    QStringList names() { return {"one", "two"}; }
    void fail() { sendErrorReply("org.example.NoAerial", "the aerial is down"); }
    void stayAway() { setDelayedReply(true); } // and never answers
    void callRadio() {
        QDBusMessage call = QDBusMessage::createMethodCall("org.vel.module.RadioService", "/Radio",
                                                           "org.vel.module.VelInterface", "callTuner");
        connection().asyncCall(call);
    }
};

class Radio : public VelModule {
    Q_OBJECT
public:
    Radio();
    bool isInACall() const { return calledFromDBus(); }
    QStringList said;
};

class RadioAdaptor : public QDBusAbstractAdaptor {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.vel.module.VelInterface")
public:
    explicit RadioAdaptor(Radio* radio) : QDBusAbstractAdaptor(radio), m_radio(*radio) {}

public Q_SLOTS:
    int own() { return 1; }
    void refuse() {
        velGuarded([&] { throw new VelException(&m_radio, VelException::AccessDenied, "refused"); });
    }
    void callTuner() {
        try {
            vel::call<void>(m_radio, vel::within(200ms), "Tuner", "stayAway");
        } catch (const vel::CallError& error) {
            m_radio.said << error.text();
        }
    }

private:
    Radio& m_radio;
};

Radio::Radio() : VelModule("Radio") {
    new RadioAdaptor(this);
}

class TypedCallsTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() {
        m_tuner.moveToThread(&m_thread);
        m_thread.start();
        QVERIFY(m_other.registerObject("/Tuner", &m_tuner, QDBusConnection::ExportAllSlots));
        QVERIFY(m_other.registerService("org.vel.module.TunerService"));
    }
    void cleanupTestCase() {
        m_other.unregisterObject("/Tuner");
        m_thread.quit();
        m_thread.wait();
    }
    void init() {
        m_radio.said.clear();
        setRecordedLevel(4);
        clearRecordedLines();
    }

    void answersHaveTheirTypes() {
        QCOMPARE(vel::call<int>(m_radio, "Tuner", "strength"), 72);
        QCOMPARE(vel::call<double>(m_radio, vel::within(60s), "Tuner", "strength"), 72.0);
        vel::call<void>(m_radio, "Tuner", "strength");
        QCOMPARE(vel::call<QStringList>(m_radio, "Tuner", "names"), (QStringList{"one", "two"}));
        QCOMPARE(vel::call<QList<QString>>(m_radio, "Tuner", "names").size(), 2);
        const auto [highest, unit] = vel::call<std::tuple<int, QString>>(m_radio, "Tuner", "range");
        QCOMPARE(highest, 108);
        QCOMPARE(unit, "MHz");
        const Range range = vel::call<Range>(m_radio, "Tuner", "widened", Range{88, 108}, 1);
        QCOMPARE(range.low, 87);
        QCOMPARE(range.high, 109);
        QCOMPARE(vel::call<int>(m_radio, "Radio", "own"), 1); // itself
    }

    void errors_data() {
        QTest::addColumn<QString>("module");
        QTest::addColumn<QString>("method");
        QTest::addColumn<QString>("name");
        QTest::addColumn<QString>("text"); // a part of it
        const auto row = [](const char* description, const char* module, const char* method, const char* name,
                            const char* text) { QTest::newRow(description) << module << method << name << text; };
        row("the module's own", "Tuner", "fail", "org.example.NoAerial", "the aerial is down");
        row("its own, thrown", "Radio", "refuse", "org.freedesktop.DBus.Error.AccessDenied", "refused");
        row("no such method", "Tuner", "tune", "org.freedesktop.DBus.Error.UnknownMethod", "tune");
        row("no such module", "Absent", "tune", "org.freedesktop.DBus.Error.ServiceUnknown", "AbsentService");
        row("no module's name", "A-B", "tune", "org.freedesktop.DBus.Error.InvalidArgs",
            "no module can have this name");
        row("no method's name", "Tuner", "a b", "org.freedesktop.DBus.Error.InvalidArgs",
            "no method can have this name");
        row("another type", "Tuner", "names", "org.freedesktop.DBus.Error.InvalidSignature",
            "value 1 of the answer: it is an array, wanted int");
        row("too many values", "Tuner", "range", "org.freedesktop.DBus.Error.InvalidSignature",
            "the answer has 2 values, wanted 1");
    }
    // Both ways of calling give the same.
    void errors() {
        QFETCH(QString, module);
        QFETCH(QString, method);
        QFETCH(QString, name);
        QFETCH(QString, text);
        const auto check = [&](const vel::CallError& error) {
            QCOMPARE(error.name(), name);
            QVERIFY2(error.text().contains(text), error.what());
            QCOMPARE(QString(error.what()),
                     QString("cannot call '%1.%2': %3 (%4)").arg(module, method, error.text(), name));
        };
        int seen = 0;
        try {
            vel::call<int>(m_radio, module, method);
        } catch (const vel::CallError& error) {
            check(error);
            ++seen;
        }
        QCOMPARE(seen, 1);
        vel::ask<int>(m_radio, module, method)
            .then(
                this, [&](int) { QFAIL("answered"); },
                [&](const vel::CallError& error) {
                    check(error);
                    ++seen;
                });
        QCOMPARE(seen, 1);
        QTRY_COMPARE_WITH_TIMEOUT(seen, 2, 60000);
        QVERIFY(!m_radio.isInACall());
    }

    void argumentWithoutAFormIsNotSent() {
        try {
            vel::call<void>(m_radio, "Tuner", "widened", QVariant());
            QFAIL("sent");
        } catch (const vel::CallError& error) {
            QCOMPARE(error.text(), "argument 1 cannot be sent: it is nothing, wanted QVariant");
        }
    }

    void limitHoldsForAFrozenModule() {
        ChildProcess frozen;
        QVERIFY(frozen.run(bustest::program("scripted-module")));
        QVERIFY(frozen.waitForLine("hook run"));
        QCOMPARE(vel::call<QString>(m_radio, "Scripted", "echo", "text"), "text");
        ::kill(bustest::processOf("Scripted"), SIGSTOP);
        QTRY_COMPARE_WITH_TIMEOUT(frozen.processState(), 'T', 60000);
        QElapsedTimer elapsed;
        elapsed.start();
        QVERIFY_EXCEPTION_THROWN(vel::call<QString>(m_radio, vel::within(300ms), "Scripted", "echo", "text"),
                                 vel::CallError);
        const qint64 librarysOwnLimit = 25000;
        QVERIFY2(elapsed.elapsed() < librarysOwnLimit / 2, qPrintable(QString::number(elapsed.elapsed())));
    }

    void deadlockIsTold() {
        vel::call<void>(m_radio, "Tuner", "callRadio");
        QTRY_COMPARE_WITH_TIMEOUT(m_radio.said.size(), 1, 60000);
        QCOMPARE(m_radio.said.front(), "'Tuner' does not answer, and is in a call to this module itself: when it waits "
                                       "for that one, neither can go on; ask without waiting");
    }

    void continuationsAreCalledOnceAndOnlyWhileTheirContextLives() {
        auto dying = std::make_unique<QObject>();
        QStringList said;
        vel::ask<int>(m_radio, "Tuner", "strength").then(dying.get(), [&](int) { said << "dead"; });
        vel::ask<int>(m_radio, "Tuner", "strength").then(this, [&](int strength) {
            said << QString::number(strength);
            throw std::runtime_error("after the answer");
        });
        vel::ask<std::tuple<int, QString>>(m_radio, "Tuner", "range").then(this, [&](int, const QString& unit) {
            said << unit;
        });
        vel::ask<void>(m_radio, "Tuner", "fail").then(this, [&] { said << "answered"; });
        vel::ask<void>(m_radio, "Tuner", "strength").then(this, [&, owned = std::make_unique<int>(3)] {
            said << "last";
        });
        dying.reset();
        QVERIFY(said.isEmpty());
        QTRY_VERIFY_WITH_TIMEOUT(said.contains("last"), 60000);
        QCOMPARE(said, (QStringList{"72", "MHz", "last"}));
        QCOMPARE(recordedLines(),
                 (QStringList{"error: std exception catch in VelApplication: after the answer",
                              "error: cannot call 'Tuner.fail': the aerial is down (org.example.NoAerial)"}));
    }

    // Some of these answers are there before ask() returns.
    void answersOfAModuleComeInTheirOrder() {
        constexpr int count = 2000;
        QList<int> came;
        for (int asked = 0; asked < count; ++asked)
            vel::ask<int>(m_radio, "Tuner", "strength").then(this, [&came, asked](int) { came << asked; });
        QTRY_COMPARE_WITH_TIMEOUT(came.size(), count, 60000);
        QVERIFY(std::is_sorted(came.begin(), came.end()));
    }

    void othersThreadsMayWaitButNotAsk() {
        int strength = 0;
        bool isRefused = false;
        std::unique_ptr<QThread> thread(QThread::create([&] {
            strength = vel::call<int>(m_radio, "Tuner", "strength");
            try {
                vel::ask<int>(m_radio, "Tuner", "strength").then(this, [](int) {});
            } catch (const vel::CallError&) {
                isRefused = true;
            }
        }));
        thread->start();
        QVERIFY(thread->wait());
        QCOMPARE(strength, 72);
        QVERIFY(isRefused);
    }

private:
    Radio m_radio;
    QDBusConnection m_other = bustest::connectAs("other");
    Tuner m_tuner;
    QThread m_thread;
};

VEL_TEST_MAIN(TypedCallsTest)
#include "TypedCallsTest.moc"
