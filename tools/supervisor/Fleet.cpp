// After every change of any module all are looked at again: that is all the ordering there is. What is not ordered by its
// waiting starts, and ends, at the same time.
#include "Fleet.h"

#include "Log.h"

#include <algorithm>
#include <utility>

using State = SupervisedModule::State;

Fleet::Fleet(const Configuration& configuration, Guardian& guardian, Launcher* launcher) {
    int slot = 0;
    for (const ModuleConfiguration& one : configuration.modules) {
        m_modules.push_back(std::make_unique<SupervisedModule>(one, configuration.folder, guardian, launcher, slot++));
        connect(m_modules.back().get(), &SupervisedModule::changed, this, &Fleet::goOn);
        m_byName.insert(one.name, m_modules.back().get());
    }
}

SupervisedModule* Fleet::find(const QString& name) const {
    return m_byName.value(name);
}

void Fleet::start() {
    m_isHeld = true; // until all are known to wait: none of them is down by itself
    for (const auto& module : m_modules)
        module->want();
    hold(false);
}

void Fleet::hold(bool isHeld) {
    m_isHeld = isHeld;
    goOn();
}

void Fleet::stop() {
    m_isStopping = true;
    goOn();
}

void Fleet::kill() {
    m_isStopping = true;
    for (const auto& module : m_modules)
        module->kill();
}

bool Fleet::isDown() const {
    return std::none_of(m_modules.begin(), m_modules.end(), [](const auto& module) { return module->hasProcess(); });
}

// What it does changes modules, which calls it again: that is put off, so that modules start in the order of the file.
void Fleet::goOn() {
    m_hasChanged = true;
    if (std::exchange(m_isGoingOn, true))
        return;
    while (std::exchange(m_hasChanged, false)) {
        m_isStopping ? stopWhatMay() : startWhatMay();
        Q_EMIT changed();
    }
    m_isGoingOn = false;
}

void Fleet::startWhatMay() {
    if (m_isHeld)
        return;
    for (const auto& module : m_modules) {
        if (module->state() == State::Waiting && mayStart(*module))
            module->launch();
    }
}

bool Fleet::mayStart(const SupervisedModule& module) {
    const QString down = downAmongNeeded(module);
    if (down.isEmpty())
        m_stuck.remove(module.name());
    else if (!m_stuck.contains(module.name())) {
        m_stuck.insert(module.name());
        logError(QString("cannot start '%1': it waits for '%2', which is down; it starts when that is up")
                     .arg(module.name(), down));
    }
    const QStringList& needed = module.waitsFor();
    return std::all_of(needed.begin(), needed.end(),
                       [this](const QString& name) { return find(name)->state() == State::Up; });
}

QString Fleet::downAmongNeeded(const SupervisedModule& module) const {
    for (const QString& name : module.waitsFor()) {
        if (find(name)->state() == State::Down)
            return name;
    }
    return QString();
}

void Fleet::stopWhatMay() {
    QSet<QString> needed;
    for (const auto& module : m_modules) {
        if (module->hasProcess())
            needed.unite(QSet<QString>(module->waitsFor().begin(), module->waitsFor().end()));
    }
    for (const auto& module : m_modules) {
        if (!needed.contains(module->name()))
            module->stop();
    }
}
