// What passes on a bus, understood.
#include "recording/Traffic.h"

#include "bus/BusNames.h"
#include "wire/Message.h"

#include <algorithm>
#include <cstring>

namespace recording {

namespace {

constexpr std::string_view busName = DBUS_SERVICE_DBUS;
constexpr std::size_t mostParticipants = 20000;
constexpr std::size_t mostOpen = 50000;
constexpr int mostNames = 100000;

const std::string& commonInterface() {
    static const std::string name = vel::bus::commonInterface().toStdString();
    return name;
}

// For the few messages about names. A recording may say anything: what is no message is not looked at.
wire::Message parsed(std::string_view message) {
    try {
        return wire::fromBytes(QByteArray::fromRawData(message.data(), static_cast<int>(message.size())));
    } catch (const wire::Error&) {
        return nullptr;
    }
}

std::string textIn(DBusMessage* message) {
    const char* text = "";
    if (message)
        dbus_message_get_args(message, nullptr, DBUS_TYPE_STRING, &text, DBUS_TYPE_INVALID);
    return text;
}

} // namespace

bool isEvent(const Header& header) {
    return header.type == Type::Signal && header.interface == commonInterface();
}

int Texts::idOf(std::string_view text) {
    const auto [place, isNew] = m_ids.try_emplace(std::string(text), static_cast<int>(m_texts.size()));
    if (isNew)
        m_texts.push_back(place->first);
    return place->second;
}

std::string_view Traffic::moduleOfService(std::string_view service) {
    static const std::string around = vel::bus::serviceName(" ").toStdString();
    static const std::string before = around.substr(0, around.find(' '));
    static const std::string behind = around.substr(around.find(' ') + 1);
    if (service.size() <= before.size() + behind.size() || service.substr(0, before.size()) != before ||
        service.substr(service.size() - behind.size()) != behind)
        return {};
    const std::string_view name = service.substr(before.size(), service.size() - before.size() - behind.size());
    return name.find('.') == std::string_view::npos ? name : std::string_view();
}

std::string_view Traffic::moduleOfPath(std::string_view path) {
    return path.empty() ? path : path.substr(1);
}

Traffic::Traffic() = default;

bool Traffic::isModule(int id) const {
    return m_modules.count(id) > 0;
}

std::uint32_t Traffic::processOf(int participant) const {
    std::uint32_t process = 0;
    for (const auto& [name, connection] : m_connections) {
        if (connection.participant == participant && connection.process)
            process = connection.process;
    }
    return process;
}

Traffic::Connection& Traffic::connectionOf(std::string_view uniqueName, Time time) {
    const bool isFull = m_connections.size() >= mostParticipants;
    const auto [place, isNew] = m_connections.try_emplace(
        isFull && !m_connections.count(std::string(uniqueName)) ? "(others)" : std::string(uniqueName));
    if (isNew) {
        place->second.participant = m_participants.idOf(place->first);
        place->second.life = m_lives.size();
        m_lives.push_back({place->second.participant, time, 0});
    }
    return place->second;
}

int Traffic::participantOf(std::string_view name) {
    if (name.empty() || name == busName)
        return -1;
    if (name.front() == ':')
        return connectionOf(name, 0).participant;
    if (const std::string_view module = moduleOfService(name); !module.empty()) {
        const int id = m_participants.idOf(module);
        m_modules[id] = true;
        return id;
    }
    const auto owner = m_owners.find(std::string(name));
    if (owner != m_owners.end())
        return connectionOf(owner->second, 0).participant;
    return m_participants.count() < int(2 * mostParticipants) ? m_participants.idOf(name)
                                                              : m_participants.idOf("(others)");
}

void Traffic::own(const std::string& name, const std::string& owner, Time time) {
    if (owner.empty() || owner == name || owner.front() != ':')
        return;
    if (m_owners.size() >= mostParticipants && !m_owners.count(name))
        return;
    m_owners[name] = owner;
    Connection& connection = connectionOf(owner, time);
    if (std::find(connection.names.begin(), connection.names.end(), name) == connection.names.end())
        connection.names.push_back(name);
    const std::string_view module = moduleOfService(name);
    if (isModule(connection.participant) || (module.empty() && connection.names.size() > 1))
        return; // it has a name of its own already
    connection.participant = m_participants.idOf(module.empty() ? std::string_view(name) : module);
    if (!module.empty())
        m_modules[connection.participant] = true;
    m_lives[connection.life].participant = connection.participant;
}

void Traffic::lose(const std::string& name, const std::string& owner, Time time) {
    m_owners.erase(name);
    const auto connection = m_connections.find(owner);
    if (connection == m_connections.end())
        return;
    auto& names = connection->second.names;
    names.erase(std::remove(names.begin(), names.end(), name), names.end());
    // A module that has given its name back is gone for others, though its process may take a moment more.
    Life& life = m_lives[connection->second.life];
    if (!moduleOfService(name).empty() && life.end == 0)
        life.end = time;
}

void Traffic::end(const std::string& uniqueName, Time time) {
    const auto connection = m_connections.find(uniqueName);
    if (connection != m_connections.end()) {
        Life& life = m_lives[connection->second.life];
        if (life.end == 0)
            life.end = time;
        for (const std::string& name : connection->second.names)
            m_owners.erase(name);
        m_connections.erase(connection);
    }
    for (auto call = m_open.begin(); call != m_open.end();) // nobody waits any more
        call = call->second.callerConnection == uniqueName ? m_open.erase(call) : std::next(call);
}

std::string Traffic::keyOf(std::string_view connection, std::uint32_t serial) {
    std::string key(connection);
    return (key += ' ') += std::to_string(serial);
}

void Traffic::takeFromBus(const Header& header, std::string_view message, Time time) {
    if (header.type == Type::Signal && header.member == "NameOwnerChanged" && header.signature == "sss") {
        const wire::Message signal = parsed(message);
        const char *name = nullptr, *before = nullptr, *now = nullptr;
        if (!signal || !dbus_message_get_args(signal.get(), nullptr, DBUS_TYPE_STRING, &name, DBUS_TYPE_STRING, &before,
                                              DBUS_TYPE_STRING, &now, DBUS_TYPE_INVALID))
            return;
        if (*name == ':') {
            if (*now == 0)
                end(name, time);
            else
                connectionOf(name, time);
            return;
        }
        if (*before)
            lose(name, before, time);
        own(name, now, time);
        return;
    }
    if (header.type != Type::Return)
        return;
    const auto question = m_questions.find(keyOf(header.destination, header.answers));
    if (question == m_questions.end())
        return;
    const auto [isOwner, name] = question->second;
    m_questions.erase(question);
    const wire::Message answer = parsed(message);
    if (isOwner && header.signature == "s") {
        own(name, textIn(answer.get()), 0);
    } else if (!isOwner && header.signature == "u" && answer) {
        dbus_uint32_t process = 0;
        dbus_message_get_args(answer.get(), nullptr, DBUS_TYPE_UINT32, &process, DBUS_TYPE_INVALID);
        const auto owner = m_owners.find(name);
        const std::string connection = owner == m_owners.end() ? name : owner->second;
        if (!connection.empty() && connection.front() == ':')
            connectionOf(connection, 0).process = process;
    }
}

Seen Traffic::take(const Header& header, std::string_view message, Time time) {
    Seen seen;
    if (header.destination == busName) {
        constexpr std::size_t mostQuestions = 10000;
        if (header.type == Type::Call && m_questions.size() < mostQuestions &&
            (header.member == "GetNameOwner" || header.member == "GetConnectionUnixProcessID"))
            m_questions[keyOf(header.sender, header.serial)] = {header.member == "GetNameOwner",
                                                                textIn(parsed(message).get())};
        return seen;
    }
    const bool isFromBus = header.sender == busName;
    if (isFromBus && header.type != Type::Error) {
        takeFromBus(header, message, time);
        return seen;
    }
    const auto nameOf = [this](std::string_view name) {
        return m_names.idOf(m_names.count() < mostNames ? name : std::string_view("(others)"));
    };
    switch (header.type) {
    case Type::Signal:
        if (!isEvent(header))
            return seen;
        seen.kind = Seen::Event;
        seen.from = m_participants.count() < int(2 * mostParticipants) ? m_participants.idOf(moduleOfPath(header.path))
                                                                       : participantOf(header.sender);
        if (m_connections.count(std::string(header.sender)))
            m_modules[seen.from] = true;
        seen.name = nameOf(header.member);
        return seen;
    case Type::Call: {
        seen.kind = Seen::Call;
        seen.from = participantOf(header.sender);
        seen.to = participantOf(header.destination);
        if (seen.from < 0 || seen.to < 0)
            return Seen();
        seen.name = nameOf(header.member);
        if (!header.wantsAnswer || m_open.size() >= mostOpen)
            return seen;
        OpenCall& call = m_open[keyOf(header.sender, header.serial)];
        call = {time,
                seen.from,
                seen.to,
                seen.name,
                -1,
                std::string(header.sender),
                std::string(header.destination),
                header.serial};
        seen.call = &call;
        return seen;
    }
    case Type::Return:
    case Type::Error: {
        const auto open = m_open.find(keyOf(header.destination, header.answers));
        if (open == m_open.end())
            return seen;
        seen.kind = header.type == Type::Error ? Seen::Error : Seen::Answer;
        m_closed = std::move(open->second);
        m_open.erase(open);
        seen.from = m_closed.callee;
        seen.to = m_closed.caller;
        seen.name = m_closed.method;
        seen.call = &m_closed;
        return seen;
    }
    case Type::Invalid:
        break;
    }
    return seen;
}

void Traffic::forEachOpen(const std::function<void(const OpenCall&)>& use) const {
    for (const auto& [key, call] : m_open)
        use(call);
}

void Traffic::writeNames(const std::function<void(std::string_view message)>& to) const {
    const char* const asker = ":0.0"; // of no connection: buses count from 1
    dbus_uint32_t serial = 0;
    const auto pair = [&](const char* method, const std::string& name, int type, const void* answer) {
        const wire::Message question =
            wire::made(dbus_message_new_method_call(DBUS_SERVICE_DBUS, DBUS_PATH_DBUS, DBUS_INTERFACE_DBUS, method));
        const char* const text = name.c_str();
        const wire::Message reply = wire::made(dbus_message_new(DBUS_MESSAGE_TYPE_METHOD_RETURN));
        if (!dbus_message_append_args(question.get(), DBUS_TYPE_STRING, &text, DBUS_TYPE_INVALID) ||
            !dbus_message_append_args(reply.get(), type, answer, DBUS_TYPE_INVALID) ||
            !dbus_message_set_sender(question.get(), asker) ||
            !dbus_message_set_sender(reply.get(), DBUS_SERVICE_DBUS) ||
            !dbus_message_set_destination(reply.get(), asker) || !dbus_message_set_reply_serial(reply.get(), ++serial))
            throw std::bad_alloc();
        dbus_message_set_serial(question.get(), serial);
        for (DBusMessage* message : {question.get(), reply.get()}) {
            const QByteArray bytes = wire::toBytes(message);
            to({bytes.constData(), static_cast<std::size_t>(bytes.size())});
        }
    };
    for (const auto& [name, owner] : m_owners) {
        const char* const text = owner.c_str();
        if (dbus_validate_bus_name(name.c_str(), nullptr) && dbus_validate_bus_name(text, nullptr))
            pair("GetNameOwner", name, DBUS_TYPE_STRING, &text);
    }
    for (const auto& [name, connection] : m_connections) {
        const dbus_uint32_t process = connection.process;
        if (process && dbus_validate_bus_name(name.c_str(), nullptr))
            pair("GetConnectionUnixProcessID", name, DBUS_TYPE_UINT32, &process);
    }
}

} // namespace recording
