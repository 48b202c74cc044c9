// Shortened before it is made visible: a text may be as long as a message of the bus.
#include "wire/Shown.h"

#include "wire/Printable.h"

namespace {

constexpr int longestName = 255; // as the bus allows

} // namespace

QString shown(const QString& text, int longest) {
    if (text.size() <= longest)
        return wire::printable(text);
    return wire::printable(text.left(longest / 2) + " ... " + text.right(longest / 2)) +
           QString(" (%1 characters)").arg(text.size());
}

QString quotedName(const QString& name) {
    return '\'' + shown(name, longestName) + '\'';
}
