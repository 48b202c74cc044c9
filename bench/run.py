#!/usr/bin/env python3
"""Measures what scripts/bench has built, and reports it.

The parts are modules beside this file. A part has cells(session), TARGETS and PLOTS, and may have ADVICE and NOTES: lines
that stand below its tables. All cells of all parts are taken in the same rounds.
"""
import argparse
import importlib
import json
import signal
import sys
from pathlib import Path

sys.dont_write_bytecode = True  # the sources stay as they are
import frame
import machine
import report

HERE = Path(__file__).resolve().parent
PAGE = HERE.parent / "docs" / "performance.md"
PARTS = {"calls": "Calls", "events": "Events", "start": "Starting", "fleet": "Many modules",
         "process": "Inside a process"}


def asked_for():
    parser = argparse.ArgumentParser(prog="scripts/bench", description="measures this library beside its alternatives")
    parser.add_argument("rounds", nargs="?", type=int,
                        help="how often everything is measured; 10 unless said, quickly 3")
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


def main():
    options = asked_for()
    signal.signal(signal.SIGTERM, lambda *_: sys.exit("bench: terminated"))  # in order: no process of the run stays
    folder = Path(options.output)
    for old in folder.glob("*.svg"):
        old.unlink()
    parts = {name: importlib.import_module(name) for name in options.parts if (HERE / f"{name}.py").exists()}
    facts = {"rounds": options.rounds, **machine.facts(Path(options.programs).parent / "CMakeCache.txt")}
    with frame.Session(options.programs, options.quick) as session:
        cells = {name: [cell for cell in part.cells(session) if options.only in cell.work]
                 for name, part in parts.items()}
        every = [cell for of_part in cells.values() for cell in of_part]
        taken = frame.take_rounds(every, options.rounds, say=lambda text: print(text, file=sys.stderr, flush=True))
    figures = {}  # in the order of the cells, not in that of their measuring
    for cell in every:
        figures.setdefault(cell.work, {})[cell.name] = taken[cell.work][cell.name]

    pieces = {name: report.of_part(part, dict.fromkeys(cell.work for cell in cells[name]), figures, folder)
              for name, part in parts.items()}
    pieces["machine"] = report.about_machine(facts, session.missing)
    pieces["advice"] = report.about_advice(parts.values(), figures)
    pieces["targets"] = report.about_targets(parts.values(), figures)
    results = {"machine": facts, "missing": session.missing, "figures": figures}
    (folder / "results.json").write_text(json.dumps(results, indent=1) + "\n")
    text = report.whole(pieces, PARTS)
    (folder / "report.md").write_text(text)
    print(text)
    if options.publish:
        report.publish(pieces, PAGE, folder)


main()
