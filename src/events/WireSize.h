// How many bytes values take in a D-Bus message.
#pragma once

#include <QMap>
#include <QString>
#include <QVariant>

class QDBusArgument;

namespace vel {

/// Counts what Qt's marshaller will write, value by value, paddings included. Only for values that have a D-Bus form.
///
/// Exact for all that Qt knows by itself, for events, for registered lists and maps, and for what was received. What a
/// structure writes that a module has registered is known to its own operator alone: it counts as one padding.
class WireSize {
public:
    void addText(const QString& text);                  ///< s
    void addValue(const QVariant& value);               ///< the value alone
    void addVariant(const QVariant& value);             ///< v: its signature before it
    void addTextMap(const QMap<QString, QString>& map); ///< a{ss}
    template <typename Map>
    void addVariantMap(const Map& map); ///< a{sv}
    void addEvent(const QString& name, const QString& context, const QMap<QString, QString>& types,
                  const QVariantMap& arguments);

    qint64 bytes() const { return m_bytes; }
    qint64 largestArray() const { return m_largestArray; }

private:
    void pad(int alignment);
    void add(int alignment, qint64 size);
    void addSignature(const QByteArray& signature);
    void addReceived(const QDBusArgument& argument);
    bool addContainer(const QVariant& value, const char* signature);
    template <typename AddElements>
    void addArray(char elementType, AddElements&& addElements);

    qint64 m_bytes = 0;
    qint64 m_largestArray = 0;
};

} // namespace vel
