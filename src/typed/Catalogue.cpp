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

namespace vel::typed {

class Catalogue {
public:
    static const CatalogueEntry* add(const CatalogueEntry* entry) {
        const CatalogueEntry* before = s_last;
        s_last = entry;
        if (!before)
            qAddPreRoutine(&printIfAsked);
        return before;
    }

private:
    // Qt calls it when the application object knows the command line, at the end of its constructor.
    static void printIfAsked() {
        if (!QCoreApplication::arguments().mid(1).contains(QStringLiteral("--describe")))
            return;
        std::fputs(QJsonDocument(described()).toJson().constData(), stdout);
        std::exit(std::fflush(stdout) == 0 ? EXIT_SUCCESS : EXIT_FAILURE);
    }

    static QJsonObject described() {
        std::map<QString, std::map<QString, QJsonObject>> lists; // by name: the order of loading says nothing
        for (const char* list : {"publishes", "hears", "calls"})
            lists[QLatin1String(list)];
        for (const CatalogueEntry* entry = s_last; entry; entry = entry->m_next) {
            const QJsonObject what = entry->m_describe(entry->m_what);
            lists[QLatin1String(entry->m_list)][what[QStringLiteral("name")].toString()] = what;
        }
        QJsonObject all{{QStringLiteral("program"), QFileInfo(QCoreApplication::applicationFilePath()).fileName()}};
        for (const auto& [name, entries] : lists) {
            QJsonArray array;
            for (const auto& entry : entries)
                array.append(entry.second);
            all[name] = array;
        }
        return all;
    }

    static const CatalogueEntry* s_last;
};

const CatalogueEntry* Catalogue::s_last = nullptr;

CatalogueEntry::CatalogueEntry(const char* list, Describe describe, const void* what)
    : m_list(list), m_describe(describe), m_what(what), m_next(Catalogue::add(this)) {}

QJsonObject describedEvent(const char* name, const Form& form) {
    QJsonArray fields;
    for (const Record::Field& field : form.record().fields()) {
        const bool isOptional = field.type->kind == Type::Optional;
        const Type& type = isOptional ? typeOf(field.type->element) : *field.type;
        QJsonObject described{{QStringLiteral("name"), field.name}, {QStringLiteral("type"), type.name()}};
        if (isOptional)
            described[QStringLiteral("optional")] = true;
        QJsonArray keys;
        for (int key = 0; type.keys.isValid() && key < type.keys.keyCount(); ++key)
            keys.append(QLatin1String(type.keys.key(key)));
        if (!keys.isEmpty())
            described[QStringLiteral("keys")] = keys;
        fields.append(described);
    }
    QJsonObject event{{QStringLiteral("name"), QLatin1String(name)}, {QStringLiteral("fields"), fields}};
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
