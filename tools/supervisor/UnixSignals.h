// Signals of the operating system as something the event loop tells about.
#pragma once

#include <QObject>

class UnixSignals : public QObject {
    Q_OBJECT
public:
    /// The one of this process. From the first call on SIGTERM, SIGINT and SIGHUP no longer end the process; one of them
    /// that was ignored before (by "nohup") stays so.
    static UnixSignals& instance();

Q_SIGNALS:
    /// Once for each of the three.
    void endRequested();

    /// A child process has ended, or was stopped or resumed; one signal may stand for several children.
    void childChanged();

private:
    UnixSignals();
    void read();
};
