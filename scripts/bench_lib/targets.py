"""What the hub has to reach among its peers, each a comparison within one run, and whether it does.

A record of peers is {"latency": run, "flat": run}; a run is what the harness's driver writes as results.json.
"""

import dataclasses
from typing import Optional

CONSUMERS = (1, 8, 64)
# "All that go one by one": each event acknowledged, or passed on by a system call of its own for each consumer.
ONE_BY_ONE = ("floor_b", "floor_b2", "dbus_daemon", "dbus_broker", "mosquitto", "redis_sync", "grpc")
BROKERS = ("mosquitto", "dbus_daemon", "dbus_broker", "redis_sync", "grpc")
# Of ours, those with one pushing thread.
ONE_THREAD = ("velmora", "velmora_silent")


@dataclasses.dataclass
class Target:
    what: str
    target: str
    figure: str
    met: Optional[bool]  # None: not measured, and `figure` says why

    @property
    def verdict(self):
        return {True: "met", False: "MISSED", None: "NOT MEASURED"}[self.met]


class Missing(Exception):
    """A figure that a target needs is not in the run."""


def cell_of(run, system, consumers):
    """The driver's cell, or None."""
    for cell in run["cells"]:
        if cell["system"] == system and cell["consumers"] == consumers:
            return cell
    return None


def whole_cell(run, system, consumers):
    """A cell whose every round succeeded: what a verdict may be built on."""
    cell = cell_of(run, system, consumers)
    if cell is None:
        raise Missing(f"{system} was not in the run with {consumers} consumers")
    if cell["errors"]:
        raise Missing(f"{system} failed with {consumers} consumers: {cell['errors'][0]}")
    return cell


def median(run, system, consumers, key):
    value = whole_cell(run, system, consumers)["median"].get(key)
    if value is None:
        raise Missing(f"{system} has no {key} with {consumers} consumers")
    return value


def _judge(what, target, measure):
    """`measure` gives the figure as text and whether it meets the target."""
    try:
        return Target(what, target, *measure())
    except Missing as reason:
        return Target(what, target, str(reason), None)


def _ratio(run, key, ours, theirs, consumers, limit, what):
    def measure():
        mine, other = (median(run, system, consumers, key) for system in (ours, theirs))
        return f"{mine / other:.2f} ({mine:.4g} / {other:.4g} us)", mine <= limit * other

    return _judge(f"{what}, {ours} / {theirs}, {consumers} consumers", f"at most {limit:g}", measure)


def _latency_below_peers(run, consumers):
    def measure():
        mine = median(run, "velmora_silent", consumers, "p50_us")
        lowest, peer = min((median(run, peer, consumers, "p50_us"), peer) for peer in BROKERS)
        return f"{mine:.4g} us, the lowest is {peer}: {lowest:.4g} us", mine < lowest

    return _judge(f"paced p50 of velmora_silent, {consumers} consumers", "below the brokers and gRPC", measure)


def _nothing_lost(run, system, consumers):
    def measure():
        rounds = whole_cell(run, system, consumers)["rounds"]
        if not rounds or any("flat_lost" not in one for one in rounds):
            raise Missing(f"{system} has a round without flat_lost with {consumers} consumers")
        lost = sum(one["flat_lost"] for one in rounds)
        return f"{lost:.0f} lost in {len(rounds)} rounds", lost == 0

    return _judge(f"flat out, {system}, {consumers} consumers", "nothing lost", measure)


def _above_peers(run, consumers):
    def measure():
        mine = median(run, "velmora_silent", consumers, "delivered_per_s")
        highest, peer = max((median(run, peer, consumers, "delivered_per_s"), peer) for peer in ONE_BY_ONE)
        return f"{mine:,.0f}/s, the highest is {peer}: {highest:,.0f}/s", mine > highest

    return _judge(f"flat out, velmora_silent, {consumers} consumers", "above all that go one by one", measure)


def _bound(run, system, key, consumers, what, target, holds, unit):
    def measure():
        value = median(run, system, consumers, key)
        return f"{value:,.4g}{unit}" if value < 1e4 else f"{value:,.0f}{unit}", holds(value)

    return _judge(f"{what}, {system}, {consumers} consumers", target, measure)


def _faster(run, consumers):
    """Of ours with one and with several pushing threads, the one that delivers more."""
    def delivered(system):
        cell = cell_of(run, system, consumers)
        return (cell["median"].get("delivered_per_s") or 0) if cell and not cell["errors"] else 0

    return max("velmora_threads", "velmora_silent", key=delivered)


def peers_targets(record):
    latency, flat = record["latency"], record["flat"]
    faster = _faster(flat, 64)
    for n in CONSUMERS:
        yield _ratio(latency, "p50_us", "velmora_silent", "floor_b2", n, 1.3, "paced p50")
    for n in CONSUMERS:
        yield _ratio(latency, "p50_us", "velmora", "floor_b2", n, 1.5, "paced p50")
    for n in CONSUMERS:
        yield _latency_below_peers(latency, n)
    for n in CONSUMERS:
        for system in ONE_THREAD:
            yield _nothing_lost(flat, system, n)
        yield _above_peers(flat, n)
    yield _nothing_lost(flat, "velmora_threads", 64)
    yield _bound(flat, faster, "delivered_per_s", 64, "delivered", "above 1,000,000/s",
                 lambda value: value > 1e6, "/s")
    yield _bound(flat, faster, "total_cpu_us", 64, "CPU of all processes per delivered event",
                 "below 2 us", lambda value: value < 2, " us")
    for n in CONSUMERS:
        yield _ratio(flat, "total_cpu_us", "velmora_silent", "velmora_relay", n, 1.15,
                     "CPU of all processes per delivered event")
    yield _bound(flat, "velmora", "daemon_peak_mb", 64, "the daemon's memory at its peak", "below 8 MB",
                 lambda value: value < 8, " MB")
