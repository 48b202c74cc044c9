// QVariants in a message of libdbus.
#include "testing/Values.h"

#include <QStringList>

#include <algorithm>
#include <iterator>

namespace vel::testing {

namespace {

template <typename Number>
Number basic(DBusMessageIter* at) {
    Number number{};
    dbus_message_iter_get_basic(at, &number);
    return number;
}

template <typename Number, typename As = Number>
void appendBasic(DBusMessageIter* to, int type, const QVariant& value) {
    const As number = static_cast<As>(value.value<Number>());
    dbus_message_iter_append_basic(to, type, &number);
}

// The form of a type; empty when it has none here.
QByteArray signatureOf(const QVariant& value) {
    static const struct {
        int type;
        const char* signature;
    } forms[] = {
        {QMetaType::Bool, "b"},          {QMetaType::UChar, "y"},
        {QMetaType::Short, "n"},         {QMetaType::UShort, "q"},
        {QMetaType::Int, "i"},           {QMetaType::UInt, "u"},
        {QMetaType::LongLong, "x"},      {QMetaType::ULongLong, "t"},
        {QMetaType::Double, "d"},        {QMetaType::QString, "s"},
        {QMetaType::QStringList, "as"},  {QMetaType::QByteArray, "ay"},
        {QMetaType::QVariantList, "av"}, {QMetaType::QVariantMap, "a{sv}"},
    };
    const auto* const form =
        std::find_if(std::begin(forms), std::end(forms), [&](const auto& one) { return one.type == value.userType(); });
    return form == std::end(forms) ? QByteArray() : QByteArray(form->signature);
}

void appendText(DBusMessageIter* to, const QString& text) {
    const QByteArray utf8 = text.toUtf8();
    const char* bytes = utf8.constData();
    dbus_message_iter_append_basic(to, DBUS_TYPE_STRING, &bytes);
}

void appendVariant(DBusMessageIter* to, const QVariant& value) {
    DBusMessageIter inner;
    dbus_message_iter_open_container(to, DBUS_TYPE_VARIANT, signatureOf(value).constData(), &inner);
    appendValue(&inner, value);
    dbus_message_iter_close_container(to, &inner);
}

template <typename Map, typename Append>
void appendMap(DBusMessageIter* to, const char* entrySignature, const Map& map, Append append) {
    DBusMessageIter entries;
    dbus_message_iter_open_container(to, DBUS_TYPE_ARRAY, entrySignature, &entries);
    for (auto one = map.begin(); one != map.end(); ++one) {
        DBusMessageIter entry;
        dbus_message_iter_open_container(&entries, DBUS_TYPE_DICT_ENTRY, nullptr, &entry);
        appendText(&entry, one.key());
        append(&entry, one.value());
        dbus_message_iter_close_container(&entries, &entry);
    }
    dbus_message_iter_close_container(to, &entries);
}

QVariant readArray(DBusMessageIter* at) {
    const int type = dbus_message_iter_get_element_type(at);
    DBusMessageIter inside;
    dbus_message_iter_recurse(at, &inside);
    if (type == DBUS_TYPE_BYTE) {
        const char* bytes = nullptr;
        int count = 0;
        dbus_message_iter_get_fixed_array(&inside, &bytes, &count);
        return QByteArray(bytes, count);
    }
    QVariantList list;
    QVariantMap map;
    for (; dbus_message_iter_get_arg_type(&inside) != DBUS_TYPE_INVALID; dbus_message_iter_next(&inside)) {
        if (type != DBUS_TYPE_DICT_ENTRY) {
            list << readValue(&inside);
            continue;
        }
        DBusMessageIter entry;
        dbus_message_iter_recurse(&inside, &entry);
        const QString key = readValue(&entry).toString();
        dbus_message_iter_next(&entry);
        map.insert(key, readValue(&entry));
    }
    if (type == DBUS_TYPE_DICT_ENTRY)
        return map;
    return type == DBUS_TYPE_STRING ? QVariant(QVariant(list).toStringList()) : QVariant(list);
}

} // namespace

QVariant readValue(DBusMessageIter* at) {
    switch (dbus_message_iter_get_arg_type(at)) {
    case DBUS_TYPE_BOOLEAN:
        return basic<dbus_bool_t>(at) != FALSE;
    case DBUS_TYPE_BYTE:
        return QVariant::fromValue(basic<uchar>(at));
    case DBUS_TYPE_INT16:
        return QVariant::fromValue(basic<short>(at));
    case DBUS_TYPE_UINT16:
        return QVariant::fromValue(basic<ushort>(at));
    case DBUS_TYPE_INT32:
        return basic<qint32>(at);
    case DBUS_TYPE_UINT32:
        return basic<quint32>(at);
    case DBUS_TYPE_INT64:
        return basic<qlonglong>(at);
    case DBUS_TYPE_UINT64:
        return basic<qulonglong>(at);
    case DBUS_TYPE_DOUBLE:
        return basic<double>(at);
    case DBUS_TYPE_STRING:
    case DBUS_TYPE_OBJECT_PATH:
    case DBUS_TYPE_SIGNATURE:
        return QString::fromUtf8(basic<const char*>(at));
    case DBUS_TYPE_VARIANT: {
        DBusMessageIter inside;
        dbus_message_iter_recurse(at, &inside);
        return readValue(&inside);
    }
    case DBUS_TYPE_ARRAY:
        return readArray(at);
    case DBUS_TYPE_STRUCT: {
        QVariantList members;
        DBusMessageIter inside;
        dbus_message_iter_recurse(at, &inside);
        for (; dbus_message_iter_get_arg_type(&inside) != DBUS_TYPE_INVALID; dbus_message_iter_next(&inside))
            members << readValue(&inside);
        return members;
    }
    default:
        return QVariant();
    }
}

QVariantList readValues(DBusMessage* message) {
    QVariantList values;
    DBusMessageIter at;
    if (dbus_message_iter_init(message, &at)) {
        do {
            values << readValue(&at);
        } while (dbus_message_iter_next(&at));
    }
    return values;
}

bool canAppend(const QVariant& value) {
    if (value.userType() == QMetaType::QVariantList) {
        const QVariantList list = value.toList();
        return std::all_of(list.begin(), list.end(), canAppend);
    }
    if (value.userType() == QMetaType::QVariantMap) {
        const QVariantMap map = value.toMap();
        return std::all_of(map.begin(), map.end(), canAppend);
    }
    return !signatureOf(value).isEmpty();
}

void appendValue(DBusMessageIter* to, const QVariant& value) {
    switch (value.userType()) {
    case QMetaType::Bool:
        return appendBasic<bool, dbus_bool_t>(to, 'b', value);
    case QMetaType::UChar:
        return appendBasic<uchar>(to, 'y', value);
    case QMetaType::Short:
        return appendBasic<short>(to, 'n', value);
    case QMetaType::UShort:
        return appendBasic<ushort>(to, 'q', value);
    case QMetaType::Int:
        return appendBasic<int>(to, 'i', value);
    case QMetaType::UInt:
        return appendBasic<uint>(to, 'u', value);
    case QMetaType::LongLong:
        return appendBasic<qlonglong>(to, 'x', value);
    case QMetaType::ULongLong:
        return appendBasic<qulonglong>(to, 't', value);
    case QMetaType::Double:
        return appendBasic<double>(to, 'd', value);
    case QMetaType::QString:
        return appendText(to, value.toString());
    case QMetaType::QVariantMap:
        return appendMap(to, "{sv}", value.toMap(), appendVariant);
    default:
        break;
    }
    const QByteArray signature = signatureOf(value);
    DBusMessageIter inside;
    dbus_message_iter_open_container(to, DBUS_TYPE_ARRAY, signature.constData() + 1, &inside);
    if (signature == "ay") {
        for (const char byte : value.toByteArray())
            dbus_message_iter_append_basic(&inside, DBUS_TYPE_BYTE, &byte);
    } else if (signature == "as") {
        for (const QString& text : value.toStringList())
            appendText(&inside, text);
    } else {
        for (const QVariant& one : value.toList())
            appendVariant(&inside, one);
    }
    dbus_message_iter_close_container(to, &inside);
}

void appendEvent(DBusMessageIter* to, const QString& name, const QVariantMap& arguments) {
    DBusMessageIter structure;
    dbus_message_iter_open_container(to, DBUS_TYPE_STRUCT, nullptr, &structure);
    appendText(&structure, name);
    appendText(&structure, QString());
    const qint32 count = arguments.size();
    dbus_message_iter_append_basic(&structure, DBUS_TYPE_INT32, &count);
    appendMap(&structure, "{ss}", arguments, [](DBusMessageIter* entry, const QVariant& value) {
        appendText(entry, QString::fromLatin1(value.typeName()));
    });
    appendMap(&structure, "{sv}", arguments, appendVariant);
    dbus_message_iter_close_container(to, &structure);
}

} // namespace vel::testing
