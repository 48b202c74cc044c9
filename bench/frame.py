"""What every measurement needs: a private bus, programs that measure on request, and rounds that compare like with like.

A cell is one way of doing one work, for instance a blocking call through a warm proxy. In every round each cell is taken
once, or in several passes; the cells of one work are taken back to back, in a new random order, so that they see the same
machine. A ratio is formed between two cells of one pass, and what is reported is the median over all of them. The first
round warms up and does not count.
"""
import contextlib
import dataclasses
import json
import math
import os
import random
import shutil
import signal
import socket
import statistics
import subprocess
import sys
import tempfile
from collections.abc import Callable
from pathlib import Path

# What can be changed around a program, as advice and with its price.
SURROUNDINGS = {
    "QT_NO_GLIB=1": ("Set `QT_NO_GLIB=1` in the environment", "Qt and GLib no longer share an event loop"),
    "dbus-broker": ("Use dbus-broker as the bus", "another service; modules do not notice"),
}

# A session bus as the distributions set it up: everything is allowed, and the limits are out of the way.
BUS_CONFIGURATION = """<!DOCTYPE busconfig PUBLIC "-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN"
 "http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd">
<busconfig>
  <type>session</type><listen>{address}</listen><auth>EXTERNAL</auth>
  <policy context="default"><allow send_destination="*" eavesdrop="true"/><allow eavesdrop="true"/><allow own="*"/></policy>
  <limit name="max_incoming_bytes">1000000000</limit><limit name="max_outgoing_bytes">1000000000</limit>
  <limit name="max_message_size">1000000000</limit><limit name="max_completed_connections">100000</limit>
  <limit name="max_connections_per_user">100000</limit><limit name="max_match_rules_per_connection">50000</limit>
  <limit name="max_replies_per_connection">50000</limit>
</busconfig>
"""


@dataclasses.dataclass
class Cell:
    work: str  # the table it belongs to
    name: str  # its line there
    take: Callable[[], dict[str, float]]  # measures once; figures by name, times in µs unless the name says otherwise
    passes: int = 1  # so often a round takes its work; each pass counts as a round does


@dataclasses.dataclass
class Target:
    work: str
    name: str  # the cell that is held against another one of the same work
    base: str  # "" for a limit on the figure itself
    figure: str
    limit: float = math.inf  # of the ratio, or of the figure; without one it is only told


@dataclasses.dataclass
class Advice:
    """What a module can do about a cost; a part may have a list ADVICE."""
    what: str
    gain: Target  # what is left of the cost, as a ratio
    price: str


@dataclasses.dataclass
class Plot:
    """A picture of some cells: a line for each of `series`, over the numbers that stand in the cells' names."""
    file: str  # without ".svg"
    title: str
    x_label: str
    y_label: str
    series: dict[str, list[tuple[float, str, str, str]]]  # legend: points as (x, work, cell's name, figure)


class Session:
    """The programs and buses of one run; they end with it."""

    def __init__(self, programs, quick=False):
        self.programs = Path(programs).resolve()
        self.quick = quick
        self.missing = []  # what is left out for want of a library, in words
        self._stack = contextlib.ExitStack()
        self._starter = None

    def __enter__(self):
        self.folder = Path(self._stack.enter_context(tempfile.TemporaryDirectory(prefix="vel-bench-")))
        return self

    def __exit__(self, *_):
        self._stack.close()

    def has(self, program, library):
        """Whether an optional program was built; names the missing library once when it was not."""
        return self._note((self.programs / program).exists(), library)

    def has_broker(self):
        """Whether there can be a Bus with the broker "dbus-broker"."""
        return self._note(shutil.which("dbus-broker"), "dbus-broker")

    def _note(self, is_there, what):
        if not is_there and what not in self.missing:
            self.missing.append(what)
        return bool(is_there)

    def count(self, thorough):
        """How often something is done in one measurement; less often when only the measuring is to be tried."""
        return max(thorough // 10, 1) if self.quick else thorough

    def start(self, command, environment, **options):
        process = subprocess.Popen([str(one) for one in command], env=environment, text=True,
                                   stdin=subprocess.PIPE, stdout=subprocess.PIPE, **options)
        self._stack.callback(end, process)
        return process

    def fork(self, module, arguments, environment):
        """Has a module start by fork: the same as start(), for what vel_add_module() has built."""
        process = self._fork_starter().start(module, arguments, environment)
        self._stack.callback(end, process)
        return process

    def launcher_processes(self):
        """vel-launcher, and what it has forked that is no module yet."""
        group = self._fork_starter().launcher
        return [int(one.name) for one in Path("/proc").glob("[0-9]*") if group_of(int(one.name)) == group]

    def _fork_starter(self):
        self._starter = self._starter or ForkStarter(self)
        return self._starter

    def bus(self, name="bus", broker="dbus-daemon"):
        return Bus(self, name, broker)


def end(process):
    if process.poll() is None:
        process.kill()
    process.wait()
    for stream in (process.stdin, process.stdout):
        with contextlib.suppress(BrokenPipeError):
            stream.close()


class ForkStarter:
    """The program that has processes start by vel-launcher, as a supervisor has."""

    def __init__(self, session):
        self.programs = session.programs
        self.socket, other = socket.socketpair(socket.AF_UNIX, socket.SOCK_SEQPACKET)
        with other:
            session.start([session.programs / "fork-starter", other.fileno()], {"PATH": os.environ["PATH"]},
                          pass_fds=[other.fileno()])
        self.asked = []  # for processes whose answers have not been read, in their order
        self.launcher = int(self.answer())

    def answer(self):
        text = self.socket.recv(1024).decode()
        if not text.isdigit():
            sys.exit(f"bench: cannot start by fork: {text or 'fork-starter has ended'}")
        return text

    def start(self, module, arguments, environment):
        program = self.programs / module
        texts = [f"{program}.so", program, *arguments, "", *(f"{name}={value}" for name, value in environment.items())]
        in_read, in_write = os.pipe()
        out_read, out_write = os.pipe()
        request = "".join(f"{text}\0" for text in texts).encode()
        socket.send_fds(self.socket, [request], [in_read, out_write])
        os.close(in_read)
        os.close(out_write)
        self.asked.append(ForkedProcess(self, open(in_write, "w"), open(out_read)))
        return self.asked[-1]

    def pid_of(self, process):
        """Nobody waits for one start before asking for the next: the answers come in order."""
        while process in self.asked:
            self.asked.pop(0).known_pid = int(self.answer())
        return process.known_pid


class ForkedProcess:
    """Of subprocess.Popen, what is used here; the child of another process, so its end is that of its output."""

    def __init__(self, starter, stdin, stdout):
        self.starter, self.stdin, self.stdout = starter, stdin, stdout
        self.has_ended = False

    @property
    def pid(self):
        return self.starter.pid_of(self)

    def poll(self):
        return 0 if self.has_ended else None

    def kill(self):
        with contextlib.suppress(ProcessLookupError):
            os.kill(self.pid, signal.SIGKILL)

    def wait(self):
        if not self.has_ended:
            self.stdout.read()
            self.has_ended = True


class Bus:
    """A message bus of its own; broker is "dbus-daemon" or "dbus-broker"."""

    def __init__(self, session, name, broker):
        self.session = session
        path = session.folder / f"{name}.socket"
        self.address = f"unix:path={path}"
        if broker == "dbus-daemon":
            configuration = session.folder / f"{name}.conf"
            configuration.write_text(BUS_CONFIGURATION.format(address=self.address))
            command = ["dbus-daemon", f"--config-file={configuration}", "--nofork", "--print-address"]
        else:
            command = [session.programs / "broker-launcher", path]
        self.process = session.start(command, {"PATH": os.environ["PATH"]})
        if not self.process.stdout.readline():
            sys.exit(f"bench: no {broker} on {path}")

    def environment(self, **more):
        """Clean: the caller's variables change what is measured (QT_NO_GLIB, QT_LOGGING_RULES, a preload)."""
        return {"PATH": os.environ["PATH"], "HOME": str(self.session.folder), "LC_ALL": "C.UTF-8",
                "DBUS_SESSION_BUS_ADDRESS": self.address, **more}

    def worker(self, program, *arguments, **environment):
        return Worker(self, program, arguments, environment)


class Worker:
    """A program of ours that says "ready", then answers each line on its input by a line of JSON."""

    def __init__(self, bus, program, arguments, environment):
        self.process = bus.session.start([bus.session.programs / program, *arguments], bus.environment(**environment))
        self.words = " ".join([program, *map(str, arguments)])
        if self.line() != "ready":
            sys.exit(f"bench: '{self.words}' does not get ready")

    def __enter__(self):
        return self

    def __exit__(self, *_):
        end(self.process)

    def line(self):
        line = self.process.stdout.readline()
        if not line:
            sys.exit(f"bench: '{self.words}' has ended")
        return line.strip()

    def put(self, *words):
        self.process.stdin.write(" ".join(map(str, words)) + "\n")
        self.process.stdin.flush()

    def ask(self, *words):
        self.put(*words)
        return json.loads(self.line())


def group_of(pid):
    with contextlib.suppress(ProcessLookupError):
        return os.getpgid(pid)


def cpu_seconds(pid):
    """What all threads of a process have used so far."""
    total = 0
    for task in Path(f"/proc/{pid}/task").iterdir():
        with contextlib.suppress(OSError):
            total += int((task / "schedstat").read_text().split()[0])
    return total / 1e9


def memory_fields(pid):
    """What the kernel tells of a process's memory, in kB by its own names."""
    lines = Path(f"/proc/{pid}/smaps_rollup").read_text().splitlines()[1:]
    return {name.rstrip(":"): float(size) for name, size, _ in map(str.split, lines)}


def memory_kb(pid):
    """PSS (what is shared, divided by those who share it) and private dirty memory."""
    fields = memory_fields(pid)
    return {"PSS/kB": fields["Pss"], "private dirty/kB": fields["Private_Dirty"]}


def take_rounds(cells, rounds, say=print):
    """All figures: {work: {name: {figure: [one value a pass]}}}."""
    figures = {}
    works = {}
    for cell in cells:
        works.setdefault(cell.work, []).append(cell)
    for number in range(rounds + 1):
        say(f"round {number} of {rounds}" if number else "warming up")
        for work in random.sample(list(works), len(works)):
            for _ in range(works[work][0].passes if number else 1):
                for cell in random.sample(works[work], len(works[work])):
                    taken = cell.take()
                    if number:
                        into = figures.setdefault(work, {}).setdefault(cell.name, {})
                        for figure, value in taken.items():
                            into.setdefault(figure, []).append(value)
    return figures


def ratios(figures, work, name, base, figure):
    """What one cell took against another one, in each pass."""
    pairs = zip(figures[work][name][figure], figures[work][base][figure])
    return [value / against for value, against in pairs]


def ratio(figures, work, name, base, figure):
    """The median of that."""
    return statistics.median(ratios(figures, work, name, base, figure))
