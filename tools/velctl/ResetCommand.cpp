// velctl reset: publishes a reset, and gathers the modules' answers.
//
// An answer is an event, which anybody can publish. So it counts only when it comes from the connection that has the
// name of the module of which it tells.
#include "Bus.h"
#include "Commands.h"
#include "Event.h"
#include "EventFilter.h"
#include "ModuleNames.h"
#include "ModuleReport.h"
#include "Output.h"

#include <QMap>

#include <algorithm>

namespace velctl {

namespace {

struct Answer {
    QString sender;
    bool needsReboot;
};

QString textArgumentOf(DBusMessage* event, const char* name) {
    DBusMessageIter value;
    const bool isText =
        wire::findArgument(event, name, value) && dbus_message_iter_get_arg_type(&value) == DBUS_TYPE_STRING;
    return isText ? textOf(value) : QString();
}

bool truthArgumentOf(DBusMessage* event, const char* name) {
    DBusMessageIter value;
    return wire::findArgument(event, name, value) && dbus_message_iter_get_arg_type(&value) == DBUS_TYPE_BOOLEAN &&
           textOf(value) == "true";
}

// Keeps the answers of modules that are known by their connection, and some of modules that may have started
// meanwhile, of whom the bus is asked at the end.
class Answers {
public:
    void expect(const QList<ModuleReport>& reports) {
        for (const ModuleReport& report : reports)
            m_owners.insert(report.module, report.uniqueName);
    }

    void take(DBusMessage* event) {
        constexpr int mostStrangers = 100;
        const QString module = textArgumentOf(event, "ModuleName");
        const Answer answer{QString::fromUtf8(dbus_message_get_sender(event)), truthArgumentOf(event, "NeedReboot")};
        if (m_owners.value(module) == answer.sender)
            m_answers.insert(module, answer);
        else if (m_strangers.size() < mostStrangers)
            m_strangers.insert(module, answer);
    }

    bool has(const QString& module) const { return m_answers.contains(module); }

    // What the bus says of the others: a module may have started, or started again.
    void askFor(Bus& bus) {
        for (auto answer = m_strangers.cbegin(); answer != m_strangers.cend(); ++answer) {
            if (!has(answer.key()) && isValidName(answer.key()) && bus.ownerOf(answer.key()) == answer->sender)
                m_answers.insert(answer.key(), *answer);
        }
    }

    const QMap<QString, Answer>& all() const { return m_answers; }

private:
    QMap<QString, QString> m_owners;
    QMap<QString, Answer> m_answers;
    QMap<QString, Answer> m_strangers;
};

void printAnswered(const Request& request, const QString& module, bool needsReboot, QVector<Row>& rows) {
    if (request.json)
        printLine(QJsonObject{{"module", module}, {"answered", true}, {"needReboot", needsReboot}});
    rows.append(Row{{module}, {"done", Colour::Green}, {needsReboot ? "wants a reboot" : "", Colour::Yellow}});
}

void printMissing(const Request& request, const QString& module, const QString& reason, QVector<Row>& rows) {
    if (request.json)
        printLine(QJsonObject{{"module", module}, {"answered", false}, {"reason", reason}});
    rows.append(Row{{module}, {"missing", Colour::Red}, {reason}});
}

} // namespace

int runReset(const Request& request) {
    const QString kind = request.arguments.first();
    if (kind != "default" && kind != "factory")
        throw Failure{Usage, QString("cannot reset to '%1': there is no such reset; right is: velctl reset "
                                     "default|factory")
                                 .arg(kind)};
    Bus bus(request.limit, request.address);
    Answers answers;
    EventFilter("reset", {QString("reset_%1_done").arg(kind)}, QString()).subscribe(bus, [&](DBusMessage* event) {
        answers.take(event);
    });
    const QList<ModuleReport> reports = lookAt(bus, bus.modules(), request.limit.forSignsOfLife());
    answers.expect(reports);
    bus.publish(wire::makeEvent(request.publisher, "reset_data_" + kind, QString(), {}).get());

    // Those that are stopped will not answer, and the answer of one that ends meanwhile will not come.
    const auto isStillExpected = [&](const ModuleReport& report) {
        const ProcessInfo process = processInfo(report.process.pid);
        return !answers.has(report.module) && !process.isStopped() && !process.isTraced() &&
               (report.process.pid == 0 || !process.hasEnded());
    };
    const bool isComplete = bus.waitUntil([&] { return std::none_of(reports.begin(), reports.end(), isStillExpected); },
                                          request.limit.end(), lookEveryMs);
    answers.askFor(bus);

    QVector<Row> rows;
    Status status = isComplete ? Ok : TimeLimitReached;
    QMap<QString, Answer> others = answers.all();
    for (const ModuleReport& report : reports) {
        if (answers.has(report.module)) {
            printAnswered(request, report.module, others.take(report.module).needsReboot, rows);
            continue;
        }
        const bool answersCalls = report.state == ModuleState::Running && isStillExpected(report);
        printMissing(request, report.module,
                     answersCalls ? "no answer: its reset goes on, or has failed" : whySilent(report), rows);
        status = std::max(status, NotRunning);
    }
    for (auto answer = others.cbegin(); answer != others.cend(); ++answer) // started meanwhile
        printAnswered(request, answer.key(), answer->needsReboot, rows);
    if (!request.json)
        printTable(rows);
    if (rows.isEmpty() && reports.isEmpty())
        printMessage("there is no module on the bus that could be reset");
    return status;
}

} // namespace velctl
