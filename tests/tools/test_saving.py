"""Runs saved to a data file and loaded again; the file read as another program would, by the description's own reader."""

import os
import pathlib
import re
import subprocess

import h5py
import numpy
import pytest


def cat(vela, signal, repository):
    return vela("cat", signal, "-r", repository).stdout


def test_saved_runs_come_back_and_can_be_loaded_twice(vela, drive, tmp_path):
    vela("import", drive, "--into", "lab.dmr", "--run", "drive")
    saved = vela.json("save", "lab.dat", "-r", "lab.dmr")
    assert saved == {"file": "lab.dat", "runs": 1, "signals": 3, "bytes": (tmp_path / "lab.dat").stat().st_size}
    assert vela.json("load", "lab.dat", "--into", "copy.dmr") == {"file": "lab.dat", "runs": 1, "signals": 3}
    assert vela("load", "lab.dat", "--into", "copy.dmr").stderr == "loaded 1 run into copy.dmr\n"
    runs = vela.json("ls", "-r", "copy.dmr")
    assert [(run["name"], run["number"], run["signals"]) for run in runs] == [("drive", 1, 3), ("drive", 2, 3)]
    vela("rm", runs[0]["id"], "--yes", "-r", "copy.dmr")
    for signal in ("speed", "gear", "engaged"):
        assert cat(vela, signal, "copy.dmr") == cat(vela, signal, "lab.dmr")
    vela("check", "-r", "copy.dmr")


def test_what_was_not_saved_is_refused_and_leaves_no_repository(vela, drive, tmp_path):
    vela("import", drive, "--into", "lab.dmr")
    vela("save", "lab.dat", "-r", "lab.dmr")
    whole = (tmp_path / "lab.dat").read_bytes()
    (tmp_path / "text.dat").write_text("no data file")
    (tmp_path / "cut.dat").write_bytes(whole[:-1])
    (tmp_path / "flipped.dat").write_bytes(whole[:5000] + bytes([whole[5000] ^ 1]) + whole[5001:])
    with h5py.File(tmp_path / "foreign.dat", "w") as file:
        file["x"] = [1.0]
    for name in ("text.dat", "cut.dat", "flipped.dat", "foreign.dat", "absent.dat"):
        done = vela("load", name, "--into", "new.dmr", status=2)
        assert name in done.stderr and done.stderr.count("\n") == 1
    assert not list(tmp_path.glob("new.dmr*"))


def test_trace_tells_what_is_slow_beside_the_data(vela, drive):
    vela("import", drive, "--into", "lab.dmr")
    plain = vela("cat", "speed", "-r", "lab.dmr")
    assert plain.stderr == ""
    for words in (["--trace", "cat", "speed", "-r", "lab.dmr"], ["cat", "speed", "-r", "lab.dmr", "--trace"]):
        traced = vela(*words)
        assert traced.stdout == plain.stdout
        lines = traced.stderr.splitlines()
        assert lines[0].split() == ["TOTAL", "[ms]", "CALLS", "AVERAGE", "[ms]", "STATEMENT"]
        totals = [float(line.split()[0]) for line in lines[1:]]
        assert totals[:-1] == sorted(totals[:-1], reverse=True)
        assert any("SELECT" in line for line in lines)


@pytest.fixture
def describedreader():
    """The reader printed in the description of the file format."""
    text = pathlib.Path(os.environ["FILE_FORMAT"]).read_text()
    [code] = re.findall(r"```python\n(.*?)```", text, re.DOTALL)
    names = {}
    exec(code, names)
    return names


def test_the_description_is_enough_to_read_a_file(vela, drive, tmp_path, describedreader):
    vela("import", drive, "--into", "lab.dmr", "--run", "drive")
    vela("save", "lab.dat", "-r", "lab.dmr")
    variables = describedreader["read"](str(tmp_path / "lab.dat"))
    assert list(variables["NexDescriptor"]) == ["Version", "DatabaseID"]
    assert re.match(r"\d+\.\d+\.\d+", variables["NexDescriptor"]["Version"])
    objects = {}
    for name, header in variables.items():
        if name.startswith("header"):
            data = variables["data" + name[len("header"):]]
            objects.setdefault(header["Type"], []).append((int(header["ID"]), data))
    [(run, data)] = objects["DataSet"]
    assert data["UName"] == "drive" and data["Visible"] == 1
    signals = {data["Name"]: data for _, data in objects["Signal"]}
    assert sorted(signals) == ["engaged", "gear", "speed"]
    assert all(signal["FK_SetID"] == run for signal in signals.values())
    types = dict(objects["DataType"])
    for name, dtype, expected in (("speed", "<f8", [1.5, numpy.nan, 2.25]), ("gear", "<i8", [1, 1, 2]),
                                  ("engaged", "?", [True, True, False])):
        signal = signals[name]
        assert types[int(signal["FK_DataTypeID"]["ID"])]["Name"] == {"<f8": "double", "<i8": "int64", "?": "boolean"}[dtype]
        [chunk] = signal["Chunk"]
        assert (chunk["Type"], chunk["data"]["NumPoints"]) == ("Chunk", 3)
        numpy.testing.assert_array_equal(chunk["data"]["TimeChunk"]["BlobData"].ravel(), [0, 0.5, 1])
        values = chunk["data"]["DataChunk"]["BlobData"].ravel().view(dtype)
        numpy.testing.assert_array_equal(values, expected)
    damaged = bytearray((tmp_path / "lab.dat").read_bytes())
    damaged[-1] ^= 1
    (tmp_path / "damaged.dat").write_bytes(damaged)
    with pytest.raises(ValueError):
        describedreader["read"](str(tmp_path / "damaged.dat"))


def test_a_save_that_is_killed_leaves_the_old_file(vela, drive, tmp_path):
    vela("import", drive, "--into", "lab.dmr")
    vela("save", "lab.dat", "-r", "lab.dmr")
    old = (tmp_path / "lab.dat").read_bytes()
    for milliseconds in range(1, 40, 4):
        process = subprocess.Popen([os.environ["VELA"], "save", "lab.dat", "-r", "lab.dmr"], cwd=tmp_path,
                                   env=vela.environment, stderr=subprocess.DEVNULL)
        try:
            process.wait(milliseconds / 1000)
        except subprocess.TimeoutExpired:
            process.kill()
            process.wait()
        assert len((tmp_path / "lab.dat").read_bytes()) == len(old)
        vela("load", "lab.dat", "--into", f"copy{milliseconds}.dmr")
