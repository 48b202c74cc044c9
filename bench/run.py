#!/usr/bin/env python3
"""Measures what scripts/bench has built, and reports it.

The parts are modules beside this file. A part has cells(session), TARGETS, PLOTS, and NOTES when there is something to say
about its tables. All cells of all parts are taken in the same rounds.
"""
import argparse
import importlib
import itertools
import json
import math
import os
import platform
import re
import statistics
import subprocess
import sys
from pathlib import Path

sys.dont_write_bytecode = True  # the sources stay as they are
import frame

SOURCES = Path(__file__).resolve().parent.parent
PARTS = {"calls": "Calls", "events": "Events", "start": "Starting", "fleet": "Many modules", "process": "Inside a process"}
PAGE = SOURCES / "docs" / "performance.md"
WIDEST = 8  # columns of figures
COLOURS = ["#3366aa", "#cc3333", "#888888", "#338833", "#aa7700"]


def asked_for():
    parser = argparse.ArgumentParser(prog="scripts/bench", description="measures this library beside its alternatives")
    parser.add_argument("rounds", nargs="?", type=int, help="how often everything is measured; 10 unless said, quickly 3")
    parser.add_argument("--parts", default=",".join(PARTS), help="some of them, with commas: %(default)s")
    parser.add_argument("--only", default="", metavar="TEXT", help="only the works with this in their name")
    parser.add_argument("--quick", action="store_true", help="a tenth of the work: whether it measures, not what")
    parser.add_argument("--publish", action="store_true", help="put the tables and plots into docs/performance.md")
    parser.add_argument("--programs", default="build/bench/bin", help=argparse.SUPPRESS)
    parser.add_argument("--output", default="build/bench", help=argparse.SUPPRESS)
    options = parser.parse_args()
    options.parts = options.parts.split(",")
    if unknown := [name for name in options.parts if name not in PARTS]:
        parser.error(f"no such part: {', '.join(unknown)}")
    if options.publish and (options.quick or options.only or options.parts != list(PARTS)):
        parser.error("what is published is measured thoroughly, and all together")
    options.rounds = options.rounds or (3 if options.quick else 10)
    return options


def line_of(*command):
    """The first line that a command prints; nothing when there is no such command."""
    try:
        printed = subprocess.run(command, capture_output=True, text=True, check=True).stdout
    except (OSError, subprocess.CalledProcessError):
        return ""
    return printed.splitlines()[0] if printed else ""


def version(text):
    return match[0] if (match := re.search(r"\d+(\.\d+)*", text)) else "none"


def machine(cache):
    """What the figures depend on, but not whose machine it is."""
    def pattern_in(path, pattern):
        return match[1].strip() if (match := re.search(pattern, Path(path).read_text(), re.MULTILINE)) else "unknown"

    compiler = pattern_in(cache, r"^CMAKE_CXX_COMPILER:\w+=(.*)$")
    virtual = "hypervisor" in Path("/proc/cpuinfo").read_text()
    libraries = {"libdbus": "dbus-1", "sd-bus": "libsystemd", "GLib": "gio-2.0", "sdbus-c++": "sdbus-c++"}
    versions = {name: version(line_of("pkg-config", "--modversion", module)) for name, module in libraries.items()}
    return {
        "processor": f"{os.cpu_count()} cores{' of a virtual machine' if virtual else ''}, "
                     + pattern_in("/proc/cpuinfo", r"^model name\s*:(.*)$"),
        "load before": f"{os.getloadavg()[0]:.1f}",
        "system": f"{pattern_in('/etc/os-release', '^PRETTY_NAME=.(.*).$')}, Linux {version(platform.release())}",
        "compiler": f"{version(line_of(compiler, '-dumpfullversion'))} ({Path(compiler).name}), "
                    + pattern_in(cache, r"^CMAKE_BUILD_TYPE:\w+=(.*)$"),
        "Qt": version(line_of("pkg-config", "--modversion", "Qt5Core")),
        "dbus-daemon": version(line_of("dbus-daemon", "--version")),
        "dbus-broker": version(line_of("dbus-broker", "--version")),
        **versions,
    }


def digits(value):
    """Three digits that count."""
    if not value or abs(value) >= 100:
        return f"{value:,.0f}"
    return f"{value:.{max(2 - math.floor(math.log10(abs(value))), 0)}f}"


def table(head, rows):
    """Markdown, aligned; all columns but those of texts to the right."""
    rows = [[str(one) for one in row] for row in rows]
    right = [all(re.match(r"[-\d.,≤]+( \(.*\))?$|^-?$", row[column]) for row in rows) for column in range(len(head))]
    widths = [max(map(len, column)) for column in zip(head, *rows)]

    def line(cells):
        return "| " + " | ".join(cell.rjust(width) if at_right else cell.ljust(width)
                                 for cell, width, at_right in zip(cells, widths, right)) + " |"

    rule = "|" + "|".join("-" * (width + 1) + (":" if at_right else "-") for width, at_right in zip(widths, right)) + "|"
    return [line(head), rule, *map(line, rows), ""]


def work_table(work, cells):
    """A line for each cell; a column instead where there are more figures than fit beside each other."""
    names = list(dict.fromkeys(figure for taken in cells.values() for figure in taken))
    rows = [[work, *names], *([name, *(digits(statistics.median(taken[one])) if one in taken else "-" for one in names)]
                              for name, taken in cells.items())]
    if len(names) > WIDEST:
        rows = list(zip(*rows))
    return table(rows[0], rows[1:])


def held_against(target, figures):
    """One row about a target; nothing when what it compares was not measured."""
    cells = figures.get(target.work, {})
    if target.name not in cells or (target.base and target.base not in cells):
        return None
    if target.base:
        values = frame.ratios(figures, target.work, target.name, target.base, target.figure)
        middle = statistics.median(values)
        low, _, high = statistics.quantiles(values, n=4) if len(values) > 1 else values * 3
        shown = f"{middle:.2f} ({low:.2f} to {high:.2f})"
    else:
        middle = statistics.median(cells[target.name][target.figure])
        shown = digits(middle)
    limited = not math.isinf(target.limit)
    limit = f"≤ {target.limit:g}" if limited else ""
    verdict = ("met" if middle <= target.limit else "missed") if limited else ""
    return [target.work, target.name, target.base or "itself", target.figure, shown, limit, verdict]


def draw(plot, figures, folder):
    """The plot's file, drawn from the medians; nothing when there is nothing to draw."""
    lines = {}
    for legend, points in plot.series.items():
        known = [(x, statistics.median(figures[work][name][figure])) for x, work, name, figure in points
                 if figure in figures.get(work, {}).get(name, {})]
        if known:
            lines[legend] = known
    if not lines:
        return None
    path = folder / f"{plot.file}.svg"
    quoted = lambda text: "'" + text.replace("'", "''") + "'"
    script = ["set terminal svg size 720,400 font 'sans-serif,13' background '#ffffff'", f"set output {quoted(str(path))}",
              f"set title {quoted(plot.title)} noenhanced", f"set xlabel {quoted(plot.x_label)} noenhanced",
              f"set ylabel {quoted(plot.y_label)} noenhanced", "set key outside bottom center horizontal noenhanced",
              "set grid ytics linetype 1 linecolor rgb '#dddddd'", "set border 3", "set tics nomirror", "set yrange [0:*]",
              "set offsets graph 0, graph 0.02, graph 0.15, 0"]
    measured_at = sorted({x for points in lines.values() for x, _ in points})
    if len(measured_at) <= 8:
        script.append(f"set xtics ({', '.join(map(str, measured_at))})")
    for number, points in enumerate(lines.values()):
        script += [f"$line{number} << END", *(f"{x} {y}" for x, y in points), "END"]
    script.append("plot " + ", ".join(
        f"$line{number} title {quoted(legend)} with linespoints linewidth 2 pointtype 7 pointsize 0.6 linecolor '{colour}'"
        for (number, legend), colour in zip(enumerate(lines), itertools.cycle(COLOURS))))
    subprocess.run(["gnuplot"], input="\n".join(script), text=True, check=True)
    return path


def sections(parts, works, figures, session, options, facts, folder):
    """The report in pieces: the tables of each part, the machine, and all targets together."""
    pieces = {}
    rows = []
    for name, part in parts.items():
        lines = [line for work in works[name] for line in work_table(work, figures[work])]
        held = [row for target in part.TARGETS if (row := held_against(target, figures))]
        rows += [row for row in held if row[-1]]
        lines += table(["work", "name", "against", "figure", "ratio", "limit", "target"], held) if held else []
        lines += [*getattr(part, "NOTES", []), ""]
        for plot in part.PLOTS:
            if path := draw(plot, figures, folder):
                lines += [f"![{plot.title}: {plot.y_label}, over {plot.x_label}](performance/{path.name})", ""]
        pieces[name] = lines
    pieces["machine"] = table(["measured", "on"], [("rounds", options.rounds), *facts.items()])
    if session.missing:
        pieces["machine"].append(f"Left out, for want of it: {', '.join(session.missing)}.\n")
    missed = [row[:-1] for row in rows if row[-1] == "missed"]
    pieces["targets"] = [f"{len(rows) - len(missed)} of {len(rows)} targets were met{'; missed were:' if missed else '.'}", ""]
    if missed:
        pieces["targets"] += table(["work", "name", "against", "figure", "ratio", "limit"], missed)
    return pieces


def report(pieces):
    lines = ["# Measured", "", *pieces["machine"], "Times are in µs unless a figure's name says otherwise, and medians; so are "
             "the ratios, with the middle half of what was found in brackets.", ""]
    for name, title in PARTS.items():
        if name in pieces:
            lines += [f"## {title}", "", *(re.sub(r"\(performance/", "(", line) for line in pieces[name])]
    return "\n".join([*lines, "## Targets", "", *pieces["targets"]])


def publish(pieces, folder):
    """Puts each piece between its two comments in the page."""
    text = PAGE.read_text()
    for name, lines in pieces.items():
        begin, end = f"<!-- measured: {name} -->\n", "<!-- end of what was measured -->"
        if begin not in text:
            sys.exit(f"bench: no place for '{name}' in {PAGE.name}")
        before, rest = text.split(begin, 1)
        text = before + begin + "\n" + "\n".join(lines) + "\n" + end + rest.split(end, 1)[1]
    PAGE.write_text(text)
    pictures = PAGE.with_suffix("")
    pictures.mkdir(exist_ok=True)
    for old in pictures.glob("*.svg"):
        old.unlink()
    for path in folder.glob("*.svg"):
        (pictures / path.name).write_bytes(path.read_bytes())


def main():
    options = asked_for()
    there = [name for name in options.parts if (Path(__file__).parent / f"{name}.py").exists()]
    parts = {name: importlib.import_module(name) for name in there}
    folder = Path(options.output)
    for old in folder.glob("*.svg"):
        old.unlink()
    facts = machine(Path(options.programs).parent / "CMakeCache.txt")
    with frame.Session(options.programs, options.quick) as session:
        cells = {name: [cell for cell in part.cells(session) if options.only in cell.work] for name, part in parts.items()}
        works = {name: list(dict.fromkeys(cell.work for cell in of_part)) for name, of_part in cells.items()}
        order = {(cell.work, cell.name): None for of_part in cells.values() for cell in of_part}
        figures = frame.take_rounds([cell for of_part in cells.values() for cell in of_part], options.rounds,
                                    say=lambda text: print(text, file=sys.stderr, flush=True))
    figures = {work: {name: figures[work][name] for of_work, name in order if of_work == work} for work, _ in order}
    pieces = sections(parts, works, figures, session, options, facts, folder)
    (folder / "results.json").write_text(json.dumps(
        {"machine": facts, "rounds": options.rounds, "missing": session.missing, "figures": figures}, indent=1) + "\n")
    text = report(pieces)
    (folder / "report.md").write_text(text)
    print(text)
    if options.publish:
        publish(pieces, folder)


main()
