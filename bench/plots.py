"""Plots of medians, drawn by gnuplot."""
import itertools
import statistics
import subprocess

COLOURS = ["#3366aa", "#cc3333", "#888888", "#338833", "#aa7700"]
MOST_TICS = 8  # that stand where something was measured, and nowhere else
FAR_APART = 1000  # from such a ratio on the first tics would lie on each other


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
    script = ["set terminal svg size 720,400 font 'sans-serif,13' background '#ffffff'",
              f"set output {quoted(str(path))}",
              f"set title {quoted(plot.title)} noenhanced",
              f"set xlabel {quoted(plot.x_label)} noenhanced",
              f"set ylabel {quoted(plot.y_label)} noenhanced",
              "set key tmargin center horizontal noenhanced",
              "set grid ytics linetype 1 linecolor rgb '#dddddd'",
              "set border 3", "set tics nomirror", "set yrange [0:*]",
              "set offsets graph 0, graph 0.02, graph 0.15, 0"]
    measured_at = sorted({x for points in lines.values() for x, _ in points})
    if len(measured_at) <= MOST_TICS:
        script.append(f"set xtics ({', '.join(map(str, measured_at))})")
    if measured_at[-1] > FAR_APART * measured_at[0]:
        script.append("set logscale x")
    for number, points in enumerate(lines.values()):
        script += [f"$line{number} << END", *(f"{x} {y}" for x, y in points), "END"]
    look = "with linespoints linewidth 2 pointtype 7 pointsize 0.6"
    script.append("plot " + ", ".join(
        f"$line{number} title {quoted(legend)} {look} linecolor '{colour}'"
        for (number, legend), colour in zip(enumerate(lines), itertools.cycle(COLOURS))))
    subprocess.run(["gnuplot"], input="\n".join(script), text=True, check=True)
    return path
