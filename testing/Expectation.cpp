// Conditions on what passed on the bus, and the texts of both.
#include "testing/Expectation.h"

#include <QStringList>

#include <algorithm>

namespace vel::testing {

namespace {

QString quoted(const QString& text) {
    QString inside = text;
    inside.replace('\\', "\\\\").replace('"', "\\\"").replace('\n', "\\n");
    return '"' + inside + '"';
}

QString entriesOf(const QVariantMap& map) {
    QStringList parts;
    for (auto entry = map.begin(); entry != map.end(); ++entry)
        parts << entry.key() + ": " + textOf(entry.value());
    return parts.join(", ");
}

QString elementsOf(const QVariantList& list) {
    QStringList parts;
    for (const QVariant& value : list)
        parts << textOf(value);
    return parts.join(", ");
}

// QVariant calls the number 40 and the text "40" equal: a test must not. What travels has no other containers than
// these, so a list of ints is compared as the list that arrives.
bool areEqual(const QVariant& one, const QVariant& other) {
    if (one.userType() == QMetaType::QVariantList) {
        if (!other.canConvert<QVariantList>())
            return false;
        const QVariantList ours = one.toList();
        const QVariantList theirs = other.toList();
        return std::equal(ours.begin(), ours.end(), theirs.begin(), theirs.end(), areEqual);
    }
    if (one.userType() == QMetaType::QVariantMap) {
        if (!other.canConvert<QVariantMap>())
            return false;
        const QVariantMap ours = one.toMap();
        const QVariantMap theirs = other.toMap();
        return ours.keys() == theirs.keys() &&
               std::equal(ours.begin(), ours.end(), theirs.begin(), theirs.end(), areEqual);
    }
    return one.userType() == other.userType() && one == other;
}

} // namespace

QString textOf(const QVariant& value) {
    switch (value.userType()) {
    case QMetaType::Bool:
        return value.toBool() ? "true" : "false";
    case QMetaType::QString:
        return quoted(value.toString());
    case QMetaType::QByteArray:
        return "bytes " + QString::fromLatin1(value.toByteArray().toHex(' '));
    case QMetaType::QVariantMap:
        return '{' + entriesOf(value.toMap()) + '}';
    case QMetaType::QStringList:
    case QMetaType::QVariantList:
        return '[' + elementsOf(value.toList()) + ']';
    default:
        return QString("%1 %2").arg(value.isValid() ? value.typeName() : "no value", value.toString()).trimmed();
    }
}

QString Passed::text() const {
    if (kind == Call)
        return QString("call %1.%2(%3)").arg(module, name, elementsOf(values));
    return QString("event %1(%2) from %3").arg(name, entriesOf(arguments), module);
}

Expectation Expectation::from(const QString& module) const {
    Expectation narrower = *this;
    narrower.m_wanted.module = module;
    return narrower;
}

Expectation Expectation::with(const QString& argument, const QVariant& value) const {
    Expectation narrower = *this;
    narrower.m_wanted.arguments.insert(argument, value);
    return narrower;
}

Expectation Expectation::withExactly(const QVariantMap& arguments) const {
    Expectation narrower = *this;
    narrower.m_wanted.arguments = arguments;
    narrower.m_isExact = true;
    return narrower;
}

Expectation Expectation::withValues(const QVariantList& values) const {
    Expectation narrower = *this;
    narrower.m_wanted.values = values;
    narrower.m_isExact = true;
    return narrower;
}

bool Expectation::isMetBy(const Passed& passed) const {
    const auto isAnyOr = [](const QString& wanted, const QString& is) { return wanted.isEmpty() || wanted == is; };
    if (m_wanted.kind != passed.kind || !isAnyOr(m_wanted.module, passed.module) ||
        !isAnyOr(m_wanted.name, passed.name))
        return false;
    if (m_isExact &&
        (m_wanted.arguments.size() != passed.arguments.size() || !areEqual(passed.values, m_wanted.values)))
        return false;
    for (auto argument = m_wanted.arguments.begin(); argument != m_wanted.arguments.end(); ++argument) {
        if (!areEqual(passed.arguments.value(argument.key()), argument.value()))
            return false;
    }
    return true;
}

QString Expectation::text() const {
    const bool isCall = m_wanted.kind == Passed::Call;
    const QString inside = isCall ? elementsOf(m_wanted.values) : entriesOf(m_wanted.arguments);
    const QString values = m_isExact ? '(' + inside + ')' : inside.isEmpty() ? QString() : '(' + inside + ", ...)";
    const QString name = (m_wanted.name.isEmpty() ? "..." : m_wanted.name) + values;
    if (isCall)
        return QString("call %1.%2").arg(m_wanted.module, name);
    return "event " + name + (m_wanted.module.isEmpty() ? QString() : " from " + m_wanted.module);
}

Expectation published(const QString& name) {
    Passed wanted;
    wanted.name = name;
    return Expectation(wanted);
}

Expectation called(const QString& module, const QString& method) {
    Passed wanted;
    wanted.kind = Passed::Call;
    wanted.module = module;
    wanted.name = method;
    return Expectation(wanted);
}

} // namespace vel::testing
