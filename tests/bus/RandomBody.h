// The arguments of messages as only somebody would send them who wants to know what happens: of every type that D-Bus
// allows, nested, empty, long and deep.
#pragma once

#include <QByteArray>

#include <dbus/dbus.h>

#include <random>

class RandomBody {
public:
    /// The same seed gives the same bodies.
    explicit RandomBody(unsigned seed) : m_random(seed) {}

    /// A number from 0 on, below `end`.
    int below(int end) { return static_cast<int>(m_random() % static_cast<unsigned>(end)); }

    /// Appends some values of random types; now and then none, and now and then as much or as deep as a bus carries.
    void append(DBusMessageIter& iterator);

    /// Appends random values of the types in `signature`.
    void appendOf(DBusMessageIter& iterator, const char* signature);

private:
    QByteArray randomType(int arrays, int structures, int longest);
    QByteArray deepType();
    QByteArray randomText();
    void appendValue(DBusMessageIter& iterator, DBusSignatureIter& type, int level);
    void appendBasic(DBusMessageIter& iterator, int type);
    void appendVariant(DBusMessageIter& iterator, int level);
    void appendBytes(DBusMessageIter& iterator, int size);
    int elementCount();

    std::mt19937 m_random;
    int m_valuesLeft = 0; // in this body; containers are empty from then on
};
