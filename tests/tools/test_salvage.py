"""Damaged repositories: what the command says of them and what it brings back."""

import hashlib
import os
import sqlite3

PAGE = 16384


def damage(path, page):
    data = bytearray(path.read_bytes())
    data[page * PAGE:(page + 1) * PAGE] = os.urandom(PAGE)
    path.write_bytes(data)


def page_of_table(path, name):
    with sqlite3.connect(f"file:{path}?immutable=1", uri=True) as database:
        return database.execute("SELECT rootpage FROM sqlite_master WHERE name GLOB ?", (f"t[0-9]*_{name}",)).fetchone()[0]


def test_a_whole_file_comes_back_whole(vela, drive, tmp_path):
    vela("import", drive, "--into", "lab.dmr")
    before = hashlib.sha256((tmp_path / "lab.dmr").read_bytes()).hexdigest()
    done = vela.json("salvage", "lab.dmr", "--into", "new.dmr")
    assert done["losses"] == [] and [(run["name"], run["signals"]) for run in done["runs"]] == [("drive", 3)]
    assert [run["name"] for run in vela.json("ls", "-r", "new.dmr")] == ["drive"]
    for signal in ("speed", "gear", "engaged"):
        assert vela("cat", signal, "-r", "new.dmr").stdout == vela("cat", signal, "-r", "lab.dmr").stdout
    with sqlite3.connect(tmp_path / "new.dmr") as database:
        [(table,)] = database.execute("SELECT tablename FROM kodd_classes WHERE name='vela.InstanceID'")
        assert [row[2] for row in database.execute(f"SELECT * FROM {table}")] == [1], "the instance is closed"
    assert hashlib.sha256((tmp_path / "lab.dmr").read_bytes()).hexdigest() == before
    assert list((tmp_path / "tmp").iterdir()) == []


def test_a_loss_is_told_and_makes_exit_code_3(vela, drive, tmp_path):
    vela("import", drive, "--into", "lab.dmr")
    damage(tmp_path / "lab.dmr", page_of_table(tmp_path / "lab.dmr", "vela_DataChunk") - 1)
    done = vela("salvage", "lab.dmr", "--into", "new.dmr", status=3)
    assert 'signal "speed" of run "drive" lost 1' in done.stderr and "drive" in done.stdout
    assert "lost" not in vela("salvage", "lab.dmr", "--into", "quiet.dmr", "--quiet", status=3).stderr
    losses = vela.json("salvage", "lab.dmr", "--into", "json.dmr", status=3)["losses"]
    assert {(loss["run"], loss["signal"], loss["chunks"]) for loss in losses} == {
        ("drive", "speed", 1), ("drive", "gear", 1), ("drive", "engaged", 1)}
    assert [signal["points"] for signal in vela.json("ls", "drive", "-r", "new.dmr")] == [0, 0, 0]
    vela("check", "-r", "new.dmr")


def test_where_nothing_can_be_read_nothing_is_made(vela, drive, tmp_path):
    vela("import", drive, "--into", "lab.dmr")
    for table in ("vela_DataSet", "vela_Signal"):
        damage(tmp_path / "lab.dmr", page_of_table(tmp_path / "lab.dmr", table) - 1)
    assert "lab.dmr" in vela("salvage", "lab.dmr", "--into", "new.dmr", status=2).stderr
    (tmp_path / "text.dmr").write_text("no repository\n" * 100)
    vela("salvage", "text.dmr", "--into", "new.dmr", status=2)
    vela("salvage", "missing.dmr", "--into", "new.dmr", status=2)
    assert not (tmp_path / "new.dmr").exists()


def test_a_file_is_not_salvaged_into_itself(vela, drive):
    vela("import", drive, "--into", "lab.dmr")
    assert "itself" in vela("salvage", "lab.dmr", "--into", "./lab.dmr", status=2).stderr
    assert len(vela.json("ls", "-r", "lab.dmr")) == 1


def test_a_shared_file_set_aside_is_told_of_and_can_be_salvaged(vela, drive, tmp_path):
    vela("import", drive)
    vela("ls")  # writes the log into the file
    [shared] = (tmp_path / "tmp").glob("tester*.dmr")
    assert (tmp_path / "tmp" / (shared.name + "-wal")).stat().st_size == 0
    # The list of tables cannot be read, though the header looks well.
    data = bytearray(shared.read_bytes())
    data[100:PAGE] = os.urandom(PAGE - 100)
    shared.write_bytes(data)

    done = vela("import", drive, "--quiet")
    assert "could not be opened" in done.stderr and "vela salvage" in done.stderr
    [aside] = (tmp_path / "tmp").glob("tester*.quarantine-*/tester*.dmr")
    assert str(aside.parent) in done.stderr
    assert vela("ls").stderr == ""
    vela("salvage", aside)
    assert len(vela.json("ls")) == 2
