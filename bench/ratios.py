#!/usr/bin/env python3
"""Prints how a benchmark compares with its baselines measured in the same run.

    ratios.py RESULTS.json...

RESULTS are Google Benchmark JSON outputs (--benchmark_out_format=json). A row is
printed for every measured benchmark that a comparison below names, with its time
divided by the time of each baseline that has the same arguments (the part of the
name after the first '/'). Ratios, not times, are what the targets are stated in:
times on these machines swing with load, ratios from one run much less.
"""

import json
import sys

# measured benchmark -> (baseline, target ratio or None)
COMPARISONS = {
    "ExchangeRoundTrip": [("RawPair1RoundTrip", 2.2), ("RawReqRepRoundTrip", None), ("NngDeviceRoundTrip", None)],
    "NngDeviceRoundTrip": [("RawPair1RoundTrip", None)],
    "Pair1ForwarderRoundTrip": [("RawPair1RoundTrip", None)],
}


def load(paths):
    """(benchmark, arguments) -> real time: the median where repetitions were run."""
    single, median = {}, {}
    for path in paths:
        with open(path, encoding="utf-8") as f:
            for row in json.load(f).get("benchmarks", []):
                if "error_occurred" in row:
                    continue
                run = row.get("run_name", row["name"])
                if run.endswith("/real_time"):
                    run = run[: -len("/real_time")]
                name, _, arguments = run.partition("/")
                if row.get("run_type", "iteration") == "iteration":
                    single[(name, arguments)] = float(row["real_time"])
                elif row.get("aggregate_name") == "median":
                    median[(name, arguments)] = float(row["real_time"])
    single.update(median)
    return single


def main(paths):
    if not paths:
        print(__doc__.strip(), file=sys.stderr)
        return 2
    times = load(paths)
    missed = False
    for (name, arguments), time in sorted(times.items()):
        for baseline, target in COMPARISONS.get(name, []):
            base = times.get((baseline, arguments))
            if not base:
                continue
            ratio = time / base
            verdict = ""
            if target is not None:
                verdict = f"  (target <= {target}: {'met' if ratio <= target else 'MISSED'})"
                missed = missed or ratio > target
            print(f"{name}/{arguments} / {baseline}: {ratio:.2f}{verdict}")
    return 1 if missed else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
