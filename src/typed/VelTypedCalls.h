// Calls to other modules whose answers have types.
#pragma once

#include "module/VelModule.h"
#include "typed/Catalogue.h"
#include "typed/Question.h"
#include "typed/VelCallError.h"

#include <QObject>

#include <chrono>
#include <limits>
#include <memory>
#include <tuple>
#include <utility>

namespace vel {

/// How long a call may take; made by within().
struct TimeLimit {
    int milliseconds = -1; ///< the bus library's own limit, 25 s
};

/// A time limit: vel::within(2s). Of less than a millisecond it is one; of more than 24 days there is none.
template <typename Rep, typename Period>
constexpr TimeLimit within(std::chrono::duration<Rep, Period> duration) {
    const auto milliseconds = std::chrono::duration_cast<std::chrono::milliseconds>(duration).count();
    if (milliseconds > std::numeric_limits<int>::max())
        return {std::numeric_limits<int>::max()};
    return {milliseconds < 1 ? 1 : int(milliseconds)};
}

/// Calls a method of another module's common interface and waits for its answer. The event loop does not run meanwhile.
///
///     const int strength = vel::call<int>(*this, "Tuner", "strength");
///     const QString name = vel::call<QString>(*this, vel::within(2s), "Tuner", "tune", 2);
///     vel::call<void>(*this, "Dimmer", "setBrightness", 40);
///     const auto [low, high] = vel::call<std::tuple<int, int>>(*this, "Tuner", "range");
///
/// Arguments and answers are converted like the fields of an event; a struct with Q_GADGET is a{sv}. The call is one message:
/// no proxy is made, and nothing but the answer is waited for, so that the limit holds for a module that is frozen too.
///
/// Thread:   any.
/// Result:   the answer; of a std::tuple all its values; of void nothing, whatever the answer has.
/// Errors:   throws a vel::CallError: the module's error, no such module or method, no answer in time, an answer of other
///           values, or what cannot be sent. When it is too late, and the called module is itself in a call to this one,
///           which it may be waiting for, the text says so.
template <typename R, typename... Arguments>
R call(VelModule& module, TimeLimit limit, const QString& moduleName, const QString& methodName,
       const Arguments&... arguments) {
    typed::keep(&typed::NamesAtRunTime<>::called);
    return typed::callAndWait<R>(module, typed::questionOf(moduleName, methodName, limit.milliseconds, arguments...));
}

/// The same with the bus library's own limit, 25 s.
template <typename R, typename... Arguments>
R call(VelModule& module, const QString& moduleName, const QString& methodName, const Arguments&... arguments) {
    return call<R>(module, TimeLimit(), moduleName, methodName, arguments...);
}

/// A method of another module, declared once: its arguments are then checked by the compiler at each call, and it is part of
/// what the program prints when it is started with --describe.
///
///     inline const vel::Method<QString(int)> tune{"Tuner", "tune"};
///     const QString name = vel::call(*this, tune, 2);
template <typename Signature>
class Method;

/// The method of a signature: R is its answer, Parameters are its arguments.
template <typename R, typename... Parameters>
class Method<R(Parameters...)> {
public:
    /// Both texts must live as long as the process, and so must the object: declare it in a namespace.
    Method(const char* moduleName, const char* methodName)
        : m_module(moduleName), m_method(methodName), m_entry("calls", &describe, this) {}

    QString module() const { return QString::fromUtf8(m_module); } ///< The name of the called module.
    QString method() const { return QString::fromUtf8(m_method); } ///< The name of the method.

    /// Whether it can be called with arguments of those types.
    template <typename... Arguments>
    static constexpr bool takes() {
        if constexpr (sizeof...(Arguments) == sizeof...(Parameters))
            return (std::is_convertible_v<Arguments, Parameters> && ...);
        return false;
    }

    /// Hands the arguments on as what the method takes.
    template <typename Call, typename... Arguments>
    static auto converted(Call&& call, Arguments&&... arguments) {
        return [&call](const Parameters&... exact) { return call(exact...); }(std::forward<Arguments>(arguments)...);
    }

private:
    static QJsonObject describe(const void* what) {
        const auto& self = *static_cast<const Method*>(what);
        (typed::registerFieldTypesOf<Parameters>(), ...);
        return typed::describedCall(self.module(), self.method(), {qMetaTypeId<Parameters>()...},
                                    typed::Answer<R>::types());
    }

    const char* m_module;
    const char* m_method;
    const typed::CatalogueEntry m_entry;
};

/// Calls it and waits, as above.
template <typename R, typename... Parameters, typename... Arguments>
R call(VelModule& module, TimeLimit limit, const Method<R(Parameters...)>& method, Arguments&&... arguments) {
    constexpr bool fits = Method<R(Parameters...)>::template takes<Arguments...>();
    static_assert(fits, "vel::call: the method takes other arguments");
    if constexpr (fits)
        return method.converted(
            [&](const auto&... exact) {
                return typed::callAndWait<R>(
                    module, typed::questionOf(method.module(), method.method(), limit.milliseconds, exact...));
            },
            std::forward<Arguments>(arguments)...);
}

/// The same with the bus library's own limit, 25 s.
template <typename R, typename... Parameters, typename... Arguments>
R call(VelModule& module, const Method<R(Parameters...)>& method, Arguments&&... arguments) {
    return call(module, TimeLimit(), method, std::forward<Arguments>(arguments)...);
}

/// A call that was sent, to be continued at once; see ask().
template <typename R>
class Pending {
public:
    /// Sends the question; ask() makes it.
    Pending(VelModule& module, typed::Question question)
        : m_question(std::move(question)), m_pending(typed::send(module, m_question)) {}

    /// Continues with `done(answer)` (of a std::tuple each value is an argument, of void there is none), or with
    /// `failed(const vel::CallError&)`: one of the two, once, from the event loop. Neither when `context` or the module is
    /// destroyed before. Without `failed` a failure is an error line.
    ///
    /// Thread:   both run on the context's.
    template <typename Done, typename Failed = typed::FailureLog>
    void then(QObject* context, Done done, Failed failed = Failed()) && {
        static_assert(typed::Answer<R>::template isTakenBy<Done>,
                      "vel::ask: the first continuation takes the answer; each value of a tuple, and nothing for void");
        static_assert(std::is_invocable_v<Failed&, const CallError&>,
                      "vel::ask: the second continuation takes a const vel::CallError&");
        if constexpr (typed::Answer<R>::template isTakenBy<Done> && std::is_invocable_v<Failed&, const CallError&>)
            typed::whenAnswered(m_pending, context, continuation(std::move(done), std::move(failed)));
    }

private:
    template <typename Done, typename Failed>
    auto continuation(Done done, Failed failed) {
        return [question = m_question, both = std::make_shared<std::pair<Done, Failed>>(
                                           std::move(done), std::move(failed))](const QDBusMessage& answer) {
            std::optional<CallError> error; // what a continuation throws is not the call's
            if constexpr (std::is_void_v<R>) {
                try {
                    typed::Answer<R>::read(question, answer);
                } catch (const CallError& caught) {
                    error = caught;
                }
                if (!error)
                    return both->first();
            } else {
                std::optional<R> value;
                try {
                    value = typed::Answer<R>::read(question, answer);
                } catch (const CallError& caught) {
                    error = caught;
                }
                if (value)
                    return typed::Answer<R>::hand(both->first, std::move(*value));
            }
            both->second(*error);
        };
    }

    typed::Question m_question;
    typed::PendingAnswer* m_pending;
    Q_DISABLE_COPY(Pending)
};

/// Calls a method of another module without waiting, and goes on with the answer later.
///
///     vel::ask<int>(*this, vel::within(2s), "Tuner", "strength")
///         .then(this, [this](int strength) { ... }, [this](const vel::CallError& error) { ... });
///
/// Thread:   the module's.
/// Errors:   all are the second continuation's. Only on another thread it throws a vel::CallError, and nothing is sent.
template <typename R, typename... Arguments>
Pending<R> ask(VelModule& module, TimeLimit limit, const QString& moduleName, const QString& methodName,
               const Arguments&... arguments) {
    typed::keep(&typed::NamesAtRunTime<>::called);
    return Pending<R>(module, typed::questionOf(moduleName, methodName, limit.milliseconds, arguments...));
}

/// Asks a declared method.
template <typename R, typename... Parameters, typename... Arguments>
Pending<R> ask(VelModule& module, TimeLimit limit, const Method<R(Parameters...)>& method, Arguments&&... arguments) {
    constexpr bool fits = Method<R(Parameters...)>::template takes<Arguments...>();
    static_assert(fits, "vel::ask: the method takes other arguments");
    if constexpr (fits)
        return method.converted(
            [&](const auto&... exact) {
                return Pending<R>(module,
                                  typed::questionOf(method.module(), method.method(), limit.milliseconds, exact...));
            },
            std::forward<Arguments>(arguments)...);
}

/// The same with the bus library's own limit, 25 s.
template <typename R, typename... Parameters, typename... Arguments>
Pending<R> ask(VelModule& module, const Method<R(Parameters...)>& method, Arguments&&... arguments) {
    return ask(module, TimeLimit(), method, std::forward<Arguments>(arguments)...);
}

/// The same with the bus library's own limit, 25 s.
template <typename R, typename... Arguments>
Pending<R> ask(VelModule& module, const QString& moduleName, const QString& methodName, const Arguments&... arguments) {
    return ask<R>(module, TimeLimit(), moduleName, methodName, arguments...);
}

} // namespace vel
