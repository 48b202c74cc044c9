// In which order a module builds its state machine and takes it apart: what a platform's own state-machine library sees.
#include "module/VelModule.h"

#include <QTest>

namespace {

QStringList done;
int statesMade = 0;
int transitionsMade = 0;

} // namespace

// In the place of the state-machine library: writes down what it is asked for.
namespace automatonZeta {

class QtAbstractTransition {
public:
    const int number = ++transitionsMade;
};

struct QtAbstractState::Private {
    QString name;
};

QtAbstractState::QtAbstractState(std::unique_ptr<Private> data) : d(std::move(data)) {
    static const QStringList names{"CHECK", "INIT",       "DEPLOY",      "END_OF_INIT", "RUNNING",
                                   "RUN",   "PRE_LOADED", "PRE_STOPPED", "STOP",        "EXIT"};
    d = std::make_unique<Private>(Private{names.value(statesMade++)});
}

QtAbstractState::~QtAbstractState() {
    done << "delete " + d->name;
}

void QtActionState::invokeMethodOnEntry(QObject*, const char* method, const QList<QVariant>& args) {
    done << d->name + " enters " + method + (args.isEmpty() ? "" : " with arguments");
}

QtState::QtState(QtState* parent) : QtActionState(nullptr) {
    done << d->name + (parent ? " in " + parent->d->name : QString());
}

void QtState::setInitialState(QtAbstractState* state) {
    done << d->name + " begins with " + state->d->name;
}

QtAbstractTransition* QtState::addTransition(QObject*, const char* signal, QtAbstractState* target) {
    done << d->name + " " + QString(signal).mid(1).section('(', 0, 0) + " " + target->d->name;
    return new QtAbstractTransition;
}

void QtState::removeTransition(QtAbstractTransition* transition) {
    done << d->name + " without " + QString::number(transition->number);
    delete transition;
}

QtFinalState::QtFinalState(QtState*) : QtActionState(nullptr) {
    done << d->name + " final";
}

struct QtStateMachine::Private {};

QtStateMachine::QtStateMachine(QObject*) {}
QtStateMachine::~QtStateMachine() = default;

void QtStateMachine::addState(QtAbstractState* state) {
    done << "add " + state->d->name;
}

void QtStateMachine::removeState(QtAbstractState* state) {
    done << "remove " + state->d->name;
}

void QtStateMachine::setInitialState(QtAbstractState* state) {
    done << "machine begins with " + state->d->name;
}

void QtStateMachine::start() {
    done << "start";
}

void QtStateMachine::stop() {
    done << "stop";
}

} // namespace automatonZeta

class LifecycleOrderTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void machineIsBuiltAndTakenApartInOrder() {
        {
            VelModule module("Ordered");
            compare({"CHECK",
                     "INIT",
                     "DEPLOY",
                     "END_OF_INIT",
                     "RUNNING",
                     "RUN in RUNNING",
                     "PRE_LOADED in RUNNING",
                     "PRE_STOPPED in RUNNING",
                     "STOP",
                     "EXIT final", //
                     "CHECK enters slot_check",
                     "INIT enters slot_init",
                     "DEPLOY enters slot_deploy",
                     "END_OF_INIT enters slot_end_of_init",
                     "RUN enters slot_run",
                     "PRE_LOADED enters slot_presentation_loaded",
                     "PRE_STOPPED enters slot_presentation_stop",
                     "STOP enters slot_stop",
                     "EXIT enters slot_exit", //
                     "CHECK sig_check_ok INIT",
                     "CHECK sig_check_nok DEPLOY",
                     "DEPLOY sig_deploy_ok INIT",
                     "DEPLOY sig_deploy_nok EXIT",
                     "INIT sig_init_ok END_OF_INIT",
                     "INIT sig_init_nok EXIT",
                     "END_OF_INIT sig_eoi_sent RUNNING",
                     "RUNNING sig_stop STOP",
                     "STOP sig_stop_appli_done EXIT",
                     "RUNNING begins with RUN",
                     "RUN sig_presentation_loaded PRE_LOADED",
                     "PRE_LOADED sig_web_stop PRE_STOPPED",
                     "PRE_STOPPED sig_presentation_loaded PRE_LOADED", //
                     "add CHECK",
                     "add DEPLOY",
                     "add INIT",
                     "add END_OF_INIT",
                     "add RUNNING",
                     "add STOP",
                     "add EXIT",
                     "machine begins with CHECK",
                     "start"});
        }
        compare({"stop",
                 "CHECK without 1",
                 "CHECK without 2",
                 "remove CHECK",
                 "INIT without 5",
                 "INIT without 6",
                 "remove INIT",
                 "DEPLOY without 3",
                 "DEPLOY without 4",
                 "remove DEPLOY",
                 "END_OF_INIT without 7",
                 "remove END_OF_INIT",
                 "RUN without 10",
                 "remove RUN",
                 "PRE_STOPPED without 12",
                 "remove PRE_STOPPED",
                 "PRE_LOADED without 11",
                 "remove PRE_LOADED",
                 "STOP without 9",
                 "remove STOP",
                 "RUNNING without 8",
                 "remove RUNNING",
                 "remove EXIT", //
                 "delete RUNNING",
                 "delete RUN",
                 "delete END_OF_INIT",
                 "delete DEPLOY",
                 "delete INIT",
                 "delete CHECK",
                 "delete PRE_STOPPED",
                 "delete PRE_LOADED",
                 "delete STOP",
                 "delete EXIT"});
    }

private:
    static void compare(const QStringList& expected) { QCOMPARE(std::exchange(done, {}), expected); }
};

QTEST_GUILESS_MAIN(LifecycleOrderTest)
#include "LifecycleOrderTest.moc"
