"""Whether two outputs have the same shape: they may differ in what is another thing each time, and in nothing else.

A line "..." on the page stands for any lines.
"""
import difflib
import re

ANY_LINES = "..."

# What is another thing each time, and the word that stands for it. Exit statuses and counts are not among them.
CHANGING = [(re.compile(pattern), word) for pattern, word in [
    (r"\d{4}-\d\d-\d\d", "DATE"),
    (r"\d\d:\d\d:\d\d(\.\d+)?", "TIME"),
    (r"(?<=process )\d+|(?<=process {5})\d+", "PROCESS"),
    (r"(?<=processes )\d+(, \d+)*", "PROCESSES"),
    (r"(?<=-CONT )\d+", "PROCESS"),
    (r"(?<=\w\[)\d+(?=\])", "PROCESS"),  # of a log line; the blank before "[1]" tells an exit status
    (r"^(\[\d+\]) \d+$", r"\1 PROCESS"),  # the shell has put a job into the background
    (r"^(\w+ +)\d+(?= +[a-z]+ +\d+\.\d MB )", r"\1PROCESS"),  # a row of `velctl list`
    (r"(?<=\"pid\":)\d+", "PROCESS"),
    (r"^\[\d+/\d+\]", "[STEP]"),  # of a build
    (r"(?<= )(:1\.\d+)\b|(?<=\":)1\.\d+(?=\")", "CONNECTION"),  # the bus numbers them as they come
    (r"\b\d+(\.\d+)? [kM]B\b", "SIZE"),
    (r"(?<=\"memory\":)\d+", "SIZE"),
    (r"\b\d+\.\d+ (s|sec|ms)\b", "DURATION"),  # what was measured; a limit that somebody has set has no decimals
    (r"(?<=SIZE) +\d+ (s|min|h)\b|(?<=^uptime {6})\d+ (s|min|h)\b", "DURATION"),
    (r"(?<=\"uptime\":)\d+", "DURATION"),
    (r"\s+", " "),  # the columns of tables move with what is in them
    (r" $", ""),
]]

# Lines that come or do not, as it happens, and empty ones.
PASSING = re.compile(
    r"\s*$"
    r"|\[\d+\][+-]? +(Done|Exit \d+|Stopped|Terminated|Killed|Hangup)\b"  # the shell tells it when it gets to it
    r"|\[session .*(became a monitor\.|Monitoring connection .* closed\.)$"  # the bus, when a recorder comes and goes
    r"|.*Failed to set fd limit to")  # where an ordinary user may have fewer open files

# The bus writes the beginning of a line apart from its rest: another line may come between them.
BUS = re.compile(r"^dbus-daemon\[\d+\]: ")


def shape(lines):
    shapes = []
    for line in lines:
        line = BUS.sub("", line)
        if PASSING.match(line):
            continue
        for pattern, word in CHANGING:
            line = pattern.sub(word, line)
        shapes.append(line)
    return shapes


def matches(shown, printed):
    """Whether all that was printed is what the page shows."""
    pattern = "".join(r"(?:.*\n)*" if line == ANY_LINES else re.escape(line) + r"\n" for line in shape(shown))
    return re.fullmatch(pattern, "".join(line + "\n" for line in shape(printed))) is not None


def first_lines_matching(shown, printed):
    """How many of the first lines printed are what the page shows; None when it is not all there yet."""
    if shown and shown[-1] == ANY_LINES:
        return len(printed) if matches(shown, printed) else None
    return next((count for count in range(len(printed) + 1) if matches(shown, printed[:count])), None)


def difference(shown, printed):
    """What the page shows ("-") beside what is printed ("+"), a line each; lines that agree have neither."""
    old, new = ([line for line in lines if not PASSING.match(line)] for lines in (shown, printed))
    lines = []
    for kind, i1, i2, j1, j2 in difflib.SequenceMatcher(None, shape(old), shape(new), autojunk=False).get_opcodes():
        if kind == "equal":
            lines += [f"  {line}" for line in new[j1:j2]]
        else:
            lines += [f"- {line}" for line in old[i1:i2]] + [f"+ {line}" for line in new[j1:j2]]
    return lines
