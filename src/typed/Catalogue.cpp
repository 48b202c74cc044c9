// The entries are a list through themselves: they are made before main(), in no order that could be relied on, and nothing
// but a pointer is sure to be there.
#include "typed/Catalogue.h"

#include "typed/Record.h"
#include "typed/Values.h"

#include <QCoreApplication>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>

#include <cstdio>
#include <cstdlib>
#include <map>
#include <set>

namespace vel::typed {

namespace {

constexpr auto option = "--describe";
constexpr auto askedByVariable = "VEL_DESCRIBE";

} // namespace

class Catalogue {
public:
    static const CatalogueEntry* add(const CatalogueEntry* entry) {
        const CatalogueEntry* before = s_last;
        s_last = entry;
        return before;
    }

    // Qt calls it when the application object knows the command line, at the end of its constructor.
    static void printIfAsked() {
        if (!(s_last || qEnvironmentVariableIsSet(askedByVariable)) ||
            !QCoreApplication::arguments().mid(1).contains(QLatin1String(option)))
            return;
        std::fputs(QJsonDocument(described()).toJson().constData(), stdout);
        std::exit(std::fflush(stdout) == 0 ? EXIT_SUCCESS : EXIT_FAILURE);
    }

private:
    static QJsonObject described() {
        std::map<QString, std::map<QString, QJsonObject>> lists; // by name: the order of loading says nothing
        std::set<QString> incomplete;
        for (const char* list : {"publishes", "hears", "calls"})
            lists[QLatin1String(list)];
        for (const CatalogueEntry* entry = s_last; entry; entry = entry->m_next) {
            const QString list = QLatin1String(entry->m_list);
            if (!entry->m_describe) {
                incomplete.insert(list);
                continue;
            }
            const QJsonObject what = entry->m_describe(entry->m_what);
            lists[list][what[QStringLiteral("name")].toString()] = what;
        }
        QJsonObject all{{QStringLiteral("program"), QFileInfo(QCoreApplication::applicationFilePath()).fileName()}};
        for (const auto& [name, entries] : lists) {
            QJsonArray array;
            for (const auto& entry : entries)
                array.append(entry.second);
            all[name] = array;
        }
        QJsonArray atRunTime;
        for (const QString& list : incomplete)
            atRunTime.append(list);
        all[QStringLiteral("namesAtRunTime")] = atRunTime;
        return all;
    }

    static const CatalogueEntry* s_last;
};

const CatalogueEntry* Catalogue::s_last = nullptr;

CatalogueEntry::CatalogueEntry(const char* list, Describe describe, const void* what)
    : m_list(list), m_describe(describe), m_what(what), m_next(Catalogue::add(this)) {}

namespace {

void printCatalogueIfAsked() {
    Catalogue::printIfAsked();
}
Q_COREAPP_STARTUP_FUNCTION(printCatalogueIfAsked)

// A struct that contains itself, in a list, is described once.
using Described = QVector<const QMetaObject*>;

QJsonArray fieldsOf(const Record& record, const Described& around);

// What only the publisher and the subscriber know of a type: its keys, its fields, or those of its elements.
void addDetails(const Type& type, const Described& around, QJsonObject& described) {
    if (type.kind == Type::ListOf || type.kind == Type::MapOf)
        addDetails(typeOf(type.element), around, described);
    QJsonArray keys;
    for (int key = 0; type.keys.isValid() && key < type.keys.keyCount(); ++key)
        keys.append(QLatin1String(type.keys.key(key)));
    if (!keys.isEmpty())
        described[QStringLiteral("keys")] = keys;
    if (type.gadget && !around.contains(type.gadget))
        described[QStringLiteral("fields")] = fieldsOf(recordOf(*type.gadget), around + Described{type.gadget});
}

QJsonArray fieldsOf(const Record& record, const Described& around) {
    QJsonArray fields;
    for (const Record::Field& field : record.fields()) {
        const bool isOptional = field.type->kind == Type::Optional;
        const Type& type = isOptional ? typeOf(field.type->element) : *field.type;
        QJsonObject described{{QStringLiteral("name"), field.name}, {QStringLiteral("type"), type.name()}};
        if (isOptional)
            described[QStringLiteral("optional")] = true;
        addDetails(type, around, described);
        fields.append(described);
    }
    return fields;
}

} // namespace

QJsonObject describedEvent(const char* name, const Form& form) {
    QJsonObject event{{QStringLiteral("name"), QLatin1String(name)},
                      {QStringLiteral("fields"), fieldsOf(form.record(), {})}};
    if (!form.record().problem().isEmpty())
        event[QStringLiteral("problem")] = form.record().problem();
    return event;
}

QJsonObject describedCall(const QString& module, const QString& method, const QList<int>& arguments,
                          const QList<int>& answers) {
    const auto names = [](const QList<int>& types) {
        QJsonArray all;
        for (const int type : types)
            all.append(typeOf(type).name());
        return all;
    };
    return {{QStringLiteral("name"), module + QLatin1Char('.') + method},
            {QStringLiteral("arguments"), names(arguments)},
            {QStringLiteral("answers"), names(answers)}};
}

} // namespace vel::typed
