"""Threads, forks, reimports and the end of the interpreter."""

import threading
import time

import vela


def test_threads_take_turns_with_a_transaction_that_runs_python(repo):
    inside = threading.Event()
    failures = []

    def transaction():
        inside.set()
        for index in range(100):
            repo.createRun(f"a{index}")
            # Lets the other thread run, which then waits for the repository.
            time.sleep(0.0002)

    def writer():
        try:
            repo.safeTransaction(transaction)
        except BaseException as failure:
            failures.append(failure)

    thread = threading.Thread(target=writer)
    thread.start()
    inside.wait()
    for index in range(100):
        repo.createRun(f"b{index}")
        repr(repo)
    thread.join(60)
    assert not thread.is_alive() and not failures
    names = [repo.getRunName(run) for run in repo.getAllRunIDs()]
    assert sorted(names) == sorted([f"{who}{index}" for who in "ab" for index in range(100)])


def test_many_threads_on_many_repositories(tmp_path, repo):
    failures = []

    def work(number):
        try:
            with vela.Repository(tmp_path / f"{number}.dmr") as own:
                for index in range(20):
                    run = own.createRun(str(index))
                    own.setRunData(run, list(range(index)))
                    repo.safeTransaction(lambda: own.setRunTag(run, repo.getSource()))
                    vela.Repository(tmp_path / f"{number}-{index}.dmr")
                assert own.getRunCount() == 20
        except BaseException as failure:
            failures.append(failure)

    threads = [threading.Thread(target=work, args=(number,)) for number in range(4)]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join(120)
    assert not failures and not any(thread.is_alive() for thread in threads)


def test_closing_while_another_thread_works(path):
    for _ in range(20):
        repo = vela.Repository(path)
        outcomes = []

        def work():
            try:
                while True:
                    repo.createRun("x")
                    repr(repo)
            except vela.Error as refusal:
                outcomes.append(refusal.identifier)

        thread = threading.Thread(target=work)
        thread.start()
        time.sleep(0.003)
        repo.close()
        thread.join(60)
        assert len(outcomes) == 1


def test_a_forked_child_gets_an_error_and_opens_anew(script):
    assert script("""
        import os, vela
        repo = vela.Repository("runs.dmr")
        run = repo.createRun("parent")
        child = os.fork()
        if not child:
            try:
                repo.getRunName(run)
                os._exit(1)
            except vela.Error:
                pass
            del repo
            with vela.Repository("runs.dmr") as own:
                os._exit(0 if own.createRun("child") else 2)
        print(os.waitpid(child, 0)[1])
        print(sorted(repo.getRunName(run) for run in repo.getAllRunIDs()))
    """) == "0\n['child', 'parent']\n"


def test_the_interpreter_ends_with_everything_open(script, tmp_path):
    script("""
        import atexit, sys, threading, time, vela
        atexit.register(lambda: repo.createRun("at exit"))
        repo = vela.Repository("runs.dmr")
        repo.createRun("kept")
        temporary = vela.Repository()
        print(temporary.getSource())
        shared = vela.Repository(None)
        shared.createRun("shared")
        other = vela.Repository("other.dmr")
        other.beginTransaction()
        other.createRun("given up")
        class Late:
            def __del__(self):
                try:
                    repo.createRun("too late")
                except vela.Error:
                    pass
        sys.late = Late()
        cycle = [repo, shared, temporary]
        cycle.append(cycle)
        iterator = iter(lambda: repo.getRunCount(), None)
        next(iterator)
    """)
    with vela.Repository(tmp_path / "runs.dmr") as repo:
        assert [repo.getRunName(run) for run in repo.getAllRunIDs()] == ["kept", "at exit"]
    with vela.Repository(tmp_path / "other.dmr") as repo:
        assert repo.getRunCount() == 0
    left = {each.name for each in tmp_path.glob("*.dmr")} - {"runs.dmr", "other.dmr"}
    assert len(left) == 1, left  # the shared one


def test_threads_that_never_end_do_not_keep_the_process(script):
    started = time.monotonic()
    script("""
        import threading, time, vela
        repo = vela.Repository("runs.dmr")
        def forever():
            while True:
                repo.safeTransaction(lambda: time.sleep(0.001))
        def stuck():
            repo.safeTransaction(lambda: time.sleep(3600))
        threading.Thread(target=forever, daemon=True).start()
        time.sleep(0.1)
        threading.Thread(target=stuck, daemon=True).start()
        time.sleep(0.1)
    """)
    assert time.monotonic() - started < 60


def test_exceptions_of_the_last_moment_do_not_crash(script):
    script("""
        import sys, vela
        repo = vela.Repository("runs.dmr")
        def leave():
            repo.createRun("undone")
            sys.exit(7)
        repo.safeTransaction(leave)
    """, status=7)


def test_importing_again_changes_nothing(script):
    script("""
        import importlib, sys, vela
        repo = vela.Repository("runs.dmr")
        cls, error = vela.Repository, vela.Error
        importlib.reload(vela)
        assert vela.Repository is cls and vela.Error is error
        importlib.reload(sys.modules["vela._vela"])
        assert repo.getRunCount() == 0 and isinstance(repo, vela.Repository)
    """)


def test_other_interpreters_are_refused(script):
    script("""
        import _xxsubinterpreters as interpreters
        import vela
        other = interpreters.create()
        try:
            interpreters.run_string(other, "import vela._vela")
        except interpreters.RunFailedError as refusal:
            assert "main interpreter" in str(refusal) or "numpy" in str(refusal), refusal
        else:
            raise SystemExit("imported")
    """)
