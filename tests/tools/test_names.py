"""Signals reached by name, path and ID."""

import contextlib
import csv
import io
import sqlite3

import numpy
import pytest

vela_package = pytest.importorskip("vela")


@pytest.fixture
def lab(vela, tmp_path):
    """A run with a matrix, a complex signal and two buses whose elements share a name."""
    vela.environment["VELA_REPOSITORY"] = "lab.dmr"
    with vela_package.open(str(tmp_path / "lab.dmr"), "w") as file:
        run = file.runs.create("one")
        times = [0.0, 1.0]
        run.add("m", times, numpy.arange(8.0).reshape(2, 2, 2))
        run.add("v(out)", times, numpy.array([1 + 2j, 3 + 4j]))
        run.add("single", times, [5.0, 6.0])
        for name in ("left", "right"):
            bus = run.add(name, times, [0.0, 0.0])
            run.add("x", times, [7.0, 8.0], parent=bus)
        run.add("twice", times, [9.0, 9.0])
        run.add("twice", times, [9.0, 9.0])
    return vela


def columns(vela, *words):
    return list(zip(*csv.reader(io.StringIO(vela("cat", *words).stdout))))


def test_a_matrix_is_printed_element_by_element_and_each_is_reached_by_name(lab):
    assert columns(lab, "m") == [("time [s]", "0", "1"), ("m(1,1)", "0", "4"), ("m(2,1)", "2", "6"),
                                 ("m(1,2)", "1", "5"), ("m(2,2)", "3", "7")]
    assert columns(lab, "m(2,1)")[1:] == [("m(2,1)", "2", "6")]
    assert [signal["name"] for signal in lab.json("ls", "one")].count("m(1,2)") == 1
    assert len(columns(lab, "v(out)")) == 3


def test_elements_of_buses_are_reached_by_path(lab):
    assert columns(lab, "left.x")[1:] == [("x", "7", "8")]
    advice = lab("cat", "x", status=2).stderr
    assert "(left.x)" in advice and "(right.x)" in advice and "the path" in advice and "--run" not in advice
    advice = lab("cat", "twice", status=2).stderr
    assert "Give the ID." in advice
    assert "no signal" in lab("cat", "left.y", status=2).stderr


def test_comparisons_take_no_names_away(lab):
    for name in ("m", "v(out)", "single"):
        before = lab("cat", name).stdout
        lab("compare", 1, 1)
        assert lab("cat", name).stdout == before
    comparison = next(run["id"] for run in lab.json("ls") if run["name"].startswith("Comparison"))
    assert len(columns(lab, "single", "--run", comparison)) > 1
    lab("cp", "one", "--name", "two")
    assert "--run" in lab("cat", "single", status=2).stderr


def test_a_circle_of_parents_is_told(lab, tmp_path):
    left, x = [signal["id"] for signal in lab.json("ls", "one") if signal["name"] in ("left", "x")][:2]
    with contextlib.closing(sqlite3.connect(tmp_path / "lab.dmr")) as database, database:
        [(number, table)] = database.execute("SELECT class, tablename FROM kodd_classes WHERE name='vela.Signal'")
        [(column,)] = database.execute(
            "SELECT columnname FROM kodd_properties WHERE class=? AND name='FK_Parent'", (number,))
        database.execute(f"UPDATE {table} SET {column}=? WHERE id=?", (x, left))
    assert "below itself" in lab("cat", left, status=2).stderr
    lab("ls", "one")
    lab("info", left)
    lab("cat", "single")
