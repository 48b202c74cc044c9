// The application object: a QCoreApplication whose event delivery is wrapped in the exception net.
#pragma once

#include "errors/VelDemangle.h"
#include "platform/VelExport.h"

#include <QCoreApplication>

/// The application object of a module; the main function creates it before its VelModule and runs exec() on it.
///
/// Whatever a slot, a timer, a queued call or a delivery from the bus throws and does not catch itself is caught in
/// notify(), logged and dropped; a second error line names the receiver. The event loop goes on with the next event.
class VEL_EXPORT VelApplication : public QCoreApplication {
    Q_OBJECT
public:
    /// `argc` and `argv` must live as long as the application, as QCoreApplication demands.
    VelApplication(int& argc, char** argv) : QCoreApplication(argc, argv) {}

    ~VelApplication() override;

    /// Delivers one event; called by Qt, on whatever thread delivers it.
    ///
    /// Result:   what the delivery returned; false when it threw.
    bool notify(QObject* receiver, QEvent* event) override;
};
