// The exception net's four clauses.
#include "app/VelExceptionNet.h"

#include "app/VelApplication.h"
#include "errors/VelException.h"
#include "platform/GuardedLog.h"

#include <cstdlib>
#include <exception>
#include <memory>
#include <typeinfo>

namespace {

QString currentExceptionType() {
    const std::type_info* type = abi::__cxa_current_exception_type();
    if (!type)
        return QStringLiteral("foreign"); // thrown by another language's runtime
    const char* name = type->name();
    return QString::fromStdString(util_demangle(*name == '*' ? name + 1 : name));
}

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
        vel::logError(
            [] { return QStringLiteral("Unknown exception catch in VelApplication: ") + currentExceptionType(); });
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

std::string util_demangle(std::string name) {
    int status = 0;
    const std::unique_ptr<char, void (*)(void*)> readable(abi::__cxa_demangle(name.c_str(), nullptr, nullptr, &status),
                                                          std::free);
    return readable ? std::string(readable.get()) : name;
}
