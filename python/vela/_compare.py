"""Whether two runs agree within tolerances."""

from __future__ import annotations

import collections
import typing

from vela import _vela
from vela._runs import Run, _table

if typing.TYPE_CHECKING:
    import pandas

AnyRun = typing.Union[Run, typing.Tuple[_vela.Repository, int]]
Row = typing.Dict[str, typing.Any]

_LINES_SHOWN = 20


def compare(
    baseline: AnyRun,
    compared: AnyRun,
    *,
    abs: float | None = None,
    rel: float | None = None,
    time: float | None = None,
    align: str | None = None,
    signals: str | None = None,
    store: bool = False,
) -> Comparison:
    """Compares two runs signal by signal.

    Signals are paired by name and place. A value passes when it is as close to the baseline's as the
    larger of `abs` and `rel` times the baseline's magnitude.

    Parameters
    ----------
    baseline, compared : Run or (vela.Repository, int)
        The run that is right and the one to be checked, or repository and run ID. They may be in two
        repositories.
    abs, rel : float, optional
        The tolerances for all signals: in the unit of the signal, and as a part of the baseline.
        Without both each signal's own apply, else values must be equal.
    time : float, optional
        Seconds by which a value may come early or late.
    align : {"union", "intersection", "uniform"}, optional
        Which times are compared: of either run, of both, or equal steps; default: what the signal of
        the baseline says.
    signals : str, optional
        A pattern such as "v(*"; only signals whose name or path fits.
    store : bool
        Keep the comparison as a run of the repository, which both runs must be in.

    Returns
    -------
    Comparison
        True when something was compared and nothing differs.

    Raises
    ------
    vela.Error
        For tolerances that are negative or NaN, an unknown alignment, a run that does not exist.
        Nothing was stored.
    """
    first, second = _located(baseline, "baseline"), _located(compared, "compared")
    if store:
        if first[0] is not second[0]:
            raise ValueError("compare: only runs of one repository can be kept as a comparison")
        for run in (baseline, compared):
            if isinstance(run, Run):
                run._file.require_writable()
    settings = {"abs": abs, "rel": rel, "time": time, "align": align, "signals": signals}
    result = _vela.compareRuns(*first, *second, settings, bool(store))
    return Comparison(_name(*first), _name(*second), result)


def _located(run: AnyRun, name: str) -> tuple[_vela.Repository, int]:
    """Repository and ID of a run."""
    if isinstance(run, Run):
        return run._repository, run.id
    if isinstance(run, tuple) and len(run) == 2:
        return run
    raise TypeError(f"compare: {name} must be a run or (vela.Repository, run ID), not {type(run).__name__}")


def _name(repository: _vela.Repository, run_id: int) -> str:
    return repository.getRunName(run_id)


class Comparison:
    """What came out of a comparison; true when the runs agree.

    Attributes
    ----------
    rows : list of dict
        One for each signal of either run: "path", "outcome", "reason", "max_difference",
        "time_of_max_difference", "rms_difference", "rows", "failed_rows", "first_failing_time",
        "abs_tol", "rel_tol", "time_tol", "tolerance_from", "alignment", "alignment_from", and the
        IDs "baseline", "compared" and "comparison". Outcomes are "within", "outside", "missing"
        (the compared run has no such signal), "extra", "unit mismatch", "type mismatch",
        "time mismatch", "empty" and "not comparable", which alone has a reason. What was not
        compared has None for its differences.
    verdict : str
        "within", "outside" or "nothing compared".
    run_id : int or None
        The run the comparison is kept in.
    baseline, compared : str
        Names of the runs.
    """

    def __init__(self, baseline: str, compared: str, result: dict[str, typing.Any]) -> None:
        self.baseline = baseline
        self.compared = compared
        self.rows: list[Row] = result["rows"]
        self.run_id: int | None = result["run"]
        self.verdict = ("within" if result["within"] else "outside") if result["compared"] else "nothing compared"

    @property
    def counts(self) -> dict[str, int]:
        """How many signals had which outcome, as a dict."""
        return dict(collections.Counter(row["outcome"] for row in self.rows))

    def __bool__(self) -> bool:
        return self.verdict == "within"

    def to_pandas(self) -> pandas.DataFrame:
        """The rows as a `pandas.DataFrame`."""
        import pandas

        return pandas.DataFrame(self.rows)

    def _summary(self) -> str:
        counts = ", ".join(f"{count} {outcome}" for outcome, count in self.counts.items())
        return f"{self.verdict}: {counts or 'no signals'}"

    def __repr__(self) -> str:
        lines = [f"<vela.Comparison {self.baseline!r} against {self.compared!r}: {self._summary()}>"]
        different = [row for row in self.rows if row["outcome"] != "within"]
        lines += [f"  {row['path']}: {_words(row)}" for row in different[:_LINES_SHOWN]]
        if len(different) > _LINES_SHOWN:
            lines.append(f"  and {len(different) - _LINES_SHOWN} more")
        return "\n".join(lines)

    def _repr_html_(self) -> str:
        rows = [(row["path"], row["outcome"], *_cells(row)) for row in self.rows]
        head = ("signal", "outcome", "largest difference", "at", "tolerance", "from")
        return _table((self._summary(), *[""] * (len(head) - 1)), [head, *rows])


def _tolerance(row: Row) -> str:
    parts = [f"{name} {row[f'{name}_tol']:g}" for name in ("abs", "rel", "time") if row[f"{name}_tol"]]
    return ", ".join(parts) or "exact"


def _cells(row: Row) -> tuple[object, ...]:
    if row["max_difference"] is None:
        return "", "", "", ""
    return f"{row['max_difference']:g}", row["time_of_max_difference"], _tolerance(row), row["tolerance_from"]


def _words(row: Row) -> str:
    difference, at, tolerance, origin = _cells(row)
    if not difference:
        return row["outcome"] + (f": {row['reason']}" if row["reason"] else "")
    return f"{row['outcome']}, largest difference {difference} at {at}, tolerance {tolerance} ({origin})"
