// Types of fields that Qt's meta-objects cannot describe by themselves.
#pragma once

#include "platform/VelExport.h"

#include <QList>
#include <QMap>
#include <QMetaType>
#include <QString>
#include <QVector>

#include <functional>
#include <optional>
#include <type_traits>

/// Makes std::optional<T> one of Qt's metatypes, under that name. Qt's own macro for templates takes each for a list.
template <typename T>
struct QMetaTypeId<std::optional<T>> {
    enum { Defined = QMetaTypeId2<T>::Defined };
    static int qt_metatype_id() {
        static const int id = qRegisterNormalizedMetaType<std::optional<T>>(
            QByteArray("std::optional<") + QMetaType(qMetaTypeId<T>()).name() + '>'
#if QT_VERSION < QT_VERSION_CHECK(6, 0, 0)
            ,
            reinterpret_cast<std::optional<T>*>(quintptr(-1)) // not null: the name is given
#endif
        );
        return id;
    }
};

namespace vel {

/// Names the enumerations and structs of a struct's fields, in the struct itself. Qt's meta-object has no more than the names
/// of their types, in a text.
///
///     struct StationsChanged {
///         Q_GADGET
///         Q_PROPERTY(Band band MEMBER band)
///         Q_PROPERTY(QList<Station> stations MEMBER stations)
///         Q_PROPERTY(std::optional<Station> favourite MEMBER favourite)
///     public:
///         enum Band { Fm, Am };
///         Q_ENUM(Band)
///         static constexpr auto eventName = "stations_changed";
///         using FieldTypes = vel::FieldTypes<Band, Station>;
///         ...
///
/// With a type T come QList<T>, QVector<T>, QMap<QString, T> and std::optional<T>; a container of another form is named
/// itself. Of the types that Qt knows, the basic ones, QString and their containers need no line.
///
/// Errors:   a type that is missing here is an error line when the struct is used: nothing is published or heard.
template <typename... Types>
struct FieldTypes {};

namespace typed {

/// How to look into a map and to fill it, whatever its values are.
struct MapAccess {
    int valueType;
    void (*forEach)(const void* map, const std::function<void(const QString& key, const void* value)>& visit);
    void (*insert)(void* map, const QString& key, const void* value);
};

/// How to look into an optional value and to set it.
struct OptionalAccess {
    int valueType;
    const void* (*get)(const void* optional); // null without a value
    void (*set)(void* optional, const void* value);
};

VEL_EXPORT void registerMap(int type, const MapAccess& access);
VEL_EXPORT void registerOptional(int type, const OptionalAccess& access);

template <typename T, typename = void>
struct HasFieldTypes : std::false_type {};
template <typename T>
struct HasFieldTypes<T, std::void_t<typename T::FieldTypes>> : std::true_type {};

template <typename T>
void registerFieldTypesOf();

template <typename T>
struct IsContainer : std::false_type {};
template <template <typename...> class Container, typename T>
struct IsContainer<Container<T>> : std::true_type {};
template <typename T>
struct IsContainer<QMap<QString, T>> : std::true_type {};

/// A type that is named: an enumeration, a struct, or a list of a form that does not come with its element.
template <typename T>
struct FieldType {
    static void registerIt() {
        static_assert(
            QMetaTypeId2<T>::Defined,
            "vel::FieldTypes: an enumeration needs Q_ENUM, a struct Q_GADGET, another type Q_DECLARE_METATYPE");
        qRegisterMetaType<T>();
        registerFieldTypesOf<T>();
    }
};

template <typename T>
struct FieldType<QMap<QString, T>> {
    using Map = QMap<QString, T>;
    static void registerIt() {
        registerMap(qRegisterMetaType<Map>(),
                    {qMetaTypeId<T>(),
                     [](const void* map, const std::function<void(const QString&, const void*)>& visit) {
                         const Map& entries = *static_cast<const Map*>(map);
                         for (auto entry = entries.cbegin(); entry != entries.cend(); ++entry)
                             visit(entry.key(), &entry.value());
                     },
                     [](void* map, const QString& key, const void* value) {
                         static_cast<Map*>(map)->insert(key, *static_cast<const T*>(value));
                     }});
    }
};

template <typename T>
struct FieldType<std::optional<T>> {
    using Optional = std::optional<T>;
    static void registerIt() {
        registerOptional(qRegisterMetaType<Optional>(),
                         {qMetaTypeId<T>(),
                          [](const void* optional) -> const void* {
                              const auto& held = *static_cast<const Optional*>(optional);
                              return held ? &*held : nullptr;
                          },
                          [](void* optional, const void* value) {
                              static_cast<Optional*>(optional)->emplace(*static_cast<const T*>(value));
                          }});
    }
};

template <typename T>
void registerWithContainers() {
    FieldType<T>::registerIt();
    if constexpr (!IsContainer<T>::value) {
        qRegisterMetaType<QList<T>>();
        qRegisterMetaType<QVector<T>>();
        FieldType<QMap<QString, T>>::registerIt();
        FieldType<std::optional<T>>::registerIt();
    }
}

template <typename... Types>
void registerAll(FieldTypes<Types...>) {
    (registerWithContainers<Types>(), ...);
}

/// Registers what T names as FieldTypes, if anything.
template <typename T>
void registerFieldTypesOf() {
    if constexpr (HasFieldTypes<T>::value)
        registerAll(typename T::FieldTypes());
}

} // namespace typed
} // namespace vel
