// The exception net's four clauses.
#include "app/VelExceptionNet.h"

#include "errors/ThrownText.h"
#include "errors/VelException.h"
#include "log/GuardedLog.h"

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

} // namespace

void velLogCurrentException() {
    try {
        logByClause();
    } catch (abi::__forced_unwind&) {
        throw; // the thread is being cancelled while it logs
    } catch (...) {
        // Logging itself failed (no memory, a throwing logger): the net must hold all the same.
    }
}
