// What a wait or an expectation came to, in a form that every test framework can show.
#pragma once

#include <QByteArray>
#include <QString>

namespace vel::testing {

/// True, or false with the reason: what was expected and what came instead.
///
/// It says nothing by itself. <testing/QtTest.h>, <testing/GoogleTest.h> and <testing/Assert.h> each have the macros
/// that hand it to a framework; if() and QVERIFY() take it as a bool.
///
/// Thread:   a value, any.
class [[nodiscard]] Result {
public:
    static Result success() { return Result(QString(), true); }
    static Result failure(const QString& message) { return Result(message, false); }

    operator bool() const { return m_isSuccess; } // not explicit: a test takes it where it took a bool

    /// Lines for a person; empty for a success.
    const QString& message() const { return m_message; }

    /// The same as a framework takes it.
    QByteArray text() const { return m_message.toUtf8(); }

private:
    Result(const QString& message, bool isSuccess) : m_message(message), m_isSuccess(isSuccess) {}

    QString m_message;
    bool m_isSuccess;
};

} // namespace vel::testing
