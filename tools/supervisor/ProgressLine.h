// What a person at a terminal sees while modules start or end: one line that is written over and over.
#pragma once

#include <QElapsedTimer>
#include <QObject>
#include <QTimer>

class Fleet;

class ProgressLine : public QObject {
    Q_OBJECT
public:
    /// Shows nothing when standard output is no terminal.
    explicit ProgressLine(const Fleet& fleet);

    /// From now on the line tells of the end.
    void showEnd();

private:
    void refresh();
    QString text(bool isSettled) const;

    const Fleet& m_fleet;
    const bool m_isShown;
    bool m_isEnding = false;
    bool m_isSettled = true;
    QString m_shown;
    QElapsedTimer m_clock;
    QTimer m_second;
};
