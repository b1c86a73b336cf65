"""The examples as they are printed, and the package as it is installed."""

import re
import subprocess
import sys

import pytest

import vela


def test_the_example_of_the_readme_runs(source, tmp_path, monkeypatch):
    text = (source / "README.md").read_text()
    section = text[text.index("## From Python"):]
    code = re.search(r"```python\n(.*?)```", section, re.S)[1]
    if not hasattr(vela.Repository, "add"):
        pytest.skip("signals cannot be reached from scripts yet")
    monkeypatch.chdir(tmp_path)
    exec(compile(code, "README.md", "exec"), {})
