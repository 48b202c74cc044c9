// The state-machine stand-in: order of entries and transitions, exceptions in entry actions, and every order
// of deaths.
#include "platform/QtStateMachine.h"

#include <QAbstractEventDispatcher>
#include <QCoreApplication>
#include <QRegularExpression>
#include <QTest>

#include <functional>
#include <memory>
#include <optional>
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
    void slot_ten(int a, const QString& b, bool c, double d, const QByteArray& e, uint f, qlonglong g,
                  const QStringList& h, QChar i, const QVariantMap& j) {
        entered.append(QString("%1%2%3%4%5%6%7%8%9")
                           .arg(a)
                           .arg(b)
                           .arg(c)
                           .arg(d)
                           .arg(QString(e))
                           .arg(f)
                           .arg(g)
                           .arg(h.join('+'))
                           .arg(i) +
                       j.firstKey());
    }
};

namespace {

// A machine of a composite state ("outer" with "inner" and "other"), a state and a final one:
// outer/inner --go--> second --go--> final, second --back--> outer.
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

    void aFinalStateEndsTheMachineUntilItIsStartedAgain() {
        Scene scene;
        scene.start();
        QCOMPARE(scene.afterGo(), "second");
        QCOMPARE(scene.afterGo(), "final");
        QCOMPARE(scene.afterGo(), "");
        QCOMPARE(scene.after(&Actor::back), "");
        scene.start();
    }

    void noSuchSignalMakesNoTransition() {
        Scene scene;
        QVERIFY(!scene.inner->addTransition(scene.actor.get(), SIGNAL(gone()), scene.second.get()));
        QVERIFY(
            !scene.inner->addTransition(scene.actor.get(), SLOT(slot_enter(QString)), scene.second.get()));
        QVERIFY(!scene.inner->addTransition(nullptr, SIGNAL(go(int)), scene.second.get()));
        QVERIFY(scene.inner->addTransition(scene.actor.get(), SIGNAL(go(int)), scene.second.get()));
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

    void aTransitionCanBeRemovedByTheEntryThatItLedTo() {
        Scene scene;
        scene.start();
        scene.actor->next = [&] { scene.outer->removeTransition(scene.outerToSecond); };
        QCOMPARE(scene.afterGo(), "second");
        QCOMPARE(scene.after(&Actor::back), "outer inner");
        QCOMPARE(scene.afterGo(), "");
    }

    void entryActionsTakeUpToTenArguments() {
        Scene scene;
        const QList<QVariant> ten{1,
                                  "b",
                                  true,
                                  4.5,
                                  QByteArray("e"),
                                  6u,
                                  7ll,
                                  QStringList{"h", "i"},
                                  QChar('j'),
                                  QVariantMap{{"k", 1}}};
        scene.second->invokeMethodOnEntry(scene.actor.get(), "slot_ten", ten);
        QTest::ignoreMessage(QtWarningMsg, QRegularExpression("more than 10 arguments"));
        scene.second->invokeMethodOnEntry(scene.actor.get(), "slot_ten", ten + ten);
        scene.start();
        QCOMPARE(scene.afterGo(), "second 1b14.5e67h+ijk");
    }

    void anObjectThatIsGoneIsNotInvoked() {
        Scene scene;
        auto gone = std::make_unique<Actor>();
        scene.inner->invokeMethodOnEntry(gone.get(), "slot_enter", {QString("gone")});
        gone.reset();
        scene.start();
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

    void anExceptionOutlivesTheMachine() {
        Scene scene;
        scene.actor->next = [&] {
            scene.machine.reset();
            throw std::runtime_error("broken");
        };
        scene.machine->start();
        QCOMPARE(scene.entered(), "outer");
        QCOMPARE(CatchingApplication::caught, QStringList{"broken"});
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
        // m machine, o outer, i inner, x other, s second, f final, a actor
        for (const char* order :
             {"moixsfa", "oixsfma", "ixosfam", "amfsxio", "fsoxiam", "oamixsf", "isxfoma"}) {
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
                for (automatonZeta::QtAbstractState* state :
                     std::initializer_list<automatonZeta::QtAbstractState*>{
                         scene.outer.get(), scene.inner.get(), scene.other.get(), scene.second.get(),
                         scene.final.get()})
                    scene.machine->removeState(state);
            }
            for (const QChar which : qAsConst(order)) {
                switch (which.toLatin1()) {
                case 'm':
                    scene.machine.reset();
                    break;
                case 'o':
                    scene.outer.reset();
                    break;
                case 'i':
                    scene.inner.reset();
                    break;
                case 'x':
                    scene.other.reset();
                    break;
                case 's':
                    scene.second.reset();
                    break;
                case 'f':
                    scene.final.reset();
                    break;
                default:
                    // The entry action is the actor's own.
                    if (moment != Moment::WithinEntry)
                        scene.actor.reset();
                }
                // Only after the first death: it must find the machine at the very moment.
                if (moment != Moment::WithinEntry) {
                    if (scene.actor) {
                        emit scene.actor->go(1);
                        emit scene.actor->back();
                    }
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

    void aRemovedSubStateOutlivesItsFormerParent() {
        Scene scene;
        scene.start();
        scene.machine->stop();
        scene.machine->removeState(scene.inner.get());
        scene.outer.reset();
        scene.machine->addState(scene.inner.get());
        scene.machine->setInitialState(scene.inner.get());
        scene.inner->addTransition(scene.actor.get(), SIGNAL(back()), scene.second.get());
        scene.machine->start();
        QCOMPARE(scene.entered(), "inner");
        QCOMPARE(scene.after(&Actor::back), "second");
        QCOMPARE(scene.after(&Actor::back), ""); // its target is gone
        QCOMPARE(scene.afterGo(), "final");
    }

    void aMachineIsHaltedWhenItsStateIsTakenAway() {
        for (const bool withinItsEntry : {false, true}) {
            Scene scene;
            const auto takeAway = [&] { scene.machine->removeState(scene.second.get()); };
            scene.start();
            if (withinItsEntry)
                scene.actor->next = takeAway;
            QCOMPARE(scene.afterGo(), "second");
            if (!withinItsEntry)
                takeAway();
            QCOMPARE(scene.afterGo(), "");
            QCOMPARE(scene.after(&Actor::back), "");
            scene.start();
            QCOMPARE(scene.afterGo(), ""); // a target outside the machine
            scene.machine->addState(scene.second.get());
            QCOMPARE(scene.afterGo(), "second");
            QCOMPARE(scene.after(&Actor::back), "outer inner");
        }
    }

    void aSubStateTakenAwayByItsParentsEntryIsNotEntered() {
        Scene scene;
        scene.actor->next = [&] { scene.machine->removeState(scene.inner.get()); };
        scene.machine->start();
        QCOMPARE(scene.entered(), "outer");
        QCOMPARE(scene.afterGo(), "");
        scene.outer->setInitialState(scene.other.get());
        scene.machine->start();
        QCOMPARE(scene.entered(), "outer other");
        QCOMPARE(scene.afterGo(), "second");
    }

    void aMachineMayBelongToAnObject() {
        Scene scene;
        QObject owner;
        auto* const inOwner = new QObject(&owner);
        scene.machine = std::make_unique<QtStateMachine>(inOwner);
        scene.machine->addState(scene.outer.get());
        scene.machine->setInitialState(scene.outer.get());
        scene.machine->start();
        QCOMPARE(scene.entered(), "outer inner");
        delete inOwner;
        scene.machine->stop();
        scene.machine->start();
        scene.machine->removeState(scene.outer.get());
        scene.outer->removeTransition(scene.outerToSecond);
        scene.report(*scene.inner, "again");
        QVERIFY(!scene.outer->addTransition(scene.actor.get(), SIGNAL(back()), scene.second.get()));
        QCOMPARE(scene.afterGo(), "");
    }

    void aSenderMayDieBeforeItsTransitions() {
        Scene scene;
        auto sender = std::make_unique<Actor>();
        scene.outer->addTransition(sender.get(), SIGNAL(back()), scene.second.get());
        scene.inner->addTransition(sender.get(), SIGNAL(back()), scene.second.get());
        scene.start();
        scene.machine->removeState(scene.inner.get());
        sender.reset();
        QCOMPARE(scene.entered(), "");
    }

    void aSenderAtTheAddressOfAFormerOneIsHeard() {
        Scene scene;
        std::optional<Actor> sender(std::in_place);
        scene.outer->addTransition(&*sender, SIGNAL(back()), scene.second.get());
        scene.start();
        scene.outer.reset();
        sender.emplace();
        scene.inner->addTransition(&*sender, SIGNAL(back()), scene.second.get());
        scene.machine->addState(scene.inner.get());
        scene.machine->setInitialState(scene.inner.get());
        scene.machine->start();
        QCOMPARE(scene.entered(), "inner");
        emit sender->back();
        QCOMPARE(scene.entered(), "second");
    }
};

int main(int argc, char** argv) {
    const CatchingApplication application(argc, argv);
    StateMachineStandinTest test;
    return QTest::qExec(&test, argc, argv);
}

#include "StateMachineStandinTest.moc"
