"""The programs of benchmarks/: what they print, as figures and as targets."""

import json
import pathlib
import re

from bench_lib import process
from bench_lib.targets import Target

MEDIAN = re.compile(r"^(\S+) +([0-9.]+) ns +\+- *(\d+) %$")
GOLDEN = pathlib.Path(__file__).resolve().parents[2] / "benchmarks/counts/event_path_counts.golden"
RATIO = re.compile(r"^ratio (\S+) (\S+) (\S+)$")


def _by_number(line):
    return [int(part) if part.isdigit() else part for part in re.split(r"(\d+)", line.split(" ")[0])]


def parse(lines):
    """{"lines": what people read, "medians_ns": {name: figure}, "ratios": [{name, value, limit}]}; limit 0 is none.

    Medians come in the random order of their rounds, and are sorted by name.
    """
    medians, others, ratios = [], [], []
    for line in lines:
        ratio = RATIO.match(line)
        if ratio:
            name, value, limit = ratio.groups()
            ratios.append({"name": name, "value": float(value), "limit": float(limit)})
        else:
            (medians if MEDIAN.match(line) else others).append(line)
    medians.sort(key=_by_number)
    figures = {match[1]: float(match[2]) for match in map(MEDIAN.match, medians)}
    return {"lines": medians + others, "medians_ns": figures, "ratios": ratios}


def run(program, folder, out, options, on_tick):
    """Runs one program and returns what `parse` makes of it."""
    return parse(process.run([pathlib.Path(folder) / program, *options], out / f"{program}.log", on_tick=on_tick))


def run_counts(program, folder, out, options, on_tick):
    """As `run`, with the program's own figures under "counts", and under "held" what it says of the table in the tree."""
    figures = out / f"{program}.json"
    result = run(program, folder, out, ["--json", figures, *options], on_tick)
    result["counts"] = json.loads(figures.read_text())
    check = [pathlib.Path(folder) / program, "--check", GOLDEN]
    try:
        process.run(check, out / f"{program}_check.log", on_tick=on_tick, merge_errors=True)
        result["held"] = {"met": True, "figure": "every figure holds"}
    except process.BenchError:
        # It has just run without: what fails is the comparison, and the log tells which.
        result["held"] = {"met": False, "figure": f"see {program}_check.log"}
    return result


def targets(record):
    """Of a group: {"programs": {name: what `parse` gave}}."""
    for one in record["programs"].values():
        for ratio in one["ratios"]:
            if ratio["limit"] != 0:
                yield Target(ratio["name"], f"at most {ratio['limit']:g}", f"{ratio['value']:.3f}",
                             ratio["value"] <= ratio["limit"])
        if "held" in one:
            yield Target("instructions and allocations per event", f"within 10 % of {GOLDEN.name}",
                         one["held"]["figure"], one["held"]["met"])
