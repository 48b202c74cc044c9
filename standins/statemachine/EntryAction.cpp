// The slot invoked on entry into a state, and the net under it.
#include "EntryAction.h"

#include "Machine.h"

#include <QAbstractState>

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
    // An object of its own: the invoked object may be gone before the loop comes to it, and with it the exception.
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
    const auto action = [state, object, name = QByteArray(method), args] {
        // Qt completes a step that is under way when the machine is stopped; the actions do not.
        const auto* machine = static_cast<Machine*>(state->machine());
        if (machine && !machine->isHalted())
            invokeGuarded(object, name.constData(), args);
    };
    QObject::connect(state, &QAbstractState::entered, object, action, Qt::DirectConnection);
}

} // namespace automatonZeta
