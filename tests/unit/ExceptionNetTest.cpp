// The exception net: what escapes a delivery becomes one error line, and the next event is served.
#include "app/VelApplication.h"
#include "app/VelExceptionNet.h"
#include "doubles/RecordingLogger.h"
#include "errors/VelException.h"

#include <QPointer>
#include <QTest>

#include <functional>
#include <pthread.h>
#include <stdexcept>
#include <typeinfo>
#include <vector>

using Throw = void (*)();
Q_DECLARE_METATYPE(Throw)

namespace radio {

struct Jammed {};

} // namespace radio

namespace {

VelException* boom() {
    return new VelException(nullptr, VelException::Timeout, "boom");
}

// Does in its event handler what it was told.
class Receiver : public QObject {
public:
    explicit Receiver(std::function<void()> action) : m_action(std::move(action)) {}

    bool event(QEvent*) override {
        m_action();
        return true;
    }

private:
    std::function<void()> m_action;
};

bool deliverTo(Receiver& receiver) {
    QEvent event(QEvent::User);
    return QCoreApplication::sendEvent(&receiver, &event);
}

} // namespace

class ExceptionNetTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init() {
        setRecordedLevel(3);
        clearRecordedLines();
    }

    void whatASlotThrowsIsOneErrorLine_data() {
        QTest::addColumn<Throw>("thrower");
        QTest::addColumn<QString>("line");
        const auto row = [](const char* title, Throw thrower, const char* line) {
            QTest::newRow(title) << thrower << QString::fromUtf8(line);
        };
        row(
            "VelException", [] { throw boom(); }, "error: VelException catch in VelApplication: boom");
        row(
            "null VelException", [] { throw static_cast<VelException*>(nullptr); },
            "error: VelException catch in VelApplication: ");
        row(
            "std exception", [] { throw std::runtime_error("x"); }, "error: std exception catch in VelApplication: x");
        row(
            "QString", [] { throw QString("no station"); },
            "error: QString exception catch in VelApplication: no station");
        row(
            "int", [] { throw 42; }, "error: Unknown exception catch in VelApplication: int");
        row(
            "class", [] { throw radio::Jammed(); }, "error: Unknown exception catch in VelApplication: radio::Jammed");
    }

    void whatASlotThrowsIsOneErrorLine() {
        QFETCH(Throw, thrower);
        bool nextIsServed = false;
        QObject receiver;
        receiver.setObjectName("the receiver");
        QMetaObject::invokeMethod(
            &receiver, [&] { thrower(); }, Qt::QueuedConnection);
        QMetaObject::invokeMethod(
            &receiver, [&] { nextIsServed = true; }, Qt::QueuedConnection);
        QCoreApplication::processEvents();
        QVERIFY(nextIsServed);
        QCOMPARE(recordedLines().size(), 2);
        QTEST(recordedLines().first(), "line");
        const QString receiversLine = recordedLines().last();
        QVERIFY2(receiversLine.startsWith("error: cannot deliver a call to 'QObject' (object name 'the receiver'): it "
                                          "threw "),
                 qPrintable(receiversLine));

        clearRecordedLines();
        QVERIFY(!velGuarded([&] { thrower(); })); // the same net, for code that needs it earlier
        QTEST(recordedLines().join('\n'), "line");
    }

    void caughtVelExceptionIsDeleted() {
        const QPointer<VelException> exception = boom();
        Receiver receiver([&] { throw exception.data(); });
        QVERIFY(!deliverTo(receiver));
        QVERIFY(!exception);
        setRecordedLevel(2); // deleted whether it was logged or not
        const QPointer<VelException> silent = boom();
        Receiver other([&] { throw silent.data(); });
        QVERIFY(!deliverTo(other));
        QVERIFY(!silent);
    }

    void cancelledThreadEndsWithoutAborting() {
#ifdef VEL_TEST_SANITIZED
        QSKIP("a sanitizer takes the catch of a cancellation, which has no object, for a null reference");
#endif
        pthread_t thread;
        const auto cancelInsideADelivery = [](void*) -> void* {
            Receiver receiver([] {
                pthread_cancel(pthread_self());
                pthread_testcancel();
            });
            deliverTo(receiver);
            return nullptr;
        };
        QCOMPARE(pthread_create(&thread, nullptr, cancelInsideADelivery, nullptr), 0);
        void* result = nullptr;
        QCOMPARE(pthread_join(thread, &result), 0);
        QCOMPARE(result, PTHREAD_CANCELED);
        QCOMPARE(recordedLines(), QStringList());
    }

    void namesAreDemangled_data() {
        QTest::addColumn<QString>("readable");
        QTest::newRow(typeid(int).name()) << "int";
        QTest::newRow(typeid(QString).name()) << "QString";
        QTest::newRow(typeid(std::vector<radio::Jammed>).name())
            << "std::vector<radio::Jammed, std::allocator<radio::Jammed> >";
        for (const char* unreadable : {"", "not mangled", "_Z", "*", "N"})
            QTest::newRow(unreadable) << unreadable;
    }

    void namesAreDemangled() {
        QTEST(QString::fromStdString(util_demangle(QTest::currentDataTag())), "readable");
    }
};

int main(int argc, char** argv) {
    VelApplication application(argc, argv);
    ExceptionNetTest test;
    return QTest::qExec(&test, argc, argv);
}

#include "ExceptionNetTest.moc"
