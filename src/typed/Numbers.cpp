// Each pair of kinds (signed, unsigned, floating) has a comparison of its own: C++ would convert one to the other first, and
// the loss would not be seen.
#include "typed/Numbers.h"

#include "platform/QtMetaTypes.h"

#include <cmath>
#include <cstring>
#include <limits>
#include <type_traits>

namespace vel::typed {

namespace {

// Beyond it a double does not hold every integer.
constexpr qint64 largestExactInteger = qint64(1) << std::numeric_limits<double>::digits;

template <typename Target, typename Source>
bool fits(Source source) {
    if constexpr (std::is_floating_point_v<Source> && std::is_floating_point_v<Target>) {
        return std::isnan(source) || Source(Target(source)) == source;
    } else if constexpr (std::is_floating_point_v<Source>) {
        // The lowest and the end of the range are powers of two, so a double holds them.
        const double end = std::ldexp(1.0, std::numeric_limits<Target>::digits);
        return source >= double(std::numeric_limits<Target>::min()) && source < end && std::trunc(source) == source;
    } else if constexpr (std::is_floating_point_v<Target>) {
        constexpr qint64 largest =
            sizeof(Target) == sizeof(double) ? largestExactInteger : qint64(1) << std::numeric_limits<float>::digits;
        if constexpr (std::is_signed_v<Source>)
            return source >= -largest && source <= largest;
        else
            return source <= quint64(largest);
    } else if constexpr (std::is_signed_v<Source> && std::is_unsigned_v<Target>) {
        return source >= 0 && quint64(source) <= std::numeric_limits<Target>::max();
    } else if constexpr (std::is_unsigned_v<Source> && std::is_signed_v<Target>) {
        return source <= quint64(std::numeric_limits<Target>::max());
    } else {
        return source >= std::numeric_limits<Target>::min() && source <= std::numeric_limits<Target>::max();
    }
}

template <typename Target, typename Source>
bool store(Source source, void* value) {
    if (!fits<Target>(source))
        return false;
    *static_cast<Target*>(value) = Target(source);
    return true;
}

template <typename Source>
bool storeAs(int type, Source source, void* value) {
    switch (type) {
    case QMetaType::Short:
        return store<short>(source, value);
    case QMetaType::UShort:
        return store<ushort>(source, value);
    case QMetaType::Int:
        return store<int>(source, value);
    case QMetaType::UInt:
        return store<uint>(source, value);
    case QMetaType::Long:
        return store<long>(source, value);
    case QMetaType::ULong:
        return store<ulong>(source, value);
    case QMetaType::LongLong:
        return store<qlonglong>(source, value);
    case QMetaType::ULongLong:
        return store<qulonglong>(source, value);
    case QMetaType::Char:
        return store<char>(source, value);
    case QMetaType::SChar:
        return store<signed char>(source, value);
    case QMetaType::UChar:
        return store<uchar>(source, value);
    case QMetaType::Float:
        return store<float>(source, value);
    default:
        return store<double>(source, value);
    }
}

} // namespace

bool isNumber(int type) {
    switch (type) {
    case QMetaType::Long:
    case QMetaType::ULong:
    case QMetaType::Char:
    case QMetaType::SChar:
    case QMetaType::Float:
        return true; // without a form of their own on the bus
    default:
        break;
    }
    constexpr auto numbers = "ynqiuxtd";
    const char* const form = type < QMetaType::User ? metatypes::signatureOf(type) : nullptr;
    return form && qstrlen(form) == 1 && std::strchr(numbers, *form);
}

bool storeNumber(int type, const QVariant& received, void* value) {
    switch (received.userType()) {
    case QMetaType::UChar:
    case QMetaType::Short:
    case QMetaType::UShort:
    case QMetaType::Int:
    case QMetaType::UInt:
    case QMetaType::LongLong:
        return storeAs(type, received.toLongLong(), value);
    case QMetaType::ULongLong:
        return storeAs(type, received.toULongLong(), value);
    case QMetaType::Double:
        return storeAs(type, received.toDouble(), value);
    default:
        return false;
    }
}

QVariant numberToBus(int type, const void* value) {
    switch (type) {
    case QMetaType::Long:
        return qlonglong(*static_cast<const long*>(value));
    case QMetaType::ULong:
        return qulonglong(*static_cast<const ulong*>(value));
    case QMetaType::Char:
        return QVariant::fromValue(short(*static_cast<const char*>(value)));
    case QMetaType::SChar:
        return QVariant::fromValue(short(*static_cast<const signed char*>(value)));
    case QMetaType::Float:
        return double(*static_cast<const float*>(value));
    default:
        return metatypes::makeValue(type, value);
    }
}

} // namespace vel::typed
