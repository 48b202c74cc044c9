// The event record.
#include "events/VelEvent.h"

#include "events/ArgumentType.h"

VelEvent::VelEvent() = default;

VelEvent::VelEvent(const QString& evtName, QVariantMap args, QString context)
    : m_evtName(evtName), m_context(std::move(context)), m_arguments(std::move(args)) {
    addArgTypes();
}

VelEvent::VelEvent(const VelEvent& other)
    : QObject(), m_evtName(other.getEvtName()), m_context(other.getContext()), m_arguments(other.getArguments()),
      m_argTypes(other.getArgTypes()) {}

VelEvent::~VelEvent() = default;

void VelEvent::addArgument(const QVariant& value, const QString& name, bool recordType) {
    m_arguments.insert(m_arguments.cend(), name, value); // most likely the last one: events are read in this order
    if (recordType)
        addArgType(name, vel::typeNameOf(value));
}

void VelEvent::addArgument(const QVariant& value, const QString& name) {
    addArgument(value, name, true);
}

void VelEvent::addArgument(const QVariant& value, int index, const QString& name) {
    addArgument(value, generateIndexedArgumentName(name, index), true);
}

QVariant VelEvent::getArgument(const QString& name) const {
    return m_arguments.value(name);
}

QVariant VelEvent::getArgument(int index, const QString& name) const {
    return getArgument(generateIndexedArgumentName(name, index));
}

QVariant VelEvent::getArgument(const QString& name) {
    // Looked for before it is added: a slot's event shares its arguments with the message, and would get all of them anew.
    const auto known = m_arguments.constFind(name);
    return known != m_arguments.cend() ? *known : *m_arguments.insert(name, QVariant());
}

QVariant VelEvent::getArgument(int index, const QString& name) {
    return getArgument(generateIndexedArgumentName(name, index));
}

void VelEvent::setArguments(const QVariantMap& args) {
    m_arguments = args;
    addArgTypes();
}

QString VelEvent::generateIndexedArgumentName(const QString& name, int index) {
    return QStringLiteral("%1_%2").arg(name).arg(index);
}

void VelEvent::addArgType(const QString& name, const QString& type) {
    m_argTypes.insert(m_argTypes.cend(), name, type);
}

void VelEvent::addArgTypes() {
    // Both maps are in the order of the names, so each type name most likely goes to the end.
    for (auto argument = m_arguments.cbegin(); argument != m_arguments.cend(); ++argument)
        m_argTypes.insert(m_argTypes.cend(), argument.key(), vel::typeNameOf(argument.value()));
}

bool VelEvent::operator==(const VelEvent& other) const {
    for (auto argument = m_arguments.cbegin(); argument != m_arguments.cend(); ++argument) {
        if (argument.value() != other.getArgument(argument.key()))
            return false;
    }
    return true;
}
