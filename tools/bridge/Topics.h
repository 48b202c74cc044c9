// The topics under which machines meet on the broker.
//
//     vel/1/MACHINE/state                 retained: {"online":true,"connection":ID}; the last will empties it
//     vel/1/MACHINE/module/MODULE         retained: {"connection":ID}; there while the module is
//     vel/1/MACHINE/event/MODULE/NAME     an event that the module has published
//     vel/1/MACHINE/call/MODULE/METHOD    a call of a module of MACHINE, by whoever the broker lets
//     vel/1/MACHINE/answer/CALLER         what a call came to, written by the machine that was called
//     vel/1/MACHINE/received/SENDER       retained: how far MACHINE has the events of SENDER
//
// Who writes a topic is MACHINE, calls excepted: so an access list is one line a machine, and one for each who may call.
#pragma once

#include <QString>

/// A topic taken apart.
struct Topic {
    enum Kind { None, State, Module, Event, Call, Answer, Received };

    Kind kind = None;
    QString machine;
    QString first;  ///< the module, the caller, the sender
    QString second; ///< the event, the method

    /// What the topic means; kind None for everything that is not exactly one of these forms, with names that can be.
    static Topic parse(const QString& text);

    QString text() const;
};

/// Letters, digits, '_' and '-'; 1 to 64 of them.
bool isMachineName(const QString& name);

/// Whether a machine may be told to answer there: below its own "answer", in one to four names of machines.
bool isAnswerTopic(const QString& topic, const QString& machine);
