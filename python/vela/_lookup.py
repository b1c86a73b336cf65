"""Signals of a run, and below a signal, by what a reader calls them: name, element or path."""

from __future__ import annotations

import math
import re
from collections.abc import Sequence

from vela._vela import Repository

_ELEMENT = re.compile(r"(?P<name>.*)\((?P<subscripts>[0-9]+(?:,[0-9]+)*)\)", re.DOTALL)
_SHOWN = 10


def can_be_stored(name: str) -> bool:
    """Half a surrogate pair is in no stored text."""
    return not any("\ud800" <= letter <= "\udfff" for letter in name)


def can_be_id(number: int) -> bool:
    return 0 < number < 2**31


def find_signals(repository: Repository, run_id: int, key: str) -> list[int]:
    """IDs of the signals of a run that a key fits best.

    A signal at the top of the run goes before all others; then elements ("m(1,2)") and paths
    ("m.m(1,2)", "bus.speed") from there; then signals of that name anywhere.
    """
    found = find_below(repository, 0, key, "FK_SetID", run_id)
    return found or _outermost(repository, _named(repository, key, "FK_SetID", run_id))


def find_below(repository: Repository, parent: int, key: str, *where: str | int) -> list[int]:
    """The same for what lies directly below a signal, or satisfies `where` and has none above (0)."""
    place: tuple[str | int, ...] = ("FK_Parent", parent, *where)
    if found := _named(repository, key, *place):
        return found
    if element := _ELEMENT.fullmatch(key):
        subscripts = [int(each) for each in element["subscripts"].split(",")]
        if found := _elements_called(repository, parent, element["name"], subscripts, place):
            return found
    return [
        signal
        for dot, letter in enumerate(key) if letter == "."
        for above in _named(repository, key[:dot], *place)
        for signal in find_below(repository, above, key[dot + 1:])
    ]


def find_elements(repository: Repository, signal: int, subscripts: Sequence[int]) -> list[int]:
    """IDs of the elements of a signal with those subscripts, from 1: one or none."""
    wanted = list(subscripts)
    children = [int(each) for each in repository.getSignalChildren(signal)]
    dims = [int(each) for each in repository.getSignalSampleDims(signal)]
    if len(children) == math.prod(dims) and len(wanted) == len(dims):
        if not all(1 <= each <= length for each, length in zip(wanted, dims)):
            return []
        # Made in this order; the subscripts stored with each have the last word.
        place = sum((each - 1) * math.prod(dims[:axis]) for axis, each in enumerate(wanted))
        if _channel(repository, children[place]) == wanted:
            return [children[place]]
    return [each for each in children if _channel(repository, each) == wanted]


def label_of(repository: Repository, signal: int) -> str:
    """The name of a signal with the subscripts of the element it is."""
    channel = ",".join(str(each) for each in _channel(repository, signal))
    name = repository.getSignalName(signal)
    return f"{name}({channel})" if channel else name


def path_of(repository: Repository, signal: int) -> str:
    """The names above a signal and its label, joined by "."."""
    parts = [label_of(repository, signal)]
    met = {signal, 0}
    above = repository.getSignalParent(signal)
    # A damaged file may lead in a circle.
    while above not in met:
        met.add(above)
        parts.insert(0, repository.getSignalName(above))
        above = repository.getSignalParent(above)
    return ".".join(parts)


def candidates(repository: Repository, signals: Sequence[int]) -> str:
    """The signals as a message offers them to choose from."""
    listed = ", ".join(f"{each} ({path_of(repository, each)})" for each in signals[:_SHOWN])
    more = len(signals) - _SHOWN
    return listed + (f" and {more} more" if more > 0 else "")


def _named(repository: Repository, name: str, *where: str | int) -> list[int]:
    if not can_be_stored(name):
        return []
    return [int(each) for each in repository.findObjects("Signal", "Name", name, *where)]


def _channel(repository: Repository, signal: int) -> list[int]:
    return [int(each) for each in repository.getSignalChannel(signal)]


def _elements_called(
    repository: Repository, parent: int, name: str, subscripts: list[int], place: tuple[str | int, ...]
) -> list[int]:
    """Elements of `parent` itself, signals that are elements of none (of a comparison), elements below."""
    own = find_elements(repository, parent, subscripts) if parent else []
    if own := [each for each in own if repository.getSignalName(each) == name]:
        return own
    signals = _named(repository, name, *place)
    if found := [each for each in signals if _channel(repository, each) == subscripts]:
        return found
    return [element for each in signals for element in find_elements(repository, each, subscripts)]


def _outermost(repository: Repository, signals: list[int]) -> list[int]:
    """Without those below another of them: elements share the name of what they are part of."""
    if len(signals) < 2:
        return signals
    all_of_them = set(signals)
    return [each for each in signals if repository.getSignalParent(each) not in all_of_them]
