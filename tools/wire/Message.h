// A D-Bus message, held, and kept as bytes.
//
// Everything in this folder stands on libdbus, and on Qt Core for text and for parsing JSON; there is no event loop in
// it. A value is the place in a message where it stands, a DBusMessageIter: there is no second tree of values.
//
// Thread: every function may be called in any thread; one message belongs to one thread at a time.
// Errors: what a stranger wrote and what does not fit into a message end in a wire::Error. libdbus aborts the process
// for broken input, so nothing reaches it here that its own validators have not passed.
#pragma once

#include <QByteArray>
#include <QString>

#include <dbus/dbus.h>

#include <exception>
#include <functional>
#include <memory>

namespace wire {

/// Why something cannot be read, or be part of a message: a clause such as "256 is no value of type byte". It may hold
/// what a stranger wrote: see printable().
class Error : public std::exception {
public:
    explicit Error(const QString& text) : reason(text), m_utf8(text.toUtf8()) {}
    const char* what() const noexcept override { return m_utf8.constData(); }
    const QString reason;

private:
    const QByteArray m_utf8;
};

/// Takes the pieces of a text, in UTF-8, one after the other. A text can be eight times as long as its message: in
/// pieces it need not be in memory as a whole. A piece ends where a character ends.
using Sink = std::function<void(const QByteArray& piece)>;

struct Unref {
    void operator()(DBusMessage* message) const { dbus_message_unref(message); }
};

/// One reference to a message.
using Message = std::unique_ptr<DBusMessage, Unref>;

/// A message that libdbus has just made. Throws std::bad_alloc for null, its only reason to make none.
[[nodiscard]] Message made(DBusMessage* message);

/// The whole message as it goes over a connection, and back. A message without a serial number gets 1 as its number,
/// since libdbus writes none without. `fromBytes` takes exactly one message.
[[nodiscard]] QByteArray toBytes(DBusMessage* message);
[[nodiscard]] Message fromBytes(const QByteArray& bytes);

} // namespace wire
