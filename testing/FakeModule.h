// A module that answers what the test says.
#pragma once

#include "testing/Result.h"

#include <QVariant>

#include <functional>
#include <memory>

namespace vel::testing {

/// Thrown in a method of a FakeModule: the caller gets it as an error.
struct Failure {
    QString text;
    QString name = QStringLiteral("org.freedesktop.DBus.Error.Failed");
};

/// A module on the bus without a process of its own: to the module under test it is one like any other.
///
///     FakeModule tuner("Tuner");
///     tuner.answer("frequency", {98.5});
///     VEL_VERIFY(tuner.appear());
///
/// What it is asked shows in a Recorder, as the calls of every module do. A method without an answer gives the error
/// "org.freedesktop.DBus.Error.UnknownMethod". An answer can be replaced at any time.
///
/// Values:   those of Peer.
/// Thread:   its functions any. It answers from a thread of its own, so that a module in the test's process can call it
///           and wait: guard what a Method shares with the test.
class FakeModule {
public:
    /// Takes the values of a call and returns those of the answer. May throw a Failure.
    using Method = std::function<QVariantList(const QVariantList&)>;

    explicit FakeModule(const QString& name);

    /// Leaves the bus.
    ~FakeModule();

    void answer(const QString& method, const QVariantList& values);
    void answerBy(const QString& method, Method function);
    void fail(const QString& method, const Failure& why);

    /// Keeps the callers of the method waiting, until release(): slow, for as long as the test wants.
    void hold(const QString& method);

    /// Answers the calls that are held with the answer that the method has now: set that first.
    void release(const QString& method);

    /// Leaves the bus when the method is called, without an answer, as a module that crashes in it.
    void vanishIn(const QString& method);

    /// Takes the module's name on the bus.
    ///
    /// Result:   false when somebody else has it, or there is no bus.
    Result appear();

    /// Leaves the bus: the module is absent. When it returns, the bus has nobody of that name.
    void vanish();

    /// Publishes an event. When it returns, the bus has handed it to everybody who was subscribed.
    Result publish(const QString& event, const QVariantMap& arguments = {});

    const QString& name() const;

private:
    class Private;
    std::unique_ptr<Private> m;
};

} // namespace vel::testing
