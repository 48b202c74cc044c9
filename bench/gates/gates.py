#!/usr/bin/env python3
"""Holds counts against their limits: instructions, messages on the bus, allocations. A time is never looked at.

Instructions are those of a process under callgrind, all its threads, outside the kernel. Each work is done N times and
2 N times, in one process that is warm; what an execution takes is the difference, so that neither the start nor the end
of a work counts. Where several threads share a work, how often they wake each other is the scheduler's affair, and a few
hundred instructions each time: it is measured several times, alternating with what it is held against, and the median
counts. The programs beside which the library is held are built here too, from the same headers.
"""
import argparse
import json
import re
import shutil
import statistics
import sys
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[1]))
import frame  # noqa: E402
import start  # noqa: E402

TIMES = {"calls": 200, "events": 500, "lines": 20_000, "self": 300}

# What one execution may take, against the same work written with Qt alone.
CALL_LIMITS = {"proxy-text": 1.03, "proxy-map": 1.03, "module-text": 1.03, "module-map": 1.03}
PUBLISHER_LIMIT = 1.08
RECEIVER_LIMIT = 1.08
TYPED_LIMIT = 1.05  # a struct, against the same arguments put together and asked for by hand
LINE_LIMIT = 60  # instructions of a line that is filtered out
# The depth of a tree grows as much from 1 proxy to 100 as from there to 10,000: a logarithm gives 2, a list 100.
GROWTH_LIMIT = 3  # what 10,000 proxies add to a call, against what 100 add

REPETITIONS = 3

failures = []


def hold(what, value, limit):
    passed = value <= limit
    print(f"{'ok  ' if passed else 'FAIL'} {what}: {value:g}, at most {limit:g}")
    if not passed:
        failures.append(what)


def hold_against(what, count, vel, plain, limit):
    """Holds the medians of what one execution takes against each other."""
    pairs = [(count(plain), count(vel)) for _ in range(REPETITIONS)]
    base, taken = (statistics.median(values) for values in zip(*pairs))
    hold(f"{what}: {taken:,.0f} instructions against {base:,.0f}", round(taken / base, 4), limit)


class Counted:
    """A program under callgrind that obeys orders; each leaves a dump, with the instructions since the order began."""

    def __init__(self, bus, program, name):
        self.dump = bus.session.folder / f"{program}-{name}"
        self.dumps = 0
        self.worker = bus.worker(shutil.which("valgrind"), "--tool=callgrind", "--quiet",
                                 f"--callgrind-out-file={self.dump}", bus.session.programs / program,
                                 f"--moduleName={name}")

    def do(self, work, times):
        return self.taken(self.worker.ask(work, times))

    def taken(self, answer):
        self.dumps += 1
        totals = re.search(r"^totals: (\d+)", Path(f"{self.dump}.{self.dumps}").read_text(), re.MULTILINE)
        return int(totals[1]), answer["allocations"]

    def each(self, work, times):
        """Instructions of one execution."""
        self.do(work, times // 10)  # warm
        short, _ = self.do(work, times)
        long, _ = self.do(work, 2 * times)
        return (long - short) / times

    def each_heard(self, publisher, times, order="hear"):
        """Instructions of one event that is received."""
        def hear(events):
            if self.worker.ask(order, events) != {"listening": events}:
                sys.exit("gates: no receiver")
            publisher.ask("publish", events)
            return self.taken(json.loads(self.worker.line()))[0]

        hear(times // 10)
        short = hear(times)
        return (hear(2 * times) - short) / times


def peer(bus):
    """A module that answers calls and publishes; not counted."""
    return bus.worker("gate-vel", "--moduleName=Echo")


def calls(session):
    bus = session.bus()
    peer(bus)
    vel = Counted(bus, "gate-vel", "Caller")
    plain = Counted(bus, "gate-qt", "Caller")
    for work, limit in CALL_LIMITS.items():
        hold_against(work, lambda program, work=work: program.each(
            work if program is vel else work.replace("module", "proxy"), TIMES["calls"]), vel, plain, limit)


def events(session):
    bus = session.bus()
    publisher = peer(bus)
    vel = Counted(bus, "gate-vel", "Member")
    plain = Counted(bus, "gate-qt", "Member")
    for side, limit, count in (
            ("published", PUBLISHER_LIMIT, lambda program: program.each("publish", TIMES["events"])),
            ("received", RECEIVER_LIMIT, lambda program: program.each_heard(publisher, TIMES["events"]))):
        hold_against(f"an event {side}", count, vel, plain, limit)


def typed(session):
    """Structs as events."""
    bus = session.bus()
    publisher = peer(bus)
    typed_one = Counted(bus, "gate-vel", "Typed")
    by_hand = Counted(bus, "gate-vel", "ByHand")
    way = {typed_one: "typed", by_hand: "by-hand"}
    for side, count in (
            ("published", lambda program: program.each(f"publish-{way[program]}", TIMES["events"])),
            ("received", lambda program: program.each_heard(publisher, TIMES["events"], f"hear-{way[program]}"))):
        hold_against(f"a struct {side}", count, typed_one, by_hand, TYPED_LIMIT)


def started(session):
    """The messages of a start, by number and name, are those of its table."""
    bus = session.bus()
    for name in start.EXPECTED:
        differences, taken, _ = start.account(bus, name)
        for difference in differences:
            print(difference)
        hold(f"{name}: messages that are not as accounted for, of {len(taken)}", len(differences), 0)


class Traffic:
    """What a module sends and is sent while it does a work, seen by a monitor of the bus."""

    def __init__(self, bus):
        self.watch = bus.worker("bus-watch", "messages")
        self.module = bus.worker("gate-vel", "--moduleName=Caller")
        self.number = None  # of its connection; its start is the first to be seen

    def of(self, work, times):
        """The members of the messages sent, and how many came."""
        self.module.ask(work, times)
        return self.until_mark()

    def until_mark(self):
        self.module.ask("mark", 1)
        sent, received, mark = [], 0, None
        while True:
            _, sender, destination, serial, answered, _, member, _ = self.watch.line().split("\t")
            if self.number is None and member == "Hello":
                self.number = sender
            if sender == self.number and member == "GetId":
                mark = serial
            elif sender == self.number:
                sent.append(member)
            elif destination == self.number and answered == mark:
                return sent, received
            else:
                received += destination == self.number


def traffic(session):
    """A warm call is one message and its answer; a type that is known is none."""
    bus = session.bus()
    peer(bus)
    seen = Traffic(bus)
    seen.until_mark()  # the start
    times = 20
    for work, of_one in {"module-text": ["echoText"], "proxy-text": ["echoText"], "types": []}.items():
        first, _ = seen.of(work, 1)
        if not first:
            sys.exit(f"gates: {work}: the monitor saw nothing of the first time")
        sent, received = seen.of(work, times)
        print(f"{work}: the first time sends {', '.join(first)}")
        hold(f"{work}: {times} times, messages other than {times} {of_one}",
             abs(len(sent) - times * len(of_one)) + sum(member not in of_one for member in sent), 0)
        hold(f"{work}: {times} times, messages received beside the answers", abs(received - times * len(of_one)), 0)


def inside(session):
    """A line below the level, and a call with few and with many proxies in the module's cache."""
    vel = Counted(session.bus(), "gate-vel", "Alone")
    hold("instructions of a log line below the level", round(vel.each("lines", TIMES["lines"]), 1), LINE_LIMIT)
    hold("allocations of as many lines", vel.do("lines", TIMES["lines"])[1], 0)
    taken = {}
    for proxies in (1, 100, 10_000):
        if vel.worker.ask("keep", proxies) != {"kept": proxies}:
            sys.exit("gates: the cache was not filled")
        taken[proxies] = vel.each("self", TIMES["self"])
    print("instructions of a call by proxies kept:", taken)
    added = [taken[proxies] - taken[1] for proxies in (100, 10_000)]
    hold("instructions added by 10,000 proxies, against those by 100", round(added[1] / max(added[0], 1), 2),
         GROWTH_LIMIT)


GATES = {"calls": calls, "events": events, "start": started, "traffic": traffic, "inside": inside, "typed": typed}

parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
parser.add_argument("--programs", required=True, help="the folder with the built programs")
parser.add_argument("gate", choices=GATES)
options = parser.parse_args()
with frame.Session(options.programs) as session_of_gate:
    GATES[options.gate](session_of_gate)
sys.exit(1 if failures else 0)
