// The supervisor's side of a save or a restore: ask modules to freeze, see them frozen, resume them.
#pragma once

#include <VelEvent>

#include <QMap>
#include <QObject>

class VelModule;

class SaveRestore : public QObject {
    Q_OBJECT
public:
    enum Operation { Save, Restore };

    explicit SaveRestore(VelModule& supervisor) : m_supervisor(supervisor) {}

    /// Asks the modules of these names to get ready. Each answers and then stops its own process.
    ///
    /// Errors:   answers the caller with an error when one of them is not on the bus; then none is asked.
    void prepare(const QStringList& modules, Operation operation);

    /// Lets the modules go on, once the data has been saved or restored; after a restore they are told to take it
    /// over.
    ///
    /// Errors:   answers the caller with an error when one of them is not stopped yet.
    void resume();

public Q_SLOTS:
    void noteAnswer(VelEvent event);

private:
    VelModule& m_supervisor;
    QMap<QString, uint> m_processes; // by module name
    Operation m_operation = Save;
};
