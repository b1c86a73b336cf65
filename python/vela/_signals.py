"""One signal, and several signals on one time base."""

from __future__ import annotations

import numbers
import typing

import numpy as np

from vela import _vela
from vela._lookup import candidates, find_below, find_elements, label_of, path_of
from vela._representation import never_raising

if typing.TYPE_CHECKING:
    import pandas
    from numpy.typing import ArrayLike, DTypeLike

    from vela._runs import RepositoryFile


class Samples(typing.NamedTuple):
    """Samples of a signal: `times` in seconds, shape (n,), and `values`, shape (n, ...).

    Values are an array, those of fixed-point signals `vela.FixedPoint`.
    """

    times: np.ndarray
    values: typing.Any


class Signal:
    """One quantity of a run, sampled over time. Every access reads the repository.

    `len(signal)` is the number of its samples, `numpy.asarray(signal)` their values; a signal is true
    also without any.
    """

    def __init__(self, file: RepositoryFile, signal_id: int) -> None:
        self._file = file
        self._repository = file.repository
        self.id = signal_id

    @property
    def name(self) -> str:
        return self._repository.getSignalName(self.id)

    @property
    def type(self) -> str:
        return self._repository.getSignalDataTypeLabel(self.id)

    @property
    def interpolation(self) -> str:
        return str(self._repository.getSignalInterpMethod(self.id))

    @property
    def unit(self) -> str:
        return self._repository.getUnit(self.id)

    @unit.setter
    def unit(self, unit: str) -> None:
        self._file.require_writable()
        self._repository.setUnit(self.id, unit)

    @property
    def children(self) -> list[Signal]:
        """The signals this one is made of; empty for one that has samples of its own."""
        return [Signal(self._file, int(each)) for each in self._repository.getSignalChildren(self.id)]

    @property
    def label(self) -> str:
        """The name, of an element with its subscripts: "m(1,2)"."""
        return label_of(self._repository, self.id)

    @property
    def path(self) -> str:
        """The names of the signals it is below and its label: "m.m(1,2)"; keys of the run."""
        return path_of(self._repository, self.id)

    def __getitem__(self, key: str | int | tuple[int, ...]) -> Signal:
        """A signal below: the element of one or more subscripts from 1, or one by name or path."""
        if not isinstance(key, str):
            return self._element(key)
        found = find_below(self._repository, self.id, key)
        if not found:
            raise KeyError(f"signal {self.label!r} has no signal {key!r} below it")
        if len(found) > 1:
            listed = candidates(self._repository, found)
            raise KeyError(f"several signals below {self.label!r} are called {key!r}; take one by ID or path: {listed}")
        return Signal(self._file, found[0])

    def _element(self, key: int | tuple[int, ...]) -> Signal:
        found = find_elements(self._repository, self.id, _subscripts(key))
        if not found:
            raise IndexError(f"signal {self.label!r} has no element {key!r}; subscripts count from 1")
        return Signal(self._file, found[0])

    # Elements are no sequence: their subscripts count from 1.
    __iter__ = None

    def _ipython_key_completions_(self) -> list[str]:
        return [child.label for child in self.children]

    @property
    def samples(self) -> Samples:
        """All samples, of a signal with children those of all children, as `Samples`."""
        data = self._repository.getHierarchicalSignalData(self.id)
        return Samples(data["Time"], data["Data"])

    @property
    def times(self) -> np.ndarray:
        return self.samples.times

    @property
    def values(self) -> typing.Any:
        return self.samples.values

    def cut(self, start: float, stop: float) -> Samples:
        """The samples with start <= time <= stop, as `Samples`; reads nothing else."""
        data = self._repository.getSignalDataValues(self.id, True, float(start), float(stop))
        return Samples(data["Time"], data["Data"])

    def append(self, times: ArrayLike, values: typing.Any, rewind: bool = False) -> None:
        """Appends samples, all or none.

        Parameters
        ----------
        times : array_like, shape (n,), or a number
            Seconds, not decreasing. A time equal to the newest stored one is kept beside it.
        values : array_like, shape (n, ...)
        rewind : bool
            Drop the samples stored at or after the first of `times` before.

        Raises
        ------
        vela.DataError
            The first time is before the newest stored one, and `rewind` is false; or the samples
            do not fit the signal. What was stored is unchanged.
        """
        self._file.require_writable()
        _vela.appendSamples(self._repository, self.id, times, values, bool(rewind))

    def rewind(self, time: float) -> None:
        """Drops the samples at or after a time.

        Parameters
        ----------
        time : float
            Seconds.
        """
        self._file.require_writable()
        self._repository.rollback(self.id, time)

    def __len__(self) -> int:
        return _vela.countSamples(self._repository, self.id)

    def __bool__(self) -> bool:
        return True

    def __array__(self, dtype: DTypeLike = None, copy: bool | None = None) -> np.ndarray:
        # What is read is nobody else's: a copy in any case.
        return np.asarray(self.values, dtype=dtype)

    def to_pandas(self) -> pandas.Series:
        """A `pandas.Series` of the values over the times."""
        import pandas

        times, values = self.samples
        return pandas.Series(_column(values, self.name), _time_index(times), name=self.name)

    def __eq__(self, other: object) -> bool:
        if not isinstance(other, Signal):
            return NotImplemented
        return self.id == other.id and self._repository is other._repository

    def __hash__(self) -> int:
        return hash((self.id, id(self._repository)))

    @never_raising
    def __repr__(self) -> str:
        unit = f" [{self.unit}]" if self.unit else ""
        return f"<vela.Signal {self.id}: {self.label!r}{unit}, {self.type}>"


def _subscripts(key: typing.Any) -> list[int]:
    given = key if isinstance(key, tuple) else (key,)
    if not all(isinstance(each, numbers.Integral) and not isinstance(each, bool) for each in given):
        raise TypeError(f"a signal takes subscripts, or the name of a signal below it, not {key!r}; see .values")
    return [int(each) for each in given]


def aligned(signals: list[Signal], raster: ArrayLike | None) -> pandas.DataFrame:
    """The signals as a data frame over one time base; see `Run.to_pandas`."""
    import pandas

    samples = [signal.samples for signal in signals]
    if raster is None:
        times = _common_times(signals, samples)
        columns = [_column(each.values, signal.name) for signal, each in zip(signals, samples)]
    else:
        times = _raster_times(raster, samples)
        columns = [
            _resampled(_column(each.values, signal.name), each.times, times, signal.interpolation)
            for signal, each in zip(signals, samples)
        ]
    # Built by position: two signals may share a name.
    frame = pandas.DataFrame(dict(enumerate(columns)), index=_time_index(times))
    frame.columns = [signal.label for signal in signals]
    return frame


def _time_index(times: np.ndarray) -> pandas.Index:
    import pandas

    return pandas.Index(times, name="time")


def _column(values: typing.Any, name: str) -> np.ndarray:
    values = np.asarray(values)
    if values.ndim != 1:
        raise ValueError(f"signal {name!r} has samples of shape {values.shape[1:]}; pandas takes scalars")
    return values


def _common_times(signals: list[Signal], samples: list[Samples]) -> np.ndarray:
    if not samples:
        return np.empty(0)
    times = samples[0].times
    for signal, each in zip(signals, samples):
        if not np.array_equal(each.times, times):
            raise ValueError(
                f"signals {signals[0].name!r} and {signal.name!r} have different times; "
                "give a raster: a step in seconds, or an array of times"
            )
    return times


def _raster_times(raster: typing.Any, samples: list[Samples]) -> np.ndarray:
    if np.ndim(raster):
        return np.asarray(raster, dtype=np.float64)
    step = float(raster)
    if not step > 0 or not np.isfinite(step):
        raise ValueError(f"raster: the step must be positive, not {raster!r}")
    known = [each.times for each in samples if len(each.times)]
    if not known:
        return np.empty(0)
    first = min(times[0] for times in known)
    last = max(times[-1] for times in known)
    # The tolerance keeps the last sample where the step divides the duration inexactly.
    return first + step * np.arange(int(np.floor((last - first) / step * (1 + 1e-12))) + 1)


def _resampled(values: np.ndarray, times: np.ndarray, raster: np.ndarray, interpolation: str) -> np.ndarray:
    """Values at the times of the raster; NaN (None for objects) where the signal has no samples."""
    if len(times) == 0:
        return np.full(len(raster), np.nan)
    inside = (raster >= times[0]) & (raster <= times[-1])
    if interpolation == "linear" and np.issubdtype(values.dtype, np.floating):
        return np.where(inside, np.interp(raster, times, values), np.nan)
    last_before = np.clip(np.searchsorted(times, raster, side="right") - 1, 0, None)
    held = values[last_before]
    if inside.all():
        return held
    if held.dtype == object:
        held[~inside] = None
        return held
    return np.where(inside, held, np.nan)
