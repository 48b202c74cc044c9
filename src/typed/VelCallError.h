// Why a typed call has no answer.
#pragma once

#include "platform/VelExport.h"

#include <QByteArray>
#include <QString>

#include <exception>

namespace vel {

/// What vel::call() throws, and what the second continuation of vel::ask() is given.
class VEL_EXPORT CallError : public std::exception {
public:
    /// An error called `name` of a call to `method` of `module`; `text` says what went wrong.
    CallError(const QString& module, const QString& method, const QString& name, const QString& text);
    ~CallError() override;

    /// "cannot call 'Tuner.tune': there is no preset 7 (org.freedesktop.DBus.Error.InvalidArgs)"
    const char* what() const noexcept override { return m_what.constData(); }

    const QString& name() const { return m_name; } ///< The D-Bus name of the error.
    const QString& text() const { return m_text; } ///< What the called module, the bus or this library says of it.

private:
    QString m_name;
    QString m_text;
    QByteArray m_what;
};

} // namespace vel
