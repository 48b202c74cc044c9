// The exception net's four clauses.
#include "app/VelExceptionNet.h"

#include "app/Delivery.h"
#include "errors/ThrownText.h"
#include "errors/VelException.h"
#include "log/GuardedLog.h"
#include "log/SafeText.h"

#include <exception>
#include <memory>

namespace {

void logByClause() {
    try {
        throw;
    } catch (VelException* thrown) {
        const std::unique_ptr<VelException> exception(thrown); // thrown by pointer: nobody else will delete it
        vel::logError([&] {
            return QStringLiteral("VelException catch in VelApplication: ") +
                   (exception ? exception->m_message : QString());
        });
    } catch (const std::exception& exception) {
        vel::logError(
            [&] { return QStringLiteral("std exception catch in VelApplication: ") + QString(exception.what()); });
    } catch (const QString& text) {
        vel::logError([&] { return QStringLiteral("QString exception catch in VelApplication: ") + text; });
    } catch (...) {
        vel::logError([] {
            return QStringLiteral("Unknown exception catch in VelApplication: ") + vel::typeOfCurrentException();
        });
    }
}

void logDelivery(const vel::Delivery& delivery, const QString& thrown) {
    vel::logError([&] {
        const QString name = delivery.receiverName.isEmpty()
                                 ? QString()
                                 : QStringLiteral(" (object name %1)").arg(vel::quoted(delivery.receiverName));
        return QStringLiteral("cannot deliver a call to '%1'%2: it threw %3; the module goes on")
            .arg(vel::nameOfType(delivery.receiverClass), name, thrown);
    });
}

} // namespace

void vel::logCurrentException(const Delivery* delivery) {
    try {
        // First, since the net deletes what was thrown by pointer.
        const QString thrown = delivery ? describeCurrentException() : QString();
        logByClause();
        if (delivery)
            logDelivery(*delivery, thrown);
    } catch (abi::__forced_unwind&) {
        throw; // the thread is being cancelled while it logs
    } catch (...) {
        // Logging itself failed (no memory, a throwing logger): the net must hold all the same.
    }
}

void velLogCurrentException() {
    vel::logCurrentException(nullptr);
}
