"""What a type checker is told of the package."""

import os
import subprocess

USE = """
import numpy as np
import vela

f = vela.open("lab.dmr", "a")
sig = f.runs["ramp"].add("speed", [0, 1], [1.0, 2.0], unit="m/s")
element: vela.Signal = f.runs[1]["m"][1, 2]
sig.append([3, 4], np.ones(2), rewind=True)
result = vela.compare(f.runs["a"], f.runs["b"], abs=0.1)
rows: list[dict[str, object]] = [dict(row) for row in result.rows]
length: int = len(np.asarray(sig)) + len(sig) + f.runs[1].number
times, values = vela.Stream.create(2).read(first=1)
f.rons
result.verdct
sig.unit = 3
vela.open("lab.dmr", "rb")
f.repository.createRun(1)
"""


def test_mistakes_are_found_and_nothing_else(tmp_path):
    (tmp_path / "use.py").write_text(USE)
    done = subprocess.run(
        ["mypy", "--disallow-untyped-defs", "--check-untyped-defs", "--ignore-missing-imports",
         "--cache-dir", str(tmp_path / "cache"), "use.py"],
        cwd=tmp_path, env={**os.environ, "MYPYPATH": os.environ["PYTHONPATH"]}, capture_output=True, text=True)
    found = [line for line in done.stdout.splitlines() if ": error: " in line]
    lines = [USE.splitlines()[int(line.split(":")[1]) - 1] for line in found if line.startswith("use.py:")]
    assert lines == USE.splitlines()[-5:] and len(found) == len(lines), done.stdout + done.stderr
