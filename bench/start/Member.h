// What the Vel module and the plain Qt program have in common: they report on their output and obey their input.
#pragma once

#include "start/Say.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QSocketNotifier>

#include <functional>
#include <string>
#include <unistd.h>

namespace member {

/// Says `word` when the bus has taken what was sent so far and the event loop has done what was queued so far: a
/// question to the bus goes behind the one, and its answer behind the other.
inline void sayWhenSettled(const char* word) {
    const QDBusMessage question =
        QDBusMessage::createMethodCall(QStringLiteral("org.freedesktop.DBus"), QStringLiteral("/org/freedesktop/DBus"),
                                       QStringLiteral("org.freedesktop.DBus"), QStringLiteral("GetId"));
    auto* answer = new QDBusPendingCallWatcher(QDBusConnection::sessionBus().asyncCall(question));
    QObject::connect(answer, &QDBusPendingCallWatcher::finished, [answer, word] {
        answer->deleteLater();
        say(word);
    });
}

/// Hands each line of the input to `obey`.
class Orders : public QSocketNotifier {
public:
    explicit Orders(std::function<void(const std::string&)> obey)
        : QSocketNotifier(STDIN_FILENO, QSocketNotifier::Read), m_obey(std::move(obey)) {
        connect(this, &QSocketNotifier::activated, this, [this] { read(); });
    }

private:
    void read() {
        char part[256];
        const ssize_t size = ::read(STDIN_FILENO, part, sizeof part);
        if (size <= 0)
            _exit(0); // the driver is gone
        m_text.append(part, size_t(size));
        for (size_t end = m_text.find('\n'); end != std::string::npos; end = m_text.find('\n')) {
            m_obey(m_text.substr(0, end));
            m_text.erase(0, end + 1);
        }
    }

    const std::function<void(const std::string&)> m_obey;
    std::string m_text;
};

/// Five arguments, of the types that events have most.
inline QVariantMap arguments() {
    return {{QStringLiteral("number"), 42},
            {QStringLiteral("flag"), true},
            {QStringLiteral("ratio"), 0.75},
            {QStringLiteral("text"), QStringLiteral("a text of common length")},
            {QStringLiteral("names"), QStringList{QStringLiteral("one"), QStringLiteral("two")}}};
}

} // namespace member
