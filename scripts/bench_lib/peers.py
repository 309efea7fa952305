"""The hub as one system of the harness of peers: the two runs, and how far they have come.

DIR is the harness's folder, which is not part of this project; benchmarks/peers/run builds both and starts the driver.
"""

import json
import re

from bench_lib import process
from bench_lib.progress import Progress
from bench_lib.targets import CONSUMERS, cell_of

# A run of its own for each kind of figure. Latency: with every CPU kept awake, as waking one is slow and erratic on
# virtual machines. Flat out: as it is. The phase that is not used is kept short. In both at most 100 events are under
# way, as many as the hub queues; so the overrun, which has no such bound, is left out.
COMMON = ["--window", "100", "--burst", "0"]
RUNS = {
    "latency": [*COMMON, "--keep-awake", "1", "--flat-seconds", "0.3"],
    "flat": [*COMMON, "--paced-seconds", "0.3"],
}
ROUNDS = {"latency": 9, "flat": 5}
QUICK_ROUNDS = {"latency": 3, "flat": 1}

CELL = re.compile(r"^\[ *\d+ s\] round (\d+), N (\d+), (\S+): (.*)$")


# A system of ours says before the line of its cell what its daemon alone has taken; the driver adds up all processes
# that serve.
DAEMON_MEMORY = re.compile(r"^\S+: broker VmHWM: *(\d+) kB")


class Cells:
    """Follows the driver's line per cell. How many systems there are shows when the second number of consumers begins.

    `daemon_peak_mb` is {(system, consumers): the most that the daemon took in any round}.
    """

    def __init__(self, progress, rounds, sizes):
        self._progress = progress
        self._rounds = rounds
        self._sizes = sizes
        self._done = 0
        self._first = None
        self._peak_mb = None
        self.daemon_peak_mb = {}

    def take(self, line):
        memory = DAEMON_MEMORY.match(line)
        if memory:
            self._peak_mb = int(memory[1]) / 1024
            return
        match = CELL.match(line)
        if match is None:
            if self._done == 0:
                self._progress.begin("building", line[:40])
            return
        number, consumers, system, figures = match.groups()
        if self._peak_mb is not None:
            key = system, int(consumers)
            self.daemon_peak_mb[key] = max(self._peak_mb, self.daemon_peak_mb.get(key, 0))
            self._peak_mb = None
        if self._first is not None and consumers != self._first:
            self._progress.set_total(self._done * self._sizes * self._rounds)
            self._first = None
        elif self._done == 0:
            self._first = consumers
        self._done += 1
        self._progress.advance(self._done)
        self._progress.begin(f"round {number} of {self._rounds}, N {consumers}", f"{system}: {figures}")


def check_folder(folder):
    if not (folder / "driver" / "bench.cpp").is_file():
        raise process.BenchError(f"{folder} is not the folder of the harness: it has no driver/bench.cpp")


def _given(options, name, default):
    """What the driver will take: the last one given."""
    return ([default] + [value for option, value in zip(options, options[1:]) if option == name])[-1]


def run(root, folder, build, out, quick, options):
    """Returns {"latency": run, "flat": run}, with "daemon_peak_mb" in a cell; `options` go to the driver in both."""
    check_folder(folder)
    record = {}
    for kind, fixed in RUNS.items():
        rounds = int(_given(options, "--rounds", (QUICK_ROUNDS if quick else ROUNDS)[kind]))
        sizes = len(_given(options, "--consumers", ",".join(map(str, CONSUMERS))).split(","))
        into = out / "peers" / kind
        results = into / "results.json"
        results.unlink(missing_ok=True)
        command = [root / "benchmarks" / "peers" / "run", folder, build, into, *fixed, "--rounds", rounds, *options]
        with Progress(f"peers, {kind}") as progress:
            cells = Cells(progress, rounds, sizes)
            process.run(command, out / f"peers_{kind}.log", cells.take, progress.tick, merge_errors=True)
        if not results.is_file():
            raise process.BenchError(f"benchmarks/peers/run left no {results}")
        record[kind] = json.loads(results.read_text())
        for (system, consumers), peak in cells.daemon_peak_mb.items():
            cell = cell_of(record[kind], system, consumers)
            if cell is not None:
                cell["median"]["daemon_peak_mb"] = peak
    return record
