"""The README as printed: its commands and Python, run twice in a row, with the output it shows."""

import os
import pathlib
import re
import subprocess
import sys

import pytest

pytest.importorskip("vela")
README = pathlib.Path(os.environ["README"]).read_text()


def steps():
    """Commands with the lines shown below them."""
    found, inside = [], False
    for line in README.splitlines():
        if line.startswith("    $ "):
            found.append((line[6:], []))
        elif inside and line.startswith("    "):
            found[-1][1].append(line[4:])
        inside = line.startswith("    $ ") or inside and line.startswith("    ")
    return found


def lines(text):
    text = re.sub(r"\d{4}-\d\d-\d\d \d\d:\d\d:\d\d", "DATE", text)
    return [line.rstrip() for line in text.splitlines()]


@pytest.fixture
def reader(vela, tmp_path, examples):
    """A shell in a folder as after the build; ngspice crashes without a home."""
    (tmp_path / "examples").symlink_to(examples)
    path = f"{pathlib.Path(os.environ['VELA']).parent}:{os.environ['PATH']}"
    vela.environment.update(PATH=path, HOME=str(tmp_path))
    (tmp_path / "seen").mkdir()

    def run(*words):
        return subprocess.run(words, cwd=tmp_path, env=vela.environment, capture_output=True, text=True, timeout=200)
    return run


def test_commands_print_what_is_shown(reader, tmp_path):
    script = "".join(f"{{ {command}\n}} >seen/{i}.out 2>seen/{i}.err; status=$?; (exit $status)\n"
                     for i, (command, _) in enumerate(steps()))
    for _ in range(2):
        reader("bash", "-c", script)
        for i, (command, shown) in enumerate(steps()):
            out, err = (lines((tmp_path / "seen" / f"{i}.{stream}").read_text()) for stream in ("out", "err"))
            shown = lines("\n".join(shown))
            assert [line for line in shown if line not in err] == out, command
            assert [line for line in shown if line not in out] == err, command
    assert len(steps()) > 15


def test_python_prints_what_is_shown(reader):
    snippets = re.findall(r"```python\n(.*?)```\n\n```text\n(.*?)```", README, re.DOTALL)
    assert len(snippets) == README.count("```python") > 0
    for code, shown in snippets * 2:
        done = reader(sys.executable, "-c", code)
        assert (lines(done.stdout), done.stderr) == (lines(shown), "")
