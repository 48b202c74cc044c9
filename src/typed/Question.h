// A call on its way, without the types that only its template knows.
#pragma once

#include "platform/VelExport.h"
#include "typed/Form.h"

#include <QDBusMessage>
#include <QList>
#include <QVariant>

#include <functional>
#include <type_traits>

class VelModule;

namespace vel::typed {

class PendingAnswer;

struct Question {
    QString module;
    QString method;
    int milliseconds; ///< how long to wait; -1: the bus library's own limit
    QList<QVariant> arguments{};
    QString problem{}; ///< of an argument that cannot be sent
};

/// Where a value of the answer goes.
struct Place {
    int type;
    void* value;
};

VEL_EXPORT void addArgument(Question& question, int type, const void* value);

/// Sends it and waits.
VEL_EXPORT QDBusMessage answerTo(VelModule& module, const Question& question);

/// Takes the answer's values; throws a CallError when it is an error, or has not these values.
VEL_EXPORT void readAnswer(const Question& question, const QDBusMessage& answer, const QList<Place>& places);

/// Sends it.
VEL_EXPORT PendingAnswer* send(VelModule& module, const Question& question);

/// Calls `continuation` in the context's thread when the answer, or an error, is there.
VEL_EXPORT void whenAnswered(PendingAnswer* pending, QObject* context,
                             std::function<void(const QDBusMessage&)> continuation);

/// For a failure that nobody waits for.
class FailureLog {
public:
    VEL_EXPORT void operator()(const std::exception& error) const;
};

template <typename T>
void addArgument(Question& question, const T& value) {
    if constexpr (std::is_convertible_v<const T&, QString> && !std::is_same_v<T, QString>) {
        const QString text = value; // a literal
        addArgument(question, QMetaType::QString, &text);
    } else {
        static_assert(QMetaTypeId2<T>::Defined,
                      "vel: an argument of a call has a type that Qt knows, Q_ENUM, Q_GADGET or Q_DECLARE_METATYPE");
        if constexpr (QMetaTypeId2<T>::Defined) {
            registerFieldTypesOf<T>();
            addArgument(question, qMetaTypeId<T>(), &value);
        }
    }
}

template <typename... Arguments>
Question questionOf(const QString& module, const QString& method, int milliseconds, const Arguments&... arguments) {
    Question question{module, method, milliseconds};
    (addArgument(question, arguments), ...);
    return question;
}

/// The values of an answer: none, one, or those of a tuple.
template <typename R>
struct Answer {
    static_assert(
        QMetaTypeId2<R>::Defined && std::is_default_constructible_v<R>,
        "vel: an answer is void, a std::tuple, or a type that Qt knows, Q_ENUM, Q_GADGET or Q_DECLARE_METATYPE");
    static QList<int> types() {
        registerFieldTypesOf<R>();
        return {qMetaTypeId<R>()};
    }
    static R read(const Question& question, const QDBusMessage& answer) {
        R value{};
        if constexpr (QMetaTypeId2<R>::Defined) {
            registerFieldTypesOf<R>();
            readAnswer(question, answer, {{qMetaTypeId<R>(), &value}});
        }
        return value;
    }
    template <typename Done>
    static void hand(Done& done, R value) {
        done(std::move(value));
    }
    template <typename Done>
    static constexpr bool isTakenBy = std::is_invocable_v<Done&, R>;
};

template <>
struct Answer<void> {
    static QList<int> types() { return {}; }
    static void read(const Question& question, const QDBusMessage& answer) { readAnswer(question, answer, {}); }
    template <typename Done>
    static constexpr bool isTakenBy = std::is_invocable_v<Done&>;
};

template <typename... Values>
struct Answer<std::tuple<Values...>> {
    static_assert(
        (QMetaTypeId2<Values>::Defined && ...),
        "vel: an answer is void, a std::tuple, or a type that Qt knows, Q_ENUM, Q_GADGET or Q_DECLARE_METATYPE");
    static QList<int> types() {
        (registerFieldTypesOf<Values>(), ...);
        return {qMetaTypeId<Values>()...};
    }
    static std::tuple<Values...> read(const Question& question, const QDBusMessage& answer) {
        std::tuple<Values...> all{};
        (registerFieldTypesOf<Values>(), ...);
        std::apply(
            [&](Values&... values) {
                readAnswer(question, answer, {{qMetaTypeId<Values>(), &values}...});
            },
            all);
        return all;
    }
    template <typename Done>
    static void hand(Done& done, std::tuple<Values...> values) {
        std::apply(done, std::move(values));
    }
    template <typename Done>
    static constexpr bool isTakenBy = std::is_invocable_v<Done&, Values...>;
};

template <typename R>
R callAndWait(VelModule& module, const Question& question) {
    return Answer<R>::read(question, answerTo(module, question));
}

} // namespace vel::typed
