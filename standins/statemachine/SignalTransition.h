// A transition on a signal, safe against the end of its sender and of its target.
#pragma once

#include <QSignalTransition>

namespace automatonZeta {

class SignalTransition final : public QSignalTransition {
public:
    SignalTransition(QObject* sender, const char* signal, QAbstractState* target);

protected:
    bool eventTest(QEvent* event) override;
};

} // namespace automatonZeta
