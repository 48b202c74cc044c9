// Where the demo plays: a private bus, the processes on it, and the waiting for what they say.
//
// Every wait ends with what it waits for, when somebody ends in the wrong way, or after one overall limit, so that no
// broken module can hang the demo. A wait that was in vain throws Missing; a signal from outside makes every wait throw
// Interrupted. Whatever is thrown, the destructor takes everything down.
#pragma once

#include "demo/Actor.h"
#include "demo/Interruption.h"
#include "demo/Missing.h"
#include "demo/Timeline.h"
#include "testing/PrivateBus.h"

#include <QTemporaryDir>

#include <functional>
#include <memory>
#include <vector>

/// What to start.
struct Program {
    QString name; ///< the file name, among the build's programs
    QStringList options = {};
    QMap<QString, QString> environment = {};
};

class Stage : public QObject {
    Q_OBJECT
public:
    /// Throws Missing when there is no bus to be had.
    Stage(Timeline& timeline, const Interruption& interruption);
    ~Stage() override;

    /// Headings of the timeline.
    void act(const QString& title) { m_timeline.heading(title.toUpper()); }
    void scene(const QString& title) { m_timeline.heading(title); }

    /// Says in the timeline what the demo itself does.
    void remark(const QString& text);

    /// Starts a program and goes on at once.
    ProcessActor& start(const Role& role, const Program& program);

    /// The same for the supervisor, which starts modules in its turn: those of these roles.
    ProcessActor& startSupervisor(const Program& program, const std::vector<Role>& modules);

    /// Types a velctl command at the operator's terminal and goes on at once.
    ProcessActor& type(const QStringList& words, int expectedStatus = 0);

    /// The same, and waits until the command has ended.
    ProcessActor& run(const QStringList& words, int expectedStatus = 0);

    /// Waits for a line with that text from that actor; each line answers one such expectation.
    void expect(Actor& speaker, const QString& text);
    void expect(const QString& name, const QString& text) { expect(actor(name), text); }

    /// Waits for the end of an actor, which must be that of its role.
    void expectEnd(Actor& leaver);
    void expectEnd(const QString& name) { expectEnd(actor(name)); }

    /// Waits until the process is stopped by SIGSTOP.
    void expectFrozen(ProcessActor& actor);

    /// Waits until `holds` answers true; it is asked again after everything that happens. `file`, when given, is
    /// watched for changes, too.
    void expectThat(const QString& what, const std::function<bool()>& holds, const QString& file = QString());

    /// The same for what must hold now.
    void require(const QString& what, bool holds);

    Timeline& timeline() { return m_timeline; }

    /// Who has entered under that name.
    Actor& actor(const QString& name) const;

    /// Everybody but the operator's commands, and these.
    const std::vector<std::unique_ptr<Actor>>& actors() const { return m_actors; }
    const std::vector<std::unique_ptr<Actor>>& commands() const { return m_commands; }
    int observationCount() const { return m_observations; }

    /// The path of a file in a folder that goes with the stage.
    QString filePath(const QString& name) const { return m_folder.filePath(name); }

Q_SIGNALS:
    void somethingHappened();

private:
    void follow(Actor& actor);
    void show(const Actor& actor, const QString& line);
    ProcessActor& enter(std::unique_ptr<ProcessActor> actor, const Program& program);
    void launch(ProcessActor& actor, const Program& program);
    void waitUntil(const std::function<bool()>& isOver);
    bool hasSomebodyFailed() const;

    Timeline& m_timeline;
    const Interruption& m_interruption;
    PrivateBus m_bus;
    QTemporaryDir m_folder;
    // After the folder: the processes end before their files do.
    std::vector<std::unique_ptr<Actor>> m_actors;
    std::vector<std::unique_ptr<Actor>> m_commands;
    int m_observations = 0;
};
