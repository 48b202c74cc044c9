// What of the typed layer is compiled into a program.
#pragma once

#include "platform/VelExport.h"
#include "typed/Form.h"

#include <QJsonObject>
#include <QList>

namespace vel::typed {

/// One event or call. It adds itself when the program is loaded, before main(), and then does nothing until the program is
/// started with --describe: the application object, when it is made, prints all of them as JSON and ends the process with
/// status 0, before anything touches the bus. A program without entries does not know the option.
class CatalogueEntry {
public:
    using Describe = QJsonObject (*)(const void* what);

    /// `list` is "publishes", "hears" or "calls". All must live as long as the process.
    VEL_EXPORT CatalogueEntry(const char* list, Describe describe, const void* what = nullptr);

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

/// Makes the compiler keep an entry.
inline void keep(const CatalogueEntry*) {}

} // namespace vel::typed
