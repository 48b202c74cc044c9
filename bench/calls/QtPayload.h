// What the Qt programs send, and whether the same came back.
#pragma once

#include "support/Calling.h"

#include <QDBusArgument>
#include <QDBusMessage>
#include <QVariantMap>

inline QVariant payload(bool isText) {
    if (isText)
        return QString::fromLatin1(measure::sentText);
    return QVariantMap{{"count", 42},
                       {"flag", true},
                       {"ratio", 2.5},
                       {"tags", QStringList{"red", "green", "blue"}},
                       {"title", QStringLiteral("a title")}};
}

inline QString method(bool isText) {
    return isText ? QStringLiteral("text") : QStringLiteral("map");
}

inline void checkReply(const QDBusMessage& reply, bool isText) {
    if (reply.type() != QDBusMessage::ReplyMessage)
        measure::fail(reply.errorMessage().toStdString());
    const QVariant value = reply.arguments().constFirst();
    if (isText)
        measure::require(value.toString().size() == int(std::char_traits<char>::length(measure::sentText)),
                         "wrong text");
    else
        measure::require(qdbus_cast<QVariantMap>(value).size() == measure::mapSize, "wrong map");
}
