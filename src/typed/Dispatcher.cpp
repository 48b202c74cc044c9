// Delivery of an event to its handlers.
#include "typed/Dispatcher.h"

#include "log/GuardedLog.h"
#include "module/VelModule.h"
#include "typed/Guard.h"
#include "typed/Record.h"
#include "typed/VelTypedEvents.h"

#include <QMetaMethod>
#include <QThread>

namespace vel {

Subscription::Subscription(QMetaObject::Connection connection, std::shared_ptr<std::atomic<bool>> ended)
    : m_connection(std::move(connection)), m_ended(std::move(ended)) {}

void Subscription::end() {
    if (!m_ended)
        return;
    m_ended->store(true); // for what is queued already
    QObject::disconnect(m_connection);
}

bool Subscription::isActive() const {
    return m_ended && !m_ended->load() && m_connection;
}

namespace typed {

namespace {

const char* const deliverSlot = SLOT(deliver(QDBusMessage));

// Findable among the module's children.
QString objectNameFor(const QString& eventName) {
    return QStringLiteral("vel::onEvent ") + eventName;
}

Subscription refused(const QString& eventName, const QString& reason) {
    logError([&] {
        return QStringLiteral("cannot subscribe to '%1': %2; its handler is never called").arg(eventName, reason);
    });
    return Subscription();
}

} // namespace

Dispatcher::Dispatcher(VelModule& module, QString eventName)
    : QObject(&module), m_module(module), m_eventName(std::move(eventName)) {
    setObjectName(objectNameFor(m_eventName));
}

Dispatcher* Dispatcher::of(VelModule& module, const QString& eventName) {
    if (auto* known = module.findChild<Dispatcher*>(objectNameFor(eventName), Qt::FindDirectChildrenOnly))
        return known;
    qRegisterMetaType<DeliveryPointer>();
    auto made = std::make_unique<Dispatcher>(module, eventName);
    return made->subscribe() ? made.release() : nullptr;
}

bool Dispatcher::subscribe() {
    return m_module.subscribeEvent(m_eventName, this, deliverSlot);
}

// Nobody tells when a context object dies, so the last handler is missed at the next event.
void Dispatcher::giveUp() {
    m_module.unsubscribeEvent(m_eventName, this, deliverSlot);
    setObjectName(QString()); // whoever subscribes from now on gets a new one
    deleteLater();
}

Subscription Dispatcher::add(QObject* context, Handler handler) {
    auto ended = std::make_shared<std::atomic<bool>>(false);
    const auto call = [ended, context, handler = std::move(handler)](const DeliveryPointer& delivery) {
        if (ended->load())
            return;
        callGuarded(context, [&] { handler(*delivery); });
    };
    return Subscription(connect(this, &Dispatcher::delivered, context, call), ended);
}

void Dispatcher::deliver(const QDBusMessage& signal) {
    static const QMetaMethod handlers = QMetaMethod::fromSignal(&Dispatcher::delivered);
    if (!isSignalConnected(handlers))
        return giveUp();
    Q_EMIT delivered(std::make_shared<Delivery>(signal));
}

Subscription subscribe(VelModule& module, const QString& eventName, QObject* context, const Form* form,
                       Handler handler) {
    if (QThread::currentThread() != module.thread())
        return refused(eventName, QStringLiteral("this is not the module's thread"));
    if (!context)
        return refused(eventName, QStringLiteral("there is no context object"));
    if (form && !form->record().problem().isEmpty())
        return refused(eventName, form->record().problem());
    Dispatcher* dispatcher = Dispatcher::of(module, eventName);
    if (!dispatcher)
        return Subscription(); // subscribeEvent() has said why
    return dispatcher->add(context, std::move(handler));
}

bool publish(const VelModule& module, const char* eventName, const Form& form, const void* gadget) {
    const QString name = QString::fromLatin1(eventName);
    const auto refuse = [&](const QString& reason) {
        logError([&] { return QStringLiteral("cannot publish '%1': %2; nothing is sent").arg(name, reason); });
        return false;
    };
    if (!form.record().problem().isEmpty())
        return refuse(form.record().problem());
    QVariantMap arguments;
    Mismatch mismatch;
    if (!form.record().write(gadget, arguments, mismatch))
        return refuse(mismatch.text());
    return module.notifyEvent(name, arguments);
}

} // namespace typed
} // namespace vel
