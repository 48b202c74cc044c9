"""Terminals: interactive shells on pseudo terminals, typed into line by line, as a person does.

All terminals of a page share an empty home, shown as /home/you, and in it a copy of the tree, by links, in which
build/release is the build under test. Each starts in that copy, as after a fresh checkout and a build: without a bus, and
without the programs in PATH. "Prepared" terminals, for tests, start in an empty folder, with the programs in PATH and with
a bus that they share.

The prompt is made of characters that nothing else prints, with the status of the last command in it: it tells where an
output ends. All that is not read yet is kept, a line is never lost.

Nothing that was started stays: two processes, the one that a person started and its child, which does the work, each adopt
what the other leaves behind, and kill it. So one of them may be killed at any moment.
"""
import contextlib
import ctypes
import fcntl
import os
import pty
import re
import select
import shutil
import signal
import struct
import subprocess
import sys
import tempfile
import termios
import time
from pathlib import Path

LIMIT_S = 100 * float(os.environ.get("VEL_TEST_SLOWNESS", "1"))  # what takes longer hangs; the slowest builds a module
KEPT_VARIABLES = re.compile(r"PATH|\w+SAN_OPTIONS|CCACHE_\w+|VEL_TEST_\w+")
MORE_VARIABLES = {"LC_ALL": "C.UTF-8", "TERM": "dumb", "NO_COLOR": "1", "PAGER": "cat", "SYSTEMD_PAGER": "cat",
                  "DBUS_SESSION_BUS_ADDRESS": "unix:path=/nonexistent/start-one"}
PROMPT = re.compile(rb"\x1e(\d+)\x1e")
CONTINUES = b"\x1d"
START_UP_FILE = r"""set +o emacs
stty -echo -onlcr
unset HISTFILE
PS1=$'\036$?\036' PS2=$'\035'
"""
BETWEEN_QUESTIONS_S = 0.02
HOME = "/home/you"
INTERRUPT = "^C"
LONGEST_LINE = 4000  # a terminal takes no more at once
WINDOW = struct.pack("HHHH", 1000, 250, 0, 0)  # rows and columns: nothing is cut, or shown page by page


class Stuck(Exception):
    """A terminal does not come to where the page wants it; the lines tell how far it is."""

    def __init__(self, why, lines=()):
        super().__init__(why)
        self.why, self.lines = why, lines


def own_the_terminal():
    """In the shell's process: it owns the terminal, and its keys work also where who started the page ignores them."""
    fcntl.ioctl(0, termios.TIOCSCTTY, 0)
    signal.signal(signal.SIGINT, signal.SIG_DFL)
    signal.signal(signal.SIGQUIT, signal.SIG_DFL)


def command_line(process):
    """Empty when there is no such process any more."""
    with contextlib.suppress(OSError):
        return Path("/proc", str(process), "cmdline").read_bytes()
    return b""


class Terminal:
    def __init__(self, desk):
        self.desk, self.buffer, self.status, self.is_busy, self.wants_more = desk, b"", 0, True, False
        self.shell_group = 0  # of processes, that of the shell which reads what is typed
        self.master, slave = pty.openpty()
        fcntl.ioctl(self.master, termios.TIOCSWINSZ, WINDOW)
        self.shell = subprocess.Popen(["bash"], cwd=desk.tree, env=desk.environment, start_new_session=True,
                                      stdin=slave, stdout=slave, stderr=slave,
                                      preexec_fn=own_the_terminal)
        os.close(slave)

    def read(self):
        try:
            data = os.read(self.master, 65536)
        except OSError:  # Linux says it so when the last program has closed the terminal
            data = b""
        if not data:
            raise Stuck("the shell has ended")
        if prompt := list(PROMPT.finditer(data := self._whole(data))):
            self.status, self.is_busy, self.shell_group = int(prompt[-1][1]), False, os.tcgetpgrp(self.master)
        if CONTINUES in data:
            self.wants_more = True
        self.buffer += PROMPT.sub(b"", data).replace(CONTINUES, b"")

    def _whole(self, data):
        """A prompt that has come in parts is put together."""
        start = self.buffer.find(b"\x1e")
        if start >= 0:
            self.buffer, data = self.buffer[:start], self.buffer[start:] + data
        return data

    def send(self, line):
        if len(line) > LONGEST_LINE:
            raise Stuck(f"a line of {len(line)} characters: a terminal takes {LONGEST_LINE} at most")
        self.is_busy, self.wants_more = True, False
        os.write(self.master, line.encode() + b"\n")

    def interrupt(self):
        """Presses Ctrl-C, once the command runs: before that the terminal would throw its line away."""
        self.desk.wait_patiently(lambda: not self.is_busy or self._runs_a_program())
        os.write(self.master, b"\x03")
        self.is_busy = True

    def _runs_a_program(self):
        """The shell's child owns the terminal before it is another program, and a Ctrl-C in between is lost."""
        group = os.tcgetpgrp(self.master)
        return group != self.shell_group and command_line(group) != command_line(self.shell_group)

    def lines(self):
        """What was printed and not taken yet."""
        return [self.desk.shown(line.decode(errors="replace")) for line in self.buffer.removesuffix(b"\n").split(b"\n")
                ] if self.buffer else []

    def take(self, count=None):
        """Takes so many lines, or all."""
        lines = self.lines()
        count = len(lines) if count is None else count
        self.buffer = b"\n".join(self.buffer.split(b"\n")[count:])
        return lines[:count]


class Desk:
    """The terminals of one page; `terminal("")` is the first one."""

    def __init__(self, source, build, programs, is_prepared):
        self._scratch = tempfile.TemporaryDirectory(prefix="page-")
        self.home = Path(self._scratch.name, "home")
        self.tree = self.home / "vel"
        self.home.mkdir()
        copy_by_links(source, build, programs, self.tree)
        (self.home / ".bashrc").write_text(START_UP_FILE)
        kept = {name: value for name, value in os.environ.items() if KEPT_VARIABLES.fullmatch(name)}
        self.environment = kept | MORE_VARIABLES | {"HOME": str(self.home)}
        self.is_prepared = is_prepared
        self._names = [(str(self.home), HOME), (str(programs), f"{HOME}/vel/build/release/bin")]
        self._terminals = {}

    def __enter__(self):
        return self

    def __exit__(self, *_):
        # Buses that are told to end leave no sockets behind; shells end when their terminal is closed.
        signal_children(signal.SIGTERM)
        signal_children(signal.SIGCONT)
        for terminal in self._terminals.values():
            os.close(terminal.master)
        end_children(LIMIT_S / 20)
        self._scratch.cleanup()

    def terminal(self, name):
        if name not in self._terminals:
            self._terminals[name] = Terminal(self)
            self.wait(lambda: not self._terminals[name].is_busy)
            self._terminals[name].take()
            if self.is_prepared:
                self._prepare(self._terminals[name], is_first=len(self._terminals) == 1)
        return self._terminals[name]

    def _prepare(self, terminal, is_first):
        for line in ["mkdir ~/work", "dbus-run-session bash", "PATH=~/vel/build/release/bin:$PATH",
                     "declare -px PATH DBUS_SESSION_BUS_ADDRESS > ~/.terminal"] if is_first else [". ~/.terminal"]:
            self.type(terminal, line)
        self.type(terminal, "cd ~/work")
        terminal.take()

    def shown(self, text):
        for path, name in self._names:
            text = text.replace(path, name).replace(path[1:], name[1:])
        return text

    def pump(self, seconds):
        """Reads what the terminals print, for no longer than that; true when something came."""
        terminals = {terminal.master: terminal for terminal in self._terminals.values()}
        ready = select.select(terminals, [], [], seconds)[0]
        for master in ready:
            terminals[master].read()
        return bool(ready)

    def wait(self, holds, limit=LIMIT_S):
        """Reads until `holds` answers true; false when the limit is reached first."""
        end = time.monotonic() + limit
        while not holds():
            left = end - time.monotonic()
            if left <= 0:
                return False
            self.pump(left)
        return True

    def wait_patiently(self, holds, limit=LIMIT_S):
        """The same for what has to be asked for, again and again."""
        end = time.monotonic() + limit
        while not holds():
            if time.monotonic() > end:
                return False
            self.wait(lambda: False, BETWEEN_QUESTIONS_S)
        return True

    def type(self, terminal, line):
        """Types one line; its status is the terminal's then. A line that does not end the command has status 0."""
        terminal.interrupt() if line == INTERRUPT else terminal.send(line)
        if not self.wait(lambda: not terminal.is_busy or terminal.wants_more):
            raise Stuck(f"it has not ended within {LIMIT_S:.0f} s, and has printed so far", [f"$ {line}", *terminal.lines()])

    def type_quietly(self, terminal, *lines):
        """Types a command that no page shows; the status it ends with. What other programs print meanwhile stays."""
        before = terminal.buffer
        for line in lines:
            self.type(terminal, line)
        terminal.buffer = before + terminal.buffer.removeprefix(before)
        return terminal.status


def copy_by_links(source, build, bin_folder, tree):
    programs = tree / "build/release/bin"
    programs.mkdir(parents=True)
    for original, copy in ((source, tree), (build, tree / "build/release"), (bin_folder, programs)):
        for entry in original.iterdir():
            if entry.name not in ("build", ".git") and not (copy / entry.name).exists():
                (copy / entry.name).symlink_to(entry)


ENDING = (signal.SIGTERM, signal.SIGINT, signal.SIGHUP)
PR_SET_PDEATHSIG, PR_SET_CHILD_SUBREAPER = 1, 36


def prctl(option, value):
    if ctypes.CDLL(None, use_errno=True).prctl(option, value, 0, 0, 0) != 0:
        raise OSError(ctypes.get_errno(), "prctl")


def children():
    """All descendants of this process."""
    parents = {}
    for stat in Path("/proc").glob("[0-9]*/stat"):
        with contextlib.suppress(OSError):  # it has ended meanwhile
            text = stat.read_text(errors="replace")
            parents[int(stat.parent.name)] = int(text[text.rindex(")") + 2 :].split()[1])
    found, new = set(), {os.getpid()}
    while new:
        new = {child for child, parent in parents.items() if parent in new} - found
        found |= new
    return found


def signal_children(number):
    for child in children():
        with contextlib.suppress(ProcessLookupError):
            os.kill(child, number)


def end_children(patience):
    """Waits until all have ended; those that have not in so many seconds are killed."""
    end = time.monotonic() + patience
    while True:
        try:
            while os.waitpid(-1, os.WNOHANG)[0]:
                pass
        except ChildProcessError:
            return
        if time.monotonic() > end:
            signal_children(signal.SIGKILL)
        time.sleep(0.01)  # between two looks


def run_and_leave_nothing(work):
    """Ends this process with the status that `work` answers, run in a child, and all that it has started with it."""
    prctl(PR_SET_CHILD_SUBREAPER, 1)
    tempfile.tempdir = tempfile.mkdtemp(prefix="vel-transcripts-")  # the other one's to remove, when one is killed
    starter = os.getpid()
    worker = os.fork()
    if worker == 0:
        def end(number, _):
            for another in ENDING:
                signal.signal(another, signal.SIG_IGN)
            raise SystemExit(128 + number)

        status = 1
        try:
            for number in ENDING:
                signal.signal(number, end)
            prctl(PR_SET_CHILD_SUBREAPER, 1)
            prctl(PR_SET_PDEATHSIG, signal.SIGTERM)
            if os.getppid() == starter:
                status = work()
        except SystemExit as one:
            status = one.code if isinstance(one.code, int) else 1
            if status > 128:
                print("interrupted; everything that was started has ended", file=sys.stderr)
        finally:
            sys.stdout.flush()
            end_children(0)
            shutil.rmtree(tempfile.tempdir, ignore_errors=True)
            os._exit(status)
    for number in ENDING:
        signal.signal(number, lambda number, _: os.kill(worker, number))
    status = os.waitstatus_to_exitcode(os.waitpid(worker, 0)[1])
    end_children(0)
    shutil.rmtree(tempfile.tempdir, ignore_errors=True)
    sys.exit(status if status >= 0 else 128 - status)
