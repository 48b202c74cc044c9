"""The start of a process: how long it takes, what it says to the bus, and the memory of the process that idles then."""
import dataclasses
import itertools
import statistics
import sys
import time

import frame

VEL, FORKED, QT, SDBUS = "Vel module", "Vel module, by fork", "Qt program", "sd-bus program"
PROGRAMS = {VEL: "vel-idle", FORKED: "vel-idle", QT: "qt-idle", SDBUS: "sdbus-idle"}  # the last two take the same name
PREFIX = "org.vel.module"
STARTS = 8  # in a round; the least disturbed of them counts, for what else the machine does only adds to a time
WITHOUT_GLIB = {"QT_NO_GLIB": "1"}
TIME, MEMORY, CROWD, MESSAGES = "start", "idle, alone", "idle, one of ten", "what a start says to the bus"

TARGETS = [
    frame.Target(TIME, "Vel module", "Qt program", "to the name/µs", 1.25),
    frame.Target(TIME, "Vel module", "Qt program", "to ready/µs", 1.20),
    frame.Target(TIME, FORKED, QT, "to ready/µs", 0.65),
    frame.Target(TIME, FORKED, SDBUS, "to ready/µs"),
    frame.Target(TIME, FORKED, VEL, "to ready/µs"),
    frame.Target(MEMORY, "Vel module", "Qt program", "RSS/kB", 1.10),
    frame.Target(MEMORY, "Vel module", "Qt program", "PSS/kB", 1.10),
    frame.Target(MEMORY, "Vel module", "Qt program", "private dirty/kB", 1.10),
    frame.Target(CROWD, "Vel module", "Qt program", "PSS/kB", 1.10),
    frame.Target(CROWD, "Vel module", "Qt program", "private dirty/kB", 1.10),
    frame.Target(CROWD, FORKED, QT, "PSS/kB", 0.70),
    frame.Target(CROWD, FORKED, QT, "private dirty/kB", 0.50),
]
BY_FORK = ("Start modules by fork (`\"launch\": \"fork\"` in the supervisor's configuration): {}",
           "one address layout for all; a new library needs a new launcher")
ADVICE = [
    frame.Advice(BY_FORK[0].format("time"), frame.Target(TIME, FORKED, VEL, "to ready/µs"), BY_FORK[1]),
    frame.Advice(BY_FORK[0].format("memory"), frame.Target(CROWD, FORKED, VEL, "PSS/kB"), BY_FORK[1]),
]
PLOTS = []
NOTES = ["By fork: vel-launcher has loaded the libraries, and a process that it has forked becomes the module. \"Launcher and "
         "spare\" are what that takes beside the modules, once for all of them. The other programs are executed.", "",
         "The memory of a lone process is its RSS, because its PSS depends on how many other programs of the machine use "
         "Qt. The memory of one of ten is its PSS."]  # the run adds the table of a start's messages

_numbers = itertools.count(1)


class Member:
    """One started process, that reports "WORD NANOSECONDS"."""

    def __init__(self, bus, kind, **environment):
        self.name = f"Member{next(_numbers)}"
        program, option, environment = PROGRAMS[kind], f"--moduleName={self.name}", bus.environment(**environment)
        self.started = time.monotonic_ns()
        if kind == FORKED:
            self.process = bus.session.fork(program, [option], environment)
        else:
            self.process = bus.session.start([bus.session.programs / program, option], environment)

    def moment(self, word):
        line = self.process.stdout.readline().split()
        if len(line) != 2 or line[0] != word:
            sys.exit(f"bench: {self.name} says {line} instead of '{word}'")
        return int(line[1])

    def settle(self):
        """Waits until it idles; returns when it was ready."""
        ready = self.moment("ready")
        self.moment("idle")
        return ready

    def order(self, word):
        self.process.stdin.write(word + "\n")
        self.process.stdin.flush()

    def end(self):
        frame.end(self.process)


class NameWatch:
    """Sees from outside when a name gets its owner: the same for every program, and no work in it."""

    def __init__(self, bus):
        self.worker = bus.worker("bus-watch", "names")

    def moment(self, name):
        while True:
            owned, moment = self.worker.line().split("\t")
            if owned == f"{PREFIX}.{name}Service":
                return int(moment)


def start_times(bus, watch, kind, environment):
    taken = {"to the name/µs": [], "to ready/µs": [], "CPU until it idles/µs": []}
    for _ in range(STARTS):
        member = Member(bus, kind, **environment)
        ready = member.settle()
        moments = (watch.moment(member.name) - member.started, ready - member.started)
        for figure, value in zip(taken, (*moments, frame.cpu_seconds(member.process.pid) * 1e9)):
            taken[figure].append(value / 1000)
        member.end()
    return {figure: min(values) for figure, values in taken.items()}


def idle_alone(bus, kind, environment):
    member = Member(bus, kind, **environment)
    member.settle()
    taken = {"RSS/kB": frame.memory_fields(member.process.pid)["Rss"], **frame.memory_kb(member.process.pid)}
    member.end()
    return taken


def idle_among_ten(bus, kind, environment):
    members = [Member(bus, kind, **environment) for _ in range(10)]
    for member in members:
        member.settle()
    taken = [frame.memory_kb(member.process.pid) for member in members]
    for member in members:
        member.end()
    return {figure: statistics.mean(one[figure] for one in taken) for figure in taken[0]}


def memory_of_launcher(session):
    """What starting by fork takes beside the modules."""
    taken = [frame.memory_kb(pid) for pid in session.launcher_processes()]
    return {figure: sum(one[figure] for one in taken) for figure in taken[0]}


@dataclasses.dataclass(frozen=True)
class Message:
    """What a start is expected to say, and why. The name stands for NAME."""
    member: str
    text: str  # its first argument, when that is a text
    destination: str
    blocks: bool
    why: str


DRIVER = "org.freedesktop.DBus"


def rule(member, why):
    text = f"type='signal',interface='{PREFIX}.VelInterface'" + (f",member='{member}'" if member else "")
    return Message("AddMatch", text, DRIVER, False, why)


QT_MESSAGES = [
    Message("Hello", "-", DRIVER, True, "the connection gets its number"),
    Message("RequestName", f"{PREFIX}.NAMEService", DRIVER, True, "the name under which the program is reached"),
]
VEL_MESSAGES = [
    QT_MESSAGES[0],
    Message("NameHasOwner", f"{PREFIX}.NAMEService", DRIVER, True, "a second instance ends before it takes anything"),
    QT_MESSAGES[1],
    rule("log_level_changed", "the log level can be switched from outside"),
    rule("reset_data_default", "a reset of the data reaches every module"),
    rule("reset_data_factory", "so does a factory reset"),
    rule("mtrace_on", "allocation tracing can be switched on from outside"),
    rule("mtrace_off", "and off"),
    rule("stop_module_NAME", "the module can be stopped from outside"),
    rule("presentationLoaded", "the lifecycle follows the presentation"),
    Message("end_of_init_NAME", "-", "-", False, "everybody learns that the module is initialised"),
]
EXPECTED = {VEL: VEL_MESSAGES, QT: QT_MESSAGES}


def messages_of_start(bus, kind):
    """What a process sends until it idles, as Message without a reason, in order; seen by a monitor.

    A call is taken to block when an answer is expected and its sender says nothing more until it has come: that may be
    one too many, never one too few. The last message, the program's question whether it has settled, does not count.
    """
    watch = bus.worker("bus-watch", "messages")
    member = Member(bus, kind)
    sent = []  # of the member
    number = None  # the member's on the bus
    while True:
        kind, sender, destination, serial, answered, reply, name, text = watch.line().split("\t")
        if name == "Hello" and number is None:
            number = sender
        if sender == number and name == "GetId":
            break
        if sender == number:
            sent.append({"serial": serial, "waits": kind == "method_call" and reply == "reply", "alone": False,
                         "said": tuple(field.replace(member.name, "NAME") for field in (name, text, destination))})
        elif destination == number and answered != "0" and sent and sent[-1]["serial"] == answered:
            sent[-1]["alone"] = True
    member.settle()
    member.end()
    frame.end(watch.process)
    return [Message(*one["said"], one["waits"] and one["alone"], "") for one in sent]


def account(bus, name):
    """Holds a start against what is expected of it: the differences in words, and the lines of its table."""
    taken = messages_of_start(bus, name)
    expected = EXPECTED[name]
    differences = [f"{name}: not accounted for: {message}" for message in taken
                   if message not in [dataclasses.replace(one, why="") for one in expected]]
    if not differences and taken != [dataclasses.replace(one, why="") for one in expected]:
        differences = [f"{name}: other numbers or order than expected: {[message.member for message in taken]}"]
    lines = [f"| `{one.member}` | {'everybody' if one.destination == '-' else 'the bus'} "
             f"| {'' if one.text == '-' else f'`{one.text}`'} | {'yes' if one.blocks else 'no'} | {one.why} |"
             for one in expected]
    return differences, taken, lines


def count_messages(bus, name):
    differences, taken, lines = account(bus, name)
    if differences:
        sys.exit("bench: " + "\n".join(differences))
    if name == "Vel module":
        NOTES[1:] = ["", "\n".join(["What a module's start says to the bus, seen by a monitor of the bus:", "",
                                    "| message | to | first text | blocks | why |", "|---|---|---|---|---|", *lines])]
    return {"messages": len(taken), "of them blocking": sum(message.blocks for message in taken)}


def kinds(session):
    """The programs that can be measured here."""
    return [name for name in PROGRAMS if name != SDBUS or session.has(PROGRAMS[SDBUS], "libsystemd")]


def cells(session):
    bus = session.bus("start")
    watch = NameWatch(bus)
    listed = []

    def add(work, name, take):
        listed.append(frame.Cell(work, name, take))

    for name in kinds(session):
        for words, environment in (("", {}), (", QT_NO_GLIB", WITHOUT_GLIB)):
            if name == SDBUS and environment:
                continue
            add(TIME, name + words, lambda n=name, e=environment: start_times(bus, watch, n, e))
            add(MEMORY, name + words, lambda n=name, e=environment: idle_alone(bus, n, e))
            add(CROWD, name + words, lambda n=name, e=environment: idle_among_ten(bus, n, e))
        if name in EXPECTED:
            add(MESSAGES, name, lambda n=name: count_messages(bus, n))
    add(MEMORY, "launcher and spare", lambda: memory_of_launcher(session))
    return listed
