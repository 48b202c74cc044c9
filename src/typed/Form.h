// A struct with Q_GADGET, as the typed layer sees it: its fields, and its name when it is an event.
#pragma once

#include "platform/VelExport.h"
#include "typed/VelFieldTypes.h"

#include <QMetaObject>

#include <memory>
#include <type_traits>

namespace vel::typed {

class Record;

/// Whether T is a struct with Q_GADGET of its own.
template <typename T, typename = void>
struct IsGadget : std::false_type {};
template <typename T>
struct IsGadget<T, std::void_t<typename T::QtGadgetHelper, decltype(T::staticMetaObject)>>
    : std::bool_constant<!std::is_base_of_v<QObject, T>> {};

/// Whether T says what its event is called.
template <typename T, typename = void>
struct HasEventName : std::false_type {};
template <typename T>
struct HasEventName<T, std::void_t<decltype(T::eventName)>> : std::true_type {};

/// Whether a text can be an event's name: the rule for members of D-Bus messages.
constexpr bool canBeEventName(const char* name) {
    constexpr int longestName = 255;
    int length = 0;
    for (; name[length]; ++length) {
        const char c = name[length];
        const bool isDigit = c >= '0' && c <= '9';
        if (length == longestName || !(isDigit || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_') ||
            (isDigit && length == 0))
            return false;
    }
    return length > 0;
}

/// What is known of a struct, made once for each.
class VEL_EXPORT Form {
public:
    using Make = std::shared_ptr<void> (*)();

    Form(const QMetaObject& gadget, Make maker);

    const Record& record() const { return *m_record; }
    std::shared_ptr<void> make() const { return m_make(); }

private:
    const Record* m_record; // kept for the life of the process
    Make m_make;
};

template <typename T>
const Form& formOf() {
    static const Form form = [] {
        registerFieldTypesOf<T>();
        return Form(T::staticMetaObject, []() -> std::shared_ptr<void> { return std::make_shared<T>(); });
    }();
    return form;
}

/// The name of T's event; does not compile for what is no event.
template <typename T>
constexpr const char* eventNameOf() {
    static_assert(IsGadget<T>::value, "vel: an event is a struct with Q_GADGET, in a header or source that moc reads");
    if constexpr (IsGadget<T>::value) {
        static_assert(HasEventName<T>::value,
                      "vel: an event names itself: static constexpr auto eventName = \"its_name\";");
        static_assert(std::is_default_constructible_v<T> && std::is_copy_constructible_v<T>,
                      "vel: an event can be made without arguments, and copied");
        if constexpr (HasEventName<T>::value) {
            static_assert(canBeEventName(T::eventName),
                          "vel: an event's name is 1 to 255 of A-Z a-z 0-9 _, and does not begin with a digit");
            return T::eventName;
        }
    }
    return "";
}

} // namespace vel::typed
