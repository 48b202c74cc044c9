// A named pipe in the role of a slow file.
#include "demo/SlowFile.h"

#include "demo/Missing.h"

#include <QFile>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <utility>

SlowFile::SlowFile(const QString& path) : m_path(path), m_descriptor(-1) {
    const QByteArray name = QFile::encodeName(path);
    // For reading, too: opening for writing alone would wait for the reader. No child may inherit it: the pipe would
    // never come to its end.
    if (mkfifo(name.constData(), 0600) == 0)
        m_descriptor = open(name.constData(), O_RDWR | O_CLOEXEC);
    if (m_descriptor < 0)
        throw Missing{QString("a named pipe '%1': %2").arg(path, qt_error_string())};
}

SlowFile::~SlowFile() {
    if (m_descriptor >= 0)
        close(m_descriptor);
    QFile::remove(m_path);
}

void SlowFile::finish(const QByteArray& content) {
    if (write(m_descriptor, content.constData(), static_cast<size_t>(content.size())) != content.size())
        throw Missing{QString("'%1' written in full: %2").arg(m_path, qt_error_string())};
    close(std::exchange(m_descriptor, -1));
}
