// The state-machine stand-in: order of entries and transitions, exceptions in entry actions, and its end at any moment.
#include "platform/QtStateMachine.h"

#include <QAbstractEventDispatcher>
#include <QCoreApplication>
#include <QTest>

#include <functional>
#include <memory>
#include <stdexcept>

using automatonZeta::QtAbstractTransition;
using automatonZeta::QtFinalState;
using automatonZeta::QtState;
using automatonZeta::QtStateMachine;

namespace {

// Catches around the delivery of events, as an application does that must not die of a slot's exception.
class CatchingApplication : public QCoreApplication {
public:
    using QCoreApplication::QCoreApplication;

    bool notify(QObject* receiver, QEvent* event) override {
        try {
            return QCoreApplication::notify(receiver, event);
        } catch (const std::exception& e) {
            caught.append(e.what());
        }
        return true;
    }

    static QStringList caught;
};

QStringList CatchingApplication::caught;

// Runs the loop until nothing is left to do; all events here are posted by this thread.
void runLoop() {
    while (QAbstractEventDispatcher::instance()->processEvents(QEventLoop::AllEvents)) {
    }
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
}

} // namespace

// The object whose slots are entry actions and whose signals drive the machine.
class Actor : public QObject {
    Q_OBJECT

public:
    QStringList entered;
    std::function<void()> next; // done once, within the next entry action

signals:
    void go(int value);
    void back();

public slots:
    void slot_enter(const QString& name) {
        entered.append(name);
        if (next)
            std::exchange(next, nullptr)();
    }
};

namespace {

// A machine of a composite state ("outer" with "inner" and "other"), a state and a final one: outer/inner --go-->
// second --go--> final, second --back--> outer.
struct Scene {
    std::unique_ptr<Actor> actor = std::make_unique<Actor>();
    std::unique_ptr<QtStateMachine> machine = std::make_unique<QtStateMachine>();
    std::unique_ptr<QtState> outer = std::make_unique<QtState>();
    std::unique_ptr<QtState> inner = std::make_unique<QtState>(outer.get());
    std::unique_ptr<QtState> other = std::make_unique<QtState>(outer.get());
    std::unique_ptr<QtState> second = std::make_unique<QtState>();
    std::unique_ptr<QtFinalState> final = std::make_unique<QtFinalState>();
    QtAbstractTransition* outerToSecond;

    Scene() {
        machine->addState(outer.get());
        machine->addState(second.get());
        machine->addState(final.get());
        machine->setInitialState(outer.get());
        outer->setInitialState(inner.get());
        outerToSecond = outer->addTransition(actor.get(), SIGNAL(go(int)), second.get());
        second->addTransition(actor.get(), SIGNAL(back()), outer.get());
        second->addTransition(actor.get(), SIGNAL(go(int)), final.get());
        report(*outer, "outer");
        report(*inner, "inner");
        report(*other, "other");
        report(*second, "second");
        report(*final, "final");
    }

    void report(automatonZeta::QtActionState& state, const char* name) {
        state.invokeMethodOnEntry(actor.get(), "slot_enter", {QString(name)});
    }

    // What was entered since the last call, once the loop has run.
    QString entered() {
        runLoop();
        const QString names = actor->entered.join(' ');
        actor->entered.clear();
        return names;
    }

    QString after(void (Actor::*signal)()) {
        emit(actor.get()->*signal)();
        return entered();
    }

    QString afterGo() {
        emit actor->go(1);
        return entered();
    }

    void start() {
        machine->start();
        QCOMPARE(entered(), "outer inner");
    }
};

enum class Moment { NeverStarted, Starting, Running, Finished };

} // namespace

Q_DECLARE_METATYPE(Moment)

class StateMachineStandinTest : public QObject {
    Q_OBJECT

private slots:
    void init() { CatchingApplication::caught.clear(); }

    void statesAreEnteredFromTheEventLoopOnly() {
        Scene scene;
        scene.machine->start();
        QVERIFY(scene.actor->entered.isEmpty());
        QCOMPARE(scene.entered(), "outer inner");
        QCOMPARE(scene.after(&Actor::back), ""); // no transition leads there
        QCOMPARE(scene.afterGo(), "second");
        QCOMPARE(scene.after(&Actor::back), "outer inner");
    }

    void aSignalWithinAnEntryActionIsTakenAfterIt() {
        Scene scene;
        scene.actor->next = [&] {
            emit scene.actor->go(1);
            QCOMPARE(scene.actor->entered, QStringList{"outer"});
        };
        scene.machine->start();
        QCOMPARE(scene.entered(), "outer inner second");
    }

    void aRemovedTransitionIsNotTaken() {
        Scene scene;
        scene.start();
        scene.outer->removeTransition(nullptr);
        scene.second->removeTransition(scene.outerToSecond); // not its own
        QCOMPARE(scene.afterGo(), "second");
        QCOMPARE(scene.after(&Actor::back), "outer inner");
        scene.outer->removeTransition(scene.outerToSecond);
        QCOMPARE(scene.afterGo(), "");
    }

    void anExceptionReachesTheApplicationAndTheMachineGoesOn() {
        Scene scene;
        scene.actor->next = [&] {
            emit scene.actor->go(1);
            throw std::runtime_error("broken");
        };
        scene.machine->start();
        QCOMPARE(scene.entered(), "outer inner second");
        QCOMPARE(CatchingApplication::caught, QStringList{"broken"});
        QCOMPARE(scene.after(&Actor::back), "outer inner");
    }

    void nothingIsEnteredAfterAStop() {
        Scene starting;
        starting.machine->start();
        starting.machine->stop();
        QCOMPARE(starting.entered(), "");

        Scene running;
        running.start();
        running.actor->next = [&] {
            emit running.actor->back();
            running.machine->stop();
        };
        QCOMPARE(running.afterGo(), "second");
        QCOMPARE(running.afterGo(), "");
    }

    void endComesAtAnyMoment_data() {
        QTest::addColumn<Moment>("moment");
        QTest::newRow("never started") << Moment::NeverStarted;
        QTest::newRow("starting") << Moment::Starting;
        QTest::newRow("running") << Moment::Running;
        QTest::newRow("finished") << Moment::Finished;
    }

    void endComesAtAnyMoment() {
        QFETCH(Moment, moment);
        Scene scene;
        if (moment != Moment::NeverStarted)
            scene.machine->start();
        if (moment == Moment::Running || moment == Moment::Finished)
            QCOMPARE(scene.entered(), "outer inner");
        if (moment == Moment::Finished) {
            QCOMPARE(scene.afterGo(), "second");
            QCOMPARE(scene.afterGo(), "final");
        }
        // A composite state goes before those that were in it; signals and the loop go on all the while.
        scene.machine->stop();
        scene.outer->removeTransition(scene.outerToSecond);
        for (automatonZeta::QtAbstractState* state : std::initializer_list<automatonZeta::QtAbstractState*>{
                 scene.outer.get(), scene.inner.get(), scene.other.get(), scene.second.get(), scene.final.get()})
            scene.machine->removeState(state);
        scene.outer.reset();
        QCOMPARE(scene.afterGo(), "");
        scene.inner.reset();
        scene.second.reset();
        QCOMPARE(scene.after(&Actor::back), "");
        scene.machine.reset();
        scene.final.reset();
        QCOMPARE(scene.afterGo(), "");
    }
};

int main(int argc, char** argv) {
    const CatchingApplication application(argc, argv);
    StateMachineStandinTest test;
    return QTest::qExec(&test, argc, argv);
}

#include "StateMachineStandinTest.moc"
