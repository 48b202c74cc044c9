"""Blocking and asynchronous calls to one module that answers with what it was sent."""
import math

import frame

# Where programs find the module "Echo" that do not make its names themselves.
ECHO = ("org.vel.module.EchoService", "/Echo", "org.vel.module.VelInterface")

PAYLOADS = {"text": "blocking call, a text in and out", "map": "blocking call, a{sv} of five in and out"}
ASYNCHRONOUS = {"text": "asynchronous calls, a text in and out", "map": "asynchronous calls, a{sv} of five in and out"}
SURROUNDINGS = "blocking call, a text in and out: surroundings"
OUTSTANDING = (1, 4, 16, 64)
# Calls in one measurement: few, so that what is compared lies close together; and so often a round, since most of what
# changes is how the scheduler places a process, once for its life.
CALLS, PASSES = 200, 8

NAMED = "Vel, syncRemoteCall()"
KEPT = "Vel, VelDBusInterface kept"
QT = "QDBusInterface kept"
NEW = "QDBusInterface for each call"
SD_BUS = "sd-bus"

# name: program, way, and the library that it may lack
WAYS = {
    NAMED: ("bench-calls-vel", "name", None),
    KEPT: ("bench-calls-vel", "proxy", None),
    QT: ("bench-calls-qt", "proxy", None),
    "QDBusMessage by hand": ("bench-calls-qt", "message", None),
    NEW: ("bench-calls-qt", "new", None),
    SD_BUS: ("bench-calls-sd-bus", "call", "libsystemd"),
    "sdbus-c++": ("bench-calls-sdbus-c++", "call", "sdbus-c++ 1.x"),
    "GDBus": ("bench-calls-gdbus", "call", "GLib"),
}


def outstanding(calls):
    return f"Vel, {calls} outstanding"


TARGETS = [
    *(frame.Target(work, name, QT, "p50", 1.03) for work in PAYLOADS.values() for name in (NAMED, KEPT)),
    *(frame.Target(work, name, NEW, "p50", 0.50) for work in PAYLOADS.values() for name in (NAMED, KEPT)),
    *(frame.Target(work, QT, NEW, "p50") for work in PAYLOADS.values()),  # what Qt's own proxy reaches
    *(frame.Target(work, SD_BUS, QT, "p50") for work in PAYLOADS.values()),
    *(frame.Target(work, outstanding(calls), NAMED, "time", 0.27 if calls >= 16 else math.inf)
      for work in ASYNCHRONOUS.values() for calls in OUTSTANDING),
    *(frame.Target(work, outstanding(64), SD_BUS, "time") for work in ASYNCHRONOUS.values()),
    frame.Target(SURROUNDINGS, "Vel, QT_NO_GLIB=1", "Vel", "p50"),
    frame.Target(SURROUNDINGS, "Vel, dbus-broker", "Vel", "p50"),
    frame.Target(SURROUNDINGS, "sd-bus, dbus-broker", "sd-bus", "p50"),
]

ADVICE = [
    frame.Advice("Call through `syncRemoteCall()`, or keep a `VelDBusInterface`; make no proxy for a single call",
                 frame.Target(PAYLOADS["text"], NAMED, NEW, "p50"), "none"),
    frame.Advice("Send several calls by `asyncRemoteCall()` before looking at the first answer",
                 frame.Target(ASYNCHRONOUS["text"], outstanding(16), NAMED, "time"), "answers, and errors, come later"),
    *(frame.Advice(f"{what}: calls", frame.Target(SURROUNDINGS, f"Vel, {other}", "Vel", "p50"), price)
      for other, (what, price) in frame.SURROUNDINGS.items()),
]

PLOTS = [frame.Plot("asynchronous-calls", "Asynchronous calls: what one takes", "calls outstanding", "µs per call", {
    payload: [(calls, work, outstanding(calls), "time") for calls in OUTSTANDING] for payload, work in (
        ("a text", ASYNCHRONOUS["text"]), ("a{sv} of five", ASYNCHRONOUS["map"]))})]

NOTES = ["p50 and p99 of asynchronous calls are those of a batch, divided by its calls."]


class Station:
    """A bus with the module that all call."""

    def __init__(self, session, name, broker="dbus-daemon"):
        self.bus = session.bus(name, broker)
        self.echo = self.bus.worker("bench-echo")

    def take(self, program, way, payload, calls, **environment):
        arguments = () if program == "bench-calls-vel" else ECHO
        with self.bus.worker(program, *arguments, **environment) as caller:
            watched = {"CPU module": self.echo.process.pid, "CPU bus": self.bus.process.pid}
            before = {name: frame.cpu_seconds(pid) for name, pid in watched.items()}
            figures = caller.ask(way, payload, calls)
            made = figures.pop("calls")
            for name, pid in watched.items():
                figures[name] = (frame.cpu_seconds(pid) - before[name]) * 1e6 / made
        return figures


def cells(session):
    station = Station(session, "calls")

    def cell(work, name, program, way, payload, at=station, **environment):
        return frame.Cell(work, name, lambda: at.take(program, way, payload, session.count(CALLS), **environment),
                          passes=1 if session.quick else PASSES)

    made = []
    ways = {name: way for name, (*way, library) in WAYS.items() if library is None or session.has(way[0], library)}
    for payload, work in PAYLOADS.items():
        made += [cell(work, name, program, way, payload) for name, (program, way) in ways.items()]
    for payload, work in ASYNCHRONOUS.items():
        made += [cell(work, name, *ways[name], payload) for name in (NAMED, SD_BUS) if name in ways]
        made += [cell(work, outstanding(number), "bench-calls-vel", number, payload) for number in OUTSTANDING]

    made.append(cell(SURROUNDINGS, "Vel", *ways[NAMED], "text"))
    made.append(cell(SURROUNDINGS, "Vel, QT_NO_GLIB=1", *ways[NAMED], "text", QT_NO_GLIB="1"))
    on_broker = None
    if session.has_broker():
        on_broker = Station(session, "calls-broker", "dbus-broker")
        made.append(cell(SURROUNDINGS, "Vel, dbus-broker", *ways[NAMED], "text", on_broker))
    if SD_BUS in ways:
        made.append(cell(SURROUNDINGS, "sd-bus", *ways[SD_BUS], "text"))
        if on_broker:
            made.append(cell(SURROUNDINGS, "sd-bus, dbus-broker", *ways[SD_BUS], "text", on_broker))
    return made
