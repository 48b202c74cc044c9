"""Many modules on one bus: how the start of all, an event to all and their memory grow with their number."""
import itertools
import math
import statistics
import time

import frame
import start

NUMBERS = (1, 10, 50, 100)
EVENTS = 10  # in a round, to each fleet
WORK = "fleet"

# The figures of a fleet that grow with the number of its members.
BOOT, EVENT, MEMORY, DAEMON = "boot/ms", "event to all/ms", "PSS of all/kB", "private dirty of the bus/kB"
GROWING = (BOOT, EVENT, MEMORY, DAEMON)

_buses = itertools.count(1)


def at(figure, number):
    name, unit = figure.rsplit("/", 1)
    return f"{name}, {number}/{unit}"


def each(figure):
    """What one more member costs: the slope of the straight line through the four fleets."""
    name, unit = figure.rsplit("/", 1)
    return f"{name}, each/{unit}"


def bend(figure):
    """The part of the growth that a straight line does not explain: 1 - R²."""
    return f"{figure.rsplit('/', 1)[0]}, off the line"


NAMES = {start.VEL: "Vel modules", start.FORKED: "Vel modules, by fork", start.QT: "Qt programs",
         start.SDBUS: "sd-bus programs"}
VEL, FORKED, QT, SDBUS = NAMES.values()

TARGETS = [
    frame.Target(WORK, "Vel modules", "Qt programs", each(BOOT), 1.40),
    frame.Target(WORK, "Vel modules", "Qt programs", each(EVENT), math.inf),  # only told
    frame.Target(WORK, "Vel modules", "Qt programs", each(MEMORY), 1.10),
    frame.Target(WORK, FORKED, QT, at(BOOT, 100), 0.65),
    frame.Target(WORK, FORKED, SDBUS, at(BOOT, 100)),
    frame.Target(WORK, FORKED, QT, each(MEMORY), 0.70),
    *[frame.Target(WORK, "Vel modules", "", bend(figure), 0.05) for figure in GROWING],
]


def plot(file, title, label, figure):
    return frame.Plot(file, title, "processes on one bus", label,
                      {name: [(number, WORK, name, at(figure, number)) for number in NUMBERS] for name in NAMES.values()})


PLOTS = [
    plot("fleet-boot", "From the first process's start until all are ready", "ms", BOOT),
    plot("fleet-event", "One event, until the last process's slot has run", "ms", EVENT),
    plot("fleet-memory", "Memory of all processes together (PSS)", "kB", MEMORY),
]
NOTES = ["A fleet's figures at 1, 10, 50 and 100 processes lie on a straight line by least squares; \"each\" is its "
         "slope, \"off the line\" the part of the variance that it leaves. The memory of forked modules includes that of the "
         "launcher."]


def line_through(points):
    """Least squares: slope, and 1 - R²."""
    xs, ys = zip(*points)
    line = statistics.linear_regression(xs, ys)
    rest = sum((y - line.intercept - line.slope * x) ** 2 for x, y in points)
    variance = sum((y - statistics.mean(ys)) ** 2 for y in ys)
    return line.slope, rest / variance if variance else 0.0


def one_event(members):
    members[0].order("publish")
    published = members[0].moment("publishing")
    return (max(member.moment("heard") for member in members) - published) / 1e6


def fleet(session, kind, number):
    bus = session.bus(f"fleet{next(_buses)}")
    begin = time.monotonic_ns()
    members = [start.Member(bus, kind) for _ in range(number)]
    boot = (max(member.settle() for member in members) - begin) / 1e6
    memory = sum(frame.memory_kb(member.process.pid)["PSS/kB"] for member in members)
    if kind == start.FORKED:
        memory += start.memory_of_launcher(session)["PSS/kB"]
    for member in members:
        member.order("listen")
    for member in members:
        member.moment("listening")
    event = statistics.median(one_event(members) for _ in range(EVENTS))
    daemon = frame.memory_kb(bus.process.pid)["private dirty/kB"]
    for member in members:
        member.end()
    frame.end(bus.process)
    return {BOOT: boot, EVENT: event, MEMORY: memory, DAEMON: daemon}


def all_sizes(session, kind):
    fleets = {number: fleet(session, kind, number) for number in NUMBERS}
    figures = {at(figure, number): fleets[number][figure] for figure in GROWING for number in NUMBERS}
    for figure in GROWING:
        figures[each(figure)], figures[bend(figure)] = line_through(
            [(number, fleets[number][figure]) for number in NUMBERS])
    return figures


def cells(session):
    return [frame.Cell(WORK, NAMES[kind], lambda k=kind: all_sizes(session, k)) for kind in start.kinds(session)]
