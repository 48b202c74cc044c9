// The answer to a call from the bus, given when the work is done and not when the called method returns.
#pragma once

#include "wire/Shown.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QVariant>

/// A value; every copy answers the same call. The default one answers nobody: for work that no call asked for.
class LateAnswer {
public:
    LateAnswer() = default;
    LateAnswer(const QDBusMessage& call, const QDBusConnection& connection) : m_call(call), m_connection(connection) {}

    void give(const QVariant& value) const {
        if (m_call.isReplyRequired())
            m_connection.send(m_call.createReply(value));
    }

    /// Answers with an error of that text.
    void refuse(const QString& text) const {
        if (m_call.isReplyRequired())
            m_connection.send(m_call.createErrorReply("org.freedesktop.DBus.Error.Failed", shown(text, longest)));
    }

private:
    static constexpr int longest = 256 * 1024; // characters: a reason for each of the modules that there can be

    QDBusMessage m_call;
    QDBusConnection m_connection{QString()};
};
