// Events of other machines on their way to this machine's bus.
#pragma once

#include "Inbox.h"
#include "Link.h"

#include <QMap>
#include <QSet>

class EventsIn : public QObject {
    Q_OBJECT
public:
    explicit EventsIn(Link& link);

    void connected();
    void take(const Topic& topic, const MqttMessage& message);

    qint64 received() const { return m_received; }
    qint64 duplicates() const { return m_duplicates; }
    qint64 refused() const { return m_refused; }
    qint64 missed() const;

private:
    static constexpr qint64 firstPauseMs = 1000;

    struct Source {
        Inbox inbox;
        Rate rate{1};
        QByteArray again;   ///< changed when events are wanted once more
        qint64 askedAt = 0; ///< for them
        qint64 pauseMs = firstPauseMs;
        Once refusal;
        quint64 toldNumber = 0; ///< the number that the source was told last
    };

    void publish(const QString& machine, const Topic& topic, const MqttMessage& message);
    void refuse(Source& source, const QString& topic, const QString& reason);
    void note();
    void tell(const QString& machine, Source& source);

    Link& m_link;
    std::map<QString, Source> m_sources;
    QSet<QString> m_unwritten; // machines whose events the bus has not all taken
    QTimer m_telling;
    qint64 m_received = 0;
    qint64 m_duplicates = 0;
    qint64 m_refused = 0;
};
