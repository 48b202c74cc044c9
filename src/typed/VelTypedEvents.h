// Events whose handlers and fields the compiler knows.
#pragma once

#include "module/VelModule.h"
#include "typed/Catalogue.h"
#include "typed/Form.h"
#include "typed/Handlers.h"
#include "typed/VelSubscription.h"

namespace vel {

namespace typed {

VEL_EXPORT Subscription subscribe(VelModule& module, const QString& eventName, QObject* context, const Form* form,
                                  Handler handler);
VEL_EXPORT bool publish(const VelModule& module, const char* eventName, const Form& form, const void* gadget);

template <typename Context, typename Callable>
constexpr bool isHandler() {
    static_assert(std::is_base_of_v<QObject, Context>,
                  "vel::onEvent: the context is a pointer to a QObject; its death ends the subscription");
    static_assert(belongsTo<Context, Callable>, "vel::onEvent: the member function is not one of the context's class");
    static_assert(
        !std::is_same_v<TakenBy<Callable>, Wrong>,
        "vel::onEvent: a handler takes nothing, a VelEvent or a struct with Q_GADGET, by value or const reference");
    return std::is_base_of_v<QObject, Context> && belongsTo<Context, Callable> &&
           !std::is_same_v<TakenBy<Callable>, Wrong>;
}

} // namespace typed

/// Calls `handler` with every event of that name, from any module, until the subscription is ended or `context` or the
/// module is destroyed. The empty name means every event.
///
///     vel::onEvent(*this, "daylight_changed", this, &Dimmer::daylightChanged);
///     vel::onEvent(*this, "volume_changed", this, [this](const VelEvent& event) { ... });
///
/// `handler` is a member function of the context's class or a callable. It takes nothing, a VelEvent, or a struct with
/// Q_GADGET (see the other overload), by value or const reference. Neither class needs Q_OBJECT.
///
/// All handlers of a name in a process share one subscription and one reading of each event; they are called in the order
/// in which they subscribed. What one throws is logged like anything that reaches VelApplication, and the next one is
/// called. Handlers may subscribe and end subscriptions, their own too.
///
/// Thread:   called on the module's. The handler runs on the context's.
/// Result:   the subscription; not active when it could not be made: a wrong name, no bus, a null context. An error line
///           says which.
/// Errors:   a signal that is no event, or not the struct that the handler takes, is one error line, and the handler is not
///           called.
template <typename Context, typename Callable>
Subscription onEvent(VelModule& module, const QString& eventName, Context* context, Callable handler) {
    if constexpr (typed::isHandler<Context, Callable>()) {
        typed::keep(&typed::NamesAtRunTime<>::heard);
        const typed::Form* form = typed::formTaken<typed::TakenBy<Callable>>();
        return typed::subscribe(module, eventName, context, form, typed::handlerOf(context, std::move(handler)));
    }
    return Subscription();
}

/// Calls `handler` with every event of the struct's name, as that struct. An event is a struct with Q_GADGET that names
/// itself; its fields are its properties:
///
///     struct BrightnessChanged {
///         Q_GADGET
///         Q_PROPERTY(int percent MEMBER percent)
///         Q_PROPERTY(int before MEMBER before)
///     public:
///         static constexpr auto eventName = "brightness_changed";
///         int percent = 0;
///         int before = 0;
///     };
///
///     vel::onEvent<BrightnessChanged>(*this, this, [this](const BrightnessChanged& event) { ... });
///
/// The handler takes nothing or the struct. It is called when each field is there and its value converts without loss;
/// arguments that are no fields are ignored. docs/typed.md has the table of the types. Otherwise as above.
template <typename Event, typename Context, typename Callable>
Subscription onEvent(VelModule& module, Context* context, Callable handler) {
    constexpr const char* name = typed::eventNameOf<Event>();
    if constexpr (typed::isHandler<Context, Callable>()) {
        using Taken = typed::TakenBy<Callable>;
        static_assert(std::is_same_v<Taken, Event> || std::is_same_v<Taken, typed::Nothing>,
                      "vel::onEvent<Event>: the handler takes nothing or the event");
        if constexpr (typed::HasEventName<Event>::value) {
            typed::keep(&typed::EventEntry<Event>::heard);
            return typed::subscribe(module, QString::fromLatin1(name), context, &typed::formOf<Event>(),
                                    typed::handlerOf(context, std::move(handler)));
        }
    }
    return Subscription();
}

/// Publishes a struct as the event that it names. On the bus it is what VelModule::notifyEvent() sends with the fields as
/// arguments.
///
///     vel::publish(*this, BrightnessChanged{40, 80});
///
/// Thread:   any.
/// Result:   that of notifyEvent(). Also false, after an error line, when a field's value has no form on the bus: an
///           enumeration's value without a key, an empty QVariant, a type that is not known.
template <typename Event>
bool publish(const VelModule& module, const Event& event) {
    constexpr const char* name = typed::eventNameOf<Event>();
    if constexpr (typed::HasEventName<Event>::value) {
        typed::keep(&typed::EventEntry<Event>::published);
        return typed::publish(module, name, typed::formOf<Event>(), &event);
    }
    return false;
}

} // namespace vel
