// What the supervisor sends by itself: events, and questions to the bus daemon. Neither waits for anybody.
#pragma once

#include <QString>
#include <QVariantMap>

#include <functional>

class QObject;

/// Publishes an event as the module ApplicationManager does; with a receiver, a unique name on the bus, to that one alone.
void publish(const QString& event, const QVariantMap& arguments = {}, const QString& receiver = QString());

/// Asks the bus daemon something about a name, such as "GetNameOwner". `take` gets the answer from the event loop, an
/// invalid value for an error; not after `context` is gone.
void askBus(const QString& method, const QString& name, QObject* context, std::function<void(const QVariant&)> take);

/// What a question to an event loop came to.
enum class Answer {
    FromTheLoop,   ///< it has answered
    FromTheModule, ///< with an error, which may come from another thread than the loop's
    None           ///< the bus has answered instead: there is nobody, or it could not be asked
};

/// Asks whoever has `service` for something that its event loop answers. There is no time limit.
void askEventLoop(const QString& service, const QString& path, QObject* context, std::function<void(Answer)> take);
