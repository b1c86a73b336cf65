"""`vela compare`: outcomes, verdicts, what is kept and what is left alone."""

import pathlib
import xml.etree.ElementTree as xml

import pytest

BEFORE = """time [s],same [V],changed [V],gone,unit [V],wide
0,1,1,0,1,0
1,2,2,0,1,0
2,3,3,0,1,0
"""
AFTER = """time [s],same [V],changed [V],unit [A],wide,new
0,1,1,1,0,5
1,2,2.5,1,0,5
2,3,3,1,0,5
"""


@pytest.fixture
def runs(vela, tmp_path):
    """Two runs "before" and "after" in lab.dmr, and the files they are from; returns their IDs."""
    vela.environment["VELA_REPOSITORY"] = "lab.dmr"
    ids = []
    for name, text in (("before", BEFORE), ("after", AFTER)):
        (tmp_path / f"{name}.csv").write_text(text)
        ids += [run["id"] for run in vela.json("import", f"{name}.csv", "--run", name)]
    return ids


def census(vela):
    facts = vela.json("info")
    return facts["runs"], facts["signals"]


def outcomes(result):
    return {signal["path"]: signal["outcome"] for signal in result["signals"]}


EXPECTED = {"same": "within", "changed": "outside", "gone": "missing", "unit": "unit mismatch",
            "wide": "within", "new": "extra"}


def test_every_signal_has_a_line_with_outcome_difference_and_tolerance(vela, runs):
    before = census(vela)
    done = vela("compare", "before", "after", "--no-store", status=1)
    assert done.stdout.splitlines()[:3] == [
        "SIGNAL   OUTCOME        MAX DIFFERENCE  AT [s]  TOLERANCE  FROM",
        "same     within                      0       0  exact      default",
        "changed  outside                   0.5       1  exact      default"]
    assert done.stderr == "outside: 2 within, 1 outside, 1 missing, 1 extra, 1 unit mismatch\n"
    result = vela.json("compare", "before", "after", "--abs", "0.1", "--no-store", status=1)
    assert result["verdict"] == "outside" and result["comparison"] is None
    assert outcomes(result) == EXPECTED
    changed = result["signals"][1]
    assert (changed["maxDifference"], changed["timeOfMaxDifference"]) == (0.5, 1)
    assert (changed["rows"], changed["failedRows"], changed["firstFailingTime"]) == (3, 1, 1)
    assert (changed["absTol"], changed["toleranceFrom"]) == (0.1, "option")
    assert result["signals"][2]["maxDifference"] is None
    assert census(vela) == before


@pytest.mark.parametrize("words, status", [
    ([], 1), (["--abs", "0.5"], 0), (["--abs", "0.4"], 1), (["--rel", "0.25"], 0), (["--rel", "0.2"], 1),
    (["--abs", "0.4", "--rel", "0.25"], 0), (["--time", "1"], 0), (["--time", "0.25"], 1),
    (["--align", "intersection"], 1), (["--align", "uniform"], 1),
])
def test_tolerances_and_alignment_decide(vela, runs, words, status):
    vela("compare", "before", "after", "--signals", "changed", "--no-store", *words, status=status)


def test_runs_are_named_in_three_ways_and_files_by_their_path(vela, runs, tmp_path):
    (tmp_path / "9").mkdir()
    for left in ("before", runs[0], "1", "before.csv", tmp_path / "before.csv"):
        for right in ("after", runs[1], "2", "after.csv"):
            before = census(vela)
            result = vela.json("compare", left, right, "--no-store", status=1)
            assert outcomes(result) == EXPECTED
            assert census(vela) == before
    vela.environment.pop("VELA_REPOSITORY")
    (tmp_path / "lab.dmr").unlink()
    known = {path.name for path in tmp_path.iterdir()}
    result = vela.json("compare", "before.csv", "after.csv", status=1)
    assert outcomes(result) == EXPECTED and result["comparison"] is None
    vela("compare", "before.csv", "before.csv")
    assert {path.name for path in tmp_path.iterdir()} == known
    assert list((tmp_path / "tmp").iterdir()) == [], "nothing is left of the private repository"


def test_a_comparison_is_kept_and_checked_again_without_its_runs(vela, runs):
    result = vela.json("compare", "before", "after", "--signals", "*e", status=1)
    stored = result["comparison"]
    assert outcomes(result) == {"same": "within", "gone": "missing", "wide": "within"}
    result = vela.json("compare", "before", "after", "--signals", "changed", status=1)
    stored = result["comparison"]
    assert "Comparison of before and after" in [run["name"] for run in vela.json("ls")]
    vela("rm", *runs, "--yes")
    before = census(vela)

    again = vela.json("compare", "--recheck", stored, status=1)
    assert again["comparison"] == stored and again["signals"][0]["maxDifference"] == 0.5
    vela("compare", "--recheck", stored, "--abs", "0.5", "--no-store")
    vela("compare", "--recheck", stored, "--no-store", status=1)
    vela("compare", "--recheck", stored, "--abs", "0.5")
    kept = vela.json("compare", "--recheck", stored)
    assert (kept["verdict"], kept["signals"][0]["absTol"]) == ("within", 0.5)
    assert census(vela) == before
    vela("check")


def test_nothing_compared_is_never_a_pass(vela, runs, tmp_path):
    (tmp_path / "later.csv").write_text("time [s],same [V]\n10,1\n11,2\n")
    (tmp_path / "other.csv").write_text("time [s],else\n0,1\n1,2\n")
    vela("import", "later.csv", "--run", "later")
    before = census(vela)
    for words, outcome in ((["before", "later", "--signals", "same"], "time mismatch"),
                           (["before", "after", "--signals", "unit"], "unit mismatch"),
                           (["before", "after", "--signals", "gone"], "missing"),
                           (["before.csv", "other.csv", "--signals", "else"], "extra")):
        result = vela.json("compare", *words, "--junit", "out.xml", status=2)
        assert result["verdict"] == "nothing compared" and result["comparison"] is None
        assert set(outcomes(result).values()) == {outcome}
        assert "<error" in (tmp_path / "out.xml").read_text()
    done = vela("compare", "before", "after", "--signals", "nothing*", status=2)
    assert '"nothing*" fits none' in done.stderr
    assert census(vela) == before, "nothing of it is kept"


def test_trouble_is_told_from_a_difference(vela, runs, tmp_path):
    (tmp_path / "ragged.csv").write_text("time,a\n0,1\n1\n2,3\n")
    (tmp_path / "notes.txt").write_text("no recording\n")
    stored = vela.json("compare", "before", "after", status=1)["comparison"]
    before = census(vela)
    for words, clue in (
            (["before", "nobody"], "nobody"), (["before"], "COMPARED"), ([], "BASELINE"),
            (["before", "after", "--abs", "-1"], "-1"), (["before", "after", "--rel", "nan"], "nan"),
            (["before", "after", "--time", "inf"], "inf"), (["before", "after", "--abs", "much"], "much"),
            (["before", "after", "--align", "nearest"], "nearest"),
            (["ragged.csv", "ragged.csv"], "ragged.csv"), (["before", "notes.txt"], "notes.txt"),
            (["before", "missing.csv"], "missing.csv"),
            (["--recheck", "before"], "no comparison"), (["--recheck", "99999"], "99999"),
            (["--recheck", stored, "--abs", "-1"], "-1"), (["before", "--recheck", stored], "recheck"),
            (["before", "after", "--junit", "nowhere/out.xml"], "nowhere/out.xml"),
            (["before", "after", "--junit", "tmp"], "tmp")):
        done = vela("compare", *words, status=2)
        assert done.stdout == "" and clue in done.stderr, words
    assert census(vela) == before


def cases(path):
    """Name and problem (element, type, message) of each test case of a JUnit file."""
    suite = xml.parse(path).getroot().find("testsuite")
    found = [(case.get("name"), [(each.tag, each.get("type"), each.get("message")) for each in case])
             for case in suite.iter("testcase")]
    assert int(suite.get("tests")) == len(found)
    for kind in ("failure", "error"):
        assert int(suite.get(kind + "s")) == sum(problem[0] == kind for _, problems in found for problem in problems)
    return found


def test_junit_has_a_case_a_signal(vela, runs, tmp_path):
    report = tmp_path / "out.xml"
    vela("compare", "before", "after", "--no-store", "--junit", report, status=1)
    assert report.stat().st_mode & 0o400
    found = dict(cases(report))
    assert set(found) == set(EXPECTED)
    for name, outcome in EXPECTED.items():
        kinds = [(tag, kind) for tag, kind, _ in found[name]]
        assert kinds == ([] if outcome == "within" else [("failure", outcome)])
    assert "0.5 at 1 s" in found["changed"][0][2] and "1 of 3 values" in found["changed"][0][2]
    vela("compare", "before", "nobody", "--junit", report, status=2)
    [(_, [(tag, _, message)])] = cases(report)
    assert tag == "error" and "nobody" in message
    assert not list(tmp_path.glob("*.tmp"))


def test_junit_and_table_take_any_name(vela, tmp_path):
    name = "<a>&\"b'\x01 ü"
    (tmp_path / "odd.csv").write_text(f't,"{name.replace(chr(34), chr(34) * 2)}"\n0,1\n1,2\n')
    done = vela("compare", "odd.csv", "odd.csv", "--junit", "out.xml")
    assert "\x01" not in done.stdout
    assert cases(tmp_path / "out.xml") == [(name.replace("\x01", "\ufffd"), [])]
