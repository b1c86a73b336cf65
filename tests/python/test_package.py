"""The example as it is printed, and the package as it is installed."""

import os
import pathlib
import re
import subprocess
import sys


def test_the_example_of_the_readme_runs(source, tmp_path, monkeypatch):
    text = (source / "README.md").read_text()
    section = text[text.index("## From Python"):]
    code = re.search(r"```python\n(.*?)```", section, re.S)[1]
    monkeypatch.chdir(tmp_path)
    exec(compile(code, "README.md", "exec"), {})


def test_an_installed_package_finds_its_library_and_schema(tmp_path):
    prefix = tmp_path / "prefix"
    plain = {name: value for name, value in os.environ.items() if name not in ("LD_PRELOAD", "VELA_ROOT")}
    subprocess.run(["cmake", "--install", os.environ["VELA_BUILD"], "--prefix", str(prefix)],
                   env=plain, check=True, capture_output=True)
    packages = prefix / "lib" / "python3" / "dist-packages"
    code = """
import vela, vela._vela
with vela.Repository("runs.dmr") as repo:
    print(repo.createRun("installed") > 0, vela._vela.__file__)
"""
    done = subprocess.run(
        [sys.executable, "-c", code], cwd=tmp_path, env={**os.environ, "PYTHONPATH": str(packages)},
        capture_output=True, text=True, check=True)
    created, module = done.stdout.split()
    assert created == "True" and pathlib.Path(module).is_relative_to(packages)
    assert (packages / "vela" / "_vela.pyi").exists() and (packages / "vela" / "py.typed").exists()
    assert any((prefix / "lib").glob("libnexstore.so*"))
