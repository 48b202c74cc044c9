// What ends the play early, thrown by what waits.
#pragma once

#include <QString>

/// Something expected did not happen.
struct Missing {
    QString what;
};

/// Somebody outside asked the demo to end.
struct Interrupted {};
