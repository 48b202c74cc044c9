// Making text that a stranger may have written safe for a terminal and for a log.
#include "wire/Printable.h"

namespace wire {

namespace {

bool disturbs(unsigned code) {
    return code < 0x20 || (code >= 0x7f && code < 0xa0) || code == 0x61c || code == 0x200e || code == 0x200f ||
           (code >= 0x2028 && code <= 0x202e) || (code >= 0x2066 && code <= 0x2069) || code == 0xfeff;
}

void appendVisible(QByteArray& to, unsigned code) {
    switch (code) {
    case '\n':
        to.append("\\n");
        return;
    case '\r':
        to.append("\\r");
        return;
    case '\t':
        to.append("\\t");
        return;
    default:
        static const char digits[] = "0123456789abcdef";
        to.append("\\u");
        for (int shift = 12; shift >= 0; shift -= 4)
            to.append(digits[code >> shift & 0xf]);
    }
}

// The character at `at`, when it has one to three bytes, as all have that disturb; their number is `length` then.
unsigned codeAt(const QByteArray& utf8, int at, int& length) {
    const auto byte = [&](int index) { return index < utf8.size() ? static_cast<unsigned char>(utf8.at(index)) : 0U; };
    const unsigned first = byte(at);
    length = first < 0x80 ? 1 : first >= 0xc2 && first < 0xe0 ? 2 : (first & 0xf0) == 0xe0 ? 3 : 0;
    switch (length) {
    case 1:
        return first;
    case 2:
        return (first & 0x1f) << 6 | (byte(at + 1) & 0x3f);
    case 3:
        return (first & 0x0f) << 12 | (byte(at + 1) & 0x3f) << 6 | (byte(at + 2) & 0x3f);
    default:
        return ' ';
    }
}

} // namespace

QByteArray printable(const QByteArray& utf8) {
    QByteArray result;
    int copied = 0;
    for (int at = 0; at < utf8.size();) {
        int length = 0;
        const unsigned code = codeAt(utf8, at, length);
        if (length > 0 && disturbs(code)) {
            result.append(utf8.constData() + copied, at - copied);
            appendVisible(result, code);
            copied = at + length;
        }
        at += length > 0 ? length : 1;
    }
    return copied == 0 ? utf8 : result + utf8.mid(copied);
}

QString printable(const QString& text) {
    return QString::fromUtf8(printable(text.toUtf8()));
}

} // namespace wire
