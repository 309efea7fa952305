"""Tables of a record, in Markdown that reads well on a terminal, too."""

import math

from bench_lib import programs, targets


def table(header, rows, texts=1):
    """The first `texts` columns to the left, the others, which are figures, to the right."""
    rows = [[str(cell) for cell in row] for row in rows]
    widths = [max(len(row[i]) for row in [header, *rows]) for i in range(len(header))]
    lefts = [i < texts for i in range(len(header))]

    def line(cells):
        padded = (c.ljust(w) if left else c.rjust(w) for c, w, left in zip(cells, widths, lefts))
        return f"| {' | '.join(padded)} |"

    rule = "|".join("-" * (w + 2) if left else "-" * (w + 1) + ":" for w, left in zip(widths, lefts))
    return "\n".join([line(header), f"|{rule}|", *map(line, rows)])


def short(value):
    if value is None or math.isnan(value):
        return "-"
    for limit, pattern, divisor in ((1e6, "{:.2f}M", 1e6), (1e4, "{:.0f}k", 1e3), (1e3, "{:.1f}k", 1e3),
                                    (100, "{:.0f}", 1), (10, "{:.1f}", 1)):
        if abs(value) >= limit:
            return pattern.format(value / divisor)
    return f"{value:.2f}"


def _with_spread(cell, key):
    """The median of the rounds, and the lowest and highest."""
    values = [one[key] for one in cell["rounds"] if key in one]
    if not values:
        return "-"
    return f"{short(cell['median'][key])} [{short(min(values))}..{short(max(values))}]"


# Run, heading, key. The last column is the largest figure of the two runs' memory.
PEERS_COLUMNS = (
    ("latency", "p50 us", "p50_us"),
    ("latency", "p99 us", "p99_us"),
    ("latency", "p99.9 us", "p999_us"),
    ("flat", "delivered/s", "delivered_per_s"),
    ("flat", "all CPU us/delivered", "total_cpu_us"),
)


def systems_of(record):
    """In the harness's order of names, ours first."""
    names = {cell["system"] for run in record.values() for cell in run["cells"]}
    return sorted(names, key=lambda name: (not name.startswith("velmora"), not name.startswith("floor"), name))


def _peers_row(record, system, consumers):
    cells = {kind: targets.cell_of(run, system, consumers) for kind, run in record.items()}
    if not any(cells.values()):
        return None
    row = [system]
    for kind, _, key in PEERS_COLUMNS:
        row.append(_with_spread(cells[kind], key) if cells[kind] else "-")
    flat = cells["flat"] or {"median": {}, "rounds": []}
    row.append(short(flat["median"].get("rss_flat_mb")))
    row.append(short(flat["median"].get("rss_flat_peak_mb")))
    lost = [one.get(key, 0) for cell in cells.values() if cell for one in cell["rounds"]
            for key in ("paced_lost", "flat_lost")]
    row.append(f"{sum(lost):.0f}" if lost else "-")
    return row


def _troubles(kind, cell):
    median = cell["median"]
    for error in cell["errors"]:
        yield f"failed in the {kind} run: {error}"
    if kind == "latency" and median.get("paced_late", 0) > 0.05 * median.get("paced_sent", math.inf):
        yield "over 5 % of the paced events were sent more than 1 ms late, its latencies are too low"
    # Threads that push side by side overtake each other.
    if median.get("disorder", 0) > 0 and not cell["system"].endswith("_threads"):
        yield "events came out of order or twice"


def _notes(record):
    """What went wrong, each trouble of a system in one line."""
    found = {}
    for kind, run in record.items():
        for cell in run["cells"]:
            for trouble in _troubles(kind, cell):
                found.setdefault((cell["system"], trouble), []).append(str(cell["consumers"]))
    return [f"- {system}, {', '.join(sizes)} consumers: {trouble}" for (system, trouble), sizes in found.items()]


def peers(record):
    header = ["system", *(heading for _, heading, _ in PEERS_COLUMNS), "RSS MB", "peak MB", "lost"]
    parts = ["; ".join(f"{kind}: rounds {run['rounds']}, window {run['window']}, payload {run['payload']} bytes, "
                       f"{run['machine'].get('steal_pct', 0):.2f} % of the time taken by the hypervisor"
                       for kind, run in record.items()) + ". Medians of the rounds, [lowest..highest]."]
    for consumers in targets.CONSUMERS:
        rows = [row for system in systems_of(record) if (row := _peers_row(record, system, consumers))]
        if rows:
            parts.append(f"{consumers} consumer{'s' if consumers > 1 else ''}:\n\n{table(header, rows)}")
    notes = _notes(record)
    return "\n\n".join(parts + (["\n".join(notes)] if notes else []))


def of_programs(record):
    """What each program printed, then its ratios."""
    parts = []
    for name, one in record["programs"].items():
        text = "\n".join(one["lines"]).strip("\n")
        if not text:
            continue
        parts.append(f"`{name}`:\n\n```console\n{text}\n```")
        if one["ratios"]:
            rows = [[r["name"], f"{r['value']:.3f}", f"{r['limit']:g}" if r["limit"] else "-"] for r in one["ratios"]]
            parts.append(table(["ratio of medians", "figure", "at most"], rows))
    return "\n\n".join(parts)


def targets_of(name, record):
    judge = targets.peers_targets if name == "peers" else programs.targets
    return list(judge(record["record"]))


def of_targets(found):
    rows = [[t.what, t.target, t.figure, t.verdict] for t in found]
    return table(["what", "target", "figure", "verdict"], rows, texts=4)


def header(record):
    """When and on what a group was measured."""
    return "{when}, commit {commit}, {cpus} x {cpu}, Linux {kernel}, load at the start {load}.".format(**record["machine"])


def group(name, record):
    body = peers(record["record"]) if name == "peers" else of_programs(record["record"])
    return f"{header(record)}\n\n{body}"
