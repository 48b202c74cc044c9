// The signals that ask the demo to end early, as something an event loop can wait for.
#pragma once

#include <QObject>

class Interruption : public QObject {
    Q_OBJECT
public:
    /// From here on the signals of Ctrl-C, of `kill` and of a closed terminal no longer end the process by
    /// themselves. There is one such object in a program.
    Interruption();

    /// The signal that arrived first; 0 while there was none.
    int signalNumber() const;

Q_SIGNALS:
    void arrived();
};
