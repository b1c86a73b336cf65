"""How methods are declared, documented and called, and what they refuse."""

import ast
import inspect
import pathlib
import pickle
import pydoc

import numpy as np
import pytest

import vela
from vela import _vela

NAMES = set("""
createObject removeObject setProperty getProperty addChild removeChild getChildren findObjects
getSource getLock setLock beginTransaction commitTransaction rollbackTransaction safeTransaction
throwCorruptDatabase hasBeenCreated sessionRequiresRaccelImport setPersistentDMRFeature
clearRepositoryFile load save getQueryLog purgeQueryLog enableDBTrace enableDBProfile
getTracerResults resetTracer

createRun createEmptyRun createViewRun createComparisonRun copyRun getRunData setRunData removeRun
deleteAllRuns deleteRunsAndSignals purgeDeletedRuns hasDataFromPriorSession
discardDataFromPriorSession importDataFromPriorSession importCompletedRapidAccelRuns addSignal
getSignalCount getRunCount getRunID getRunIDByIndex getAllRunIDs getAllSignalIDs getRunApp
getRunAppAsString getRunName setRunName getRunDisplayName getRunDescription setRunDescription
getRunTag setRunTag getRunModel setRunModel getRunSimMode setRunSimMode getRunNumber setRunNumber
getRunIndex setRunIndex getRunStartTime setRunStartTime getRunStopTime setRunStartAndStopTime
getDateCreated setDateCreated getDateCreatedString getVersion getRunWasVisualizeOnly
setRunWasVisualizeOnly getOverwrite setOverwrite getOverWriteSetID getPriorOverwriteRunID
uncheckOverwrittenSignals uncheckAllSignalsInRun getBaselineRunID getCompareToRunID
getCurrentStreamingRunID getRunIsActivelyStreaming isValidRunID getRunNameTemplate
setRunNameTemplate restoreRunNameTemplate getHighestRunNumber setHighestRunNumber getShowRunAtTop
setShowRunAtTop addPausedModel removePausedModel getRunIDFromModel updatePausedModelRunID
getRunHarnessModelMetaData setRunHarnessModelMetaData getUniqueRunAndSignalIDs
getCheckedSignalsFromDbIDs runHasEnumSignals runHasCustomHierarchy runHasDataHierarchy

createSignal createDoubleScalarSignal add appendSignalData getSignalDataValues setSignalDataValues
getHierarchicalSignalData getLeafDataFromStructuredData getNumberOfChunks rollback remove
mergeSignals setParent getSignalParent getSignalChildren getSignalSource findCopiedCompareSignal
findAlignedSignalFromRun addSignalComparison updateSignalComparison getIsWithinTol getSignalAbsTol
setSignalAbsTol getSignalRelTol setSignalRelTol getSignalAlignedBy getSignalSyncMethod
setSignalSyncMethod getSignalInterpMethod setSignalInterpMethod getSignalLineColor
setSignalLineColor getSignalLineDashed setSignalLineDashed getSignalMarker setSignalMarker
getSignalSourceType setSignalSourceType getSignalMetaData setSignalMetaData getSignalChecked
setSignalChecked getSignalSampleDims setSignalSampleDims getSignalChannel
getSignalComplexityAndLeafPath getSignalBlockSource setSignalBlockSource
getSignalHierarchyReference setSignalHierarchyReference setLeafBusSignal getSignalTimeSource
getSignalRootSource getRootDataSource getSignalDataSource setSignalDataSource getSignalModelSource
getSignalExportProps getSignalLabel setSignalLabel getSignalName getSignalSID getUnit setUnit
getSignalDataTypeLabel getSignalPortIndex getSignalRunID getSignalTimeDim getSignalIDByDataSource
getSignalIDByIndex getAllCheckedSignals getLeavesForInstrumentedSignal getHierarchicalSignalRootID
signalIsInHierarchy signalIsEmpty isEnum isValidSignal isSignalCountZero isSignalStreamed
getSignalIsActivelyStreaming clearMinMaxDirectReadOkayFlag resetSignalColors

close
""".split())

METHODS = {entry["name"]: entry for entry in _vela.declarations["Repository"] if entry["name"] != "__init__"}


def test_public_names_are_those_that_are_documented():
    assert {name for name in dir(vela.Repository) if not name.startswith("_")} == NAMES
    assert set(METHODS) == NAMES - {"close"}


def test_signatures_follow_the_declarations(repo):
    for name, entry in METHODS.items():
        expected = [] if entry["static"] else ["self"]
        expected += [parameter for parameter, _, _ in entry["inputs"]] + ["args"] * entry["more"]
        signature = inspect.signature(getattr(vela.Repository, name))
        assert list(signature.parameters) == expected
        for parameter, _, optional in entry["inputs"]:
            assert (signature.parameters[parameter].default is None) == optional
        bound = inspect.signature(getattr(repo, name))
        assert list(bound.parameters) == expected[0 if entry["static"] else 1:]
    assert str(inspect.signature(vela.Repository.createRun)) == "(self, name, /)"
    assert list(inspect.signature(vela.Repository).parameters) == ["file", "readOnly"]


def test_help_reads_well(repo):
    text = pydoc.plain(pydoc.render_doc(vela.Repository.createRun))
    lines = [line.strip() for line in text.splitlines()]
    assert any(line.startswith("createRun(self, name, /)") for line in lines)
    for line in ["Parameters", "name : str (unicodeString)", "Returns", "runID : int (int32 scalar)"]:
        assert line in lines
    whole = pydoc.plain(pydoc.render_doc(vela.Repository))
    assert "Korvo VELA Data Container" in whole
    for name in NAMES:
        assert f"{name}(" in whole
        assert inspect.getdoc(getattr(vela.Repository, name)).strip()
    assert "nexstore:nex:NoSuchRun" in vela.Repository.getRunName.__doc__
    assert repr(vela.Repository.createRun) == "<method Repository.createRun>"
    assert vela.Repository.__module__ == vela.Repository.createRun.__module__ == "vela"


def test_stubs_declare_what_the_classes_have():
    package = pathlib.Path(_vela.__file__).parent
    assert (package / "py.typed").exists()
    tree = ast.parse((package / "_vela.pyi").read_text())
    classes = {node.name: node for node in tree.body if isinstance(node, ast.ClassDef)}
    methods = {node.name: node for node in classes["Repository"].body if isinstance(node, ast.FunctionDef)}
    assert {name for name in methods if not name.startswith("_")} == NAMES
    assert ast.unparse(methods["getRunName"].args) == "self, runID: Any"
    assert ast.unparse(methods["getRunName"].returns) == "str"


def test_inputs_may_be_named(repo):
    run = repo.createRun(name="first")
    repo.setRunTag(run, tag="x")
    assert repo.getRunTag(runID=run) == "x"
    assert vela.Repository.getRunTag(repo, run) == "x"
    assert repo.getAllRunIDs(None).tolist() == repo.getAllRunIDs(application=None).tolist() == [run]


def test_calls_of_the_wrong_form_name_method_and_input(repo):
    for call, text in [
        (lambda: repo.createRun(), 'createRun: needs the input "name"'),
        (lambda: repo.createRun("a", "b"), "createRun: takes at most 1 input, 2 were given"),
        (lambda: repo.createRun("a", name="b"), 'createRun: input "name" is given twice'),
        (lambda: repo.createRun(title="b"), 'createRun: has no input "title"'),
        (lambda: repo.createRun(5), "createRun: name must be str, not int"),
        (lambda: repo.createRun(b"x"), "createRun: name must be str, not bytes"),
        (lambda: vela.Repository.createRun("x"), 'createRun: needs the input "name"'),
        (lambda: vela.Repository.createRun(3, "x"), "createRun: .* must be vela.Repository, not int"),
        (lambda: vela.Repository.hasBeenCreated(1), "hasBeenCreated: takes at most 0 inputs"),
        (lambda: vela.Repository("a", True, 3), "Repository: takes at most 2 inputs"),
    ]:
        with pytest.raises(TypeError, match=text):
            call()


# Inputs that fit a declared type; of "any" that is no ID, a number.
FITTING = {"int": 1, "float": 1.0, "bool": True, "str": "text", "Sequence[int]": [], "Any": 0,
           "str | os.PathLike[str]": "text"}

NOTHING = 2**31 - 1
BAD = {
    "no value": object(),
    "half a surrogate pair": "\ud800",
    "out of range": 2**70,
    "not a number": float("nan"),
    "text": "text",
    "an ID of nothing": NOTHING,
    "an ID of another class": None,  # filled in
    "a table": np.ones((2, 2)),
}
# What the signature refuses, in the order of BAD; None where the method itself has to look.
SIGNATURE_REFUSES = {
    "int": [TypeError, TypeError, OverflowError, TypeError, TypeError, None, None, TypeError],
    "float": [TypeError, TypeError, None, None, TypeError, None, None, TypeError],
    "bool": [TypeError] * 8,
    "str | os.PathLike[str]": [TypeError, ValueError, TypeError, TypeError, None, TypeError, TypeError, TypeError],
    "str": [TypeError, ValueError, TypeError, TypeError, None, TypeError, TypeError, TypeError],
    "Sequence[int]": [TypeError, TypeError, OverflowError, TypeError, TypeError, None, None, TypeError],
    "Any": [TypeError, ValueError, OverflowError] + [None] * 5,
}
# These ask whether there is such a run or signal, or look for runs by what they once were.
ANSWERS_FOR_ANY_NUMBER = {"isValidRunID", "isValidSignal", "runHasEnumSignals", "updatePausedModelRunID"}


# Lists of bytes, for which the IDs of the sweep are out of range.
BYTES = {"plots"}
# IDs of signals that are not called so.
SIGNALS = {"signalID", "parentID", "targetID", "sourceID", "comparisonID", "baseline", "compareTo"}


def is_id(parameter):
    return parameter.endswith("ID") or parameter in SIGNALS


def fitting(parameter, annotation, run, signal):
    if annotation == "Any" and parameter in SIGNALS:
        return signal
    if annotation in ("Any", "int") and parameter.lower().endswith("runid"):
        return run
    return FITTING[annotation]


def contents(repo):
    """Everything a bad call must leave alone, as a text: NaN differs from itself."""
    return repr([(run, repo.getRunName(run), repo.getRunTag(run), repo.getRunNumber(run),
             repo.getSignalCount(run),
             [(repo.getSignalName(signal), repo.getUnit(signal), repo.getSignalAbsTol(signal),
               repo.getSignalLineColor(signal).tolist(), repo.getSignalParent(signal),
               repo.getSignalDataValues(signal).tolist()) for signal in repo.getAllSignalIDs(run)])
            for run in repo.getAllRunIDs()])


@pytest.mark.parametrize("name", sorted(METHODS))
def test_calls_need_the_declared_number_of_inputs(repo, name):
    entry = METHODS[name]
    method = getattr(repo, name)
    if any(not optional for _, _, optional in entry["inputs"]):
        with pytest.raises(TypeError, match=f"{name}: needs the input"):
            method()
    if not entry["more"]:
        with pytest.raises(TypeError, match=f"{name}: takes at most"):
            method(*[0] * (len(entry["inputs"]) + 1))


@pytest.mark.parametrize("name, position", [
    (name, position) for name, entry in sorted(METHODS.items()) if not entry["static"]
    for position in range(len(entry["inputs"]))])
def test_bad_inputs_are_refused_and_change_nothing(repo, run, name, position):
    declared = METHODS[name]["inputs"]
    parameter, annotation, optional = declared[position]
    other = repo.createObject("RunNumberByRunID")
    signal = repo.createSignal(run)
    repo.appendSignalData(signal, [0, 1], [1.5, 2.5])
    for (what, bad), refusal in zip(BAD.items(), SIGNATURE_REFUSES[annotation]):
        if parameter in BYTES and what.startswith("an ID"):
            refusal = OverflowError
        inputs = [fitting(each, kind, run, signal) for each, kind, _ in declared[:position]]
        inputs.append(other if what == "an ID of another class" else bad)
        inputs += [fitting(each, kind, run, signal)
                   for each, kind, optional in declared[position + 1:] if not optional]
        before = contents(repo)
        try:
            getattr(repo, name)(*inputs)
        except vela.Error as error:
            assert refusal is None, what
            assert error.message and "0x" not in error.message
        except (TypeError, ValueError, OverflowError) as error:
            assert isinstance(error, refusal or ()), (what, error)
            assert str(error).startswith(f"{name}: "), error
        else:
            assert refusal is None, what
            # Numbers that are no ID and IDs of something else are for the method to find out.
            names_nothing = annotation == "Any" and is_id(parameter) and not optional
            answers = name in ANSWERS_FOR_ANY_NUMBER and isinstance(inputs[position], (int, float))
            assert answers or not names_nothing, what
            continue
        assert contents(repo) == before, what


@pytest.mark.parametrize("name", sorted(name for name, entry in METHODS.items() if not entry["static"]))
def test_a_closed_repository_refuses_every_method(path, name):
    repo = vela.Repository(path)
    repo.close()
    inputs = [FITTING[kind] for _, kind, optional in METHODS[name]["inputs"] if not optional]
    if name == "safeTransaction":
        inputs = [lambda: None]
    with pytest.raises(vela.Error) as refusal:
        getattr(repo, name)(*inputs)
    assert refusal.value.identifier.startswith(("nexstore:", "KODD:"))


def test_errors_carry_identifier_message_and_causes(repo, run):
    with pytest.raises(vela.Error) as caught:
        repo.getRunName(run + 1)
    error = caught.value
    assert error.identifier == "nexstore:nex:NoSuchRun"
    assert str(error) == f"{error.identifier}: {error.message}" and error.message
    assert isinstance(error, LookupError) and isinstance(error, RuntimeError)
    with pytest.raises(ValueError) as refused:
        repo.getRunName("no number")
    assert refused.value.identifier == "nexstore:nex:NumericScalarExpected"

    copy = pickle.loads(pickle.dumps(error))
    assert type(copy) is type(error)
    assert (copy.identifier, copy.message, copy.causes) == (error.identifier, error.message, error.causes)


def test_causes_tell_the_way_an_error_came(repo, run):
    cause = vela.Error("a:b:Inner", "inner")
    outer = vela.Error("a:b:Outer", "outer", [cause])
    assert outer.causes == (cause,) and outer.__cause__ is cause
    copy = pickle.loads(pickle.dumps(outer))
    assert copy.causes[0].identifier == "a:b:Inner" and copy.__cause__ is copy.causes[0]
    with pytest.raises(vela.Error) as caught:
        repo.removeRun(run + 1)
    assert all(isinstance(each, vela.Error) for each in caught.value.causes)
    assert not caught.value.identifier.endswith("DictFuncThrewException")


def test_logical_values_and_fractions_are_no_ids(repo, run):
    for value in [True, 1.5, [], [run, run], None, "a", {}]:
        with pytest.raises(vela.Error, match="NumericScalarExpected|NoSuchRun"):
            repo.getRunName(value)
    assert repo.getRunName(float(run)) == repo.getRunName(np.int32(run)) == "a run"
