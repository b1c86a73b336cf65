"""Saving, loading, and what tells where the time goes."""

import numpy
import pytest

import vela


@pytest.fixture
def saved(repo, run, tmp_path):
    repo.setRunTag(run, "kept")
    repo.setRunData(run, {"a": numpy.arange(3)})
    path = tmp_path / "saved.h5"
    repo.save(path)
    return path


def test_a_saved_run_is_loaded_as_another_one(repo, run, saved):
    repo.load(saved)
    loaded = [each for each in repo.getAllRunIDs() if each != run]
    assert len(loaded) == 1
    assert repo.getRunTag(loaded[0]) == "kept"
    assert repo.getRunData(loaded[0])["a"].tolist() == [0, 1, 2]
    assert repo.getRunNumber(loaded[0]) == repo.getRunNumber(run) + 1


def test_progress_is_told_and_can_stop_the_work(repo, run, saved):
    steps = []
    assert vela.set_progress(lambda *step: steps.append(step)) is None
    try:
        repo.save(saved)
        assert steps and all(isinstance(message, str) and value <= maximum for message, value, maximum in steps)

        class Stop(Exception):
            pass

        def stop(message, value, maximum):
            raise Stop

        vela.set_progress(stop)
        before = saved.read_bytes()
        for work in (repo.save, repo.load):
            with pytest.raises(Stop):
                work(saved)
        assert saved.read_bytes() == before
        assert list(repo.getAllRunIDs()) == [run]
        with pytest.raises(TypeError):
            vela.set_progress(1)
    finally:
        vela.set_progress(None)


def test_what_is_no_saved_file_changes_nothing(repo, run, tmp_path):
    path = tmp_path / "text"
    path.write_text("no saved runs")
    for name in (path, tmp_path, tmp_path / "absent"):
        with pytest.raises(vela.Error) as failure:
            repo.load(name)
        assert failure.value.identifier in ("nexstore:nex:CouldNotReadMatFile", "nexstore:nex:InvalidFile")
    with pytest.raises(vela.Error) as failure:
        repo.save(tmp_path / "missing" / "file")
    assert failure.value.identifier == "nexstore:nex:CouldNotWriteToMatFile"
    assert list(repo.getAllRunIDs()) == [run]


def test_queries_of_shared_repositories_are_counted():
    repo = vela.Repository(None)
    vela.Repository.purgeQueryLog()
    repo.findObjects("DataSet")
    log = vela.Repository.getQueryLog()
    assert set(log) == {"MainThreadLog", "AllThreadsLog"}
    assert any("DataSet" in str(row) for row in log["AllThreadsLog"])
    vela.Repository.resetTracer()
    assert vela.Repository.getTracerResults() == {}
