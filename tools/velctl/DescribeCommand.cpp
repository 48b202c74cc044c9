// velctl describe: one page of the events and calls of a system's programs, from what is compiled into them.
//
// Each program is started with --describe and ends at once, before it is on any bus: there is none in its environment. A
// program may hang, flood or lie all the same. Each gets its share of the time that is left, so that one that hangs does
// not take that of the others.
#include "Commands.h"
#include "Description.h"
#include "Output.h"
#include "ProgramOutput.h"

#include <QFile>
#include <QFileInfo>
#include <QJsonArray>

#include <algorithm>
#include <map>

namespace velctl {

namespace {

constexpr int mostBytes = 1024 * 1024; // some thousand events

// The programs that say the same of an event or a call.
struct Group {
    QStringList programs;
    DescribedFields fields;
    QString text;
};
using Groups = QVector<Group>;

struct Event {
    Groups published;
    Groups heard;
    QStringList problems;
};

struct System {
    std::map<QString, Event> events;
    std::map<QString, Groups> calls;
    std::map<QString, QStringList> namesAtRunTime; // by program
    QStringList silent;                            // programs without anything typed
};

void add(Groups& groups, const QString& program, const QString& text, const DescribedFields& fields = {}) {
    const auto known =
        std::find_if(groups.begin(), groups.end(), [&](const Group& group) { return group.text == text; });
    if (known != groups.end())
        known->programs << program;
    else
        groups << Group{{program}, fields, text};
}

// A file that cannot be executed is what a program printed before, on another machine perhaps.
Description descriptionOf(const QString& program, const QDeadlineTimer& end) {
    const QFileInfo info(program);
    ProgramOutput output;
    if (info.isFile() && !info.isExecutable()) {
        QFile file(program);
        if (!file.open(QIODevice::ReadOnly))
            throw file.errorString();
        output.text = file.read(mostBytes + 1);
        if (output.text.size() > mostBytes)
            output.problem = QString("it has more than %1 kB").arg(mostBytes / 1024);
    } else {
        output = outputOf(program, {"--describe"}, {{"VEL_DESCRIBE", "1"}, {"DBUS_SESSION_BUS_ADDRESS", "disabled:"}},
                          end, mostBytes);
    }
    if (!output.problem.isEmpty())
        throw output.problem;
    return readDescription(output.text);
}

void add(System& system, const QString& program, const Description& description) {
    for (const DescribedEvent& event : description.publishes)
        add(system.events[event.name].published, program, textOf(event.fields), event.fields);
    for (const DescribedEvent& event : description.hears)
        add(system.events[event.name].heard, program, textOf(event.fields), event.fields);
    for (const DescribedEvent& event : description.publishes + description.hears) {
        if (!event.problem.isEmpty())
            system.events[event.name].problems << QString("%1 cannot use it: %2").arg(program, event.problem);
    }
    for (const DescribedCall& call : description.calls)
        add(system.calls[call.name], program,
            QString("(%1) %2").arg(call.arguments.join(", "),
                                   call.answers.isEmpty() ? "nothing" : call.answers.join(", ")));
    if (!description.namesAtRunTime.isEmpty())
        system.namesAtRunTime[program] = description.namesAtRunTime;
    if (description.isEmpty())
        system.silent << program;
}

QString listed(const Group& group) {
    return group.programs.join(", ");
}

QStringList differencesIn(const Event& event) {
    QStringList found = event.problems;
    for (const Group& published : event.published) {
        for (const Group& heard : event.heard)
            found += differences(published.fields, listed(published), heard.fields, listed(heard));
    }
    found.removeDuplicates();
    return found;
}

QStringList differencesIn(const Groups& callers) {
    QStringList found;
    for (int index = 1; index < callers.size(); ++index)
        found << QString("it is called as %1 by %2, and as %3 by %4")
                     .arg(callers.first().text, listed(callers.first()), callers.at(index).text,
                          listed(callers.at(index)));
    return found;
}

// --- As a page -------------------------------------------------------------------------------------------------------

Row titles(std::initializer_list<const char*> names) {
    Row row;
    for (const char* name : names)
        row += Cell(name, Colour::Bold);
    return row;
}

void addRows(QVector<Row>& rows, QString name, const char* what, const Groups& groups) {
    for (const Group& group : groups) {
        rows += Row{{name}, {what}, {listed(group)}, {group.text, Colour::Grey}};
        name.clear();
        what = "";
    }
}

void printFindings(const char* title, const QStringList& findings, Colour colour) {
    if (findings.isEmpty())
        return;
    printLine(QString());
    printLine(Row{{title, colour}});
    for (const QString& finding : findings)
        printLine("  " + finding);
}

void printPage(const System& system) {
    QStringList differing;
    QStringList unheard;
    QStringList unpublished;
    QVector<Row> rows = {titles({"EVENT", "", "PROGRAMS", "FIELDS"})};
    for (const auto& [name, event] : system.events) {
        addRows(rows, name, "published by", event.published);
        addRows(rows, event.published.isEmpty() ? name : QString(), "heard by", event.heard);
        if (event.heard.isEmpty())
            unheard << name;
        if (event.published.isEmpty())
            unpublished << name;
        for (const QString& difference : differencesIn(event))
            differing << name + ": " + difference;
    }
    if (!system.events.empty())
        printTable(rows);
    rows = {titles({"CALL", "", "PROGRAMS", "ARGUMENTS AND ANSWER"})};
    for (const auto& [name, callers] : system.calls) {
        addRows(rows, name, "called by", callers);
        for (const QString& difference : differencesIn(callers))
            differing << name + ": " + difference;
    }
    if (!system.calls.empty()) {
        if (!system.events.empty())
            printLine(QString());
        printTable(rows);
    }
    QStringList atRunTime;
    for (const auto& [program, lists] : system.namesAtRunTime)
        atRunTime << QString("%1 (%2)").arg(program, lists.join(", "));
    printFindings("differ", differing, Colour::Red);
    printFindings("published, and heard by none of these programs", unheard, Colour::Yellow);
    printFindings("heard, and published by none of these programs", unpublished, Colour::Yellow);
    printFindings("also names that are chosen at run time, which cannot be shown", atRunTime, Colour::Yellow);
    printFindings("not known, because they use no typed events and calls", system.silent, Colour::Yellow);
}

// --- As JSON ---------------------------------------------------------------------------------------------------------

QJsonArray jsonOf(const DescribedFields& fields) {
    QJsonArray all;
    for (const DescribedField& field : fields) {
        QJsonObject json{{"name", field.name}, {"type", field.type}, {"optional", field.isOptional}};
        if (!field.keys.isEmpty())
            json["keys"] = QJsonArray::fromStringList(field.keys);
        if (!field.fields.isEmpty())
            json["fields"] = jsonOf(field.fields);
        all.append(json);
    }
    return all;
}

QJsonArray jsonOf(const Groups& groups) {
    QJsonArray all;
    for (const Group& group : groups)
        all.append(
            QJsonObject{{"programs", QJsonArray::fromStringList(group.programs)}, {"fields", jsonOf(group.fields)}});
    return all;
}

void printJson(const System& system) {
    for (const auto& [name, event] : system.events)
        printLine(QJsonObject{{"event", name},
                              {"published", jsonOf(event.published)},
                              {"heard", jsonOf(event.heard)},
                              {"differences", QJsonArray::fromStringList(differencesIn(event))}});
    for (const auto& [name, callers] : system.calls) {
        QJsonArray forms;
        for (const Group& group : callers)
            forms.append(
                QJsonObject{{"programs", QJsonArray::fromStringList(group.programs)}, {"signature", group.text}});
        printLine(QJsonObject{
            {"call", name}, {"called", forms}, {"differences", QJsonArray::fromStringList(differencesIn(callers))}});
    }
    for (const auto& [program, lists] : system.namesAtRunTime)
        printLine(QJsonObject{{"program", program}, {"namesAtRunTime", QJsonArray::fromStringList(lists)}});
    for (const QString& program : system.silent)
        printLine(QJsonObject{{"program", program}, {"typed", false}});
}

bool hasDifferences(const System& system) {
    return std::any_of(system.events.begin(), system.events.end(),
                       [](const auto& event) { return !differencesIn(event.second).isEmpty(); }) ||
           std::any_of(system.calls.begin(), system.calls.end(),
                       [](const auto& call) { return !differencesIn(call.second).isEmpty(); });
}

// What it is called on the page: by its file, and by its path when two files have that name. Of Lamp.json "Lamp".
QString nameOf(const QString& program, const QStringList& programs) {
    const auto fileName = [](const QString& path) {
        const QString name = QFileInfo(path).fileName();
        return name.endsWith(".json") ? name.chopped(5) : name;
    };
    const auto same = std::count_if(programs.begin(), programs.end(),
                                    [&](const QString& other) { return fileName(other) == fileName(program); });
    return same > 1 ? program : fileName(program);
}

QDeadlineTimer shareOf(const TimeLimit& limit, int programs) {
    if (limit.isUnlimited())
        return QDeadlineTimer(QDeadlineTimer::Forever);
    return QDeadlineTimer(std::max(limit.end().remainingTime() / programs, qint64(1)), Qt::PreciseTimer);
}

} // namespace

int runDescribe(const Request& request) {
    QStringList programs = request.arguments;
    programs.removeDuplicates();
    System system;
    Status status = Ok;
    for (int index = 0; index < programs.size(); ++index) {
        const QString& program = programs.at(index);
        try {
            add(system, nameOf(program, programs),
                descriptionOf(program, shareOf(request.limit, programs.size() - index)));
        } catch (const QString& reason) {
            printMessage(QString("cannot describe '%1': %2; it is left out").arg(program, reason));
            status = Failed;
        }
    }
    if (request.json)
        printJson(system);
    else
        printPage(system);
    return hasDifferences(system) ? Failed : status;
}

} // namespace velctl
