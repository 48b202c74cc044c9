// Modules of this machine that others may see and call.
#pragma once

#include "Link.h"

#include <QMap>
#include <QSet>

class ExportedModules : public QObject {
    Q_OBJECT
public:
    explicit ExportedModules(Link& link);

    /// Subscribes, and tells what is there under the name of this connection.
    void connected(const QString& connection);
    void take(const Topic& topic, const MqttMessage& message);

    QStringList present() const { return m_owners.keys(); }
    qint64 called() const { return m_called; }
    qint64 refused() const { return m_refused; }

private:
    void takeSignal(DBusMessage* signal);
    void setOwner(const QString& module, const QString& owner);
    void tell(const QString& module);
    void call(const Topic& topic, const MqttMessage& message);

    Link& m_link;
    QMap<QString, QString> m_owners; // of exported modules that are on the bus
    QString m_connection;
    Rate m_rate;
    Once m_refusal;
    int m_pending = 0;
    qint64 m_called = 0;
    qint64 m_refused = 0;
};
