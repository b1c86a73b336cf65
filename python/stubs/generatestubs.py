"""Writes the type stubs of the extension module from what its methods declare.

Usage: generatestubs.py FILE
"""

import inspect
import sys

from vela import _vela

HEAD = '''"""Classes of the host. Generated; do not edit."""

import os
from collections.abc import Callable, Sequence
from typing import Any

import numpy

declarations: dict[str, list[dict[str, Any]]]

def compareRuns(
    baseline: Repository, baselineRun: int, compared: Repository, comparedRun: int,
    settings: dict[str, Any], isStoring: bool) -> dict[str, Any]: ...
def registerHostFunction(name: str, function: Callable[..., Any] | None) -> Callable[..., Any] | None: ...
def appendSamples(repository: Repository, signal: int, times: Any, values: Any, rewinds: bool) -> None: ...
def countSamples(repository: Repository, signal: int) -> int: ...
def setMinimumChunkNumBytes(bytes: int) -> None: ...
def set_progress(function: Callable[[str, int, int], Any] | None) -> Callable[..., Any] | None: ...

_Rows = tuple[numpy.ndarray, numpy.ndarray]

def createStream(channels: int) -> str: ...
def addStreamRows(stream: str, times: Any, values: Any) -> None: ...
def updateStreamRows(stream: str, times: Any, values: Any) -> None: ...
def readStreamRows(stream: str, start: float, end: float, first: int | None, last: int | None) -> _Rows: ...
def deleteStreamRows(stream: str, times: Any) -> None: ...
def streamMetadata(stream: str) -> dict[str, str | float]: ...
def setStreamMetadata(stream: str, key: str, value: str | float) -> None: ...
'''


def parameters(method):
    parts = [] if method["static"] else ["self"]
    for name, annotation, optional in method["inputs"]:
        parts.append(f"{name}: {annotation}" + (" | None = None" if optional else ""))
    if method["more"]:
        parts.append("*args: Any")
    return ", ".join(parts)


def result(method):
    types = [annotation for _, annotation, _ in method["outputs"]]
    if not types:
        return "None"
    return types[0] if len(types) == 1 else f"tuple[{', '.join(types)}]"


def stub(method, cls):
    lines = ["@staticmethod"] if method["static"] else []
    lines.append(f"def {method['name']}({parameters(method)}) -> {result(method)}:")
    documented = getattr(cls, method["name"])
    text = inspect.getdoc(documented if method["name"] != "__init__" else cls)
    lines.append('    """' + text.replace("\n", "\n    ") + '\n    """')
    return "".join(f"    {line}\n" if line else "\n" for line in "\n".join(lines).split("\n"))


def main(path):
    text = HEAD
    for name, methods in _vela.declarations.items():
        cls = getattr(_vela, name)
        text += f"\nclass {name}:\n"
        text += "\n".join(stub(method, cls) for method in methods)
        text += "\n    def close(self) -> None: ...\n"
        text += f'    def __enter__(self) -> "{name}": ...\n'
        text += "    def __exit__(self, *exception: Any) -> None: ...\n"
    with open(path, "w", encoding="utf-8") as file:
        file.write(text)


if __name__ == "__main__":
    if len(sys.argv) != 2:
        sys.exit(__doc__)
    main(sys.argv[1])
