// Appending values to a message, within every limit of the bus.
//
// libdbus refuses little while a message is written: it aborts for text that is no UTF-8, and it lets arrays, nesting
// and messages grow beyond what a bus takes, which then ends the connection. So the limits stand here, and are looked
// at before each value is appended: the time until a refusal is in proportion to what was appended before it.
#pragma once

#include "wire/Message.h"
#include "wire/Types.h"

#include <type_traits>

namespace wire {

/// How many containers may stand around a value, entries of dictionaries counted. libdbus itself takes one more.
constexpr int deepestNesting = 2 * DBUS_MAXIMUM_TYPE_RECURSION_DEPTH - 1;

/// Appends to the body of one message, which has none yet.
///
/// Errors: each function throws an Error for a value that the bus does not take: not valid for its type, nested too
///         deeply, an array over 64 MiB, a body over 128 MiB, a signature over 255 characters. std::bad_alloc when
///         memory ends. The message is then good for nothing but to be dropped.
/// Do not:  append a value of another type than the container around it holds: libdbus aborts. That is the
///          caller's to know, as is the content of a file descriptor, for which there is no function.
class Appender {
public:
    explicit Appender(DBusMessage* message);
    Appender(const Appender&) = delete;
    Appender& operator=(const Appender&) = delete;

    /// A number: `type` is the code of `Number`, one of y n q i u x t d.
    template <typename Number>
    void number(char type, Number value) {
        static_assert(std::is_arithmetic_v<Number> && !std::is_same_v<Number, bool>, "a truth is no number");
        fixed(type, &value, sizeof value);
    }
    void truth(bool value);

    /// An "s", "o" or "g".
    void text(char type, const QByteArray& utf8);
    void text(char type, const QString& utf16);

    /// An "ay".
    void bytes(const QByteArray& content);

    /// An array, a structure, or an entry of a dictionary; `fill` appends what is in it.
    template <typename Fill>
    void container(const QByteArray& type, Fill fill) {
        const Open open(*this, type, isArray(type) ? type.mid(1) : QByteArray());
        fill();
        open.close();
    }

    /// A variant; `fill` appends the one value of `type` that is in it.
    template <typename Fill>
    void variant(const QByteArray& type, Fill fill) {
        const Open open(*this, "v", type);
        fill();
        open.close();
    }

private:
    // A container that has been opened: libdbus keeps memory for it until it is closed or abandoned.
    class Open {
    public:
        Open(Appender& appender, const QByteArray& type, const QByteArray& content);
        ~Open();
        void close() const;

    private:
        Appender& m_appender;
        DBusMessageIter* const m_outer;
        mutable DBusMessageIter m_inner;
        const qint64 m_outerEnd;
        mutable bool m_isOpen = true;
    };

    void fixed(char type, const void* value, int size);
    void grow(int alignment, qint64 size);
    void countType(int length);

    DBusMessageIter m_body;
    DBusMessageIter* m_at = &m_body;
    int m_depth = 0;
    int m_signatureLength = 0;
    qint64 m_size = 0; // of the body so far
    qint64 m_end;      // which the body must not pass: the message's limit, or that of an array around
};

} // namespace wire
