"""A bus of one's own, and modules on it."""
import os
import subprocess

LONGEST_WAIT_S = 60


class System:
    """The message bus that `command` starts, and programs of the folder `programs` on it."""

    def __init__(self, programs, command):
        self.programs = os.path.abspath(programs)
        self.bus = subprocess.Popen(command, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True)
        self.environment = dict(os.environ, DBUS_SESSION_BUS_ADDRESS=self.bus.stdout.readline().strip(), VEL_LOG_LEVEL="0")

    def module(self, program, name, *options):
        return subprocess.Popen([f"{self.programs}/{program}", f"--moduleName={name}", *options], env=self.environment)

    def velctl(self, *words):
        return subprocess.run([f"{self.programs}/velctl", *words, "--timeout", str(LONGEST_WAIT_S)], env=self.environment,
                              text=True, capture_output=True, check=False)


def daemon(*arguments):
    return ["dbus-daemon", *arguments, "--nofork", "--print-address=1", "--address=unix:tmpdir=/tmp"]
