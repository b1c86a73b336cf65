"""The command under test, run as a person would: in a fresh folder, with a temporary directory of its own."""

import json
import os
import pathlib
import subprocess

import pytest


class Vela:
    """Runs the command in one folder."""

    def __init__(self, folder):
        self.folder = folder
        temporary = folder / "tmp"
        temporary.mkdir()
        self.environment = {**os.environ, "TMPDIR": str(temporary), "USER": "tester"}
        self.environment.pop("VELA_REPOSITORY", None)

    def __call__(self, *words, status=0):
        done = subprocess.run(
            [os.environ["VELA"], *map(str, words)],
            cwd=self.folder, env=self.environment, stdin=subprocess.DEVNULL,
            capture_output=True, text=True, timeout=60)
        assert done.returncode == status, done.stdout + done.stderr
        return done

    def json(self, *words, status=0):
        return json.loads(self(*words, "--json", status=status).stdout)


@pytest.fixture
def vela(tmp_path):
    return Vela(tmp_path)


@pytest.fixture
def examples():
    return pathlib.Path(os.environ["EXAMPLES"])


CSV = """time [s],speed [m/s],gear,engaged
0,1.5,1,true
0.5,,1,true
1,2.25,2,false
"""


@pytest.fixture
def drive(tmp_path):
    """A small table: a real, an integer and a boolean column, one value missing."""
    path = tmp_path / "drive.csv"
    path.write_text(CSV)
    return path
