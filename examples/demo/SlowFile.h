// A file that is read no faster than the demo writes it: a reader waits in the middle.
#pragma once

#include <QByteArray>
#include <QString>

class SlowFile {
public:
    /// Makes a named pipe and keeps it open, so that a reader neither fails nor comes to its end.
    explicit SlowFile(const QString& path);
    ~SlowFile();

    const QString& path() const { return m_path; }

    /// Writes the content and closes: readers come to the end.
    void finish(const QByteArray& content);

private:
    Q_DISABLE_COPY(SlowFile)

    const QString m_path;
    int m_descriptor;
};
