// Appending values to a message, within every limit of the bus.
#include "wire/Appender.h"

#include <algorithm>
#include <limits>
#include <new>

namespace wire {

namespace {

// What the header of a message takes at most here: its fields are names of at most 255 bytes, and a path.
constexpr qint64 largestHeader = 128 * 1024;
constexpr qint64 largestBody = DBUS_MAXIMUM_MESSAGE_LENGTH - largestHeader;

// Where a value of a type begins, from the wire format: a multiple of this.
int alignmentOf(char type) {
    switch (type) {
    case 'y':
    case 'g':
    case 'v':
        return 1;
    case 'n':
    case 'q':
        return 2;
    case 'x':
    case 't':
    case 'd':
    case '(':
    case '{':
        return 8;
    default:
        return 4;
    }
}

int codeOf(const QByteArray& type) {
    switch (type.at(0)) {
    case '(':
        return DBUS_TYPE_STRUCT;
    case '{':
        return DBUS_TYPE_DICT_ENTRY;
    default:
        return type.at(0);
    }
}

void require(dbus_bool_t done) {
    if (!done)
        throw std::bad_alloc();
}

bool isValid(char type, const char* text) {
    switch (type) {
    case 's':
        return dbus_validate_utf8(text, nullptr);
    case 'o':
        return dbus_validate_path(text, nullptr);
    default:
        return dbus_signature_validate(text, nullptr);
    }
}

} // namespace

Appender::Appender(DBusMessage* message) : m_end(largestBody) {
    dbus_message_iter_init_append(message, &m_body);
}

void Appender::grow(int alignment, qint64 size) {
    const qint64 start = (m_size + alignment - 1) / alignment * alignment;
    if (start + size > m_end)
        throw Error(m_end == largestBody ? QString("it is longer than a message can be, 128 MiB")
                                         : QString("an array in it is longer than one can be, 64 MiB"));
    m_size = start + size;
}

// The signature is that of the values that stand in no container.
void Appender::countType(int length) {
    if (m_depth > 0)
        return;
    m_signatureLength += length;
    if (m_signatureLength > DBUS_MAXIMUM_SIGNATURE_LENGTH)
        throw Error(QString("its signature is longer than %1 characters").arg(DBUS_MAXIMUM_SIGNATURE_LENGTH));
}

void Appender::fixed(char type, const void* value, int size) {
    countType(1);
    grow(size, size);
    require(dbus_message_iter_append_basic(m_at, type, value));
}

void Appender::truth(bool value) {
    const dbus_bool_t truth = value;
    fixed(DBUS_TYPE_BOOLEAN, &truth, sizeof truth);
}

void Appender::text(char type, const QByteArray& utf8) {
    const char* const content = utf8.constData();
    if (utf8.contains('\0') || !isValid(type, content))
        throw Error(QString("it holds what is no %1").arg(typeName(QByteArray(1, type))));
    countType(1);
    const int lengthField = alignmentOf(type); // of a signature one byte, of the others four
    grow(lengthField, lengthField + qint64(utf8.size()) + 1);
    require(dbus_message_iter_append_basic(m_at, type, &content));
}

void Appender::text(char type, const QString& utf16) {
    if (!utf16.isValidUtf16()) // half of a pair would become another text
        throw Error(QString("it holds what is no %1").arg(typeName(QByteArray(1, type))));
    text(type, utf16.toUtf8());
}

void Appender::bytes(const QByteArray& content) {
    container("ay", [&] {
        grow(1, content.size());
        const char* const first = content.constData();
        require(dbus_message_iter_append_fixed_array(m_at, DBUS_TYPE_BYTE, &first, content.size()));
    });
}

Appender::Open::Open(Appender& appender, const QByteArray& type, const QByteArray& content)
    : m_appender(appender), m_outer(appender.m_at), m_outerEnd(appender.m_end) {
    if (appender.m_depth == deepestNesting)
        throw Error(QString("it is nested deeper than %1 levels").arg(deepestNesting));
    appender.countType(type.size());
    if (isArray(type)) {
        constexpr int lengthField = 4;
        appender.grow(lengthField, lengthField);
        appender.grow(alignmentOf(content.at(0)), 0);
        appender.m_end = std::min(appender.m_end, appender.m_size + DBUS_MAXIMUM_ARRAY_LENGTH);
    } else if (type == "v") {
        constexpr int lengthAndZero = 2;
        appender.grow(1, lengthAndZero + content.size());
    } else {
        appender.grow(alignmentOf(type.at(0)), 0);
    }
    require(dbus_message_iter_open_container(m_outer, codeOf(type), content.isEmpty() ? nullptr : content.constData(),
                                             &m_inner));
    appender.m_at = &m_inner;
    ++appender.m_depth;
}

void Appender::Open::close() const {
    m_isOpen = false;
    require(dbus_message_iter_close_container(m_outer, &m_inner));
}

Appender::Open::~Open() {
    if (m_isOpen)
        dbus_message_iter_abandon_container(m_outer, &m_inner);
    m_appender.m_at = m_outer;
    m_appender.m_end = m_outerEnd;
    --m_appender.m_depth;
}

} // namespace wire
