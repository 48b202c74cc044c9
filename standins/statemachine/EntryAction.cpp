// The slot invoked on entry into a state, and the net under it.
#include "EntryAction.h"

#include "Machine.h"

#include <QAbstractState>
#include <QPointer>

#include <array>
#include <cxxabi.h>
#include <exception>

namespace automatonZeta {
namespace {

constexpr int maxArguments = 10; // what QMetaObject::invokeMethod() takes

void invoke(QObject* object, const char* method, const QList<QVariant>& args) {
    std::array<QGenericArgument, maxArguments> a;
    for (int i = 0; i < args.size(); ++i)
        a[static_cast<std::size_t>(i)] = QGenericArgument(args[i].typeName(), args[i].constData());
    QMetaObject::invokeMethod(object, method, Qt::DirectConnection, a[0], a[1], a[2], a[3], a[4], a[5], a[6], a[7],
                              a[8], a[9]);
}

void rethrowFromEventLoop(const std::exception_ptr& exception) {
    // An object of its own: the state, the machine or the invoked object may be gone before the loop comes to it, and
    // with them the exception.
    auto* const carrier = new QObject;
    QMetaObject::invokeMethod(
        carrier,
        [carrier, exception] {
            carrier->deleteLater();
            std::rethrow_exception(exception);
        },
        Qt::QueuedConnection);
}

void invokeGuarded(QObject* object, const char* method, const QList<QVariant>& args) {
    try {
        invoke(object, method, args);
    } catch (const abi::__forced_unwind&) {
        throw;
    } catch (...) {
        rethrowFromEventLoop(std::current_exception());
    }
}

} // namespace

void addEntryAction(QAbstractState* state, QObject* object, const char* method, const QList<QVariant>& args) {
    if (args.size() > maxArguments) {
        qWarning("cannot add entry action '%s': it has more than %d arguments; the state is entered without it", method,
                 maxArguments);
        return;
    }
    const auto action = [state, guarded = QPointer<QObject>(object), name = QByteArray(method), args] {
        auto* const machine = static_cast<Machine*>(state->machine());
        // Qt completes a step that is under way when the machine is halted or a state taken out; the actions do not.
        if (!machine || !machine->isOn() || !guarded)
            return;
        const Machine::Entering entering(*machine);
        invokeGuarded(guarded, name.constData(), args);
        if (state->machine() != machine)
            machine->halt(); // the action has taken the state out that the machine is now in
    };
    QObject::connect(state, &QAbstractState::entered, state, action, Qt::DirectConnection);
}

void removeEntryActions(QAbstractState* state) {
    QObject::disconnect(state, &QAbstractState::entered, nullptr, nullptr);
}

} // namespace automatonZeta
