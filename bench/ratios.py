"""Prints a table of benchmark times and of Vela's time as a multiple of each neighbour's.

Usage: ratios.py RESULTS.json, the output of --benchmark_out_format=json. With repetitions the
median counts.
"""

import json
import re
import sys

NAME = re.compile(r"(?P<measurement>\w+)<(?P<store>\w+)>(?P<arguments>.*)")
NANOSECONDS = {"ns": 1, "us": 1e3, "ms": 1e6, "s": 1e9}
NEIGHBOURS = ("Sqlite", "Hdf5")


def times_by_measurement(results):
    """Real times in nanoseconds: {measurement: {store: time}}, in the order of the run."""
    times = {}
    for result in results["benchmarks"]:
        if result.get("error_occurred"):
            sys.exit(f"{result['name']}: {result['error_message']}")
        if result.get("aggregate_name", "median") != "median":
            continue
        name = NAME.match(result["run_name"])
        arguments = re.sub(r"/(real_time|iterations:\d+|repeats:\d+)", "", name["arguments"])
        stores = times.setdefault(name["measurement"] + arguments.replace("/", " "), {})
        stores[name["store"]] = result["real_time"] * NANOSECONDS[result["time_unit"]]
    return times


def readable(nanoseconds):
    for unit in ("s", "ms", "us"):
        if nanoseconds >= NANOSECONDS[unit]:
            return f"{nanoseconds / NANOSECONDS[unit]:.3g} {unit}"
    return f"{nanoseconds:.3g} ns"


def main(path):
    with open(path, encoding="utf-8") as file:
        results = json.load(file)
    context = results["context"]
    print(f"{context['num_cpus']} x {context['mhz_per_cpu']} MHz, {context['date'][:10]}\n")
    print("| measurement | Vela | SQLite | ratio | HDF5 | ratio |")
    print("| --- | ---: | ---: | ---: | ---: | ---: |")
    for measurement, stores in times_by_measurement(results).items():
        vela = stores.get("Vela")
        cells = [measurement, readable(vela) if vela else ""]
        for neighbour in NEIGHBOURS:
            other = stores.get(neighbour)
            cells.append(readable(other) if other else "")
            cells.append(f"{vela / other:.2f}" if vela and other else "")
        print("| " + " | ".join(cells) + " |")


if __name__ == "__main__":
    if len(sys.argv) != 2:
        sys.exit(__doc__)
    main(sys.argv[1])
