// The arguments of messages as only somebody would send them who wants to know what happens.
//
// What must always hold: every message is valid. The bus ends the connection of whoever sends another one, and nothing
// would be tested from then on.
#include "RandomBody.h"

#include <algorithm>
#include <fcntl.h>
#include <unistd.h>

namespace {

constexpr int deepestArrays = 32;     // in one signature
constexpr int deepestStructures = 32; // in one signature; a dictionary's entry is one
constexpr int deepestLevels = 62;     // in one message: so many both buses carry; at one more dbus-broker hangs up
constexpr int mostValues = 400;
constexpr int longArray = 1024 * 1024;
constexpr int longText = 100 * 1024;

const char basicTypes[] = {'y', 'b', 'n', 'q', 'i', 'u', 'x', 't', 'd', 's', 'o', 'g'};
constexpr int basicTypeCount = sizeof basicTypes;

int nullDevice() {
    static const int descriptor = open("/dev/null", O_RDONLY | O_CLOEXEC);
    return descriptor;
}

} // namespace

void RandomBody::append(DBusMessageIter& iterator) {
    m_valuesLeft = mostValues;
    if (below(100) == 0)
        return appendOf(iterator, deepType().constData());
    if (below(20000) == 0)
        return appendBytes(iterator, longArray);
    if (below(100) == 0) // nowhere else: the bus allows few in one message
        return appendOf(iterator, below(2) ? "h" : "(hs)");
    QByteArray signature;
    for (int values = below(5); values > 0; --values)
        signature += randomType(deepestArrays, deepestStructures, 40);
    appendOf(iterator, signature.constData());
}

void RandomBody::appendOf(DBusMessageIter& iterator, const char* signature) {
    if (!*signature)
        return;
    m_valuesLeft = mostValues;
    DBusSignatureIter type;
    dbus_signature_iter_init(&type, signature);
    do {
        appendValue(iterator, type, 0);
    } while (dbus_signature_iter_next(&type));
}

QByteArray RandomBody::randomType(int arrays, int structures, int longest) {
    const int kind = longest < 8 ? 0 : below(12);
    if (kind == 11 && arrays > 0 && structures > 0)
        return QByteArray("a{") + basicTypes[below(basicTypeCount)] +
               randomType(arrays - 1, structures - 1, longest - 4) + '}';
    if (kind >= 9 && structures > 0) {
        QByteArray type("(");
        do {
            type += randomType(arrays, structures - 1, longest - type.size() - 2);
        } while (below(3) > 0 && type.size() < longest - 2);
        return type + ')';
    }
    if (kind >= 7 && arrays > 0)
        return 'a' + randomType(arrays - 1, structures, longest - 1);
    if (kind >= 5)
        return "v";
    return QByteArray(1, basicTypes[below(basicTypeCount)]);
}

// As deep as a signature can be, or nearly so.
QByteArray RandomBody::deepType() {
    const int arrays = below(2) ? deepestArrays : below(deepestArrays + 1);
    const int structures =
        std::min(below(2) ? deepestStructures : below(deepestStructures + 1), deepestLevels - arrays);
    return QByteArray(arrays, 'a') + QByteArray(structures, '(') + (arrays + structures < deepestLevels ? 'v' : 'i') +
           QByteArray(structures, ')');
}

QByteArray RandomBody::randomText() {
    static const char* const pieces[] = {"a",           "module",  " ",     "\n",       "\"",
                                         "%1",          "\x7f",    "\x01",  "\xc3\xa9", "\xe2\x82\xac",
                                         "{}",          "Display", "key_0", "-1",       "\xf0\x9f\x98\x80",
                                         "\xef\xbf\xbf"};
    if (below(5000) == 0)
        return QByteArray(longText, 't');
    QByteArray text;
    for (int count = below(6); count > 0; --count)
        text += pieces[below(sizeof pieces / sizeof *pieces)];
    return text;
}

int RandomBody::elementCount() {
    if (m_valuesLeft <= 0)
        return 0;
    return below(30) == 0 ? 100 : below(4);
}

void RandomBody::appendValue(DBusMessageIter& iterator, DBusSignatureIter& type, int level) {
    --m_valuesLeft;
    const int kind = dbus_signature_iter_get_current_type(&type);
    if (dbus_type_is_basic(kind))
        return appendBasic(iterator, kind);
    if (kind == DBUS_TYPE_VARIANT)
        return appendVariant(iterator, level);
    DBusSignatureIter element;
    dbus_signature_iter_recurse(&type, &element);
    char* contained = kind == DBUS_TYPE_ARRAY ? dbus_signature_iter_get_signature(&element) : nullptr;
    DBusMessageIter inner;
    dbus_message_iter_open_container(&iterator, kind, contained, &inner);
    dbus_free(contained);
    if (kind == DBUS_TYPE_ARRAY) {
        for (int elements = elementCount(); elements > 0; --elements)
            appendValue(inner, element, level + 1);
    } else {
        do {
            appendValue(inner, element, level + 1);
        } while (dbus_signature_iter_next(&element));
    }
    dbus_message_iter_close_container(&iterator, &inner);
}

void RandomBody::appendVariant(DBusMessageIter& iterator, int level) {
    const int levels = deepestLevels - level - 1; // for what is inside of it
    // Half of the room for each kind, so that arrays and structures together never take more than there is.
    const QByteArray type = m_valuesLeft <= 0 || levels < 1 ? QByteArray("i")
                                                            : randomType(std::min(levels / 2, deepestArrays),
                                                                         std::min(levels / 2, deepestStructures), 12);
    DBusMessageIter inner;
    dbus_message_iter_open_container(&iterator, DBUS_TYPE_VARIANT, type.constData(), &inner);
    DBusSignatureIter content;
    dbus_signature_iter_init(&content, type.constData());
    appendValue(inner, content, level + 1);
    dbus_message_iter_close_container(&iterator, &inner);
}

void RandomBody::appendBasic(DBusMessageIter& iterator, int type) {
    DBusBasicValue value{};
    QByteArray text;
    switch (type) {
    case DBUS_TYPE_BOOLEAN:
        value.bool_val = below(2) ? TRUE : FALSE;
        break;
    case DBUS_TYPE_UNIX_FD:
        value.fd = nullDevice();
        break;
    case DBUS_TYPE_STRING:
        text = randomText();
        break;
    case DBUS_TYPE_OBJECT_PATH:
        text = below(2) ? "/" : "/a/b_1";
        break;
    case DBUS_TYPE_SIGNATURE:
        text = below(4) ? randomType(2, 2, 20) : QByteArray();
        break;
    default: // a number: any bits will do
        value.u64 = m_random() | static_cast<dbus_uint64_t>(m_random()) << 32;
    }
    if (type == DBUS_TYPE_STRING || type == DBUS_TYPE_OBJECT_PATH || type == DBUS_TYPE_SIGNATURE)
        value.str = text.data();
    dbus_message_iter_append_basic(&iterator, type, &value);
}

void RandomBody::appendBytes(DBusMessageIter& iterator, int size) {
    const QByteArray bytes(size, static_cast<char>(below(256)));
    const char* data = bytes.constData();
    DBusMessageIter inner;
    dbus_message_iter_open_container(&iterator, DBUS_TYPE_ARRAY, "y", &inner);
    dbus_message_iter_append_fixed_array(&inner, DBUS_TYPE_BYTE, &data, size);
    dbus_message_iter_close_container(&iterator, &inner);
}
