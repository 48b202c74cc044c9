"""Tables of what was measured, in markdown, and their places in the page about it."""
import math
import re
import statistics
import sys

import frame
import plots

WIDEST = 8  # columns of figures
HEAD = ["work", "name", "against", "figure", "found", "limit", "target"]


def digits(value):
    """Three digits that count."""
    if abs(value) >= 100 or float(value).is_integer():
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

    rule = "|".join("-" * (width + 1) + (":" if at_right else "-") for width, at_right in zip(widths, right))
    return [line(head), f"|{rule}|", *map(line, rows), ""]


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


def of_part(part, works, figures, folder):
    """The tables, notes and plots of a part."""
    lines = [line for work in works for line in work_table(work, figures[work])]
    if held := [row for target in part.TARGETS if (row := held_against(target, figures))]:
        lines += table(HEAD, held)
    lines += [*getattr(part, "NOTES", []), ""]
    for plot in part.PLOTS:
        if path := plots.draw(plot, figures, folder):
            lines += [f"![{plot.title}: {plot.y_label}, over {plot.x_label}](performance/{path.name})", ""]
    return lines


def about_machine(facts, missing):
    lines = table(["measured", "on"], facts.items())
    return lines + [f"Left out, for want of it: {', '.join(missing)}.", ""] if missing else lines


def about_targets(parts, figures):
    """How many there are, and the missed ones."""
    rows = [row for part in parts for target in part.TARGETS if (row := held_against(target, figures)) and row[-1]]
    missed = [row[:-1] for row in rows if row[-1] == "missed"]
    lines = [f"{len(rows) - len(missed)} of {len(rows)} targets were met{'; missed were:' if missed else '.'}", ""]
    return lines + table(HEAD[:-1], missed) if missed else lines


def about_advice(parts, figures):
    rows = [[one.what, one.gain.work, row[HEAD.index("found")], one.price] for part in parts
            for one in getattr(part, "ADVICE", []) if (row := held_against(one.gain, figures))]
    return table(["advice", "table", "what is left", "price"], rows) if rows else []


def whole(pieces, titles):
    """All pieces as one text."""
    lines = ["# Measured", "", *pieces["machine"],
             "Times are in µs unless a figure's name says otherwise, and medians; so are the ratios, with the middle",
             "half of what was found in brackets.", ""]
    for name, title in titles.items():
        if name in pieces:
            lines += [f"## {title}", "", *(line.replace("(performance/", "(") for line in pieces[name])]
    return "\n".join([*lines, "## Advice", "", *pieces["advice"], "## Targets", "", *pieces["targets"]])


def publish(pieces, page, folder):
    """Puts each piece between its two comments in the page, and the plots into the folder of its name."""
    text = page.read_text()
    for name, lines in pieces.items():
        begin, end = f"<!-- measured: {name} -->\n", "<!-- end of what was measured -->"
        if begin not in text:
            sys.exit(f"bench: no place for '{name}' in {page.name}")
        before, rest = text.split(begin, 1)
        text = before + begin + "\n" + "\n".join(lines) + "\n" + end + rest.split(end, 1)[1]
    page.write_text(text)
    pictures = page.with_suffix("")
    pictures.mkdir(exist_ok=True)
    for old in pictures.glob("*.svg"):
        old.unlink()
    for path in folder.glob("*.svg"):
        (pictures / path.name).write_bytes(path.read_bytes())
