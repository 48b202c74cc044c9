"""A shell that types the commands of a page as a reader would.

It is started in a copy of the tree, in which build/release is the build under test, without a bus, and with an empty
home, which is shown as /home/you. The commands are its standard input, so that a shell started by one of them, as
"dbus-run-session bash" does, reads those that follow. Lines of our own between them tell whose output is whose;
whatever fails says so by a trap that every shell sets when it starts. What is left running at the end belongs to the
shell's process group, and is killed.
"""
import contextlib
import os
import re
import signal
import subprocess
import tempfile
from pathlib import Path

LIMIT = 240  # seconds for a page; what hangs is killed
TRAP = """[[ $0 == bash ]] && trap 'echo; echo "@@@ failed: $BASH_COMMAND"' ERR\n"""
NO_OUTPUT = re.compile(r"dbus-daemon\[|.*Failed to set fd limit")  # where an ordinary user may have fewer files


def copy_by_links(source, build, tree):
    programs = tree / "build/release/bin"
    programs.mkdir(parents=True)
    for original, copy in ((source, tree), (build, tree / "build/release"), (build / "bin", programs)):
        for entry in original.iterdir():
            if entry.name not in ("build", ".git") and not (copy / entry.name).exists():
                (copy / entry.name).symlink_to(entry)


def type_into_a_shell(pieces, source, build):
    """What each piece, a list of commands, prints: a list of lines, "@@@ failed: COMMAND" after each that failed."""
    outputs = [[] for _ in pieces]
    with tempfile.TemporaryDirectory(prefix="vel-snippets-") as scratch:
        tree, home, rules = (Path(scratch, name) for name in ("vel", "home", "rules"))
        home.mkdir()
        rules.write_text(TRAP)
        copy_by_links(source, build, tree)
        environment = {"PATH": os.environ["PATH"], "HOME": str(home), "LC_ALL": "C.UTF-8", "BASH_ENV": str(rules),
                       "DBUS_SESSION_BUS_ADDRESS": "unix:path=/nonexistent/start-one"}
        shell = subprocess.Popen(["bash"], cwd=tree, env=environment, start_new_session=True, text=True,
                                 stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
        signal.signal(signal.SIGALRM, lambda *_: os.killpg(shell.pid, signal.SIGKILL))
        signal.alarm(LIMIT)
        try:
            typed = "".join(f"echo; echo @@@ {n}\n" + "\n".join(piece) + "\n" for n, piece in enumerate(pieces))
            shell.stdin.write(typed + "echo; echo @@@ over\nexit 0\n")
            shell.stdin.close()
            n = 0
            for line in map(str.rstrip, shell.stdout):
                if line == "@@@ over":  # not the output's end: what is left running keeps it open
                    shell.wait()  # its buses end in order, and leave no sockets behind
                    break
                if re.fullmatch(r"@@@ \d+", line):
                    n = int(line[4:])
                elif line and not NO_OUTPUT.match(line):
                    outputs[n].append(line.replace(str(home), "/home/you"))
            else:
                outputs[n].append(f"@@@ failed: nothing more came within {LIMIT} s")
        finally:
            signal.alarm(0)
            with contextlib.suppress(ProcessLookupError):
                os.killpg(shell.pid, signal.SIGKILL)
            shell.wait()
    return outputs
