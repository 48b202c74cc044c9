// The topics under which machines meet on the broker.
#include "Topics.h"

#include "bus/BusNames.h"

#include <QRegularExpression>
#include <QStringList>

#include <algorithm>

namespace {

const QString root = QStringLiteral("vel/1/");

// A kind's name and how many names follow it, in the order of Topic::Kind.
const struct {
    const char* name;
    int names;
} kinds[] = {{"", 0}, {"state", 0}, {"module", 1}, {"event", 2}, {"call", 2}, {"answer", 1}, {"received", 1}};

bool isModuleName(const QString& name) {
    return vel::bus::isValidMemberName(name) && vel::bus::isReachable(name);
}

bool areNamesOf(Topic::Kind kind, const QStringList& names) {
    switch (kind) {
    case Topic::Module:
        return isModuleName(names[0]);
    case Topic::Event:
    case Topic::Call:
        return isModuleName(names[0]) && vel::bus::isValidMemberName(names[1]);
    case Topic::Answer:
    case Topic::Received:
        return isMachineName(names[0]);
    default:
        return true;
    }
}

} // namespace

Topic Topic::parse(const QString& text) {
    constexpr int longest = 1024; // far above what valid names make
    if (text.size() > longest || !text.startsWith(root))
        return {};
    const QStringList parts = text.mid(root.size()).split('/');
    for (int kind = State; kind <= Received; ++kind) {
        if (parts.size() != 2 + kinds[kind].names || parts[1] != kinds[kind].name)
            continue;
        const QStringList names = parts.mid(2);
        if (isMachineName(parts[0]) && areNamesOf(static_cast<Kind>(kind), names))
            return {static_cast<Kind>(kind), parts[0], names.value(0), names.value(1)};
    }
    return {};
}

QString Topic::text() const {
    QString result = root + machine + '/' + kinds[kind].name;
    if (kinds[kind].names > 0)
        result += '/' + first;
    if (kinds[kind].names > 1)
        result += '/' + second;
    return result;
}

bool isMachineName(const QString& name) {
    static const QRegularExpression form("\\A[A-Za-z0-9_-]{1,64}\\z");
    return form.match(name).hasMatch();
}

bool isAnswerTopic(const QString& topic, const QString& machine) {
    constexpr int mostNames = 4;
    const QString own = root + machine + "/answer/";
    if (!topic.startsWith(own))
        return false;
    const QStringList names = topic.mid(own.size()).split('/');
    return names.size() <= mostNames && std::all_of(names.begin(), names.end(), isMachineName);
}
