// Which events cross.
#include "Selection.h"

#include "bus/BusNames.h"

Selection::Selection(const QStringList& patterns) : m_isEmpty(patterns.isEmpty()) {
    QStringList forms;
    for (QString pattern : patterns) {
        if (!pattern.contains('/'))
            pattern.prepend("*/");
        forms += pattern.replace('*', "[^/]*").replace('?', "[^/]");
    }
    m_form.setPattern("\\A(" + forms.join('|') + ")\\z");
    m_form.optimize();
}

bool Selection::isPattern(const QString& text) {
    QStringList names = text.split('/');
    for (QString& name : names) {
        if (!vel::bus::isValidMemberName(name.replace('*', 'x').replace('?', 'x')))
            return false;
    }
    return names.size() <= 2;
}

bool Selection::has(const QString& module, const QString& name) const {
    return !m_isEmpty && m_form.match(module + '/' + name).hasMatch();
}

bool isControlEvent(const QString& name) {
    static const QStringList names = {
        "log_level_changed",  "mtrace_on",    "mtrace_off",           "presentationLoaded",  "reset_data_default",
        "reset_data_factory", "restore_done", "stop_save_restore_OK", "prepare_save_restore"};
    return name.startsWith("stop_module_") || names.contains(name);
}
