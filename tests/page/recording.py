"""Writes the recording of ten minutes of a busy machine, for the tests of every view (docs/recording.md is its form):
300 processes with 20 keys each, deaths, a service that is away from second 200 to 220 and has forgotten everything
afterwards, and histories with stall totals, samples without values and counters that restart.

  recording.py FILE
"""

import json
import math
import random
import sys

SECONDS, PROCESSES, KEYS, PID = 600, 300, 20, 1000
AWAY_FROM, AWAY_TO = 200, 220
BOOT, WALL = 5_000_000, 1_790_000_000_000


def write(path, hostile=()):
    """Process PID has the keys `hostile` beside its screen and dies at the end. Returns the last two minutes' changes
    of its screen, and how many processes are known at the end. The same text at every call."""
    number = random.Random(7).randrange
    states = {PID + i: {f"key {k}": f"value {i} {k}" for k in range(KEYS)} for i in range(1, PROCESSES)}
    states[PID] = {"screen": "home", **dict(hostile)}
    died, samples, stall, changes = {}, {}, 1_000_000, 0

    with open(path, "w", encoding="utf-8") as file:
        put = lambda line: file.write(json.dumps(line) + "\n")
        put({"format": "diagnostics-recording", "version": 1, "machine": "<i>machine</i>"})
        for second in range(1, SECONDS + 1):
            at = BOOT + second * 1000
            clocks = {"boot_ms": at, "monotonic_ms": at - 500, "wall_ms": WALL + second * 1000}
            changed = {pid: dict.fromkeys(states.pop(pid)) for pid, when in died.items() if second - when == 71 and pid in states}

            def publish(pid, key, value):
                states.setdefault(pid, {})[key] = value
                changed.setdefault(pid, {})[key] = value

            if AWAY_FROM < second < AWAY_TO:
                if second % 10 == 1:
                    put({"at": BOOT + AWAY_FROM * 1000, "gap": "the service is not running"})
                continue
            if second == AWAY_TO:
                samples.clear()
                states.clear()
                for pid in range(PID, PID + PROCESSES, 2):
                    if pid not in died:
                        publish(pid, "key 0", f"again {second}")
                states[PID] = {"screen": "home", **dict(hostile)}
            for _ in range(30):
                pid = PID + 1 + number(PROCESSES - 1)
                if pid not in died:
                    publish(pid, f"key {number(KEYS)}", f"at {second} <of> {number(5)}")
            if second % 5 == 0:
                publish(PID, "screen", f"screen {second}")
                changes += second >= SECONDS - 120
            starting = second in (1, AWAY_TO)
            put({"clocks": clocks, "processes": states} if starting or second % 60 == 0 else {"at": at, "changed": changed})
            if second == 1:
                put({"at": at, "names": {PID: "phötos </title>"}})
            if second % 50 == 0:
                died[PID + second // 50 if second < SECONDS else PID] = second
                put({"at": at, "dead": [list(died)[-1]]})

            stall = 5 if second == 400 else stall + number(900_000)
            wave = round(50 + 40 * math.sin(second / 7), 2)
            new = {
                "psi_cpu_history": {"some_avg10": 1.25, "some_total": stall, "full_total": stall // 2} if second % 97 else {},
                "gpu_utilization_history": {"GpuUtilization_%": wave},
                "battery_state_history": {"BatteryCharge_%": 70.0},
                "system_meminfo_history": {"MemTotal_KB": 8_000_000, "MemFree_KB": number(8_000_000), "MemAvail_%": 60.5},
            }
            if second % 2 == 0:
                new["cpu_utilization_history"] = {"CpuUtilization_%": 100 - wave}
            for source, values in new.items():
                samples.setdefault(source, []).insert(0, (at - 500, values))
                del samples[source][60:]
            if starting or second % 30 == 0:
                context = {"build_fingerprint": "<b>build</b>"}
                for source, ring in samples.items():
                    series = [{"dt_ms": at - 500 - time, "v": values} for time, values in ring]
                    context[source] = json.dumps({"version": "1.0", "report_time_ms": at - 500, "time_series": series})
                put({"clocks": clocks, "context": context})
    return changes, len(states)


if __name__ == "__main__":
    write(sys.argv[1])
