// Mistakes that the compiler is to tell in one line each: in that with the text behind the mistake's name. Without any of
// them this compiles. The script beside this looks.
#include <VelTypedCalls>
#include <VelTypedEvents>

using namespace std::chrono_literals;

struct LampChanged {
    Q_GADGET
    Q_PROPERTY(int percent MEMBER percent)
public:
    static constexpr auto eventName = "lamp_changed";
    int percent = 0;
};

struct Unnamed {
    Q_GADGET
};

struct Misnamed {
    Q_GADGET
public:
    static constexpr auto eventName = "lamp-changed";
};

struct Plain {
    static constexpr auto eventName = "plain";
};

class Lamp : public VelModule {
public:
    Lamp() : VelModule("Lamp") {}
    void changed(const LampChanged&) {}
    void withTwo(const VelEvent&, int) {}
    void mayChangeIt(VelEvent&) {}
};

class Other : public QObject {
public:
    void changed() {}
};

inline const vel::Method<QString(int)> tune{"Tuner", "tune"};

void write(Lamp& lamp, Other& other) {
    vel::onEvent(lamp, "lamp_changed", &lamp, &Lamp::changed);
    vel::onEvent(lamp, "lamp_changed", &other, &Other::changed);
    vel::call(lamp, vel::within(2s), tune, 3);
    vel::ask(lamp, tune, 3).then(&lamp, [](const QString&) {});

#ifdef MISTAKES // MISSPELT_HANDLER: 'chanegd' is not a member of 'Lamp'
    vel::onEvent(lamp, "lamp_changed", &lamp, &Lamp::chanegd);
#endif
#ifdef MISTAKES // TWO_PARAMETERS: vel::onEvent: a handler takes nothing, a VelEvent or a struct with Q_GADGET, by value or const reference
    vel::onEvent(lamp, "lamp_changed", &lamp, &Lamp::withTwo);
#endif
#ifdef MISTAKES // CHANGING_WHAT_OTHERS_HEAR: vel::onEvent: a handler takes nothing, a VelEvent or a struct with Q_GADGET, by value or const reference
    vel::onEvent(lamp, "lamp_changed", &lamp, &Lamp::mayChangeIt);
#endif
#ifdef MISTAKES // WRONG_PARAMETER: vel::onEvent: a handler takes nothing, a VelEvent or a struct with Q_GADGET, by value or const reference
    vel::onEvent(lamp, "lamp_changed", &lamp, [](int) {});
#endif
#ifdef MISTAKES // ANOTHER_EVENT: vel::onEvent<Event>: the handler takes nothing or the event
    vel::onEvent<LampChanged>(lamp, &lamp, [](const VelEvent&) {});
#endif
#ifdef MISTAKES // MEMBER_OF_ANOTHER_CLASS: vel::onEvent: the member function is not one of the context's class
    vel::onEvent(lamp, "lamp_changed", &lamp, &Other::changed);
#endif
#ifdef MISTAKES // CONTEXT_THAT_NEVER_DIES: vel::onEvent: the context is a pointer to a QObject; its death ends the subscription
    static Plain plain;
    vel::onEvent(lamp, "lamp_changed", &plain, [] {});
#endif
#ifdef MISTAKES // NO_GADGET: vel: an event is a struct with Q_GADGET, in a header or source that moc reads
    vel::publish(lamp, Plain());
#endif
#ifdef MISTAKES // NO_NAME: vel: an event names itself: static constexpr auto eventName = "its_name";
    vel::publish(lamp, Unnamed());
#endif
#ifdef MISTAKES // NO_EVENTS_NAME: vel: an event's name is 1 to 255 of A-Z a-z 0-9 _, and does not begin with a digit
    vel::publish(lamp, Misnamed());
#endif
#ifdef MISTAKES // MISSPELT_FIELD: 'struct LampChanged' has no member named 'precent'
    LampChanged().precent = 0;
#endif
#ifdef MISTAKES // ANOTHER_ARGUMENT: vel::call: the method takes other arguments
    vel::call(lamp, tune, "three");
#endif
#ifdef MISTAKES // UNKNOWN_ARGUMENT: vel: an argument of a call has a type that Qt knows, Q_ENUM, Q_GADGET or Q_DECLARE_METATYPE
    vel::call<void>(lamp, "Tuner", "tune", Plain());
#endif
#ifdef MISTAKES // UNKNOWN_ANSWER: vel: an answer is void, a std::tuple, or a type that Qt knows, Q_ENUM, Q_GADGET or Q_DECLARE_METATYPE
    vel::call<Plain>(lamp, "Tuner", "tune");
#endif
#ifdef MISTAKES // CONTINUATION: vel::ask: the first continuation takes the answer; each value of a tuple, and nothing for void
    vel::ask(lamp, tune, 3).then(&lamp, [](const QStringList&) {});
#endif
}
