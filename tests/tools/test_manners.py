"""How the command behaves: exit codes, refusals, what goes where."""

import fcntl
import hashlib
import os
import shlex
import signal
import sqlite3
import struct
import subprocess
import time

import pytest


def fingerprint(folder):
    return {str(path.relative_to(folder)): hashlib.sha256(path.read_bytes()).hexdigest() if path.is_file() else "folder"
            for path in sorted(folder.rglob("*"))}


def make_text(path, vela, drive):
    path.write_text("not a repository\n" * 100)


def make_foreign(path, vela, drive):
    with sqlite3.connect(path) as database:
        database.execute("CREATE TABLE t(x)")
    database.close()


def make_foreign_wal(path, vela, drive):
    database = sqlite3.connect(path)
    database.execute("PRAGMA journal_mode=WAL")
    database.execute("CREATE TABLE t(x)")
    database.commit()
    database.close()


def make_folder(path, vela, drive):
    path.mkdir()


def make_truncated(path, vela, drive):
    vela("import", drive, "--into", path)
    path.write_bytes(path.read_bytes()[:-40_000])


def make_garbled(path, vela, drive):
    vela("import", drive, "--into", path)
    data = bytearray(path.read_bytes())
    data[0:64] = os.urandom(64)
    path.write_bytes(data)


@pytest.mark.parametrize("make", [make_text, make_foreign, make_foreign_wal, make_folder, make_truncated, make_garbled])
def test_what_is_no_repository_is_refused_at_once_and_left_alone(vela, drive, tmp_path, make):
    home = tmp_path / "home"
    home.mkdir()
    make(home / "x.dmr", vela, drive)
    for side in home.glob("x.dmr-*"):
        side.unlink()
    before = fingerprint(home)
    for words in (["ls"], ["info"], ["cat", "speed"], ["check"], ["rm", "1", "--yes"], ["import", drive]):
        start = time.monotonic()
        done = vela(*words, "-r", home / "x.dmr", status=2)
        assert time.monotonic() - start < 3
        assert "x.dmr" in done.stderr and done.stderr.startswith("vela: ")
        assert done.stdout == ""
        assert fingerprint(home) == before, words


def test_a_broken_page_is_found_by_check(vela, drive, tmp_path):
    vela("import", drive, "--into", "x.dmr")
    data = bytearray((tmp_path / "x.dmr").read_bytes())
    middle = len(data) // 2 // 16384 * 16384
    data[middle:middle + 64] = b"\xff" * 64
    (tmp_path / "x.dmr").write_bytes(data)
    done = vela("check", "-r", "x.dmr", status=2)
    assert "damaged" in done.stdout + done.stderr


def test_a_failing_import_leaves_nothing(vela, drive, tmp_path):
    vela("import", drive, "--into", "lab.dmr")
    before = vela.json("info", "-r", "lab.dmr")
    (tmp_path / "broken.csv").write_text("time,a\n0,1\n1,2\n0.5,3\n")
    done = vela("import", drive, "broken.csv", "--into", "lab.dmr", status=2)
    assert "broken.csv" in done.stderr and "4" in done.stderr
    after = vela.json("info", "-r", "lab.dmr")
    assert (after["runs"], after["signals"]) == (before["runs"], before["signals"])
    vela("import", "broken.csv", "--into", "fresh.dmr", status=2)
    assert not (tmp_path / "fresh.dmr").exists()


@pytest.mark.parametrize("verb", ["ls", "ls --json", "info", "cat speed", "cat speed --json", "du", "sessions", "check",
                                  "check --json", "compare 1 1 --no-store", "save a.dat --json", "completion bash",
                                  "import drive.csv", "--version", "cat --help"])
def test_output_that_nobody_takes_is_a_failure(vela, drive, verb):
    vela("import", drive, "--into", "lab.dmr")
    vela.environment["VELA_REPOSITORY"] = "lab.dmr"
    for target in (">/dev/full", ">&-"):
        done = subprocess.run(["bash", "-c", f"$0 {verb} {target}", os.environ["VELA"]], cwd=vela.folder,
                              env=vela.environment, capture_output=True, text=True, timeout=60)
        assert done.returncode == 2 and "standard output" in done.stderr, target
    vela("check")


def test_no_file_is_opened_in_place_of_a_closed_stream(vela, drive):
    vela("import", drive, "--into", "lab.dmr")
    for closed in ("2>&-", ">&- 2>&-", "<&- >&- 2>&-"):
        subprocess.run(["bash", "-c", f"$0 import drive.csv --into lab.dmr {closed}; $0 rm 99 --yes -r lab.dmr {closed}",
                        os.environ["VELA"]], cwd=vela.folder, env=vela.environment, timeout=60)
    for path in vela.folder.glob("lab.dmr*"):
        assert b"vela:" not in path.read_bytes() and b"imported" not in path.read_bytes()
    vela("check", "-r", "lab.dmr")


def test_a_repository_without_its_folder_fails_at_once(vela, drive):
    for place in ("nodir/x.dmr", "drive.csv/x.dmr"):
        start = time.monotonic()
        assert f'"{place}"' in vela("import", drive, "--into", place, status=2).stderr
        assert time.monotonic() - start < 3


def test_exit_codes_tell_how_it_ended(vela, drive, tmp_path):
    (tmp_path / "ragged.csv").write_text("time,a\n0,1\n1\n2,3\n")
    done = vela("import", "ragged.csv", "--into", "lab.dmr", status=3)
    assert "ragged.csv:3" in done.stderr
    vela("import", drive, "--dry-run", "--into", "dry.dmr")
    assert not (tmp_path / "dry.dmr").exists()
    for words in ([], ["nonsense"], ["cat"], ["import", "missing.csv"], ["ls", "-r", "missing.dmr"],
                  ["cat", "nothing", "-r", "lab.dmr"], ["ls", "nothing", "-r", "lab.dmr"],
                  ["rm", "99", "--yes", "-r", "lab.dmr"]):
        assert vela(*words, status=2).stdout == ""
    assert not (tmp_path / "missing.dmr").exists()
    for words in (["--help"], ["--version"], ["cat", "--help"], ["import", "--help"]):
        assert vela(*words).stdout


def test_words_go_to_standard_error_and_quiet_silences_them(vela, drive):
    done = vela("import", drive, "--into", "lab.dmr")
    assert "imported 1 run" in done.stderr and "\033" not in done.stderr and "\r" not in done.stderr
    assert vela("import", drive, "--into", "lab.dmr", "--quiet").stderr == ""
    assert vela("ls", "-r", "lab.dmr").stderr == ""


def lock_byte(file, byte, command):
    """A lock of the open file description on one byte; whether somebody else's stands in the way."""
    asked = struct.pack("hhqqi4x", fcntl.F_WRLCK, os.SEEK_SET, byte, 1, 0)
    return struct.unpack("hhqqi4x", fcntl.fcntl(file, command, asked))[0] != fcntl.F_UNLCK


def test_ctrl_c_ends_a_call_that_waits_and_leaves_nothing(vela, drive, tmp_path):
    vela("import", drive, "--into", "lab.dmr")
    before = vela.json("ls", "-r", "lab.dmr")
    with open(tmp_path / "lab.dmr-lock", "r+b") as lock:
        lock_byte(lock, 0, fcntl.F_OFD_SETLK)
        waiting = subprocess.Popen([os.environ["VELA"], "import", drive, "--into", "lab.dmr"], cwd=tmp_path,
                                   env=vela.environment, stderr=subprocess.PIPE, text=True)
        while not lock_byte(lock, 2, fcntl.F_OFD_GETLK):  # the queue of writers
            time.sleep(0.01)
        waiting.send_signal(signal.SIGINT)
        assert "interrupted" in waiting.communicate(timeout=10)[1]
    assert waiting.returncode == 130
    assert vela.json("ls", "-r", "lab.dmr") == before


def test_the_repository_can_come_from_the_environment(vela, drive):
    vela.environment["VELA_REPOSITORY"] = "lab.dmr"
    vela("import", drive)
    assert len(vela.json("ls")) == 1
    assert (vela.folder / "lab.dmr").exists()
    vela("import", drive, "--into", "other.dmr")
    vela("rm", "drive", "--yes", "-r", "other.dmr")
    assert len(vela.json("ls")) == 1 and vela.json("ls", "-r", "other.dmr") == []


def on_a_terminal(vela, *words):
    """All that a terminal gets."""
    command = shlex.join([os.environ["VELA"], *words])
    return subprocess.run(["script", "-qec", command, "/dev/null"], cwd=vela.folder, env=vela.environment,
                          capture_output=True, stdin=subprocess.DEVNULL, timeout=60).stdout.decode()


def test_no_name_steers_a_terminal(vela, tmp_path):
    evil = "\x1b]0;x\x07\u009b2J\u202e"
    name = f"{evil}.csv"
    (tmp_path / name).write_text(f"time,{evil} [{evil}],text\n0,1,a\n1,2,b\n2,3,c\n")
    vela.environment["NO_COLOR"] = "1"
    for words in (["import", name, "--into", "lab.dmr"], ["import", name, "--dry-run"], ["import", f"no{name}"],
                  ["ls", "-r", "lab.dmr"], ["ls", evil, "-r", "lab.dmr"], ["cat", evil, "-r", "lab.dmr"],
                  ["cat", evil, "--json", "-r", "lab.dmr"], ["info", evil, "-r", "lab.dmr"], ["cat", f"no{evil}", "-r", "lab.dmr"],
                  ["info", evil, "--json", "-r", "lab.dmr"], ["compare", evil, evil, "--no-store", "-r", "lab.dmr"],
                  ["save", f"{evil}.dat", "-r", "lab.dmr"], ["check", "-r", f"{evil}.dmr"], [evil]):
        shown = on_a_terminal(vela, *words).replace("\r\n", "").replace("\r\x1b[K", "")
        assert shown and not [c for c in shown if not c.isprintable()], (words, shown)
    assert vela("cat", evil, "-r", "lab.dmr").stdout.startswith(f"time [s],{evil} [{evil}]\n")
    assert vela.json("cat", evil, "-r", "lab.dmr")["signals"][0]["name"] == evil


def test_durability_is_checked(vela, drive):
    vela("import", drive, "--into", "lab.dmr", "--durable")
    vela.environment["VELA_DURABILITY"] = "sometimes"
    assert "sometimes" in vela("ls", "-r", "lab.dmr", status=2).stderr


def test_the_completion_script_completes(vela):
    script = vela("completion", "bash").stdout
    done = subprocess.run(
        ["bash", "-c", script + "\nCOMP_WORDS=(vela im); COMP_CWORD=1; _vela; echo ${COMPREPLY[@]}"
         "\nCOMP_WORDS=(vela cat --fr); COMP_CWORD=2; _vela; echo ${COMPREPLY[@]}"],
        capture_output=True, text=True, check=True)
    assert done.stdout.split() == ["import", "--from"]


def test_a_bar_is_drawn_on_a_terminal_only(vela, tmp_path):
    rows = "".join(f"{i},{i}\n" for i in range(300_000))
    (tmp_path / "long.csv").write_text("time,a\n" + rows)
    command = f"{os.environ['VELA']} import long.csv --into lab.dmr"
    done = subprocess.run(["script", "-qec", command, "/dev/null"], cwd=tmp_path, env=vela.environment,
                          capture_output=True, text=True, stdin=subprocess.DEVNULL, timeout=60)
    assert "importing long.csv" in done.stdout and " of 4.8 MB" in done.stdout
