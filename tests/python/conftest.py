"""A repository of one's own, and scripts run in an interpreter of their own."""

import os
import pathlib
import subprocess
import sys
import tempfile
import textwrap

# The shared repository lives in the temporary directory: never touch the one of the user.
_temporary = tempfile.TemporaryDirectory(prefix="vela-python-tests-")
os.environ["TMPDIR"] = _temporary.name

import pytest

import vela


@pytest.fixture(autouse=True)
def own_folder(tmp_path, monkeypatch):
    monkeypatch.chdir(tmp_path)


@pytest.fixture
def path(tmp_path):
    return tmp_path / "runs.dmr"


@pytest.fixture
def repo(path):
    with vela.Repository(path) as repository:
        yield repository


@pytest.fixture
def run(repo):
    return repo.createRun("a run")


@pytest.fixture
def source():
    return pathlib.Path(os.environ["VELA_SOURCE"])


@pytest.fixture
def script(tmp_path):
    """Runs Python code in a fresh interpreter; returns what it printed."""

    def run_script(code, status=0, **variables):
        done = subprocess.run(
            [sys.executable, "-X", "faulthandler", "-c", textwrap.dedent(code)],
            cwd=tmp_path, env={**os.environ, "TMPDIR": str(tmp_path), **variables},
            stdin=subprocess.DEVNULL, capture_output=True, text=True, timeout=120)
        assert done.returncode == status, done.stdout + done.stderr
        assert "Fatal" not in done.stderr and "Exception ignored" not in done.stderr, done.stderr
        return done.stdout

    return run_script
