// What somebody has thrown, in words.
#include "errors/ThrownText.h"

#include "errors/VelDemangle.h"
#include "errors/VelException.h"
#include "log/SafeText.h"

#include <cxxabi.h>
#include <exception>
#include <typeinfo>

QString vel::typeOfCurrentException() {
    const std::type_info* type = abi::__cxa_current_exception_type();
    if (!type)
        return QStringLiteral("foreign"); // thrown by another language's runtime
    const char* name = type->name();
    return QString::fromStdString(util_demangle(*name == '*' ? name + 1 : name));
}

QString vel::nameOfType(const std::type_info& type) {
    return QString::fromStdString(util_demangle(type.name())).remove(QLatin1String("(anonymous namespace)::"));
}

QString vel::describeCurrentException() {
    const auto withText = [](const QString& text) {
        return typeOfCurrentException() + QLatin1Char(' ') + quoted(text);
    };
    try {
        throw;
    } catch (const QString& text) {
        return quoted(text);
    } catch (const std::exception& exception) {
        return withText(QString::fromUtf8(exception.what()));
    } catch (const VelException* exception) {
        return QStringLiteral("VelException ") + quoted(exception ? exception->m_message : QString());
    } catch (...) {
        return typeOfCurrentException();
    }
}
