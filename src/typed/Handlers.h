// What a handler takes, found out by the compiler.
#pragma once

#include "events/VelEvent.h"
#include "typed/Delivery.h"
#include "typed/Form.h"

#include <functional>
#include <type_traits>

namespace vel::typed {

using Handler = std::function<void(const Delivery&)>;

template <typename...>
struct Parameters {};

/// The parameters of a function, a member function or a callable; void when they are a template's.
template <typename F, typename = void>
struct ParametersOf {
    using Type = void;
};
template <typename F>
struct ParametersOf<F, std::void_t<decltype(&F::operator())>> : ParametersOf<decltype(&F::operator())> {};

#define VEL_PARAMETERS_OF(...)                                                                                         \
    template <typename R, typename... A>                                                                               \
    struct ParametersOf<R (*)(A...) __VA_ARGS__> {                                                                     \
        using Type = Parameters<A...>;                                                                                 \
    };
VEL_PARAMETERS_OF()
VEL_PARAMETERS_OF(noexcept)
#undef VEL_PARAMETERS_OF
#define VEL_PARAMETERS_OF(...)                                                                                         \
    template <typename R, typename C, typename... A>                                                                   \
    struct ParametersOf<R (C::*)(A...) __VA_ARGS__> {                                                                  \
        using Type = Parameters<A...>;                                                                                 \
    };
VEL_PARAMETERS_OF()
VEL_PARAMETERS_OF(const)
VEL_PARAMETERS_OF(noexcept)
VEL_PARAMETERS_OF(const noexcept)
#undef VEL_PARAMETERS_OF

struct Nothing {};
struct Wrong {};

template <typename A>
using Bare = std::remove_cv_t<std::remove_reference_t<A>>;

/// By value or by const reference: others share the event.
template <typename A>
constexpr bool leavesItAsItIs =
    !std::is_reference_v<A> || (std::is_lvalue_reference_v<A> && std::is_const_v<std::remove_reference_t<A>>);

template <typename A>
constexpr bool isTakeable = leavesItAsItIs<A> && (std::is_same_v<Bare<A>, VelEvent> || IsGadget<Bare<A>>::value);

/// What a handler is called with: Nothing, VelEvent or a struct; Wrong for anything else.
template <typename Handler, typename Signature = typename ParametersOf<Handler>::Type>
struct Taken {
    using Type = Wrong;
};
template <typename Handler>
struct Taken<Handler, Parameters<>> {
    using Type = Nothing;
};
template <typename Handler, typename A>
struct Taken<Handler, Parameters<A>> {
    using Type = std::conditional_t<isTakeable<A>, Bare<A>, Wrong>;
};
template <typename Handler> // a template's: what fits
struct Taken<Handler, void> {
    using Type = std::conditional_t<std::is_invocable_v<Handler&, const VelEvent&>, VelEvent,
                                    std::conditional_t<std::is_invocable_v<Handler&>, Nothing, Wrong>>;
};

template <typename Callable>
using TakenBy = typename Taken<Callable>::Type;

template <typename Member>
struct ClassOf {
    using Type = void;
};
template <typename Member, typename Class>
struct ClassOf<Member Class::*> {
    using Type = Class;
};

/// Whether the handler can be called with that context object at all.
template <typename Context, typename Callable>
constexpr bool belongsTo =
    !std::is_member_function_pointer_v<Callable> || std::is_base_of_v<typename ClassOf<Callable>::Type, Context>;

/// Null for a handler that takes no struct.
template <typename TakenType>
const Form* formTaken() {
    if constexpr (IsGadget<TakenType>::value)
        return &formOf<TakenType>();
    else
        return nullptr;
}

/// The callable, as it is kept: called with what it takes, and not called when the event is no such thing.
template <typename Context, typename Callable>
Handler handlerOf(Context* context, Callable handler) {
    using Takes = TakenBy<Callable>;
    // Shared, so that it need not be copyable.
    return [context, kept = std::make_shared<Callable>(std::move(handler))](const Delivery& delivery) {
        Q_UNUSED(context)
        Callable& callable = *kept;
        const auto call = [&](const auto&... arguments) {
            if constexpr (std::is_member_function_pointer_v<Callable>)
                (context->*callable)(arguments...);
            else
                callable(arguments...);
        };
        if constexpr (std::is_same_v<Takes, Nothing>) {
            Q_UNUSED(delivery)
            call();
        } else if constexpr (std::is_same_v<Takes, VelEvent>) {
            if (const VelEvent* event = delivery.event())
                call(*event);
        } else {
            if (const void* gadget = delivery.as(formOf<Takes>()))
                call(*static_cast<const Takes*>(gadget));
        }
    };
}

} // namespace vel::typed
