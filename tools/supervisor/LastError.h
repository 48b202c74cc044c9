// The last error line of a module's process, which is still there when the process is not.
#pragma once

#include <QString>

/// A piece of memory that the process is told of, and writes its last error line into; see VEL_LAST_ERROR.
class LastError {
public:
    LastError();
    ~LastError();

    /// How the process finds it: the variable's value. Empty when there is no memory for it.
    QString path() const;

    void clear();

    /// What was written since the last clear(); empty for a process that writes none.
    QString text() const;

private:
    Q_DISABLE_COPY(LastError)

    int m_file;
};
