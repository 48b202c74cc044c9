// The supervisor's methods. Their results are sent later, so what they return is never looked at.
#include "SupervisorAdaptor.h"

#include "ApplicationManager.h"

#include <QDBusMetaType>

SupervisorAdaptor::SupervisorAdaptor(ApplicationManager* manager) : QDBusAbstractAdaptor(manager), m_manager(*manager) {
    qDBusRegisterMetaType<QList<QVariantMap>>();
}

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

QList<QVariantMap> SupervisorAdaptor::modules() {
    return m_manager.modules();
}

QStringList SupervisorAdaptor::save() {
    m_manager.save(QString());
    return {};
}

QStringList SupervisorAdaptor::save(const QString& modules) {
    m_manager.save(modules);
    return {};
}

QStringList SupervisorAdaptor::restore() {
    m_manager.restore(QString());
    return {};
}

QStringList SupervisorAdaptor::restore(const QString& modules) {
    m_manager.restore(modules);
    return {};
}
