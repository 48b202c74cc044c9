// What passes on a bus, understood: who has which name, which answer belongs to which call, and what is still open.
//
// A recording and a live monitor are read by the same rules. Who was there before the first message is told by questions
// and answers in the traffic itself, see Monitor; writeNames() makes such for what begins in the middle.
#pragma once

#include "recording/Header.h"

#include <cstdint>
#include <functional>
#include <string>
#include <unordered_map>
#include <vector>

namespace recording {

/// Nanoseconds since 1970.
using Time = std::int64_t;

/// Each different text once, by its number.
class Texts {
public:
    int idOf(std::string_view text);
    const std::string& at(int id) const { return m_texts[static_cast<std::size_t>(id)]; }
    int count() const { return static_cast<int>(m_texts.size()); }

private:
    std::unordered_map<std::string, int> m_ids;
    std::vector<std::string> m_texts;
};

/// A call that is not answered yet.
struct OpenCall {
    Time since = 0;
    int caller = 0; ///< participants
    int callee = 0;
    int method = 0;        ///< its name
    std::int64_t tag = -1; ///< whatever who takes the traffic wants to find with the answer
    std::string callerConnection;
    std::string calleeName; ///< as it was addressed
    std::uint32_t serial = 0;
};

/// What one message was.
struct Seen {
    enum Kind {
        Other,  ///< talk with the bus itself, signals of other interfaces, answers to what was not seen
        Event,  ///< `from` has published `name`
        Call,   ///< `from` calls `name` of `to`
        Answer, ///< `from` answers `call`
        Error,  ///< the same, with an error
    };
    Kind kind = Other;
    int from = -1; ///< a participant
    int to = -1;
    int name = -1;            ///< of the event or the method
    OpenCall* call = nullptr; ///< of an Answer or an Error, and of a Call that wants an answer; until the next message
};

/// A time during which a participant had a connection; `end` is 0 while it has.
struct Life {
    int participant;
    Time begin; ///< 0 for who was there at the beginning
    Time end;
};

/// Participants are modules by their names, others by a name of theirs or by the connection's; a module that ends and
/// starts again stays the same participant. A stranger may make up any number of names and calls: beyond some ten thousand
/// they are all one participant, and calls are not followed.
class Traffic {
public:
    Traffic();

    /// The messages in their order.
    Seen take(const Header& header, std::string_view message, Time time);

    const std::string& participant(int id) const { return m_participants.at(id); }
    int participantCount() const { return m_participants.count(); }
    bool isModule(int id) const;
    const std::string& name(int id) const { return m_names.at(id); }
    const std::vector<Life>& lives() const { return m_lives; }

    /// The process of a participant, of its last connection; 0 when it is not known.
    std::uint32_t processOf(int participant) const;

    /// All that are open, in no order.
    void forEachOpen(const std::function<void(const OpenCall&)>& use) const;

    /// Questions and answers that tell who is there now, as messages.
    void writeNames(const std::function<void(std::string_view message)>& to) const;

    /// The module that owns a name of the bus, or publishes from a path; empty when none does.
    static std::string_view moduleOfService(std::string_view service);
    static std::string_view moduleOfPath(std::string_view path);

private:
    struct Connection {
        int participant = -1;
        std::size_t life = 0;
        std::vector<std::string> names; ///< well-known ones
        std::uint32_t process = 0;
    };

    int participantOf(std::string_view busName);
    Connection& connectionOf(std::string_view uniqueName, Time time);
    void own(const std::string& name, const std::string& owner, Time time);
    void lose(const std::string& name, const std::string& owner, Time time);
    void end(const std::string& uniqueName, Time time);
    void takeFromBus(const Header& header, std::string_view message, Time time);
    static std::string keyOf(std::string_view connection, std::uint32_t serial);

    Texts m_participants;
    Texts m_names;
    std::unordered_map<std::string, Connection> m_connections; // by unique name
    std::unordered_map<std::string, std::string> m_owners;     // of well-known names
    std::unordered_map<std::string, OpenCall> m_open;
    std::unordered_map<std::string, std::pair<bool, std::string>> m_questions; // to the bus: of an owner, for a name
    std::vector<Life> m_lives;
    std::unordered_map<int, bool> m_modules;
    OpenCall m_closed; // the one that was answered last
};

/// Whether it is a signal of the modules' common interface.
bool isEvent(const Header& header);

} // namespace recording
