"""The Python package beside the C++ library and beside sqlite3's own module.

Usage: python_bench.py [--samples N] [--cpp CPP_BENCHMARKS.json]

With the results of `vela_bench --benchmark_out=...` of the same machine and build, ratios to C++ are
printed too. Times are the best of several rounds.
"""

import argparse
import json
import pathlib
import sqlite3
import tempfile
import time

import numpy as np

import vela


def best(work, rounds=5):
    """Seconds of the fastest round."""
    times = []
    for _ in range(rounds):
        started = time.perf_counter()
        work()
        times.append(time.perf_counter() - started)
    return min(times)


def getter(repo, calls=20_000):
    """One read of a property."""
    run = repo.createRun("getter")
    get = repo.getRunTag

    def work():
        for _ in range(calls):
            get(run)

    return best(work) / calls


def new_signal(repo):
    return repo.createDoubleScalarSignal(repo.createRun("bench"))


def append_blocks(repo, blocks=1000, block=1000):
    """One append of 1,000 doubles."""
    signal = new_signal(repo)
    times = np.arange(blocks * block, dtype=np.float64)
    values = np.sin(times)

    def work():
        for first in range(0, len(times), block):
            part = slice(first, first + block)
            repo.appendSignalData(signal, times[part], values[part])

    return best(work, rounds=1) / blocks


def read_all(repo, samples):
    """A read of all samples of a signal."""
    signal = new_signal(repo)
    times = np.arange(samples, dtype=np.float64)
    repo.appendSignalData(signal, times, times)
    return best(lambda: repo.getSignalDataValues(signal))


def append_singly(repo, samples):
    """Appends of one sample each, inside one transaction."""
    signal = new_signal(repo)

    def work():
        for index in range(samples):
            repo.appendSignalData(signal, float(index), 1.5)

    return best(lambda: repo.safeTransaction(work), rounds=1) / samples


def insert_singly(folder, samples):
    """The same with one INSERT a sample."""
    database = sqlite3.connect(folder / "neighbour.db", isolation_level=None)
    database.execute("CREATE TABLE sample (signal INTEGER, time REAL, value REAL)")

    def work():
        database.execute("BEGIN")
        for index in range(samples):
            database.execute("INSERT INTO sample VALUES (?, ?, ?)", (1, float(index), 1.5))
        database.execute("COMMIT")

    seconds = best(work, rounds=1) / samples
    database.close()
    return seconds


def cpp_seconds(path, start):
    """The time per iteration of the C++ benchmark whose name starts so; None when it was left out."""
    units = {"ns": 1e-9, "us": 1e-6, "ms": 1e-3, "s": 1}
    for result in json.loads(path.read_text())["benchmarks"]:
        if result["name"].startswith(start):
            return result["real_time"] * units[result["time_unit"]]
    return None


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--samples", type=int, default=10_000_000, help="of the full read")
    parser.add_argument("--singles", type=int, default=100_000, help="appends of one sample")
    parser.add_argument("--cpp", type=pathlib.Path, help="results of vela_bench")
    arguments = parser.parse_args()

    print("| measurement | Python | neighbour | ratio |\n| --- | ---: | ---: | ---: |")

    def show(what, seconds, neighbour=None):
        other = f"{neighbour * 1e6:.3g} us | {seconds / neighbour:.2f}" if neighbour else "|"
        print(f"| {what} | {seconds * 1e6:.3g} us | {other} |")

    with tempfile.TemporaryDirectory(prefix="vela-bench-") as name:
        folder = pathlib.Path(name)
        with vela.Repository(folder / "bench.dmr") as repo:

            def cpp(start, calls):
                seconds = arguments.cpp and cpp_seconds(arguments.cpp, start)
                return seconds and seconds / calls

            show("getter", getter(repo), cpp("getProperty<Vela>", 1))
            show("append 1000", append_blocks(repo),
                 cpp("appendBlocks<Vela>/samples:10000000/block:1000/", 10_000))
            show(f"read {arguments.samples}", read_all(repo, arguments.samples),
                 cpp("readAll<Vela>/samples:10000000/block:10000000/", 10_000_000 / arguments.samples))
            show("append 1", append_singly(repo, arguments.singles), insert_singly(folder, arguments.singles))


if __name__ == "__main__":
    main()
