#!/usr/bin/env python3
"""Runs modules at full speed on a bus of their own, kills, freezes and restarts some at random, and counts what got lost.

A third of the modules is left alone: their memory and descriptors, and the bus daemon's, are measured. At the end everybody
is asked for what it has sent and received; then the bus daemon is killed, and everybody has to end by itself.

What must hold, whatever happens to the peers:
  - every receiver got every event of every publisher's incarnation, in order, without a gap, up to the last one sent;
  - every call was answered rightly or failed with an error; none is open at the end;
  - whoever is stopped in the middle of it ends with the status of a normal end;
  - after the first minute nobody's memory or number of descriptors grows.
"""
import argparse
import json
import os
import random
import signal
import subprocess
import sys
import threading
import time

sys.dont_write_bytecode = True  # the sources stay as they are
from system import LONGEST_WAIT_S, System, daemon

NEIGHBOURS = (1, 2, 3, 5)  # by how many places in the ring: so many receivers has each event
SAMPLE_S = 2
SETTLED_S = 60  # from when on nothing may grow
GROWTH_KB = 1024  # the allocator's page or two are no leak; a leak of a byte a message would be more in a minute
BUS = "bus daemon"  # its name among those that are measured

parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
parser.add_argument("--programs", required=True, help="the folder with soak-module and velctl")
parser.add_argument("--seconds", type=float, default=60)
parser.add_argument("--modules", type=int, default=20)
parser.add_argument("--seed", type=int, default=1, help="of what happens to the peers")
parser.add_argument("--output", help="a folder for the picture, soak.svg")
options = parser.parse_args()
chance = random.Random(options.seed)
pause = threading.Event().wait  # nothing sets it: it waits for its time limit


class Module:
    """One name, in one incarnation after the other."""

    def __init__(self, bus, index, is_steady):
        self.bus = bus
        self.name = f"M{index}"
        self.neighbours = [f"M{(index + step) % options.modules}" for step in NEIGHBOURS]
        self.is_steady = is_steady
        self.incarnation = 0
        self.process = None

    def start(self):
        self.incarnation += 1
        self.process = self.bus.module("soak-module", self.name, f"--incarnation={self.incarnation}",
                                       f"--neighbours={','.join(self.neighbours)}")

    def stream(self):
        return f"{self.name}/{self.incarnation}"

    def report(self):
        return json.loads(velctl(self.bus, "call", self.name, "report").removeprefix("text "))

    def kill(self):
        self.process.kill()
        self.process.wait()


def velctl(bus, *words):
    result = bus.velctl(*words)
    if result.returncode != 0:
        raise RuntimeError(f"velctl {' '.join(words)}: status {result.returncode}, {result.stderr.strip()}")
    return result.stdout.strip()


class Chaos:
    """Something happens to one of the modules that are not steady, again and again."""

    def __init__(self, bus, victims):
        self.bus = bus
        self.victims = victims
        self.counts = {"killed": 0, "frozen": 0, "stopped": 0}
        self.frozen = None
        self.statuses = []  # of those that were stopped

    def strike(self):
        self.release()
        victim = chance.choice(self.victims)
        what = chance.choice(list(self.counts))
        self.counts[what] += 1
        if what == "frozen":
            victim.process.send_signal(signal.SIGSTOP)
            self.frozen = victim
            return
        if what == "killed":
            victim.kill()
        else:
            velctl(self.bus, "stop", victim.name)
            self.statuses.append(victim.process.wait())
        victim.start()

    def release(self):
        if self.frozen:
            self.frozen.process.send_signal(signal.SIGCONT)
            self.frozen = None


class Samples:
    """Private memory and descriptors of processes, over time."""

    def __init__(self, processes):
        self.processes = processes  # by name
        self.rows = []  # (seconds, {name: (kB, descriptors)})

    def take(self, seconds):
        self.rows.append((seconds, {name: self.of(process.pid) for name, process in self.processes.items()}))

    @staticmethod
    def of(pid):
        with open(f"/proc/{pid}/smaps_rollup", encoding="ascii") as file:
            memory = sum(int(line.split()[1]) for line in file if line.startswith("Private_Dirty"))
        return memory, len(os.listdir(f"/proc/{pid}/fd"))

    def growth(self):
        """By name: how much more there was in the last third than in the first one after the settling, at their least: what
        is queued for a moment is no growth."""
        rows = [row for seconds, row in self.rows if seconds >= SETTLED_S]
        third = len(rows) // 3
        if third == 0:
            return None
        least = lambda some, name, which: min(row[name][which] for row in some)
        return {name: tuple(least(rows[-third:], name, which) - least(rows[:third], name, which) for which in (0, 1))
                for name in self.processes}


def run(bus, modules):
    """The traffic; what was done to the modules, and the samples."""
    steady = {module.name: module.process for module in modules if module.is_steady}
    samples = Samples({BUS: bus.bus, **steady})
    chaos = Chaos(bus, [module for module in modules if not module.is_steady])
    begin = time.monotonic()
    next_sample = 0.0
    while (seconds := time.monotonic() - begin) < options.seconds:
        if seconds >= next_sample:
            samples.take(seconds)
            next_sample += SAMPLE_S
        chaos.strike()
        pause(chance.uniform(0.1, 1.0))
    chaos.release()
    return chaos, samples


def quiet_reports(bus, modules):
    """Everybody's report, when nothing is under way any more."""
    for module in modules:
        velctl(bus, "wait", "--running", module.name)
    for module in modules:
        velctl(bus, "call", module.name, "pause")
    # The answer to "pause" has come after every event: the bus has handed all of them on. What is handed on before this call
    # is taken in before its answer.
    reports = {}
    for module in modules:
        deadline = time.monotonic() + LONGEST_WAIT_S
        while (report := module.report())["open"] > 0 and time.monotonic() < deadline:
            pass
        reports[module.name] = report
    return reports


def faults_in(modules, reports):
    faults = []
    published = {module.stream(): reports[module.name]["published"] for module in modules}
    for module in modules:
        report = reports[module.name]
        if report["wrongAnswers"] or report["notPublished"] or report["open"]:
            faults.append(f"{module.name}: {report['wrongAnswers']} wrong answers, {report['notPublished']} events refused, "
                          f"{report['open']} calls open")
        ended = report["called"] - report["answered"] - report["wrongAnswers"] - sum(report["failures"].values())
        if ended != report["open"]:
            faults.append(f"{module.name}: {ended} calls without an end")
        for name, stream in report["streams"].items():
            if stream["outOfOrder"] or stream["received"] != stream["last"] - stream["first"] + 1:
                faults.append(f"{module.name}: a gap among the events of {name}: {stream}")
            if name in published and stream["last"] != published[name]:
                faults.append(f"{module.name}: {name} sent {published[name]} events, the last one here was {stream['last']}")
        for neighbour in module.neighbours:
            streams = [name for name in published if name.startswith(neighbour + "/")]
            if published[streams[0]] and streams[0] not in report["streams"]:
                faults.append(f"{module.name}: nothing from {streams[0]}")
    return faults


def print_table(counts, reports, seconds):
    total = lambda key: sum(report[key] for report in reports.values())
    failures = {}
    for report in reports.values():
        for name, count in report["failures"].items():
            failures[name] = failures.get(name, 0) + count
    received = sum(stream["received"] for report in reports.values() for stream in report["streams"].values())
    rows = [("seconds", f"{seconds:.0f}"), ("modules", len(reports)),
            *((f"times that one was {what}", count) for what, count in counts.items()),
            ("events published", total("published")), ("events received", received), ("calls made", total("called")),
            ("calls answered", total("answered")),
            *((f"calls failed: {name}", count) for name, count in sorted(failures.items()))]
    print("Of those that run at the end; what the others did went with them.")
    for name, value in rows:
        print(f"  {name:<60} {value:>12}")


def growth_faults(samples, others):
    """`others` come and go, and each of them is a descriptor of the bus: one may have been away when the least was found. What
    the bus loses with an end adds up to more than that in some minutes."""
    growth = samples.growth()
    if growth is None:
        print("Too short to tell growth: that takes some minutes.")
        return []
    print(f"Growth after the first {SETTLED_S} s, in private memory and descriptors:")
    for name, (memory, descriptors) in growth.items():
        print(f"  {name:<60} {memory:>9} kB {descriptors:>4}")
    return [f"{name} grew by {memory} kB and {descriptors} descriptors" for name, (memory, descriptors) in growth.items()
            if memory > GROWTH_KB or descriptors > (others if name == BUS else 0)]


def draw(samples, path):
    names = list(samples.processes)
    rows = "\n".join(" ".join(map(str, [seconds, *(row[name][0] for name in names)])) for seconds, row in samples.rows)
    lines = ", ".join(f"$samples using 1:{column} title '{name}' with lines" for column, name in enumerate(names, 2))
    script = f"""set terminal svg size 720,400 font 'sans-serif,13' background '#ffffff'; set output '{path}'
        set xlabel 'seconds'; set ylabel 'private memory (kB)'; set yrange [0:*]; set key outside noenhanced
        $samples << END\n{rows}\nEND\nplot {lines}"""
    subprocess.run(["gnuplot"], input=script, text=True, check=True)
    print(f"The picture is {path}")


def end_with_the_bus(bus, modules):
    """Who does not end by itself when the bus daemon is killed."""
    bus.bus.kill()
    bus.bus.wait()
    faults = []
    for module in modules:
        try:
            status = module.process.wait(LONGEST_WAIT_S)
            if status != 1:
                faults.append(f"{module.name} ended with status {status} without the bus")
        except subprocess.TimeoutExpired:
            faults.append(f"{module.name} did not end without the bus")
    return faults


def main():
    bus = System(options.programs, daemon("--session"))
    modules = [Module(bus, index, index % 3 == 0) for index in range(options.modules)]
    try:
        for module in modules:
            module.start()
        for module in modules:
            velctl(bus, "wait", "--running", module.name)
        begin = time.monotonic()
        chaos, samples = run(bus, modules)
        seconds = time.monotonic() - begin
        reports = quiet_reports(bus, modules)
        samples.take(seconds)
        print_table(chaos.counts, reports, seconds)
        others = sum(not module.is_steady for module in modules)
        faults = faults_in(modules, reports) + growth_faults(samples, others)
        faults += [f"one that was stopped ended with status {status}" for status in chaos.statuses if status != 1]
        if options.output:
            draw(samples, os.path.join(options.output, "soak.svg"))
        faults += end_with_the_bus(bus, modules)
    finally:
        for module in modules:
            if module.process:
                module.kill()
        bus.bus.kill()
    for fault in faults:
        print("fault:", fault)
    print("nothing was lost" if not faults else f"{len(faults)} faults")
    sys.exit(bool(faults))


main()
