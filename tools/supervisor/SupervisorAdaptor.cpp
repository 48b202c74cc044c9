// The supervisor's methods. Their results are sent later, so what they return is never looked at.
#include "SupervisorAdaptor.h"

#include "ApplicationManager.h"

namespace {

QStringList namesIn(const QString& text) {
    return text.simplified().split(' ', Qt::SkipEmptyParts);
}

} // namespace

SupervisorAdaptor::SupervisorAdaptor(ApplicationManager* manager)
    : QDBusAbstractAdaptor(manager), m_manager(*manager) {}

QString SupervisorAdaptor::startModule(const QString& module) {
    m_manager.startModule(module);
    return QString();
}

QString SupervisorAdaptor::stopModule(const QString& module) {
    m_manager.stopModule(module);
    return QString();
}

QString SupervisorAdaptor::restartModule(const QString& module) {
    m_manager.restartModule(module);
    return QString();
}

QStringList SupervisorAdaptor::listModules() {
    return m_manager.listModules();
}

QStringList SupervisorAdaptor::save() {
    m_manager.save({});
    return {};
}

QStringList SupervisorAdaptor::save(const QString& modules) {
    m_manager.save(namesIn(modules));
    return {};
}

QStringList SupervisorAdaptor::restore() {
    m_manager.restore({});
    return {};
}

QStringList SupervisorAdaptor::restore(const QString& modules) {
    m_manager.restore(namesIn(modules));
    return {};
}
