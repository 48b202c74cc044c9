// Calls without a proxy.
//
// A proxy asks the other module for its description while it is built, which a frozen one does not answer for 25 seconds.
// A typed call knows its method and its types, and needs none: it is one message, whose time limit is all there is to wait
// for.
#include "typed/VelTypedCalls.h"

#include "bus/BusNames.h"
#include "errors/VelException.h"
#include "events/Marshallable.h"
#include "log/GuardedLog.h"
#include "typed/Guard.h"
#include "typed/PendingAnswer.h"
#include "typed/Values.h"

#include <QDBusConnectionInterface>
#include <QDBusError>
#include <QThread>

namespace vel {

CallError::CallError(const QString& module, const QString& method, const QString& name, const QString& text)
    : m_name(name), m_text(text),
      m_what(QStringLiteral("cannot call '%1.%2': %3 (%4)").arg(module, method, text, name).toUtf8()) {}

CallError::~CallError() = default;

namespace typed {

namespace {

const auto invalidArguments = QStringLiteral("org.freedesktop.DBus.Error.InvalidArgs");
const auto failed = QStringLiteral("org.freedesktop.DBus.Error.Failed");

CallError errorOf(const Question& question, const QString& name, const QString& text) {
    return CallError(question.module, question.method, name, text);
}

// Some of this Qt would not notice before libdbus ends the process.
QString reasonNotToSend(const Question& question) {
    if (!bus::isReachable(question.module))
        return QStringLiteral("no module can have this name");
    if (!bus::isValidMemberName(question.method))
        return QStringLiteral("no method can have this name");
    if (!question.problem.isEmpty())
        return question.problem;
    return isMarshallable(question.arguments) ? QString() : findMisfit(question.arguments).reason;
}

// The message, or the error that it is instead.
QDBusMessage messageOf(const Question& question) {
    if (const QString reason = reasonNotToSend(question); !reason.isEmpty())
        return QDBusMessage::createError(invalidArguments, reason);
    QDBusMessage message = QDBusMessage::createMethodCall(
        bus::serviceName(question.module), bus::objectPath(question.module), bus::commonInterface(), question.method);
    message.setArguments(question.arguments);
    return message;
}

// Qt delivers a call to a name of this very process inside the call itself: the slot's exceptions come out here.
template <typename Send>
QDBusMessage sentAsIfRemote(Send&& send) {
    try {
        return send();
    } catch (VelException* thrown) {
        const std::unique_ptr<VelException> exception(thrown);
        return QDBusMessage::createError(failed, exception->m_message);
    }
}

bool isTooLate(const QDBusMessage& answer) {
    const QDBusError::ErrorType type = QDBusError(answer).type();
    return type == QDBusError::NoReply || type == QDBusError::Timeout || type == QDBusError::TimedOut;
}

// Whether the module that was called is waiting for this one, as far as it can be seen: a call from its connection is being
// handled here, and has no answer yet.
bool isInACallFrom(VelModule& module, const QString& moduleName) {
    auto* context = static_cast<QDBusContext*>(module.qt_metacast("QDBusContext"));
    return context->calledFromDBus() && context->message().isReplyRequired() &&
           context->message().service() ==
               context->connection().interface()->serviceOwner(bus::serviceName(moduleName)).value();
}

} // namespace

void addArgument(Question& question, int type, const void* value) {
    QVariant sent;
    Mismatch mismatch;
    if (!toBus(typeOf(type), value, sent, mismatch) || !sent.isValid())
        question.problem = QStringLiteral("argument %1 cannot be sent: %2")
                               .arg(question.arguments.size() + 1)
                               .arg(mismatch.came.isEmpty() ? QStringLiteral("it has no value") : mismatch.text());
    question.arguments << sent;
}

QDBusMessage answerTo(VelModule& module, const Question& question) {
    const QDBusMessage message = messageOf(question);
    if (message.type() == QDBusMessage::ErrorMessage)
        return message;
    const bool isModulesThread = QThread::currentThread() == module.thread();
    std::optional<DBusContextKeeper> keeper;
    if (isModulesThread)
        keeper.emplace(&module);
    const QDBusMessage answer = sentAsIfRemote(
        [&] { return QDBusConnection::sessionBus().call(message, QDBus::Block, question.milliseconds); });
    if (isModulesThread && isTooLate(answer) && isInACallFrom(module, question.module))
        return QDBusMessage::createError(
            answer.errorName(),
            QStringLiteral("'%1' does not answer, and is in a call to this module itself: when it waits for that one, "
                           "neither can go on; ask without waiting")
                .arg(question.module));
    return answer;
}

void readAnswer(const Question& question, const QDBusMessage& answer, const QList<Place>& places) {
    static const auto wrongAnswer = QStringLiteral("org.freedesktop.DBus.Error.InvalidSignature");
    if (answer.type() != QDBusMessage::ReplyMessage)
        throw errorOf(question, answer.errorName(), answer.errorMessage());
    if (places.isEmpty())
        return;
    const QList<QVariant> values = answer.arguments();
    if (values.size() != places.size())
        throw errorOf(question, wrongAnswer,
                      QStringLiteral("the answer has %1 values, wanted %2").arg(values.size()).arg(places.size()));
    for (int index = 0; index < places.size(); ++index) {
        Mismatch mismatch;
        const Place& place = places.at(index);
        if (!fromBus(typeOf(place.type), values.at(index), place.value, mismatch))
            throw errorOf(question, wrongAnswer,
                          QStringLiteral("value %1 of the answer: %2").arg(index + 1).arg(mismatch.text()));
    }
}

PendingAnswer::PendingAnswer(VelModule& module) : QObject(&module) {}

void PendingAnswer::send(const QDBusMessage& message, int milliseconds) {
    const auto takeLater = [this](const QDBusMessage& answer) {
        QMetaObject::invokeMethod(
            this, [this, answer] { take(answer); }, Qt::QueuedConnection);
    };
    if (message.type() == QDBusMessage::ErrorMessage)
        return takeLater(message);
    const QDBusConnection bus = QDBusConnection::sessionBus();
    const QDBusMessage thrown = sentAsIfRemote([&] {
        const bool isSent = bus.callWithCallback(message, this, SLOT(take(QDBusMessage)),
                                                 SLOT(takeError(QDBusError, QDBusMessage)), milliseconds);
        return isSent ? QDBusMessage() : QDBusMessage::createError(bus.lastError());
    });
    if (thrown.type() == QDBusMessage::ErrorMessage)
        takeLater(thrown);
}

void PendingAnswer::take(const QDBusMessage& answer) {
    deleteLater();
    Q_EMIT arrived(answer);
}

void PendingAnswer::takeError(const QDBusError& error, const QDBusMessage& /*sent*/) {
    take(QDBusMessage::createError(error));
}

PendingAnswer* send(VelModule& module, const Question& question) {
    if (QThread::currentThread() != module.thread())
        throw errorOf(question, failed, QStringLiteral("this is not the module's thread"));
    const DBusContextKeeper keeper(&module);
    auto* pending = new PendingAnswer(module);
    pending->send(messageOf(question), question.milliseconds);
    return pending;
}

void whenAnswered(PendingAnswer* pending, QObject* context, std::function<void(const QDBusMessage&)> continuation) {
    QObject::connect(pending, &PendingAnswer::arrived, context,
                     [context, continuation = std::move(continuation)](const QDBusMessage& answer) {
                         callGuarded(context, [&] { continuation(answer); });
                     });
}

void FailureLog::operator()(const std::exception& error) const {
    logError([&] { return QString::fromUtf8(error.what()); });
}

} // namespace typed
} // namespace vel
