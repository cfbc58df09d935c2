"""Counts what a recording holds, from its lines alone, and what a trace holds, from its bytes alone. Tests compare
these counts with what the views of diagctl show. It shares no code with them.

  count.py recording FILE    -> {"changes", "removed", "deaths", "gaps", "values", "last"}
  count.py trace FILE        -> {"slices", "instants", "values", "units", "disordered", "unclosed"}
"""

import json
import struct
import sys


def count_recording(path):
    states, changes, removed, deaths, gaps, samples = {}, 0, 0, [], [], {}
    gap_from = None

    def put(pid, key, value):
        nonlocal changes, removed
        if value is None:
            removed += 1
            del states[pid][key]
        elif states.setdefault(pid, {}).get(key) != value:
            changes += 1
            states[pid][key] = value

    with open(path, encoding="utf-8") as lines:
        next(lines)
        for text in lines:
            if not text.endswith("\n"):
                break
            line = json.loads(text)
            if "processes" in line:
                at = line["clocks"]["boot_ms"]
                for pid in list(states):
                    for key in list(states[pid]):
                        if key not in line["processes"].get(pid, {}):
                            put(pid, key, None)
                for pid, keys in line["processes"].items():
                    for key, value in keys.items():
                        put(pid, key, value)
            elif "context" in line:
                at = line["clocks"]["boot_ms"]
                for source, value in line["context"].items():
                    if not source.endswith("_history"):
                        continue
                    report = json.loads(value)
                    for sample in report["time_series"]:
                        samples.setdefault(source, {})[report["report_time_ms"] - sample["dt_ms"]] = sample["v"]
            elif "changed" in line:
                at = line["at"]
                for pid, keys in line["changed"].items():
                    for key, value in keys.items():
                        put(pid, key, value)
            else:
                for pid in line.get("dead", []):
                    deaths.append([line["at"], pid])
                if "gap" in line:
                    gap_from = line["at"]
                continue
            if gap_from is not None:
                gaps.append([gap_from, at])
                gap_from = None
    return {
        "changes": changes,
        "removed": removed,
        "deaths": deaths,
        "gaps": gaps,
        "values": values_of(samples),
        "last": {pid: keys for pid, keys in states.items() if keys},
    }


def values_of(samples):
    """Per series: how many values, and their sum. A stall total counts as its share of the time since the sample
    before, which must be there."""
    counts = {}

    def add(name, value):
        count = counts.setdefault(name, [0, 0.0])
        count[0] += 1
        count[1] += value

    for source, by_time in samples.items():
        times = sorted(by_time)
        steps = sorted(b - a for a, b in zip(times, times[1:]))
        period = steps[len(steps) // 2] if steps else 0
        for i, time in enumerate(times):
            for metric, value in by_time[time].items():
                if not metric.endswith("_total"):
                    add(f"{source}/{metric}", value)
                    continue
                before = by_time[times[i - 1]].get(metric) if i > 0 else None
                if before is None or value < before or time - times[i - 1] > 2.5 * period:
                    continue
                share = (value - before) / 1000 / (time - times[i - 1]) * 100
                add(f"{source}/{metric[:-6]}_stalled_%", min(share, 100))
    return {name: [count, round(total, 3)] for name, (count, total) in counts.items()}


def fields(data):
    """The fields of a protobuf message: (number, value)."""
    at = 0

    def varint():
        nonlocal at
        value = shift = 0
        while True:
            byte = data[at]
            at += 1
            value |= (byte & 127) << shift
            shift += 7
            if byte < 128:
                return value

    while at < len(data):
        tag = varint()
        kind = tag & 7
        if kind == 0:
            value = varint()
        elif kind == 1:
            value = struct.unpack_from("<d", data, at)[0]
            at += 8
        elif kind == 2:
            size = varint()
            value = data[at : at + size]
            at += size
        else:
            raise ValueError(f"wire type {kind}")
        yield tag >> 3, value


def count_trace(path):
    with open(path, "rb") as file:
        packets = [dict(fields(packet)) for number, packet in fields(file.read()) if number == 1]
    tracks, units, open_slices, last = {}, {}, {}, {}
    slices, instants, disordered, values = 0, 0, 0, {}

    def name_of(uuid):
        track = tracks[uuid]
        name = track.get(2, b"").decode()
        return f"{name_of(track[5])}/{name}" if 5 in track else name

    for packet in packets:
        if 60 in packet:
            track = dict(fields(packet[60]))
            tracks[track[1]] = track
            if 8 in track:
                counter = dict(fields(track[8]))
                units[name_of(track[1])] = [counter.get(3, 0), counter.get(4, 0), counter.get(6, b"").decode()]
        if 11 not in packet:
            continue
        event = dict(fields(packet[11]))
        track = event[11]
        disordered += packet[8] < last.get(track, 0)
        last[track] = packet[8]
        category = event.get(22, b"").decode()
        if event[9] == 1:
            slices += category == "state"
            open_slices[track] = open_slices.get(track, 0) + 1
            disordered += open_slices[track] > 1
        elif event[9] == 2:
            open_slices[track] -= 1
        elif event[9] == 3:
            instants += 1
        else:
            count = values.setdefault(name_of(track), [0, 0.0])
            count[0] += 1
            count[1] += event[44] if 44 in event else event[30]
    return {
        "slices": slices,
        "instants": instants,
        "values": {name: [count, round(total, 3)] for name, (count, total) in values.items()},
        "units": units,
        "disordered": disordered,
        "unclosed": sum(open_slices.values()),
    }


print(json.dumps({"recording": count_recording, "trace": count_trace}[sys.argv[1]](sys.argv[2])))
