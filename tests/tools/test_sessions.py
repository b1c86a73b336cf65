"""Runs of sessions that have ended: listed, adopted, discarded; copies; space."""


def states(vela):
    return [(session["state"], [run["name"] for run in session["runs"]]) for session in vela.json("sessions")]


def test_runs_of_ended_sessions_are_adopted_in_their_order(vela, drive):
    # Without a repository of its own, every call is a session of the shared one.
    vela("import", drive, "--run", "first")
    vela("import", drive, "--run", "second")
    assert states(vela) == [("closed", ["first"]), ("closed", ["second"])]

    adopted = vela.json("adopt")["adopted"]
    assert [run["name"] for run in vela.json("ls") if run["id"] in adopted] == ["first", "second"]
    assert [run["number"] for run in vela.json("ls")] == [1, 2]
    assert states(vela) == [("closed", ["first", "second"])]
    assert "is whole" in vela("check").stdout


def test_looking_changes_no_session(vela, drive):
    vela("import", drive, "--run", "first")
    vela("import", drive, "--run", "second")
    before = vela("sessions").stdout
    for words in (["ls"], ["ls", "first"], ["info"], ["cat", "gear", "--run", "first"], ["du"], ["check"], ["sessions"],
                  ["save", "all.dat"], ["rm", "--purge", "--yes"]):
        vela(*words)
        assert vela("sessions").stdout == before, words
    vela("undo-overwrite", status=2)
    assert states(vela) == [("closed", ["first"]), ("closed", ["second"])]


def test_discarding_wants_a_word_and_leaves_nothing(vela, drive):
    vela("import", drive)
    assert "--yes" in vela("discard", status=2).stderr
    assert len(vela.json("ls")) == 1
    assert vela.json("discard", "--yes")["discarded"] == 1
    assert vela.json("ls") == []
    assert vela.json("sessions") == []


def test_a_copy_lives_on_without_its_original(vela, drive):
    vela("import", drive, "--run", "drive", "--into", "lab.dmr")
    before = vela("cat", "speed", "-r", "lab.dmr").stdout
    copy = vela.json("cp", "drive", "--name", "copy", "-r", "lab.dmr")["id"]
    vela("rm", "drive", "--yes", "-r", "lab.dmr")
    assert [run["id"] for run in vela.json("ls", "-r", "lab.dmr")] == [copy]
    assert vela("cat", "speed", "--run", "copy", "-r", "lab.dmr").stdout == before
    assert "no run" in vela("cp", "drive", "-r", "lab.dmr", status=2).stderr


def test_removing_gives_the_disk_its_space_back(vela, tmp_path):
    rows = "\n".join(f"{i},{i % 7}" for i in range(200_000))
    (tmp_path / "big.csv").write_text("time,x\n" + rows + "\n")
    vela("import", "big.csv", "--run", "big", "--into", "lab.dmr")
    full = vela.json("du", "-r", "lab.dmr")["fileBytes"]
    vela("rm", "big", "--yes", "-r", "lab.dmr")
    vela("compact", "-r", "lab.dmr")
    space = vela.json("du", "-r", "lab.dmr")
    assert space["fileBytes"] == (tmp_path / "lab.dmr").stat().st_size < full - 3_000_000
    assert space["freeBytes"] + space["logBytes"] + space["purgeableBytes"] == 0


def test_what_is_not_there_is_named(vela, drive):
    for words in (["sessions"], ["adopt"], ["discard", "--yes"], ["compact"], ["du"], ["undo-overwrite"], ["cp", "1"]):
        assert "There is no repository" in vela(*words, "-r", "absent.dmr", status=2).stderr
    vela("import", drive, "--into", "lab.dmr")
    assert "kept aside" in vela("undo-overwrite", "-r", "lab.dmr", status=2).stderr
    assert vela.json("rm", "--purge", "--yes", "-r", "lab.dmr")["purged"] == 0
    assert "--purge" in vela("rm", "drive", "--purge", "-r", "lab.dmr", status=2).stderr
