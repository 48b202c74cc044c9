#!/usr/bin/env python3
"""What becomes of the events for a module that is frozen while somebody publishes many, on each message bus there is.

    frozen.py --programs FOLDER [--events N]

A receiver is stopped, another module publishes, the receiver goes on. Told are how many events the publisher's calls of
notifyEvent() took, how many came, how much more memory the bus had while they waited, and who of the two has lost its
connection. Status 0 when a bus with the limits of a session has lost nothing.
"""
import argparse
import json
import os
import re
import shutil
import signal
import sys
import tempfile

sys.dont_write_bytecode = True  # the sources stay as they are
from system import System, daemon

SMALL_LIMIT = 2_000_000  # bytes that may wait: for a receiver, or with dbus-broker for all of a user's processes

parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
parser.add_argument("--programs", required=True, help="the folder with burst-module, velctl and broker-launcher")
parser.add_argument("--events", type=int, default=20_000)
options = parser.parse_args()
programs = os.path.abspath(options.programs)


def small_configuration(folder):
    """The session's, with another limit."""
    path = f"{folder}/small.conf"
    with open(path, "w", encoding="ascii") as file:
        file.write('<busconfig><include>/usr/share/dbus-1/session.conf</include>'
                   f'<limit name="max_outgoing_bytes">{SMALL_LIMIT}</limit></busconfig>')
    return path


def buses(folder):
    yield "dbus-daemon", daemon("--session")
    yield f"dbus-daemon, {SMALL_LIMIT:,} bytes a receiver", daemon(f"--config-file={small_configuration(folder)}")
    if shutil.which("dbus-broker"):
        launcher = f"{programs}/broker-launcher"
        yield "dbus-broker", [launcher, f"{folder}/broker"]
        yield f"dbus-broker, {SMALL_LIMIT:,} bytes a user", [launcher, f"{folder}/small-broker", str(SMALL_LIMIT)]
    else:
        print("There is no dbus-broker here; it is left out.")


class Pair(System):
    """A bus with a publisher and a receiver."""

    def __init__(self, programs, command):
        super().__init__(programs, command)
        self.modules = {name: self.module("burst-module", name, *more)
                        for name, more in (("Publisher", ["--deaf=1"]), ("Receiver", []))}

    def call(self, *words):
        """The number that a module answers, or None."""
        result = self.velctl("call", *words)
        return int(result.stdout.split()[1]) if result.returncode == 0 else None

    def memory_kb(self):
        with open(f"/proc/{self.bus.pid}/status", encoding="ascii") as file:
            return int(re.search(r"VmRSS:\s+(\d+)", file.read())[1])

    def end(self):
        for process in (*self.modules.values(), self.bus):
            process.kill()
            process.wait()


def measure(command):
    system = Pair(options.programs, command)
    try:
        for name in system.modules:
            if system.velctl("wait", "--running", name).returncode != 0:
                sys.exit(f"frozen: {name} does not start")
        system.call("Publisher", "publish", "10")
        before = system.call("Receiver", "received")  # it is past all hooks when these have come
        memory = system.memory_kb()
        system.modules["Receiver"].send_signal(signal.SIGSTOP)
        os.waitpid(system.modules["Receiver"].pid, os.WUNTRACED)
        told = system.call("Publisher", "publish", str(options.events))
        memory = system.memory_kb() - memory
        system.modules["Receiver"].send_signal(signal.SIGCONT)
        received = system.call("Receiver", "received")  # comes after what was waiting
        listed = [json.loads(line)["module"] for line in system.velctl("list", "--json").stdout.splitlines()]
        return {"told": told, "came": None if received is None else received - before, "memory": memory,
                "gone": [name for name in system.modules if name not in listed]}
    finally:
        system.end()


def main():
    row = "| {:<38} | {:>9} | {:>6} | {:>10} | {:<13} |".format
    print(row("bus", "published", "came", "bus memory", "off the bus"))
    print(row("---", "---:", "---:", "---:", "---"))
    lost = False
    with tempfile.TemporaryDirectory(prefix="vel-frozen-") as folder:
        for name, command in buses(folder):
            result = measure(command)
            told, came = ("no answer" if result[key] is None else result[key] for key in ("told", "came"))
            print(row(name, told, came, f"{result['memory']:+} kB", ", ".join(result["gone"]) or "nobody"))
            if "bytes" not in name:
                lost |= not told == came == options.events or bool(result["gone"])
    sys.exit(lost)


main()
