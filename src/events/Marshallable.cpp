// Whether a value can go into a D-Bus message: a walk over the containers that Qt D-Bus marshals natively.
#include "events/Marshallable.h"

#include "events/ArgumentType.h"
#include "events/VelEvent.h"
#include "events/WireSize.h"
#include "log/SafeText.h"
#include "platform/QtMetaTypes.h"

#include <QAssociativeIterable>
#include <QDBusArgument>
#include <QDBusObjectPath>
#include <QDBusSignature>
#include <QDBusUnixFileDescriptor>
#include <QDBusVariant>
#include <QSequentialIterable>

#include <algorithm>
#include <cstring>

namespace {

// How deep a message may be nested (arrays, structures, dictionary entries and variants together) on every bus: whoever
// sends a deeper one loses the connection. libdbus and its daemon allow one level more.
constexpr int deepestNesting = 63;

// What each container adds on the way to a value in it.
constexpr int variantLevels = 1;              // v
constexpr int listLevels = 1 + variantLevels; // a v
constexpr int mapLevels = 2 + variantLevels;  // a {s v}
constexpr int eventLevels = 1 + mapLevels;    // ( a {s v} )

// libdbus's limits for one array, and for a message. It aborts on an array of bytes above the first; whoever sends the bus
// another one, or a message above the second, loses the connection.
constexpr qint64 largestArray = 64 * 1024 * 1024;
constexpr qint64 largestMessage = 128 * 1024 * 1024;

// A message's header: its fields are five names of at most 255 letters, a path, a signature, and their paddings.
constexpr qint64 roomForHeader = 4096;

// What any value may add beside its text: signature, length, padding.
constexpr qint64 sizeOfAnyValue = 32;

// Walks a value and what is nested in it, and sums up how large it becomes at most: three bytes a letter. Only what
// passes this estimate's limit is worth being counted.
class Inspection {
public:
    bool passes(const QVariant& value, int level = 0);
    template <typename Map>
    bool passesInside(const Map& values, int level);
    void addText(const QString& text) { add(3 * qint64(text.size()) + sizeOfAnyValue); }
    void addTexts(const QMap<QString, QString>& texts);

    bool mayBeTooLarge() const { return m_estimate > largestArray; }

private:
    bool passesInside(const QVariantList& values, int level);
    bool passesEvent(const VelEvent& event, int level);
    bool passesRegistered(const QVariant& value, const char* signature, int level);
    bool passesReceived(const QDBusArgument& argument, int level);
    bool passesReceived(const QVariant& value, int level);
    void add(qint64 bytes) { m_estimate += bytes; }

    qint64 m_estimate = 0;
};

bool Inspection::passes(const QVariant& value, int level) {
    if (!value.isValid() || level > deepestNesting)
        return false;
    add(sizeOfAnyValue);
    const int type = value.userType();
    switch (type) {
    case QMetaType::QString:
        addText(value.toString());
        return true;
    case QMetaType::QByteArray:
        add(value.toByteArray().size());
        return true;
    case QMetaType::QStringList:
        for (const QString& text : value.toStringList())
            addText(text);
        return true;
    case QMetaType::QVariantList:
        return passesInside(value.toList(), level + listLevels);
    case QMetaType::QVariantMap:
        return passesInside(value.toMap(), level + mapLevels);
    case QMetaType::QVariantHash:
        return passesInside(value.toHash(), level + mapLevels);
    default:
        break;
    }
    if (type == qMetaTypeId<QDBusVariant>())
        return passes(value.value<QDBusVariant>().variant(), level + variantLevels);
    if (type == qMetaTypeId<VelEvent>())
        return passesEvent(value.value<VelEvent>(), level);
    if (type == qMetaTypeId<QDBusObjectPath>())
        return !value.value<QDBusObjectPath>().path().isEmpty();
    if (type == qMetaTypeId<QDBusSignature>())
        return !value.value<QDBusSignature>().signature().isEmpty();
    if (type == qMetaTypeId<QDBusUnixFileDescriptor>())
        return value.value<QDBusUnixFileDescriptor>().isValid();
    if (type == qMetaTypeId<QDBusArgument>())
        return passesReceived(value.value<QDBusArgument>(), level);
    const char* const signature = vel::metatypes::signatureOf(type);
    return signature && (*signature != 'a' || passesRegistered(value, signature, level));
}

bool Inspection::passesInside(const QVariantList& values, int level) {
    return std::all_of(values.cbegin(), values.cend(),
                       [this, level](const QVariant& value) { return passes(value, level); });
}

template <typename Map>
bool Inspection::passesInside(const Map& values, int level) {
    for (auto entry = values.cbegin(); entry != values.cend(); ++entry) {
        addText(entry.key());
        if (!passes(entry.value(), level))
            return false;
    }
    return true;
}

bool Inspection::passesEvent(const VelEvent& event, int level) {
    addText(event.getEvtName());
    addText(event.getContext());
    addTexts(event.getArgTypes());
    return passesInside(event.getArguments(), level + eventLevels);
}

void Inspection::addTexts(const QMap<QString, QString>& texts) {
    for (auto entry = texts.cbegin(); entry != texts.cend(); ++entry) {
        addText(entry.key());
        addText(entry.value());
    }
}

// A list or map of a type of its own, as qDBusRegisterMetaType() makes known. What else is registered writes itself.
bool Inspection::passesRegistered(const QVariant& value, const char* signature, int level) {
    if (value.canConvert<QVariantMap>()) {
        const auto map = value.value<QAssociativeIterable>();
        for (auto entry = map.begin(); entry != map.end(); ++entry) {
            if (!passes(entry.key(), level + 2) || !passes(entry.value(), level + 2))
                return false;
        }
        return true;
    }
    if (!value.canConvert<QVariantList>())
        return true;
    const auto list = value.value<QSequentialIterable>();
    const bool isOfNumbers = std::strchr("ybnqiuxtdh", signature[1]) != nullptr;
    if (isOfNumbers) {
        add(sizeOfAnyValue * list.size());
        return true;
    }
    for (const QVariant& element : list) {
        if (!passes(element, level + 1))
            return false;
    }
    return true;
}

// A container that was received is sent on as it is, and must only be neither too deep nor too large. It is walked by
// its reader. Leave every container that was entered, or Qt leaks it.
bool Inspection::passesReceived(const QDBusArgument& argument, int level) {
    if (level > deepestNesting || argument.currentSignature().isEmpty())
        return false;
    bool passed = true;
    const auto walk = [&](int below) {
        while (passed && !argument.atEnd())
            passed = passesReceived(argument, below);
    };
    const bool isBytes = argument.currentSignature() == QLatin1String("ay");
    switch (isBytes ? QDBusArgument::BasicType : argument.currentType()) {
    case QDBusArgument::StructureType:
        argument.beginStructure();
        walk(level + 1);
        argument.endStructure();
        break;
    case QDBusArgument::ArrayType:
        argument.beginArray();
        walk(level + 1);
        argument.endArray();
        break;
    case QDBusArgument::MapType:
        argument.beginMap();
        while (passed && !argument.atEnd()) {
            argument.beginMapEntry();
            walk(level + 2);
            argument.endMapEntry();
        }
        argument.endMap();
        break;
    default:
        passed = passesReceived(argument.asVariant(), level);
    }
    return passed;
}

bool Inspection::passesReceived(const QVariant& value, int level) {
    const int type = value.userType();
    if (type == qMetaTypeId<QDBusVariant>())
        return passesReceived(value.value<QDBusVariant>().variant(), level + variantLevels);
    if (type == qMetaTypeId<QDBusArgument>())
        return passesReceived(value.value<QDBusArgument>(), level);
    if (type == QMetaType::QByteArray)
        add(value.toByteArray().size());
    if (type == QMetaType::QString)
        addText(value.toString());
    add(sizeOfAnyValue);
    return level <= deepestNesting;
}

bool fits(const vel::WireSize& size) {
    return size.largestArray() <= largestArray && size.bytes() + roomForHeader <= largestMessage;
}

vel::WireSize sizeOf(const QVariantList& arguments) {
    vel::WireSize size;
    for (const QVariant& argument : arguments)
        size.addValue(argument);
    return size;
}

vel::WireSize sizeOf(const vel::EventParts& event) {
    QMap<QString, QString> types;
    if (event.types) {
        types = *event.types;
    } else {
        for (auto argument = event.arguments.cbegin(); argument != event.arguments.cend(); ++argument)
            types.insert(argument.key(), vel::typeNameOf(argument.value()));
    }
    vel::WireSize size;
    size.addEvent(event.name, event.context, types, event.arguments);
    return size;
}

QString tooLarge(const vel::WireSize& size) {
    if (size.largestArray() > largestArray)
        return QStringLiteral("an array in it takes %1 bytes, and the bus takes at most %2")
            .arg(size.largestArray())
            .arg(largestArray);
    return QStringLiteral("it takes %1 bytes, and the bus takes messages of at most %2, with their headers")
        .arg(size.bytes())
        .arg(largestMessage);
}

// Goes down to the value that does not pass.
class Descent {
public:
    bool findsIn(const QVariant& value, int level, const QString& step) {
        if (Inspection().passes(value, level))
            return false;
        m_path += step;
        down(value, level);
        return true;
    }

    template <typename Map>
    bool findsInMap(const Map& values, int level) {
        for (auto entry = values.cbegin(); entry != values.cend(); ++entry) {
            if (findsIn(entry.value(), level, (m_path.isEmpty() ? QString() : QStringLiteral(".")) + entry.key()))
                return true;
        }
        return false;
    }

    vel::Misfit misfit() const { return {vel::quoted(m_path) + QLatin1Char(' ') + m_reason, m_value, m_hasNoForm}; }

private:
    void down(const QVariant& value, int level) {
        const int type = value.userType();
        const bool isFound = (type == QMetaType::QVariantList && findsInList(value.toList(), level + listLevels)) ||
                             (type == QMetaType::QVariantMap && findsInMap(value.toMap(), level + mapLevels)) ||
                             (type == QMetaType::QVariantHash && findsInMap(value.toHash(), level + mapLevels)) ||
                             (type == qMetaTypeId<QDBusVariant>() &&
                              findsIn(value.value<QDBusVariant>().variant(), level + variantLevels, QString())) ||
                             (type == qMetaTypeId<VelEvent>() &&
                              findsInMap(value.value<VelEvent>().getArguments(), level + eventLevels));
        if (!isFound)
            conclude(value, level);
    }

    bool findsInList(const QVariantList& values, int level) {
        for (int index = 0; index < values.size(); ++index) {
            if (findsIn(values.at(index), level, QStringLiteral("[%1]").arg(index)))
                return true;
        }
        return false;
    }

    void conclude(const QVariant& value, int level) {
        m_value = value;
        const bool isReceived = value.userType() == qMetaTypeId<QDBusArgument>();
        const QString type = QString::fromLatin1(value.typeName());
        m_hasNoForm = level <= deepestNesting && !(isReceived && !isEmpty(value));
        if (!m_hasNoForm)
            m_reason = QStringLiteral("is nested more than %1 levels deep").arg(deepestNesting);
        else if (!value.isValid())
            m_reason = QStringLiteral("has no value");
        else if (isReceived || vel::metatypes::signatureOf(value.userType()))
            m_reason = QStringLiteral("is an empty or invalid %1").arg(type);
        else
            m_reason = QStringLiteral("is of type '%1', which has no D-Bus form").arg(type);
        if (isReceived)
            m_value = QVariant(); // Qt cannot even refuse one
    }

    static bool isEmpty(const QVariant& received) {
        return received.value<QDBusArgument>().currentSignature().isEmpty();
    }

    QString m_path;
    QString m_reason;
    QVariant m_value;
    bool m_hasNoForm = false;
};

} // namespace

bool vel::isMarshallable(const QVariantList& arguments) {
    Inspection inspection;
    for (const QVariant& argument : arguments) {
        if (!inspection.passes(argument))
            return false;
    }
    return !inspection.mayBeTooLarge() || fits(sizeOf(arguments));
}

bool vel::isMarshallable(const EventParts& event) {
    Inspection inspection;
    inspection.addText(event.context);
    if (event.types) // else they are the short names of the values' types, which the estimate of each value covers
        inspection.addTexts(*event.types);
    if (!inspection.passesInside(event.arguments, eventLevels))
        return false;
    return !inspection.mayBeTooLarge() || fits(sizeOf(event));
}

vel::Misfit vel::findMisfit(const QVariantList& arguments) {
    for (int index = 0; index < arguments.size(); ++index) {
        Descent descent;
        if (descent.findsIn(arguments.at(index), 0, QStringLiteral("argument %1").arg(index + 1)))
            return descent.misfit();
    }
    return {tooLarge(sizeOf(arguments)), QVariant(), false};
}

vel::Misfit vel::findMisfit(const EventParts& event) {
    Descent descent;
    if (!descent.findsInMap(event.arguments, eventLevels))
        return {tooLarge(sizeOf(event)), QVariant(), false};
    Misfit misfit = descent.misfit();
    misfit.reason.prepend(QLatin1String("argument "));
    return misfit;
}
