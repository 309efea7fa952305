"""The pictures of a run of peers, drawn by gnuplot as SVG: latency curves, and cost against number of consumers."""

import math
import shutil
import subprocess

from bench_lib.process import BenchError
from bench_lib.tables import systems_of
from bench_lib.targets import CONSUMERS, cell_of

# Colour, dashes, width. The hub stands out, the floors stay behind.
OURS = {"velmora": "#1f4e9c", "velmora_silent": "#3d8bff", "velmora_threads": "#00a0a0", "velmora_relay": "#7a4fd0",
        "velmora_relay_threads": "#b48cf0"}
FLOORS = {"floor_b": "#909090", "floor_b2": "#404040", "floor_stream": "#b8b8b8", "floor_b2_stream": "#707070"}
OTHERS = {"dbus_daemon": "#d62728", "dbus_broker": "#ff9896", "mosquitto": "#e377c2", "redis": "#ff7f0e",
          "redis_sync": "#c49c00", "zeromq": "#2ca02c", "nats": "#8c564b", "grpc": "#98bf21"}
# When events are paced, these do what the system without the ending does.
SAME_WHEN_PACED = ("_threads", "_stream", "redis_sync")


def _style(system):
    if system in OURS:
        return f"lc rgb '{OURS[system]}' lw 3 pt 7 ps 0.5"
    if system in FLOORS:
        return f"lc rgb '{FLOORS[system]}' lw 2 dt 2 pt 6 ps 0.5"
    return f"lc rgb '{OTHERS.get(system, '#000000')}' lw 1.5 pt 5 ps 0.4"


def latency_points(cell):
    """(nines, us) of all samples of all rounds: 0.3 is the median, 2 is 99 %, 3 is 99.9 %; last the highest."""
    pooled = cell["pooled"]
    points = [(-math.log10(1 - rank), pooled[key])
              for rank, key in ((0.5, "p50_us"), (0.99, "p99_us"), (0.999, "p999_us")) if key in pooled]
    highest = [one["max_us"] for one in cell["rounds"] if "max_us" in one]
    if highest and pooled.get("deliveries", 0) > 1000:
        points.append((math.log10(pooled["deliveries"]), max(highest)))
    return points


def cost_points(run, system):
    """(consumers, us of all processes' CPU per delivered event)."""
    cells = ((n, cell_of(run, system, n)) for n in CONSUMERS)
    return [(n, cell["median"]["total_cpu_us"]) for n, cell in cells if cell and "total_cpu_us" in cell["median"]]


class Script:
    """A gnuplot script with its data."""

    def __init__(self, path, width, height):
        self.lines = [f"set terminal svg size {width},{height} dynamic noenhanced font 'sans,13' background '#ffffff'",
                      f"set output '{path}'", "set grid lc rgb '#d0d0d0'", "set key Left reverse invert", "set logscale y", "set format y '%g'"]
        self._blocks = 0

    def curves(self, series):
        """Draws {system: points}, the first on top; what has no points is left out."""
        drawn = []
        for system, points in reversed(series.items()):
            if not points:
                continue
            block = f"$d{self._blocks}"
            self._blocks += 1
            self.lines += [f"{block} << EOD", *(f"{x:.6g} {y:.6g}" for x, y in points), "EOD"]
            drawn.append(f"{block} using 1:2 with linespoints {_style(system)} title '{system}'")
        if not drawn:
            self.lines += ["set label 1 'nothing measured' at graph 0.5,0.5 center", "set yrange [1:10]"]
        self.lines.append("plot " + (", ".join(drawn) or "NaN notitle"))
        self.lines += ["unset label 1", "set yrange [*:*]"]

    def keys(self, systems):
        """A panel of nothing but the key."""
        if not systems:
            return
        self.lines += ["unset logscale", "unset border", "unset tics", "unset xlabel", "unset ylabel", "unset title",
                       "unset grid", "set key on center center vertical maxrows 30 noinvert", "set xrange [0:1]",
                       "set yrange [0:1]"]
        self.lines.append("plot " + ", ".join(f"NaN with linespoints {_style(s)} title '{s}'" for s in systems))

    def draw(self):
        if shutil.which("gnuplot") is None:
            raise BenchError("gnuplot is missing: scripts/setup installs it")
        done = subprocess.run(["gnuplot"], input="\n".join(self.lines) + "\n", capture_output=True, text=True)
        if done.returncode != 0:
            raise BenchError(f"gnuplot failed: {done.stderr}")


def draw_latency(run, path):
    systems = [s for s in systems_of({"": run}) if not s.endswith(SAME_WHEN_PACED)]
    script = Script(path, 1400, 480)
    script.lines += ["set multiplot layout 1,4", "set key off", "set rmargin 1", "set xlabel 'of all deliveries; the last point is the highest'",
                     "set xrange [0.2:6]", "set xtics rotate by -30",
                     "set xtics ('50 %%' 0.301, '99 %%' 2, '99.9 %%' 3, '99.99 %%' 4, '99.999 %%' 5)"]
    for consumers in CONSUMERS:
        script.lines += [f"set title 'paced, {consumers} consumer{'s' if consumers > 1 else ''}'",
                         "set ylabel 'latency at most, us'" if consumers == CONSUMERS[0] else "unset ylabel"]
        cells = {s: cell_of(run, s, consumers) for s in systems}
        script.curves({s: latency_points(cell) for s, cell in cells.items() if cell})
    script.keys(systems)
    script.lines.append("unset multiplot")
    script.draw()


def draw_cost(run, path):
    script = Script(path, 1000, 560)
    script.lines += ["set logscale x 2", f"set xtics ({', '.join(map(str, CONSUMERS))})", "set xrange [0.9:75]",
                     "set xlabel 'consumers'", "set ylabel 'CPU of all processes per delivered event, us'",
                     f"set title 'flat out, window {run['window']}'", "set key outside right top vertical"]
    script.curves({s: cost_points(run, s) for s in systems_of({"": run})})
    script.draw()


def draw(record, folder):
    """Returns the pictures, {file: title}."""
    pictures = {folder / "latency.svg": "latency curves of paced events", folder / "cost.svg": "cost of dense events"}
    latency, cost = pictures
    draw_latency(record["latency"], latency)
    draw_cost(record["flat"], cost)
    return pictures
