// QVariants in a message of libdbus.
//
//   b y n q i u x t d   bool, uchar, short, ushort, int, uint, qlonglong, qulonglong, double
//   s, o, g             QString
//   as, ay              QStringList, QByteArray
//   v                   what is in it; when written, the element of a list or a map
//   other arrays and structures, dictionaries      QVariantList, QVariantMap (with its keys as text)
#pragma once

#include <QVariant>

#include <dbus/dbus.h>

namespace vel::testing {

/// The value at which the iterator stands. A file descriptor gives an invalid QVariant.
QVariant readValue(DBusMessageIter* at);

/// All values of a message.
QVariantList readValues(DBusMessage* message);

/// Whether appendValue() can write it: what the table above has, lists written as "av", maps as "a{sv}"; everything in
/// them as well.
bool canAppend(const QVariant& value);

/// Precondition: canAppend().
void appendValue(DBusMessageIter* to, const QVariant& value);

/// The structure of an event.
void appendEvent(DBusMessageIter* to, const QString& name, const QVariantMap& arguments);

} // namespace vel::testing
