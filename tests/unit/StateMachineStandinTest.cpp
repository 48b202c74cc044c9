// The state-machine stand-in: order of entries and transitions, exceptions in entry actions, and every order of
// deaths.
#include "platform/QtStateMachine.h"

#include <QAbstractEventDispatcher>
#include <QCoreApplication>
#include <QTest>

#include <functional>
#include <map>
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
    do
        QCoreApplication::processEvents();
    while (QAbstractEventDispatcher::instance()->hasPendingEvents());
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

enum class Moment { NeverStarted, Starting, Running, WithinEntry, Stopping, Stopped, Finished };

} // namespace

Q_DECLARE_METATYPE(Moment)

class StateMachineStandinTest : public QObject {
    Q_OBJECT

private slots:
    void init() { CatchingApplication::caught.clear(); }

    void startEntersFromTheEventLoopOnly() {
        Scene scene;
        scene.machine->start();
        QVERIFY(scene.actor->entered.isEmpty());
        QCOMPARE(scene.entered(), "outer inner");
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

    void aSignalWithoutTransitionChangesNothing() {
        Scene scene;
        scene.start();
        QCOMPARE(scene.after(&Actor::back), "");
        QCOMPARE(scene.afterGo(), "second");
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

    void stopTakesEffectAtOnceAndStartMayFollow() {
        Scene scene;
        scene.machine->start();
        scene.machine->stop();
        QCOMPARE(scene.entered(), "");

        scene.start();
        scene.machine->stop();
        QCOMPARE(scene.afterGo(), "");

        scene.start();
        scene.actor->next = [&] {
            emit scene.actor->back();
            scene.machine->stop();
        };
        QCOMPARE(scene.afterGo(), "second");

        scene.start();
        scene.machine->stop();
        scene.start();
        QCOMPARE(scene.afterGo(), "second");
    }

    void statesDieInAnyOrderAtAnyMoment_data() {
        QTest::addColumn<Moment>("moment");
        QTest::addColumn<QString>("order");
        QTest::addColumn<bool>("removedFirst");
        const std::vector<std::pair<const char*, Moment>> moments{{"never started", Moment::NeverStarted},
                                                                  {"starting", Moment::Starting},
                                                                  {"running", Moment::Running},
                                                                  {"within an entry", Moment::WithinEntry},
                                                                  {"stopping", Moment::Stopping},
                                                                  {"stopped", Moment::Stopped},
                                                                  {"finished", Moment::Finished}};
        // m machine, o outer, i inner, x other, s second, f final
        for (const char* order : {"moixsf", "ixosfm", "fsoxim"}) {
            for (const auto& [name, moment] : moments) {
                for (const bool removedFirst : {false, true})
                    QTest::addRow("%s, %s%s", name, order, removedFirst ? ", removed first" : "")
                        << moment << order << removedFirst;
            }
        }
    }

    void statesDieInAnyOrderAtAnyMoment() {
        QFETCH(Moment, moment);
        QFETCH(QString, order);
        QFETCH(bool, removedFirst);
        Scene scene;
        const auto demolish = [&] {
            if (removedFirst) {
                for (automatonZeta::QtAbstractState* state : std::initializer_list<automatonZeta::QtAbstractState*>{
                         scene.outer.get(), scene.inner.get(), scene.other.get(), scene.second.get(),
                         scene.final.get()})
                    scene.machine->removeState(state);
            }
            const std::map<char, std::function<void()>> deaths{
                {'m', [&] { scene.machine.reset(); }}, {'o', [&] { scene.outer.reset(); }},
                {'i', [&] { scene.inner.reset(); }},   {'x', [&] { scene.other.reset(); }},
                {'s', [&] { scene.second.reset(); }},  {'f', [&] { scene.final.reset(); }}};
            for (const QChar which : qAsConst(order)) {
                deaths.at(which.toLatin1())();
                // Only after the first death: it must find the machine at the very moment.
                if (moment != Moment::WithinEntry) {
                    emit scene.actor->go(1);
                    emit scene.actor->back();
                    runLoop();
                }
            }
        };
        if (moment == Moment::WithinEntry)
            scene.actor->next = demolish;
        if (moment != Moment::NeverStarted)
            scene.machine->start();
        if (moment != Moment::NeverStarted && moment != Moment::Starting)
            runLoop();
        if (moment == Moment::Finished) {
            emit scene.actor->go(1);
            QCOMPARE(scene.afterGo(), "outer inner second final");
        }
        if (moment == Moment::Stopping || moment == Moment::Stopped)
            scene.machine->stop();
        if (moment == Moment::Stopped)
            runLoop();
        if (moment != Moment::WithinEntry)
            demolish();
        runLoop();
        QVERIFY(!scene.machine && !scene.outer && !scene.inner && !scene.second && !scene.final);
    }
};

int main(int argc, char** argv) {
    const CatchingApplication application(argc, argv);
    StateMachineStandinTest test;
    return QTest::qExec(&test, argc, argv);
}

#include "StateMachineStandinTest.moc"
