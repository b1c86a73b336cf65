"""Runs as mappings of signals: the short way in."""

import io

import numpy as np
import pytest

import vela


@pytest.fixture
def file(path):
    with vela.open(path, "x") as opened:
        yield opened


def test_modes_mean_what_they_mean_for_files(path, tmp_path):
    for mode in ["r", "r+"]:
        with pytest.raises(FileNotFoundError):
            vela.open(path, mode)
    assert not path.exists()
    with vela.open(path, "x") as file:
        file.runs.create("first")
    with pytest.raises(FileExistsError):
        vela.open(path, "x")
    for mode in ["r+", "a"]:
        with vela.open(path, mode) as file:
            file.runs.create(mode)
    with vela.open(path) as file:
        assert list(file.runs) == ["first", "r+", "a"] and file.mode == "r"
        for change in [lambda: file.runs.create("x"), lambda: file.runs.__delitem__("a"),
                       lambda: file.runs["a"].add("s", [0], [1])]:
            with pytest.raises(io.UnsupportedOperation, match="r\\+"):
                change()
    with vela.open(path, "w") as file:
        assert len(file.runs) == 0
        assert file.runs.create("again").number == 1
    with vela.open(tmp_path / "new.dmr", "a") as file:
        assert len(file.runs) == 0
    with pytest.raises(ValueError, match="mode"):
        vela.open(path, "rb")
    with pytest.raises(TypeError):
        vela.open(b"runs.dmr", "w")


def test_emptying_spares_what_is_no_repository(tmp_path):
    notes = tmp_path / "notes.txt"
    notes.write_text("keep me " * 500)
    with pytest.raises(vela.Error):
        vela.open(notes, "w")
    assert notes.read_text() == "keep me " * 500


def test_runs_are_found_by_name_number_and_id(file):
    first, second = file.runs.create("first"), file.runs.create("second")
    assert file.runs["second"] == file.runs[2] == file.runs[second.id] == second
    assert file.runs[np.int32(1)] == first
    assert "first" in file.runs and 2 in file.runs and first.id in file.runs and second in file.runs
    for absent in ["third", 3, -1, 1.5, None, True]:
        assert absent not in file.runs
        with pytest.raises(KeyError):
            file.runs[absent]
    assert list(file.runs) == ["first", "second"] and len(file.runs) == 2
    assert file.runs.values() == [first, second]
    assert dict(file.runs.items()) == {"first": first, "second": second}
    assert file.runs.get("third") is None

    file.runs.create("first")
    with pytest.raises(KeyError, match="numbers 1, 3"):
        file.runs["first"]
    del file.runs[1]
    assert file.runs["first"].number == 3


def test_representations_tell_what_is_there(file):
    file.runs.create("<b>")
    assert repr(file.runs) == "<vela.Runs {1: '<b>'}>"
    assert repr(file.runs[1]) == "<vela.Run 1: '<b>', 0 signals>"
    assert "&lt;b&gt;" in file._repr_html_() and "<b>" not in file.runs._repr_html_()
    assert "<table>" in file.runs[1]._repr_html_()
    assert str(file.path) in repr(file)


def test_representations_never_raise(file):
    run = file.runs.create("r")
    signal, gone = run.add("s", [0], [1.0]), run.add("gone", [0], [1.0])
    file.repository.remove(gone.id)
    assert repr(gone) == f"<vela.Signal {gone.id} removed>"
    file.close()
    assert repr(signal) == f"<vela.Signal {signal.id} closed>" and repr(run) == f"<vela.Run {run.id} closed>"
    assert repr(file.runs) == "<vela.Runs closed>" and "closed" in repr(file)
    assert file._repr_html_() is file.runs._repr_html_() is run._repr_html_() is None


@pytest.mark.parametrize("values", [np.arange(3.0), np.arange(12).reshape(3, 2, 2), np.arange(3) * 1j])
def test_signals_are_arrays_with_a_length(file, values):
    run = file.runs.create("r")
    signal = run.add("s", [0, 1, 2], values)
    assert np.array_equal(np.asarray(signal), values) and len(signal) == 3
    assert np.asarray(signal, dtype=complex).dtype == complex and np.sum(signal) == values.sum()
    signal.rewind(-1)
    assert len(signal) == 0 and signal
    assert file.runs._ipython_key_completions_() == ["r"] and run._ipython_key_completions_() == ["s"]


def test_signals_are_added_read_cut_and_extended(file):
    run = file.runs.create("drive")
    speed = run.add("speed", [0, 1, 2], [1.5, 2.5, 3.5], unit="m/s", interpolation="linear")
    assert run["speed"] == speed and "speed" in run and list(run) == ["speed"] and len(run) == 1
    assert (speed.name, speed.unit, speed.type) == ("speed", "m/s", "double")
    assert speed.interpolation == "linear"
    speed.append([3.0], [4.5])
    assert speed.times.tolist() == [0, 1, 2, 3] and speed.values.tolist() == [1.5, 2.5, 3.5, 4.5]
    times, values = speed.cut(1, 2)
    assert times.tolist() == [1, 2] and values.tolist() == [2.5, 3.5]
    assert len(speed.cut(5, 6).times) == 0
    speed.unit = "km/h"
    assert run[speed.id].unit == "km/h"
    with pytest.raises(vela.DataError):
        speed.append([0.0], [[1, 2]])
    with pytest.raises(KeyError, match="pressure"):
        run["pressure"]
    assert "speed" in run._repr_html_() and "km/h" in repr(speed)


@pytest.fixture
def shapes(file):
    """A run of a plain signal, a matrix, a complex vector and a bus with a matrix in it."""
    run = file.runs.create("shapes")
    run.add("v(out)", [0, 1], [1.0, 2.0])
    run.add("m", [0, 1], np.arange(12.0).reshape(2, 2, 3))
    run.add("z", [0], np.array([[1j, 2]]))
    bus = run.add("bus", [0], [0.0])
    run.add("m", [0], [[7.0, 8.0]], parent=bus)
    return run


def test_signals_are_reached_by_name_element_and_path(shapes):
    shapes.add("v(out)", [0], [9.0], parent=shapes["bus"])
    assert list(shapes) == ["v(out)", "m", "z", "bus"] and len(shapes) == 4
    assert [shapes[name] for name in shapes] == shapes.values()
    matrix = shapes["m"]
    for row, column in np.ndindex(2, 3):
        element = matrix[row + 1, column + 1]
        assert element.values.tolist() == matrix.values[:, row, column].tolist()
        for path in [f"m({row + 1},{column + 1})", element.label, element.path]:
            assert shapes[path] == element
    assert shapes["z"][2].children == [shapes["z.z.z (real)(2)"], shapes["z"][2]["z (imaginary)"]]
    assert shapes["bus.m.m(2)"] == shapes["bus"]["m"][2] and shapes["bus.m.m(2)"].values.tolist() == [8]
    assert shapes["v(out)"].values.tolist() == [1, 2] and shapes["bus.v(out)"].values.tolist() == [9]
    assert shapes[matrix.id] == shapes[matrix] == matrix
    for absent in ["m(0,1)", "m(1,4)", "m(1)", "m.", "m.nothing", "", "\ud800", -1, 2**70, 1.5, None]:
        assert absent not in shapes
    for subscripts in [(0, 1), (3, 1), 1, (1, 1, 1)]:
        with pytest.raises(IndexError, match="from 1"):
            matrix[subscripts]
    with pytest.raises(KeyError, match=r"z \(real\).*z\.z\.z \(real\)\(2\)"):
        shapes["z (real)"]
    with pytest.raises(TypeError, match="subscripts"):
        matrix[:, 1]
    assert shapes.to_pandas(raster=1.0).columns.tolist()[:3] == ["v(out)", "m(1,1)", "m(2,1)"]


def test_kept_comparisons_are_reached_by_name(file, shapes):
    comparison = vela.compare(shapes, shapes, store=True)
    kept = file.runs[comparison.run_id]
    assert [kept[name] for name in kept] == kept.values()
    assert kept["v(out)"]["Difference of v(out)"].values.tolist() == [0, 0]
    assert kept["m(2,3)"]["Tolerance of m(2,3)"].times.tolist() == [0, 1]
    assert all(shapes[row["path"]].id == row["baseline"] for row in comparison.rows)


def test_reading_one_name_is_one_query(file):
    class Counting:
        calls = 0

        def __getattr__(self, name):
            self.calls += 1
            return getattr(file.repository, name)

    run = file.runs.create("many")
    for index in range(50):
        run.add(f"s{index}", [0], [index])
    run._repository = counting = Counting()
    assert [run[f"s{index}"].name for index in range(50)][-1] == "s49"
    assert counting.calls == 50
    run._repository = file.runs._repository = counting
    counting.calls = 0
    assert file.runs["many"] and file.runs[1] and counting.calls < 10


@pytest.mark.parametrize("values", [np.arange(5.0), np.arange(20.0).reshape(5, 2, 2), np.arange(5) + 1j])
def test_stored_samples_are_dropped_on_request_only(file, values):
    signal = file.runs.create("late").add("s", range(5), values)
    for times, rewind in [([2, 2.5], False), ([3, 2], True)]:
        with pytest.raises(vela.DataError):
            signal.append(times, values[:2], rewind=rewind)
        assert signal.times.tolist() == [0, 1, 2, 3, 4] and np.array_equal(signal.values, values)
    signal.append([4], values[:1])
    assert signal.times.tolist() == [0, 1, 2, 3, 4, 4]
    signal.append([2, 2.5], values[:2], rewind=True)
    assert signal.times.tolist() == [0, 1, 2, 2.5] and np.array_equal(signal.values[2:], values[:2])
    signal.rewind(2)
    assert signal.times.tolist() == [0, 1]
    signal.rewind(-1)
    signal.append([-7], values[:1])
    assert signal.times.tolist() == [-7]


@pytest.mark.parametrize("values", [
    np.arange(12.0).reshape(3, 4), np.arange(12).reshape(3, 2, 2), np.array([1 + 2j, 3, 4j]),
    np.array([True, False, True]), np.arange(3, dtype=np.uint8),
])
def test_values_of_any_shape_come_back(file, values):
    signal = file.runs.create("shapes").add("s", [0, 1, 2], values)
    assert signal.values.shape == values.shape and signal.values.dtype == values.dtype
    assert np.array_equal(signal.values, values)


def test_frames_need_one_time_base_or_a_raster(file):
    pandas = pytest.importorskip("pandas")
    run = file.runs.create("frames")
    run.add("a", [0, 1, 2], [0.0, 10.0, 20.0], interpolation="linear")
    run.add("b", [0, 1, 2], [1, 2, 3], interpolation="zoh")
    frame = run.to_pandas()
    assert frame.columns.tolist() == ["a", "b"] and frame.index.name == "time"
    assert frame["b"].tolist() == [1, 2, 3] and frame["b"].dtype == np.int64

    run.add("late", [0.5, 2.5], [5.0, 7.0], interpolation="zoh")
    with pytest.raises(ValueError, match="'late' have different times.*raster"):
        run.to_pandas()
    frame = run.to_pandas(raster=0.5)
    assert frame.index.tolist() == [0, 0.5, 1, 1.5, 2, 2.5]
    assert frame["a"].tolist()[:5] == [0, 5, 10, 15, 20] and np.isnan(frame["a"].iloc[5])
    assert frame["b"].tolist()[:5] == [1, 1, 2, 2, 3]
    assert np.isnan(frame["late"].iloc[0]) and frame["late"].tolist()[1:] == [5, 5, 5, 5, 7]
    assert run.to_pandas(raster=[1.0, 2.0])["a"].tolist() == [10, 20]
    for bad in [0, -1, float("nan")]:
        with pytest.raises(ValueError):
            run.to_pandas(raster=bad)

    series = run["a"].to_pandas()
    assert series.name == "a" and series.index.tolist() == [0, 1, 2]
    assert isinstance(series, pandas.Series)


def test_optional_inputs_may_be_skipped_by_name(file):
    signal = file.runs.create("skips").add("s", [0, 1, 2], [5.0, 6.0, 7.0])
    read = file.repository.getSignalDataValues
    assert read(signal.id, endTime=1.0).tolist() == [5, 6]
    assert read(signal.id, None, 1.0).tolist() == [6, 7]
    assert read(signal.id, withTimes=True)["Time"].tolist() == [0, 1, 2]
