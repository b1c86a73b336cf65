"""What a file that the command writes may take the place of."""

import contextlib
import hashlib
import os
import sqlite3

import pytest

VERBS = {"save": ["save", "{}", "-r", "lab.dmr"], "compare": ["compare", "drive.csv", "drive.csv", "--junit", "{}"]}


def fingerprint(folder):
    def content(path):
        if path.is_symlink():
            return os.readlink(path)
        return hashlib.sha256(path.read_bytes()).hexdigest() if path.is_file() else "folder"
    # Looking at a repository renews the index beside it.
    return {str(path): content(path) for path in folder.rglob("*") if not path.name.endswith("-shm")}


def garbled(path, begin, end):
    data = bytearray(path.read_bytes())
    data[begin:end] = os.urandom(end - begin)
    path.write_bytes(data)


@pytest.fixture
def targets(vela, drive, tmp_path):
    """Names that must not be written to, whatever is said."""
    for name in ("lab.dmr", "moved.dmr", "garbled.dmr", "dead.bin", "unmade", "cut.dmr"):
        vela("import", drive, "--into", name)
    for name in ("garbled.dmr", "dead.bin"):
        garbled(tmp_path / name, 0, 200)
    (tmp_path / "unmade").write_bytes(b"")
    (tmp_path / "cut.dmr").write_bytes((tmp_path / "lab.dmr").read_bytes()[:5000])
    for side in [*tmp_path.glob("moved.dmr-*"), *tmp_path.glob("garbled.dmr-*"), *tmp_path.glob("cut.dmr-*")]:
        side.unlink()
    (tmp_path / "moved.dmr").rename(tmp_path / "moved")
    (tmp_path / "link").symlink_to("lab.dmr")
    (tmp_path / "nowhere").symlink_to("absent")
    (tmp_path / "folder").mkdir()
    os.mkfifo(tmp_path / "pipe")
    with contextlib.closing(sqlite3.connect(tmp_path / "foreign")) as database:
        database.execute("CREATE TABLE t(x)")
    return ["lab.dmr", "moved", "garbled.dmr", "dead.bin", "unmade", "cut.dmr", "link", "nowhere", "folder", "pipe",
            "foreign", "folder/", "new.dmr-wal", "absent/../lab.dat", "absent/lab.dat",
            *(base + side for base in ("lab.dmr", "unmade") for side in ("-wal", "-shm", "-journal", "-lock"))]


@pytest.mark.parametrize("verb", VERBS)
def test_nothing_is_written_over_a_repository_a_file_beside_one_a_link_or_a_folder(vela, tmp_path, targets, verb):
    with contextlib.closing(sqlite3.connect(tmp_path / "lab.dmr")) as living:
        living.execute("SELECT count(*) FROM sqlite_master").fetchall()
        before = fingerprint(tmp_path)
        for target in targets:
            for force in ([], ["--force"]):
                words = [word.format(target) for word in VERBS[verb]]
                done = vela(*words, *force, status=2)
                assert f'"{target}"' in done.stderr and done.stdout == ""
                assert fingerprint(tmp_path) == before, words


@pytest.mark.parametrize("verb", VERBS)
def test_a_file_of_another_kind_is_replaced_when_asked_to(vela, drive, tmp_path, verb):
    vela("import", drive, "--into", "lab.dmr")
    target = tmp_path / "out"
    words = [word.format("out") for word in VERBS[verb]]
    for content in (None, b""):
        if content is not None:
            target.write_bytes(content)
        vela(*words)
        vela(*words)  # its like is replaced
        assert target.stat().st_size > 0
    target.write_text("notes\n")
    assert "--force" in vela(*words, status=2).stderr
    assert target.read_text() == "notes\n"
    vela(*words, "--force")
    assert target.read_bytes() != b"notes\n"
    assert not [*tmp_path.glob("*.part"), *tmp_path.glob("*.tmp")]
