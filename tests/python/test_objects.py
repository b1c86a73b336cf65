"""The life of a repository object: opening, closing, copying, callbacks, host functions."""

import copy
import gc
import pathlib
import pickle
import sys
import traceback
import weakref

import numpy as np
import pytest

import vela


def test_a_path_opens_a_private_file(path):
    repo = vela.Repository(path)
    assert repo.getSource() == str(path)
    assert repr(repo) == f"<vela.Repository private '{path}'>"
    run = repo.createRun("kept")
    repo.close()
    assert repr(repo) == "<vela.Repository closed>"
    repo.close()
    with vela.Repository(str(path)) as again:
        assert again.getAllRunIDs().tolist() == [run]


def test_no_path_opens_a_temporary_file_that_goes_with_it():
    repo = vela.Repository()
    file = pathlib.Path(repo.getSource())
    assert file.suffix == ".dmr" and file.exists()
    repo.close()
    assert not file.exists()


def test_what_cannot_be_opened_is_refused_with_the_reason(tmp_path):
    other = tmp_path / "other.dmr"
    other.write_text("this is no repository\n" * 200)
    before = other.read_bytes()
    for target in [tmp_path, tmp_path / "missing" / "runs.dmr", other, "", "a\0b"]:
        with pytest.raises((vela.Error, ValueError)) as refusal:
            vela.Repository(target)
        assert str(refusal.value)
    assert other.read_bytes() == before
    assert sorted(each.name for each in tmp_path.iterdir()) == ["other.dmr"]


def test_anything_else_opens_the_shared_repository(script):
    assert script("""
        import vela
        assert not vela.Repository.hasBeenCreated()
        private = vela.Repository("x.dmr")
        del private
        assert not vela.Repository.hasBeenCreated()
        first, second = vela.Repository(None), vela.Repository(1)
        run = first.createRun("shared")
        assert second.getAllRunIDs().tolist() == [run]
        with first:
            pass
        first.close()
        assert first.getRunName(run) == "shared"
        print(repr(first), vela.Repository.hasBeenCreated())
    """) == "<vela.Repository shared> True\n"


def test_a_with_block_rolls_an_open_transaction_back(path):
    with vela.Repository(path) as repo:
        repo.createRun("kept")
        repo.beginTransaction()
        repo.createRun("given up")
    with vela.Repository(path) as repo:
        assert [repo.getRunName(run) for run in repo.getAllRunIDs()] == ["kept"]


def test_objects_are_not_copied_and_take_no_attributes(repo):
    for attempt in [copy.copy, copy.deepcopy, pickle.dumps]:
        with pytest.raises(TypeError, match="pass the path"):
            attempt(repo)
    with pytest.raises(AttributeError):
        repo.createrun = 1
    with pytest.raises(AttributeError):
        repo.createRun = 1
    with pytest.raises(AttributeError):
        del repo.createRun
    assert repo == repo and len({repo, repo}) == 1


def test_subclasses_call_init(path):
    class Notebook(vela.Repository):
        def __init__(self, file, title):
            super().__init__(file)
            self.title = title

    class Forgetful(vela.Repository):
        def __init__(self):
            pass

    with Notebook(path, title="lab") as repo:
        assert repo.getRunCount() == 0 and repo.title == "lab"
        assert "Notebook private" in repr(repo)
        assert repo.safeTransaction(lambda: repo) is repo
    broken = Forgetful()
    assert "not initialized" in repr(broken)
    with pytest.raises(TypeError, match="__init__"):
        broken.getRunCount()
    broken.close()


def test_garbage_collection_closes(path):
    closed = []
    repo = vela.Repository(path)
    file = pathlib.Path(vela.Repository().getSource())
    assert not file.exists()
    weakref.finalize(repo, closed.append, True)
    reference = weakref.ref(repo)
    cycle = [repo]
    cycle.append(cycle)
    del repo, cycle
    gc.collect()
    assert closed == [True] and reference() is None
    with vela.Repository(path) as again:
        assert again.getRunCount() == 0


def test_references_are_not_leaked(repo, run):
    marker = object()
    function = lambda *args: (marker, None)[1]
    values = [np.arange(10.0), "text", {"a": [1, "b"]}, [{"a": 1}], ["x"], 5, np.float32(1)]

    def work():
        for value in values:
            repo.setRunData(run, value)
            repo.getRunData(run)
            repo.safeTransaction(function, value)
        for bad in [object(), "\ud800", {1: 1}]:
            with pytest.raises((TypeError, ValueError)):
                repo.setRunData(run, bad)

    tracked = [None, True, repo, function, *values]
    work()
    before = [sys.getrefcount(each) for each in tracked]
    for _ in range(50):
        work()
    after = [sys.getrefcount(each) for each in tracked]
    assert all(abs(new - old) < 25 for new, old in zip(after, before)), (before, after)


def test_safe_transactions_call_functions_with_their_arguments(repo):
    def work(one, two, three):
        repo.createRun(one)
        return {"arguments": [one, two.tolist(), three is repo]}

    assert repo.safeTransaction(work, "a", [1, 2], repo)["arguments"][0] == "a"
    assert repo.safeTransaction(lambda: None).shape == (0, 0)
    function = lambda: 1
    assert repo.safeTransaction(lambda: function) is function
    for no_function in [None, 5, "createRun"]:
        with pytest.raises((vela.Error, TypeError)):
            repo.safeTransaction(no_function)
    assert repo.getRunCount() == 1


class Strange(BaseException):
    pass


@pytest.mark.parametrize("exception", [KeyError("k"), KeyboardInterrupt(), SystemExit(3), Strange(), vela.Error("a:b:c", "d")])
def test_exceptions_of_functions_come_out_as_they_were(repo, exception):
    def fail():
        repo.createRun("undone")
        repo.safeTransaction(inner)

    def inner():
        raise exception

    with pytest.raises(type(exception)) as caught:
        repo.safeTransaction(fail)
    assert caught.value is exception
    names = [frame.name for frame in traceback.extract_tb(caught.value.__traceback__)]
    assert names[-2:] == ["fail", "inner"]
    assert repo.getRunCount() == 0


def test_a_caught_inner_failure_undoes_only_the_inner_work(repo):
    def outer():
        repo.createRun("outer")
        with pytest.raises(LookupError):
            repo.safeTransaction(inner)

    def inner():
        repo.createRun("inner")
        repo.getRunName(0)

    repo.safeTransaction(outer)
    assert [repo.getRunName(run) for run in repo.getAllRunIDs()] == ["outer"]


def test_results_of_functions_that_have_no_place_raise_and_undo(repo):
    def work():
        repo.createRun("undone")
        return object()

    with pytest.raises(TypeError, match="result must be"):
        repo.safeTransaction(work)
    assert repo.getRunCount() == 0


def test_host_functions_are_set_and_brought_back(repo, run):
    import enum

    class Gear(enum.IntEnum):
        PARK = 1
        DRIVE = 7

    name = "Korvo.vela.createEnumValuesFromClassDefinition"
    calls = []

    def names(samples, labels, class_name, values):
        calls.append((samples.tolist(), labels, class_name, values.tolist()))
        return {"any", "thing"}

    repo.setRunData(run, [Gear.DRIVE, Gear.PARK])
    assert vela.host.register(name, names) is None
    try:
        assert repo.getRunData(run) == {"any", "thing"}
        assert calls == [([7, 1], ["PARK", "DRIVE"], "Gear", [1, 7])]

        def fail(*arguments):
            raise ZeroDivisionError

        assert vela.host.register(name, fail) is names
        with pytest.raises(ZeroDivisionError):
            repo.getRunData(run)
    finally:
        assert vela.host.register(name, None) is not None
    assert repo.getRunData(run)[0] == Gear.DRIVE
    for bad in [(5, len), (name, 5)]:
        with pytest.raises(TypeError):
            vela.host.register(*bad)


def test_preferences_come_from_a_host_function(path):
    name = "Korvo.vela.Engine.getPrefOptions"
    vela.host.register(name, lambda: {"runNameTemplate": "Lauf <run_index>", "showRunAtTop": True})
    try:
        with vela.Repository(path) as repo:
            assert repo.getRunNameTemplate() == "Lauf <run_index>"
    finally:
        vela.host.register(name, None)


def test_chunk_sizes_are_checked():
    for bad, exception in [(-1, OverflowError), ("a", TypeError), (2**40, OverflowError), (True, TypeError)]:
        with pytest.raises(exception, match="setMinimumChunkNumBytes"):
            vela.setMinimumChunkNumBytes(bad)
