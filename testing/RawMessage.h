// A message of libdbus, and its containers: what is sent that Qt would never send is written with these.
#pragma once

#include <dbus/dbus.h>

#include <memory>

struct Unref {
    void operator()(DBusMessage* message) const { dbus_message_unref(message); }
};
using RawMessage = std::unique_ptr<DBusMessage, Unref>;

/// An open container of a message; closed when this object ends.
class RawContainer {
public:
    /// `contents` is the signature of an array's or a variant's content; null for the others.
    RawContainer(DBusMessageIter& parent, int kind, const char* contents = nullptr) : m_parent(parent) {
        dbus_message_iter_open_container(&m_parent, kind, contents, &m_iterator);
    }
    ~RawContainer() { dbus_message_iter_close_container(&m_parent, &m_iterator); }
    RawContainer(const RawContainer&) = delete;
    RawContainer& operator=(const RawContainer&) = delete;

    operator DBusMessageIter&() { return m_iterator; }

    void flag(bool value) {
        const dbus_bool_t flag = value;
        dbus_message_iter_append_basic(&m_iterator, DBUS_TYPE_BOOLEAN, &flag);
    }
    void number(dbus_int32_t value) { dbus_message_iter_append_basic(&m_iterator, DBUS_TYPE_INT32, &value); }
    void natural(dbus_uint32_t value) { dbus_message_iter_append_basic(&m_iterator, DBUS_TYPE_UINT32, &value); }
    void large(dbus_uint64_t value) { dbus_message_iter_append_basic(&m_iterator, DBUS_TYPE_UINT64, &value); }
    void text(const char* value) { dbus_message_iter_append_basic(&m_iterator, DBUS_TYPE_STRING, &value); }

private:
    DBusMessageIter& m_parent;
    DBusMessageIter m_iterator;
};
