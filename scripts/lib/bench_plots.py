"""Draws the figures of the benchmarks with gnuplot."""
import subprocess

HEADER = """set terminal svg size 900,{height} font 'sans-serif,13' background 'white'
set output {file}
set title '{title}'
set grid
set key outside top center horizontal
"""

BARS = HEADER + """set yrange [{rows}-0.3:-0.7]
set xrange [0:*]
set ytics ({labels})
set grid noytics
"""

RATIOS = BARS + """plot $data using ($2/2):0:($2/2):(0.35) with boxxyerror fill solid 0.6 title 'ratio', \\
     '' using 3:0 with points pointtype 2 pointsize 1.5 linewidth 2 title 'target'
"""

OPENS = BARS + """set xlabel 'microseconds: median and quartiles'
plot $data using ($2/2):0:($2/2):(0.35) with boxxyerror fill solid 0.6 title 'open', \\
     '' using 2:0:3:4 with xerrorbars linewidth 2 title 'quartiles'
"""

LOOKUPS = HEADER + """set logscale xy
set xlabel 'known processes'
set ylabel 'nanoseconds'
plot $data using 2:3 with linespoints linewidth 2 pointtype 7 title 'look-up of a process in random order'
"""


def quoted(text):
    """A gnuplot string that stands for exactly this text."""
    return "'" + text.replace("'", "''") + "'"


def plot(script, rows, **values):
    """Runs a script on rows whose first column is a label."""
    labels = ", ".join(f"{quoted(row[0])} {index}" for index, row in enumerate(rows))
    data = "$data << END\n" + "".join(
        f"{index} {' '.join(str(value) for value in row[1:])}\n" for index, row in enumerate(rows)) + "END\n"
    values["file"] = quoted(str(values["file"]))
    height = 150 + 30 * len(rows)
    subprocess.run(["gnuplot"], input=data + script.format(rows=len(rows), labels=labels, height=height, **values),
                   text=True, check=True)


def draw(figures, folder):
    """Writes one SVG file for each kind of figure that was measured."""
    ratios = [(figure.group if figure.name in ("module", "two threads", "during a refresh") or "readers" in figure.name
               else f"{figure.group}: {figure.name}", figure.ratio, figure.target)
              for figure in figures if figure.ratio and figure.target]
    plot(RATIOS, ratios, file=folder / "ratios.svg", title="Ratios to the floor, to one thread or to one reader")
    opens = [(f"{figure.group.removeprefix('open of a file, ')}: {figure.name}", figure.value, figure.low, figure.high)
             for figure in figures if figure.group.startswith("open of a file")]
    if opens:
        plot(OPENS, opens, file=folder / "opens.svg", title="Opening a file")
    lookups = [(figure.name, int(figure.name.split()[0].replace(",", "")), figure.value)
               for figure in figures if figure.group == "look-up of a process"]
    plot(LOOKUPS, lookups, file=folder / "look-ups.svg", title="Look-up of a process")
