// What of the typed layer is compiled into a program.
#pragma once

#include "platform/VelExport.h"
#include "typed/Form.h"

#include <QJsonObject>
#include <QList>

namespace vel::typed {

/// One event or call. It adds itself when the program is loaded, before main(), and then does nothing until the program is
/// started with --describe: the application object, when it is made, prints all of them as JSON and ends the process with
/// status 0, before anything touches the bus. A program without entries knows the option only when VEL_DESCRIBE is set in
/// its environment, as `velctl describe` does: it may have an option of that name itself.
class CatalogueEntry {
public:
    using Describe = QJsonObject (*)(const void* what);

    /// `list` is "publishes", "hears" or "calls"; without `describe` the entry says that the program also has names in this
    /// list that it chooses at run time. All must live as long as the process.
    VEL_EXPORT explicit CatalogueEntry(const char* list, Describe describe = nullptr, const void* what = nullptr);

private:
    friend class Catalogue;
    const char* m_list;
    Describe m_describe;
    const void* m_what;
    const CatalogueEntry* m_next;
    Q_DISABLE_COPY(CatalogueEntry)
};

VEL_EXPORT QJsonObject describedEvent(const char* name, const Form& form);
VEL_EXPORT QJsonObject describedCall(const QString& module, const QString& method, const QList<int>& arguments,
                                     const QList<int>& answers);

/// The entries of an event; one of each in a program, however often it is published and heard.
template <typename Event>
struct EventEntry {
    static QJsonObject describe(const void*) { return describedEvent(Event::eventName, formOf<Event>()); }
    static inline const CatalogueEntry published{"publishes", &describe};
    static inline const CatalogueEntry heard{"hears", &describe};
};

/// The entries for names that are texts at run time. A template, so that only a program that uses one has it.
template <typename = void>
struct NamesAtRunTime {
    static inline const CatalogueEntry heard{"hears"};
    static inline const CatalogueEntry called{"calls"};
};

/// Makes the compiler keep an entry.
inline void keep(const CatalogueEntry*) {}

} // namespace vel::typed
