"""Counts what a recording holds, from its lines alone. Tests compare these counts with what the views of diagctl show.
It shares no code with them.

  count.py FILE    -> {"changes", "removed", "deaths", "gaps", "values", "last"}
"""

import json
import sys


def count(lines):
    states, changes, removed, deaths, gaps, samples, gap_from = {}, 0, 0, [], [], {}, None
    for line in lines:
        at = line["at"] if "at" in line else line["clocks"]["boot_ms"]
        if "gap" in line:
            gap_from = gap_from or at
        elif gap_from and line.keys() & {"processes", "changed", "context"}:
            gaps.append([gap_from, at])
            gap_from = None
        deaths += [[at, pid] for pid in line.get("dead", [])]
        changed = line.get("changed", {})
        if "processes" in line:
            # What a full picture lacks is gone.
            picture = line["processes"]
            changed = {pid: dict.fromkeys(states.get(pid, {})) | picture.get(pid, {}) for pid in states | picture}
        for pid, keys in changed.items():
            known = states.setdefault(pid, {})
            for key, value in keys.items():
                removed += value is None
                changes += value is not None and known.get(key) != value
                known[key] = value
            states[pid] = {key: value for key, value in known.items() if value is not None}
        for source, text in line.get("context", {}).items():
            if source.endswith("_history"):
                report = json.loads(text)
                for sample in report["time_series"]:
                    samples.setdefault(source, {})[report["report_time_ms"] - sample["dt_ms"]] = sample["v"]
    last = {pid: keys for pid, keys in states.items() if keys}
    return {"changes": changes, "removed": removed, "deaths": deaths, "gaps": gaps, "values": values_of(samples), "last": last}


def values_of(samples):
    """Per series: how many values, and their sum. A stall total counts as its share of the time since the sample
    before, which must be there."""
    values = {}
    for source, by_time in samples.items():
        times = sorted(by_time)
        steps = sorted(b - a for a, b in zip(times, times[1:]))
        for before, time in zip([None, *times], times):
            for metric, value in by_time[time].items():
                name = f"{source}/{metric}"
                if metric.endswith("_total"):
                    old = by_time[before].get(metric) if before else None
                    if old is None or value < old or time - before > 2.5 * steps[len(steps) // 2]:
                        continue
                    name = f"{source}/{metric[:-6]}_stalled_%"
                    value = min((value - old) / 1000 / (time - before) * 100, 100)
                values.setdefault(name, []).append(value)
    return {name: [len(numbers), sum(numbers)] for name, numbers in values.items()}


with open(sys.argv[1], encoding="utf-8") as file:
    next(file)
    print(json.dumps(count(json.loads(text) for text in file if text.endswith("\n"))))
