"""The groups of measurements, and how each is built and run."""

import dataclasses
import datetime
import os
import platform
import re
import subprocess

from bench_lib import peers, process, programs
from bench_lib.progress import Progress


@dataclasses.dataclass(frozen=True)
class Group:
    why: str
    binaries: tuple = ()
    run: object = programs.run


GROUPS = {
    "binder": Group("calls between two processes and log lines, against the bare system calls below them",
                    ("round_trip_bench", "oneway_bench", "burst_bench", "log_bench")),
    "hub": Group("scheduling, and an event's way to all its consumers",
                 ("hub_schedule_bench", "hub_fanout_bench")),
    "tables": Group("subscribe, unsubscribe and push while the hub's tables grow", ("hub_tables_bench",)),
    "counts": Group("instructions and allocations per event in the hub's code", ("event_path_counts",),
                    programs.run_counts),
    "peers": Group("the hub and what people use instead, side by side; needs the harness's folder: peers DIR"),
}

NINJA = re.compile(r"^\[(\d+)/(\d+)\]")


def machine(root):
    """When and on what; part of every group's record, as groups may be measured one by one."""
    with open("/proc/cpuinfo") as file:
        models = re.findall(r"^model name\s*: (.*)$", file.read(), re.MULTILINE)
    commit = subprocess.run(["git", "describe", "--always", "--dirty"], cwd=root, capture_output=True, text=True)
    return {
        "when": datetime.datetime.now().strftime("%Y-%m-%d %H:%M"),
        "commit": commit.stdout.strip() or "unknown",
        "kernel": platform.release(),
        "cpu": models[0] if models else platform.machine(),
        "cpus": os.cpu_count(),
        "load": " ".join(f"{load:.2f}" for load in os.getloadavg()),
    }


def build(root, folder, names, out):
    """Builds what the groups `names` need in the release preset; peers build on their own."""
    targets = [binary for name in names for binary in GROUPS[name].binaries]
    if not targets:
        return
    process.run(["cmake", "--preset", "release", "-S", root, "-B", folder], out / "configure.log", merge_errors=True)
    with Progress("building") as progress:
        progress.begin("release")

        def on_line(line):
            done = NINJA.match(line)
            if done:
                progress.set_total(int(done.group(2)))
                progress.advance(int(done.group(1)))

        command = ["cmake", "--build", folder, "-j", os.cpu_count(), "--target", *targets]
        process.run(command, out / "build.log", on_line, progress.tick, merge_errors=True)


def measure(name, root, folder, out, options, quick, peers_folder):
    """Runs one group and returns {"machine", "record"}."""
    result = {"machine": machine(root)}
    if name == "peers":
        result["record"] = peers.run(root, peers_folder, folder, out, quick, options)
        return result
    group = GROUPS[name]
    # The counts need no rounds: they hardly differ.
    options = ["--benchmark_repetitions=5"] * (quick and name != "counts") + list(options)
    records = {}
    with Progress(name, len(group.binaries)) as progress:
        for program in group.binaries:
            progress.begin(program)
            records[program] = group.run(program, folder / "benchmarks", out, options, progress.tick)
            progress.advance()
    if not any(one["lines"] for one in records.values()):
        raise process.BenchError(f"{name}: nothing was measured with {' '.join(options) or 'no options'}; logs: {out}")
    result["record"] = {"programs": records}
    return result
