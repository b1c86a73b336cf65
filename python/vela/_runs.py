"""A repository as a mapping of runs: the short way in, over the methods of `vela.Repository`."""

from __future__ import annotations

import builtins
import collections.abc
import errno
import html
import io
import numbers
import os
import typing
from collections.abc import Iterable, Iterator

from vela import _vela
from vela._lookup import can_be_id, can_be_stored, candidates, find_signals
from vela._representation import never_raising, shown_if_readable
from vela._signals import Signal, aligned

if typing.TYPE_CHECKING:
    import pandas
    from numpy.typing import ArrayLike

Mode = typing.Literal["r", "r+", "a", "w", "x"]

_MODES = ("r", "r+", "a", "w", "x")


def open(path: str | os.PathLike[str], mode: Mode = "r") -> RepositoryFile:
    """Opens a repository file.

    Parameters
    ----------
    path : str or os.PathLike
    mode : {"r", "r+", "a", "w", "x"}
        "r" reads an existing file and never writes into it, "r+" changes one, "a" creates it where
        it is missing, "w" empties it, "x" insists on creating it.

    Returns
    -------
    RepositoryFile
        To be closed, or used in a `with` statement.

    Raises
    ------
    FileNotFoundError, FileExistsError
        The file is missing ("r", "r+") or already there ("x"). Nothing was created or changed.
    vela.Error
        The file cannot be opened or holds something else.
    """
    if mode not in _MODES:
        raise ValueError(f"open: mode must be one of {', '.join(_MODES)}, not {mode!r}")
    path = os.fspath(path)
    if not isinstance(path, str):
        raise TypeError(f"open: path must be str, not {type(path).__name__}")
    if mode in ("r", "r+") and not os.path.exists(path):
        raise FileNotFoundError(errno.ENOENT, os.strerror(errno.ENOENT), path)
    if mode == "x":
        # An empty file is an empty repository, and the kernel lets only one process make it.
        builtins.open(path, "x").close()
    repository = _vela.Repository(path, mode == "r")
    if mode == "w":
        _empty(repository)
    return RepositoryFile(repository, mode)


def _empty(repository: _vela.Repository) -> None:
    """Removes all runs: other processes may have the file open, so it stays in its place."""

    def remove_everything() -> None:
        repository.deleteAllRuns()
        repository.setHighestRunNumber(0)
        repository.restoreRunNameTemplate()

    repository.safeTransaction(remove_everything)


class RepositoryFile:
    """An open repository.

    Attributes
    ----------
    runs : Runs
        The runs, by name, number or ID.
    repository : vela.Repository
        The same file, with every method there is.
    mode : str
    """

    def __init__(self, repository: _vela.Repository, mode: Mode) -> None:
        self.repository = repository
        self.mode = mode
        self.runs = Runs(self)

    @property
    def path(self) -> str:
        return str(self.repository.getSource())

    @property
    def writable(self) -> bool:
        return self.mode != "r"

    def require_writable(self) -> None:
        if not self.writable:
            raise io.UnsupportedOperation(f'{self!r} is open for reading only; use mode "r+"')

    def close(self) -> None:
        """Closes the file; harmless when it is closed."""
        self.repository.close()

    def __enter__(self) -> RepositoryFile:
        return self

    def __exit__(self, *exception: object) -> None:
        self.close()

    @never_raising
    def __repr__(self) -> str:
        return f"<vela.RepositoryFile {self.mode!r} {self.repository!r}>"

    def _repr_html_(self) -> str | None:
        return self.runs._repr_html_()


class Runs(collections.abc.Mapping[typing.Union[str, int], "Run"]):
    """The runs of a repository, in its order: names to runs.

    `runs[key]` takes a name, a run number or a run ID; a number wins over an ID. A name that
    several runs have is refused: use the number.
    """

    def __init__(self, file: RepositoryFile) -> None:
        self._file = file
        self._repository = file.repository

    def ids(self) -> list[int]:
        """Run IDs as a list of int."""
        return [int(each) for each in self._repository.getAllRunIDs()]

    def __len__(self) -> int:
        return len(self.ids())

    def __iter__(self) -> Iterator[str]:
        return iter([run.name for run in self.values()])

    def values(self) -> list[Run]:  # type: ignore[override]
        return [Run(self._file, run_id) for run_id in self.ids()]

    def items(self) -> list[tuple[str, Run]]:  # type: ignore[override]
        return [(run.name, run) for run in self.values()]

    def __contains__(self, key: object) -> bool:
        return bool(self._matches(key))

    def __getitem__(self, key: str | int | Run) -> Run:
        found = self._matches(key)
        if not found:
            raise KeyError(f"{self._file!r} has no run {key!r}")
        if len(found) > 1:
            run_numbers = ", ".join(str(run.number) for run in found)
            raise KeyError(f"several runs are called {key!r}: numbers {run_numbers}")
        return found[0]

    def create(self, name: str) -> Run:
        """Creates a run with the next number.

        Returns
        -------
        Run
        """
        self._file.require_writable()
        return Run(self._file, self._repository.createRun(name))

    def __delitem__(self, key: str | int | Run) -> None:
        self._file.require_writable()
        self._repository.removeRun(self[key].id)

    def _matches(self, key: object) -> list[Run]:
        if isinstance(key, str):
            same = self._repository.findObjects("DataSet", "UName", key) if can_be_stored(key) else []
            return self._visible(same)
        if isinstance(key, Run):
            return self._visible([key.id]) if key._repository is self._repository else []
        if isinstance(key, numbers.Integral) and not isinstance(key, bool):
            return self._of_number(int(key)) or self._visible([int(key)])
        return []

    def _visible(self, run_ids: Iterable[typing.Any]) -> list[Run]:
        wanted = {int(each) for each in run_ids}
        return [Run(self._file, run_id) for run_id in self.ids() if run_id in wanted] if wanted else []

    def _of_number(self, number: int) -> list[Run]:
        if not can_be_id(number):
            return []
        records = self._repository.findObjects("RunNumberByRunID", "RunNumber", number)
        found = self._visible([self._repository.getProperty(int(each), "FK_SetID", False) for each in records])
        # A run has one record for each session that has seen it.
        return [run for run in found if run.number == number]

    def _ipython_key_completions_(self) -> list[str]:
        return [run.name for run in self.values()]

    @never_raising
    def __repr__(self) -> str:
        named = ", ".join(f"{run.number}: {run.name!r}" for run in self.values())
        return f"<vela.Runs {{{named}}}>"

    @shown_if_readable
    def _repr_html_(self) -> str:
        rows = [(run.id, run.number, run.name, run.date, len(run)) for run in self.values()]
        return _table(("ID", "number", "name", "created", "signals"), rows)


class Run(collections.abc.Mapping[str, Signal]):
    """One run: the names of its signals to the signals.

    What lies below a signal is reached through it, or by its path: of a matrix `run["m"]` one
    element is `run["m"][1, 2]`, `run["m(1,2)"]` or, as comparisons name it, `run["m.m(1,2)"]`, all
    with subscripts from 1. `run[key]` takes a signal ID too. A signal at the top of the run goes
    before others of its name.
    """

    def __init__(self, file: RepositoryFile, run_id: int) -> None:
        self._file = file
        self._repository = file.repository
        self.id = run_id

    @property
    def name(self) -> str:
        return self._repository.getRunName(self.id)

    @property
    def number(self) -> int:
        return self._repository.getRunNumber(self.id)

    @property
    def description(self) -> str:
        return self._repository.getRunDescription(self.id)

    @property
    def tag(self) -> str:
        return self._repository.getRunTag(self.id)

    @property
    def model(self) -> str:
        return self._repository.getRunModel(self.id)

    @property
    def start(self) -> float:
        return self._repository.getRunStartTime(self.id)

    @property
    def stop(self) -> float:
        return self._repository.getRunStopTime(self.id)

    @property
    def date(self) -> str:
        return self._repository.getDateCreatedString(self.id)


    def signal_ids(self) -> list[int]:
        """IDs of all signals, those below others too, as a list of int."""
        return [int(each) for each in self._repository.getAllSignalIDs(self.id)]

    def __len__(self) -> int:
        return len(self._top())

    def __iter__(self) -> Iterator[str]:
        return iter([name for name, _ in self.items()])

    def values(self) -> list[Signal]:  # type: ignore[override]
        """The signals that are below no other."""
        return [Signal(self._file, signal_id) for signal_id in self._top()]

    def items(self) -> list[tuple[str, Signal]]:  # type: ignore[override]
        signals = self.values()
        names = [signal.name for signal in signals]
        often = {name for name, count in collections.Counter(names).items() if count > 1}
        # Only elements can share a name and still be told apart.
        return [(signal.label if name in often else name, signal) for name, signal in zip(names, signals)]

    def __contains__(self, key: object) -> bool:
        return bool(self._matches(key))

    def __getitem__(self, key: str | int | Signal) -> Signal:
        found = self._matches(key)
        if not found:
            raise KeyError(f"run {self.name!r} has no signal {key!r}")
        if len(found) > 1:
            listed = candidates(self._repository, found)
            raise KeyError(
                f"several signals of run {self.name!r} are called {key!r}; take one by ID or path: {listed}")
        return Signal(self._file, found[0])

    def add(
        self,
        name: str,
        times: ArrayLike,
        values: typing.Any,
        unit: str = "",
        interpolation: str | None = None,
        description: str | None = None,
        parent: Signal | None = None,
    ) -> Signal:
        """Adds a signal with its samples.

        Parameters
        ----------
        name : str
        times : array_like, shape (n,)
            Seconds, not decreasing.
        values : array_like, shape (n,) or (n, ...)
            Of more than one dimension: one sample of that shape for each time.
        unit : str
        interpolation : {"zoh", "linear"}, optional
            How to read between two samples.
        description : str, optional
            Kept as metadata under "description".
        parent : Signal, optional

        Returns
        -------
        Signal
        """
        self._file.require_writable()
        metadata = None if description is None else {"description": description}
        further: list[typing.Any] = []
        if parent is not None or interpolation is not None:
            further.append(None if parent is None else parent.id)
        if interpolation is not None:
            further.append(interpolation)
        signal_id = self._repository.add(
            {"Time": times, "Data": values},
            unit,
            "",  # root source
            "",  # root data source
            "",  # time source
            "",  # data source
            "",  # block path
            self.model,
            name,
            None,  # dimensions: those of the values
            None,  # port index
            None,  # channel
            None,  # block identifier
            None,  # absolute tolerance
            None,  # relative tolerance
            None,  # time alignment
            metadata,
            self.id,
            *further,
        )
        return Signal(self._file, signal_id)

    def to_pandas(self, raster: ArrayLike | None = None) -> pandas.DataFrame:
        """The signals and elements as the columns of a `pandas.DataFrame`, its index the times.

        Parameters
        ----------
        raster : float or array_like, optional
            A step in seconds, or the times themselves. Values between two samples follow the
            interpolation of the signal; outside its samples a signal has NaN. Without a raster all
            signals must have the same times.

        Raises
        ------
        ValueError
            The times differ and no raster is given.
        """
        leaves = self._repository.getAllSignalIDs(self.id, "leaf")
        return aligned([Signal(self._file, int(each)) for each in leaves], raster)

    def _top(self) -> list[int]:
        return [int(each) for each in self._repository.getAllSignalIDs(self.id, "top")]

    def _matches(self, key: object) -> list[int]:
        """IDs of the signals the key fits."""
        if isinstance(key, str):
            return find_signals(self._repository, self.id, key)
        if isinstance(key, Signal):
            return [key.id] if key._repository is self._repository and self._has_signal(key.id) else []
        if isinstance(key, numbers.Integral) and not isinstance(key, bool):
            return [int(key)] if self._has_signal(int(key)) else []
        return []

    def _has_signal(self, signal_id: int) -> bool:
        is_signal = can_be_id(signal_id) and self._repository.isValidSignal(signal_id)
        return bool(is_signal) and self._repository.getSignalRunID(signal_id) == self.id

    def _ipython_key_completions_(self) -> list[str]:
        return list(self)

    def __eq__(self, other: object) -> bool:
        if not isinstance(other, Run):
            return NotImplemented
        return self.id == other.id and self._repository is other._repository

    def __hash__(self) -> int:
        return hash((self.id, id(self._repository)))

    @never_raising
    def __repr__(self) -> str:
        return f"<vela.Run {self.number}: {self.name!r}, {len(self)} signals>"

    @shown_if_readable
    def _repr_html_(self) -> str:
        rows = [(signal.id, signal.name, signal.unit, signal.type) for signal in self.values()]
        return _table(("ID", "name", "unit", "type"), rows)


def _table(head: Iterable[object], rows: Iterable[Iterable[object]]) -> str:
    def line(cells: Iterable[object], tag: str) -> str:
        return "<tr>" + "".join(f"<{tag}>{html.escape(str(cell))}</{tag}>" for cell in cells) + "</tr>"

    body = "".join(line(row, "td") for row in rows)
    return f"<table><thead>{line(head, 'th')}</thead><tbody>{body}</tbody></table>"
