"""What goes in comes out: import, ls, info, cat, rm."""

import csv
import io
import math
import struct
import subprocess

import pytest


def rows(text):
    return list(csv.reader(io.StringIO(text)))


def test_a_table_comes_back_as_it_was(vela, drive):
    [run] = vela.json("import", drive, "--into", "lab.dmr", "--run", "first drive")
    assert (run["name"], run["signals"], run["samples"]) == ("first drive", 3, 3)
    tree = vela.json("ls", run["id"], "-r", "lab.dmr")
    assert [(s["name"], s["unit"], s["type"], s["points"], s["from"], s["to"]) for s in tree] == [
        ("speed", "m/s", "double", 3, 0, 1),
        ("gear", "", "int64", 3, 0, 1),
        ("engaged", "", "boolean", 3, 0, 1)]
    assert rows(vela("cat", "speed", "-r", "lab.dmr").stdout) == [
        ["time [s]", "speed [m/s]"], ["0", "1.5"], ["0.5", "nan"], ["1", "2.25"]]
    assert vela.json("cat", "gear", "--from", "0.5", "-r", "lab.dmr") == {
        "axis": "time", "axisUnit": "s", "time": [0.5, 1],
        "signals": [{"name": "gear", "unit": "", "type": "int64", "values": [1, 2]}]}
    facts = vela.json("info", "speed", "-r", "lab.dmr")
    assert (facts["points"], facts["minimum"], facts["maximum"]) == (3, 1.5, 2.25)
    facts = vela.json("info", "--run", run["id"], "-r", "lab.dmr")
    assert facts["source"] == str(drive) and len(facts["source SHA-256"]) == 64


def test_what_cat_prints_can_be_imported_again(vela, drive, tmp_path):
    vela("import", drive, "--into", "lab.dmr")
    (tmp_path / "again.csv").write_text(vela("cat", "speed", "-r", "lab.dmr").stdout)
    vela("import", "again.csv", "--into", "again.dmr")
    assert vela("cat", "speed", "-r", "again.dmr").stdout == vela("cat", "speed", "-r", "lab.dmr").stdout


def read_raw(path):
    """Names and columns of a binary raw file with one real plot, read independently."""
    head, _, body = path.read_bytes().partition(b"Binary:\n")
    lines = head.decode().splitlines()
    count = int(next(l for l in lines if l.startswith("No. Points")).split(":")[1])
    start = next(i for i, l in enumerate(lines) if l.startswith("Variables:"))
    names = [l.split()[1] for l in lines[start + 1:]]
    values = struct.unpack(f"<{count * len(names)}d", body[:8 * count * len(names)])
    return names, [values[i::len(names)] for i in range(len(names))]


def bits(values):
    return [struct.pack("<d", v) for v in values]


def test_a_simulators_numbers_are_kept_bit_for_bit(vela, tmp_path):
    (tmp_path / "rc.cir").write_text(
        "low pass\nV1 in 0 PULSE(0 5 0 1u 1u 1m 2m)\nR1 in out 1k\nC1 out 0 100n\n"
        ".tran 1u 10m\n.end\n")
    subprocess.run(["ngspice", "-b", "-r", "rc.raw", "rc.cir"], cwd=tmp_path, check=True,
                   capture_output=True, timeout=60)
    names, columns = read_raw(tmp_path / "rc.raw")
    times = columns[0]
    [run] = vela.json("import", "rc.raw", "--into", "lab.dmr")
    assert [s["name"] for s in vela.json("ls", run["id"], "-r", "lab.dmr")] == names[1:]
    low, high = times[len(times) // 3], times[len(times) // 2]
    inside = [i for i, t in enumerate(times) if low <= t <= high]
    for name, column in zip(names[1:], columns[1:]):
        whole = rows(vela("cat", name, "-r", "lab.dmr").stdout)[1:]
        assert bits(float(row[0]) for row in whole) == bits(times)
        assert bits(float(row[1]) for row in whole) == bits(column)
        part = rows(vela("cat", name, "--from", repr(low), "--to", repr(high), "-r", "lab.dmr").stdout)[1:]
        assert bits(float(row[1]) for row in part) == bits(column[i] for i in inside)


def test_complex_results_have_two_parts_on_a_frequency_axis(vela, tmp_path):
    (tmp_path / "ac.cir").write_text(
        "low pass\nV1 in 0 AC 1\nR1 in out 1k\nC1 out 0 100n\n.ac dec 3 10 10k\n.end\n")
    subprocess.run(["ngspice", "-b", "-r", "ac.raw", "ac.cir"], cwd=tmp_path, check=True,
                   capture_output=True, timeout=60)
    vela("import", "ac.raw", "--into", "lab.dmr")
    table = rows(vela("cat", "v(out)", "-r", "lab.dmr").stdout)
    assert table[0] == ["frequency [Hz]", "v(out) (real) [V]", "v(out) (imaginary) [V]"]
    for frequency, real, imaginary in table[1:]:
        exact = 1 / (1 + 2j * math.pi * float(frequency) * 1e-4)
        assert complex(float(real), float(imaginary)) == pytest.approx(exact, rel=1e-9)


def test_every_import_is_told_from_the_runs_there_are(vela, tmp_path):
    header = "Title: t\nPlotname: AC Analysis\nFlags: real\nNo. Variables: 2\nNo. Points: 1\nVariables:\n"
    values = "\t0\tfrequency\tfrequency\n\t1\tx\tvoltage\nValues:\n 0\t1\n\t2\n"
    for name in "abc":
        (tmp_path / f"{name}.raw").write_text(header + values)
    vela("import", "a.raw")
    vela("import", "b.raw", "c.raw")
    vela("compare", "1", "c.raw: AC Analysis", "--no-store")
    vela("compare", "AC Analysis", "2")
    runs = sorted((run["number"], run["name"]) for run in vela.json("ls"))
    assert runs[:3] == [(1, "AC Analysis"), (2, "b.raw: AC Analysis"), (3, "c.raw: AC Analysis")]
    assert runs[3][0] == 4


def test_runs_of_every_session_share_the_users_repository(vela, drive):
    vela("ls", status=2)
    vela("import", drive, "--run", "one")
    vela("import", drive, "--run", "two")
    before = vela("ls").stdout
    assert [run["name"] for run in vela.json("ls")] == ["one", "two"]
    assert "two" in vela("cat", "gear", status=2).stderr or "run" in vela("cat", "gear", status=2).stderr
    assert rows(vela("cat", "gear", "--run", "two").stdout)[1] == ["0", "1"]
    assert vela("ls").stdout == before
    vela("rm", "one", status=2)
    vela("rm", "one", "--yes")
    assert [run["name"] for run in vela.json("ls")] == ["two"]
    vela("check", "-r", next((vela.folder / "tmp").glob("tester_*.dmr")))
