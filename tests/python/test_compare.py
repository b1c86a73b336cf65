"""`vela.compare`: the verdict as an object."""

import io
import math
import os
import pathlib
import subprocess

import pytest

import vela

BEFORE = "time [s],same [V],changed [V],gone,unit [V]\n0,1,1,0,1\n1,2,2,0,1\n2,3,3,0,1\n"
AFTER = "time [s],same [V],changed [V],unit [A],<new>\n0,1,1,1,5\n1,2,2.5,1,5\n2,3,3,1,5\n"


def imported(path, **texts):
    """Stores tables as runs of these names."""
    for name, text in texts.items():
        table = path.parent / f"{name}.csv"
        table.write_text(text)
        subprocess.run([pathlib.Path(os.environ["VELA_BUILD"]) / "bin" / "vela", "import", table,
                        "--run", name, "--into", path], check=True, capture_output=True)


@pytest.fixture
def lab(path):
    imported(path, before=BEFORE, after=AFTER)
    with vela.open(path, "r+") as file:
        yield file


def outcomes(comparison):
    return {row["path"]: row["outcome"] for row in comparison.rows}


EXPECTED = {"same": "within", "changed": "outside", "gone": "missing", "unit": "unit mismatch",
            "<new>": "extra"}


def test_a_comparison_is_true_when_the_runs_agree(lab):
    before, after = lab.runs["before"], lab.runs["after"]
    comparison = vela.compare(before, after)
    assert not comparison and comparison.verdict == "outside" and comparison.run_id is None
    assert outcomes(comparison) == EXPECTED and comparison.counts["within"] == 1
    changed = comparison.rows[1]
    assert (changed["max_difference"], changed["time_of_max_difference"]) == (0.5, 1)
    assert (changed["rows"], changed["failed_rows"], changed["first_failing_time"]) == (3, 1, 1)
    assert comparison.rows[2]["max_difference"] is None
    assert vela.compare(before, before) and vela.compare(before, after, signals="same")
    assert vela.compare(before, after, signals="changed", abs=0.5)
    assert not vela.compare(before, after, signals="changed", abs=0.4)
    assert vela.compare(before, after, signals="changed", rel=0.25)
    assert vela.compare(before, after, signals="changed", time=1)
    assert vela.compare(before, after, signals="changed", align="uniform").rows[0]["alignment"] == "uniform"
    assert len(lab.runs) == 2, "only looked at"


def test_nothing_compared_is_not_true(lab):
    before, after = lab.runs["before"], lab.runs["after"]
    for pattern in ("gone", "unit", "nobody*"):
        comparison = vela.compare(before, after, signals=pattern, store=True)
        assert not comparison and comparison.verdict == "nothing compared"
        assert comparison.run_id is None
    assert len(lab.runs) == 2


def test_runs_may_be_in_two_repositories(lab, tmp_path):
    imported(tmp_path / "other.dmr", after=AFTER)
    with vela.Repository(tmp_path / "other.dmr") as other:
        after = (other, other.getAllRunIDs()[0])
        assert outcomes(vela.compare(lab.runs["before"], after)) == EXPECTED
        assert outcomes(vela.compare((lab.repository, lab.runs["before"].id), after)) == EXPECTED
        with pytest.raises(ValueError, match="one repository"):
            vela.compare(lab.runs["before"], after, store=True)


def test_a_comparison_can_be_kept(lab, path):
    comparison = vela.compare(lab.runs["before"], lab.runs["after"], abs=0.1, store=True)
    assert outcomes(comparison) == EXPECTED
    kept = [run for run in lab.repository.getAllRunIDs() if run == comparison.run_id]
    assert kept and all(row["comparison"] for row in comparison.rows)
    with vela.open(path) as reading:
        with pytest.raises(io.UnsupportedOperation):
            vela.compare(reading.runs["before"], reading.runs["after"], store=True)


def test_representations_name_what_differs(lab):
    comparison = vela.compare(lab.runs["before"], lab.runs["after"], abs=0.1)
    text = repr(comparison)
    assert text.splitlines()[0] == (
        "<vela.Comparison 'before' against 'after': "
        "outside: 1 within, 1 outside, 1 missing, 1 unit mismatch, 1 extra>")
    assert "  changed: outside, largest difference 0.5 at 1.0, tolerance abs 0.1 (option)" in text
    assert "same" not in text
    page = comparison._repr_html_()
    assert "&lt;new&gt;" in page and "<new>" not in page and "abs 0.1" in page


def test_rows_become_a_frame(lab):
    pytest.importorskip("pandas")
    frame = vela.compare(lab.runs["before"], lab.runs["after"]).to_pandas()
    assert frame["path"].tolist() == list(EXPECTED) and frame["outcome"].tolist() == list(EXPECTED.values())
    assert frame["max_difference"].iloc[1] == 0.5 and math.isnan(frame["max_difference"].iloc[2])


def test_bad_input_is_refused_and_nothing_is_stored(lab):
    before, after = lab.runs["before"], lab.runs["after"]
    for settings in ({"abs": -1}, {"rel": math.nan}, {"time": math.inf}, {"align": "nearest"}):
        with pytest.raises(vela.Error, match="nexstore:nex:InvalidSetting"):
            vela.compare(before, after, store=True, **settings)
    for settings in ({"abs": "1"}, {"align": 1}, {"signals": 1}):
        with pytest.raises(TypeError, match="compare: " + next(iter(settings))):
            vela.compare(before, after, store=True, **settings)
    with pytest.raises(vela.NotFoundError):
        vela.compare(before, (lab.repository, 99999))
    for bad in (before.id, "before", (before, 1), (lab.repository,), None):
        with pytest.raises(TypeError, match="compared"):
            vela.compare(before, bad)
    assert len(lab.runs) == 2
    lab.close()
    with pytest.raises(vela.Error, match="RepositoryClosed"):
        vela.compare(before, after)
