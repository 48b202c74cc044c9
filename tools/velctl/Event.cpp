// An event as a person reads it.
#include "Event.h"

#include "wire/Printable.h"
#include "wire/Text.h"

#include "ModuleNames.h"

#include <QDateTime>
#include <QRegularExpression>

namespace velctl {

namespace {

constexpr int longestWord = 128 * 1024; // the kernel's limit for one argument of a command

// Quoted for the shell when it has to be. Made safe first: what becomes visible may have to be quoted.
QString shellWord(const QString& text) {
    QString visible = wire::printable(text);
    static const QRegularExpression plain("\\A[A-Za-z0-9_:=.,/@%+-]+\\z");
    if (plain.match(visible).hasMatch())
        return visible;
    return '\'' + visible.replace('\'', "'\\''") + '\'';
}

QString wordsOf(DBusMessage* signal) {
    QStringList words;
    if (wire::hasEventForm(signal)) {
        DBusMessageIter context = wire::fieldOf(signal, wire::Context);
        if (const QString text = textOf(context); !text.isEmpty())
            words += "--context " + shellWord(text);
        int length = 0;
        wire::forEachArgument(signal, [&](const char* name, DBusMessageIter& value) {
            words += shellWord(QString::fromUtf8(name).left(longestWord) + ":=" + wire::typeName(wire::typeOf(value)) +
                               ':' + textOf(value));
            length += words.last().size();
            if (length > longestWord)
                words += "...";
            return length <= longestWord;
        });
        return words.join(' ');
    }
    DBusMessageIter value;
    if (dbus_message_iter_init(signal, &value)) {
        do
            words += wire::typeName(wire::typeOf(value)) + ':' + textOf(value);
        while (dbus_message_iter_next(&value));
    }
    return "(not in the form of an event: " + words.join(", ").left(longestWord) + ')';
}

} // namespace

Row eventLine(DBusMessage* signal) {
    constexpr int moduleWidth = 16;
    constexpr int nameWidth = 20;
    const QString words = wordsOf(signal);
    const QString member = QString::fromUtf8(dbus_message_get_member(signal));
    return {{QDateTime::currentDateTime().toString("HH:mm:ss.zzz"), Colour::Grey},
            {"  "},
            {moduleOfPath(QString::fromUtf8(dbus_message_get_path(signal))).leftJustified(moduleWidth), Colour::Cyan},
            {" "},
            {words.isEmpty() ? member : member.leftJustified(nameWidth), Colour::Bold},
            {words.isEmpty() ? QString() : ' ' + words}};
}

QString textOf(DBusMessageIter& value) {
    QByteArray text;
    bool isCut = false;
    wire::writeText(&value, [&](const QByteArray& piece) {
        if (text.size() < longestWord)
            text += piece.left(longestWord);
        else
            isCut = true;
    });
    return QString::fromUtf8(text) + (isCut || text.size() >= longestWord ? "..." : "");
}

} // namespace velctl
