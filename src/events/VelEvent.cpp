// The event record.
#include "events/VelEvent.h"

namespace {

QString typeNameOf(const QVariant& value) {
    return QString::fromLatin1(value.typeName());
}

} // namespace

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
    m_arguments.insert(name, value);
    if (recordType)
        addArgType(name, typeNameOf(value));
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
    return m_arguments[name];
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
    m_argTypes.insert(name, type);
}

void VelEvent::addArgTypes() {
    for (auto argument = m_arguments.cbegin(); argument != m_arguments.cend(); ++argument)
        addArgType(argument.key(), typeNameOf(argument.value()));
}

bool VelEvent::operator==(const VelEvent& other) const {
    for (auto argument = m_arguments.cbegin(); argument != m_arguments.cend(); ++argument) {
        if (argument.value() != other.getArgument(argument.key()))
            return false;
    }
    return true;
}
