// The bus's monitor, and expectations of what it sees.
//
// The bus shows a monitor every message in the order in which it carried them. So "until now" is a signal of the
// recorder's own, a mark: what was sent before it is seen before it.
#include "testing/Recorder.h"

#include "bus/BusNames.h"
#include "testing/Connection.h"
#include "testing/TimeLimit.h"
#include "testing/Values.h"

#include <algorithm>

namespace vel::testing {

namespace {

const char markInterface[] = "org.vel.testing.Mark";

// Lines "but came: ..." for what stands in the record; the first dozen tells enough.
QString instead(const QList<Passed>& passed) {
    constexpr int most = 12;
    QString lines;
    for (int at = 0; at < passed.size() && at < most; ++at)
        lines += QStringLiteral("\nbut came: ") + passed.at(at).text();
    if (passed.size() > most)
        lines += QStringLiteral("\n          and %1 more").arg(passed.size() - most);
    return lines;
}

// What a message of the common interface says.
Passed passedIn(DBusMessage* message) {
    Passed passed;
    passed.name = QString::fromUtf8(dbus_message_get_member(message));
    passed.module = bus::moduleNameOfPath(QString::fromUtf8(dbus_message_get_path(message)));
    const QVariantList values = readValues(message);
    if (dbus_message_get_type(message) == DBUS_MESSAGE_TYPE_METHOD_CALL) {
        passed.kind = Passed::Call;
        passed.values = values;
    } else if (dbus_message_has_signature(message, "(ssia{ss}a{sv})")) {
        passed.arguments = values.value(0).toList().value(4).toMap();
    }
    return passed;
}

// From now on the connection is shown what matches one of these.
Result becomeMonitor(Connection& connection, const QStringList& rules) {
    const Message question = busCall(DBUS_INTERFACE_MONITORING, "BecomeMonitor");
    DBusMessageIter at;
    dbus_message_iter_init_append(question.get(), &at);
    appendValue(&at, rules);
    appendValue(&at, 0U);
    return connection.callBus(question.get()) ? Result::success()
                                              : Result::failure(QStringLiteral("cannot record: ") + connection.error());
}

} // namespace

Recorder::Recorder(const QList<Expectation>& scope)
    : m_scope(scope), m_monitor(std::make_unique<Connection>()), m_marking(std::make_unique<Connection>()) {
    m_monitor->wakeEventLoop();
    const QString rule = QStringLiteral("type='%1',interface='%2'");
    m_listens = becomeMonitor(
        *m_monitor, {rule.arg("signal", bus::commonInterface()), rule.arg("method_call", bus::commonInterface()),
                     rule.arg("signal", markInterface) + QStringLiteral(",sender='%1'").arg(m_marking->uniqueName())});
}

Recorder::~Recorder() = default;

// Whether there was a message.
bool Recorder::read() {
    const Message message = m_monitor->take();
    if (!message)
        return false;
    if (dbus_message_has_interface(message.get(), markInterface)) {
        ++m_marksSeen;
    } else if (dbus_message_has_interface(message.get(), bus::commonInterface().toUtf8().constData())) {
        const Passed passed = passedIn(message.get());
        const auto isMet = [&](const Expectation& one) { return one.isMetBy(passed); };
        if (m_scope.isEmpty() || std::any_of(m_scope.begin(), m_scope.end(), isMet))
            m_record << passed;
    }
    return true;
}

bool Recorder::hasNext() {
    while (m_record.isEmpty() && read()) {
    }
    return !m_record.isEmpty();
}

Result Recorder::readAll() {
    if (!m_listens)
        return m_listens;
    const Message mark(dbus_message_new_signal("/", markInterface, "mark"));
    m_marking->send(mark.get());
    ++m_marksSent;
    const TimeLimit limit;
    const auto isRead = [&] {
        while (m_marksSeen < m_marksSent && read()) {
        }
        return m_marksSeen == m_marksSent;
    };
    return waitUntil(isRead, limit) ? Result::success()
                                    : Result::failure(QStringLiteral("the bus carried nothing ") + limit.text());
}

Result Recorder::next(const Expectation& expected) {
    if (!m_listens)
        return m_listens;
    const TimeLimit limit;
    const QString line = QStringLiteral("expected: ") + expected.text();
    if (!waitUntil([this] { return hasNext(); }, limit))
        return Result::failure(line + QStringLiteral("\nbut nothing came ") + limit.text());
    const Passed passed = m_record.takeFirst();
    return expected.isMetBy(passed) ? Result::success() : Result::failure(line + instead({passed}));
}

Result Recorder::inOrder(const QList<Expectation>& expected) {
    if (!m_listens)
        return m_listens;
    const TimeLimit limit;
    QList<Passed> taken;
    for (int at = 0; at < expected.size(); ++at) {
        do {
            if (!waitUntil([this] { return hasNext(); }, limit)) {
                const QString behind =
                    at == 0 ? QString() : QStringLiteral("\nbehind:   ") + expected.at(at - 1).text();
                const QString came = taken.isEmpty() ? QStringLiteral("\nbut nothing came ") : instead(taken) + '\n';
                return Result::failure(QStringLiteral("expected: ") + expected.at(at).text() + behind + came +
                                       limit.text());
            }
            taken << m_record.takeFirst();
        } while (!expected.at(at).isMetBy(taken.last()));
    }
    return Result::success();
}

Result Recorder::noneUntil(const Expectation& unwanted, const Expectation& end) {
    if (!m_listens)
        return m_listens;
    const TimeLimit limit;
    QList<Passed> taken;
    do {
        if (!waitUntil([this] { return hasNext(); }, limit))
            return Result::failure(QStringLiteral("expected: ") + end.text() + instead(taken) +
                                   QStringLiteral("\nbut it did not come ") + limit.text());
        taken << m_record.takeFirst();
        if (unwanted.isMetBy(taken.last()))
            return Result::failure(QStringLiteral("expected: no %1\nuntil:    %2").arg(unwanted.text(), end.text()) +
                                   instead({taken.last()}));
    } while (!end.isMetBy(taken.last()));
    return Result::success();
}

Result Recorder::nothingMore() {
    if (const Result all = readAll(); !all)
        return all;
    return m_record.isEmpty() ? Result::success()
                              : Result::failure(QStringLiteral("expected: nothing more") + instead(m_record));
}

Result Recorder::skipAll() {
    Result all = readAll();
    m_record.clear();
    return all;
}

} // namespace vel::testing
