"""Events of five arguments from a publisher to slots in other processes."""
import contextlib
import itertools
import json
import statistics
import sys

import frame

VEL = "Vel"
QT = "Qt D-Bus by hand"
SD_BUS = "sd-bus"
# name: program, and the library that it may lack
STACKS = {
    VEL: ("bench-events-vel", None),
    QT: ("bench-events-qt", None),
    SD_BUS: ("bench-events-sd-bus", "libsystemd"),
    "sdbus-c++": ("bench-events-sdbus-c++", "sdbus-c++ 1.x"),
    "GDBus": ("bench-events-gdbus", "GLib"),
}
# How many events are published flat out to so many processes, and in how many passes a round: the passes are short, so
# that what is compared lies close together, and many, since most of what changes is how the scheduler places a process.
FLAT_OUT = {1: (2500, 8), 5: (1000, 8), 20: (500, 6)}
INSIDE = (750, 8)  # to twenty receivers in one process
PACED = (100, 8)
RATE = 500  # a second, where the way of a single event is measured


def flat_out(receivers):
    return f"events flat out, {receivers} {'process' if receivers == 1 else 'processes'}"


def paced(receivers):
    return f"events at {RATE}/s, {receivers} {'process' if receivers == 1 else 'processes'}"


TWENTY = "events flat out, 20 receivers in one process"
BESIDE = "events flat out, one subscription beside 200 others"
SHARED = "Vel, one subscription passed on"
SURROUNDINGS = "events flat out: surroundings"
PACED_SURROUNDINGS = f"events at {RATE}/s: surroundings"

TARGETS = [
    *(frame.Target(flat_out(receivers), VEL, QT, "time", 1.08) for receivers in FLAT_OUT),
    *(frame.Target(paced(receivers), VEL, QT, "p50", 1.08) for receivers in FLAT_OUT),
    *(frame.Target(flat_out(receivers), SD_BUS, QT, "time") for receivers in FLAT_OUT),
    *(frame.Target(paced(receivers), SD_BUS, QT, "p50") for receivers in FLAT_OUT),
    frame.Target(TWENTY, VEL, QT, "time", 1.08),
    frame.Target(TWENTY, SHARED, VEL, "time"),
    frame.Target(BESIDE, VEL, QT, "time", 1.08),
    *(frame.Target(work, f"Vel, {other}", VEL, figure) for work, figure in (
        (SURROUNDINGS, "time"), (PACED_SURROUNDINGS, "p50")) for other in ("QT_NO_GLIB=1", "dbus-broker")),
]

ADVICE = [
    frame.Advice("Subscribe once in a process, and hand the event on inside it",
                 frame.Target(TWENTY, SHARED, VEL, "time"), "a signal of the module's own"),
    *(frame.Advice(f"{what}: {whose}", frame.Target(work, f"Vel, {other}", VEL, figure), price)
      for other, (what, price) in frame.SURROUNDINGS.items()
      for work, figure, whose in ((SURROUNDINGS, "time", "events flat out"),
                                  (PACED_SURROUNDINGS, "p50", f"events at {RATE}/s"),
                                  (SURROUNDINGS, "CPU bus", "the bus's CPU time for events"))
      if figure != "CPU bus" or other == "dbus-broker"),
]


def over_receivers(work, figure):
    return {name: [(receivers, work(receivers), name, figure) for receivers in FLAT_OUT] for name in (VEL, QT, SD_BUS)}


PLOTS = [
    frame.Plot("events-flat-out", "Events flat out", "processes that receive each event", "µs per event",
               over_receivers(flat_out, "time")),
    frame.Plot("events-on-the-way", f"On the way, at {RATE} events a second", "processes that receive each event",
               "µs from notifyEvent() to the slot (p50)", over_receivers(paced, "p50")),
]

NOTES = ["Each event that was published arrived everywhere, whole: one less, and the run ends without a result."]

NUMBERS = itertools.count(1)


def take(bus, program, events, receivers=1, way="one", rate=0, **environment):
    with contextlib.ExitStack() as running:
        def worker(*arguments):
            name = f"--moduleName=Bench{next(NUMBERS)}"  # of a module; others do not look at it
            return running.enter_context(bus.worker(program, *arguments, name, **environment))

        publisher = worker("publish")
        listeners = [worker("receive", events, way) for _ in range(receivers)]
        publisher.put("warm")
        for listener in listeners:
            if (line := listener.line()) != "warm":
                sys.exit(f"bench: '{listener.words}' says '{line}' instead of 'warm'")
        bus_before = frame.cpu_seconds(bus.process.pid)
        sent = publisher.ask(events, rate)
        heard = [json.loads(listener.line()) for listener in listeners]
        bus_cpu = (frame.cpu_seconds(bus.process.pid) - bus_before) * 1e6
    for one in heard:
        if one["lost"] or one["malformed"]:
            sys.exit(f"bench: {program}: of {events} events {one['lost']} were lost and {one['malformed']} malformed")
    time = (max(one["end"] for one in heard) - sent["begin"]) / events
    speed = {"p50": statistics.median(one["p50"] for one in heard), "p99": max(one["p99"] for one in heard)}
    return {**(speed if rate else {"time": time, "events/s": 1e6 / time}), "CPU publisher": sent["cpu"] / events,
            "CPU receiver": statistics.median(one["cpu"] for one in heard) / events, "CPU bus": bus_cpu / events}


def cells(session):
    bus = session.bus("events")

    def cell(work, name, program, size, at=bus, **more):
        events, passes = size
        return frame.Cell(work, name, lambda: take(at, program, session.count(events), **more),
                          passes=1 if session.quick else passes)

    stacks = {name: program for name, (program, library) in STACKS.items()
              if library is None or session.has(program, library)}
    vel = stacks[VEL]
    made = []
    for receivers, size in FLAT_OUT.items():
        for name, program in stacks.items():
            if receivers == 1 or name in (VEL, QT, SD_BUS):
                made.append(cell(flat_out(receivers), name, program, size, receivers=receivers))
                made.append(cell(paced(receivers), name, program, PACED, receivers=receivers, rate=RATE))
    for name in (VEL, QT):
        made.append(cell(TWENTY, name, stacks[name], INSIDE, way="twenty"))
        made.append(cell(BESIDE, name, stacks[name], FLAT_OUT[1], way="beside"))
    made.append(cell(TWENTY, SHARED, vel, INSIDE, way="shared"))

    broker = session.bus("events-broker", "dbus-broker") if session.has_broker() else None
    for work, size, more in ((SURROUNDINGS, FLAT_OUT[1], {}), (PACED_SURROUNDINGS, PACED, {"rate": RATE})):
        made.append(cell(work, VEL, vel, size, **more))
        made.append(cell(work, "Vel, QT_NO_GLIB=1", vel, size, **more, QT_NO_GLIB="1"))
        if broker:
            made.append(cell(work, "Vel, dbus-broker", vel, size, broker, **more))
    return made
