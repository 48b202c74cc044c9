// Which events cross.
#pragma once

#include <QRegularExpression>
#include <QStringList>

/// Patterns "MODULE/NAME", or "NAME" for that of any module; * stands for any characters, ? for one.
class Selection {
public:
    Selection() = default;
    explicit Selection(const QStringList& patterns);

    /// Whether a text can be such a pattern.
    static bool isPattern(const QString& text);

    bool has(const QString& module, const QString& name) const;
    bool isEmpty() const { return m_isEmpty; }

private:
    QRegularExpression m_form;
    bool m_isEmpty = true;
};

/// Whether an event is one by which the platform stops, resets, traces, saves or restores modules, or changes what they
/// log. Such a one crosses only when it is named as one: a pattern for all events must not stop another machine.
bool isControlEvent(const QString& name);
