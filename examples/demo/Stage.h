// Where the demo plays: a private bus, the processes on it, and the waiting for what they do.
//
// Every wait ends with what it waits for, when a process ends in the wrong way, or after one overall limit, so that
// no broken module can hang the demo. A wait that was in vain throws Missing; a signal from outside makes every wait
// throw Interrupted. Whatever is thrown, the destructor takes everything down.
#pragma once

#include "demo/Actor.h"
#include "demo/Interruption.h"
#include "demo/Missing.h"
#include "demo/Timeline.h"
#include "support/PrivateBus.h"

#include <QDBusConnection>
#include <QTemporaryDir>
#include <QVariant>

#include <functional>
#include <memory>
#include <vector>

class Stage : public QObject {
    Q_OBJECT
public:
    /// Throws Missing when there is no bus to be had.
    Stage(Timeline& timeline, const Interruption& interruption);
    ~Stage() override;

    /// Headings of the timeline.
    void act(const QString& title) { m_timeline.heading(title.toUpper()); }
    void scene(const QString& title) { m_timeline.heading(title); }

    /// Starts a program and goes on at once.
    void start(const Role& role);

    /// Waits for a line with that text from the actor of that label; each line answers one such expectation.
    void expect(const QString& label, const QString& text);

    /// Waits for the end of a process, which must have the status of its role.
    void expectEnd(const QString& label);

    /// Waits until the module has left the bus: that is some moments later than its process's end.
    void expectGone(const QString& module);

    /// Waits until the process is stopped by SIGSTOP.
    void expectFrozen(const QString& label);

    /// Waits until `holds` answers true; it is asked again after everything that happens. `file`, when given, is
    /// watched for changes, too.
    void expectThat(const QString& what, const std::function<bool()>& holds, const QString& file = QString());

    /// The same for what must hold now.
    void require(const QString& what, bool holds);

    /// Calls a module's method as any program on the bus can: its answer, or nothing when it has none.
    QVariant call(const QString& module, const QString& method, const QVariantList& arguments = QVariantList());

    /// The same for a call that must be answered with an error: the error's text.
    QString callRefused(const QString& module, const QString& method, const QVariantList& arguments);

    /// Says in the timeline what the demo itself does.
    void remark(const QString& text);

    Timeline& timeline() { return m_timeline; }
    Actor& actor(const QString& label) const;
    const std::vector<std::unique_ptr<Actor>>& actors() const { return m_actors; }
    int observationCount() const { return m_observations; }

    /// The path of a file in a folder that goes with the stage.
    QString filePath(const QString& name) const { return m_folder.filePath(name); }

Q_SIGNALS:
    void somethingHappened();

private:
    void waitUntil(const std::function<bool()>& isOver);
    QDBusMessage answerOf(const QString& module, const QString& method, const QVariantList& arguments);

    Timeline& m_timeline;
    const Interruption& m_interruption;
    PrivateBus m_bus;
    QDBusConnection m_connection;
    QTemporaryDir m_folder;
    std::vector<std::unique_ptr<Actor>> m_actors; // after the folders: the processes end before their files do
    int m_observations = 0;
};
