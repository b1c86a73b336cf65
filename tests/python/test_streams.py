"""Streams of the shared repository."""

import numpy
import pytest

import vela


def test_rows_come_back_as_arrays():
    stream = vela.Stream.create(2)
    stream.append([1, 0], [[3, 4], [1, 2]])
    stream.append(2, [[5, 6]])
    times, values = stream.read()
    assert times.tolist() == [0, 1, 2]
    assert values.tolist() == [[1, 2], [3, 4], [5, 6]]
    assert stream.read(1, 2, first=1)[1].tolist() == [[3, 4]]
    assert stream.read(last=1)[0].tolist() == [2]
    empty = stream.read(7)
    assert empty[0].shape == (0,) and empty[1].shape == (0, 2)

    stream.update([1, 1.5], numpy.ones((2, 2), dtype="f4", order="F"))
    stream.delete([0, 99])
    assert vela.Stream(stream.name).read()[0].tolist() == [1, 1.5, 2]
    assert stream.read(1, 1.5)[1].tolist() == [[1, 1], [1, 1]]


def test_one_channel_takes_plain_lists():
    stream = vela.Stream.create(1)
    stream.append(range(1000), numpy.arange(1000))
    assert stream.read(998)[1].tolist() == [[998], [999]]


def test_what_does_not_fit_changes_nothing():
    stream = vela.Stream.create(2)
    stream.append([0], [[1, 2]])
    with pytest.raises(vela.Error) as failure:
        stream.append([1], [[1, 2, 3]])
    assert failure.value.identifier == "nexstore:nex:InvalidDimensions"
    for times, values in (([1, 2], [[1, 2]]), ([[1, 2], [3, 4]], [[1, 2]]), ([1], "text"), ([1, 2], [1, 2, 3, 4]),
                          ([1], [1, 2]), ([1, 2], numpy.ones((2, 1, 2))), ([1], [[1j, 2]])):
        with pytest.raises(vela.DataError):
            stream.append(times, values)
    with pytest.raises(vela.Error):
        stream.update([float("nan")], [[1, 2]])
    with pytest.raises(vela.Error) as failure:
        vela.Stream("no such stream")
    assert failure.value.identifier == "nexstore:nex:NoSuchSignal"
    assert stream.read()[1].tolist() == [[1, 2]]


def test_one_time_takes_the_values_of_its_channels():
    stream = vela.Stream.create(2)
    stream.append(0, [1, 2])
    stream.append(1, numpy.ma.array([3.0, 4.0], mask=[False, True]))
    values = stream.read()[1]
    assert values[0].tolist() == [1, 2] and values[1, 0] == 3 and numpy.isnan(values[1, 1])


def test_bad_arguments_name_call_and_input():
    stream = vela.Stream.create(1)
    for call, refusal, words in [
        (lambda: vela.Stream(5), TypeError, "Stream: name must be str, not int"),
        (lambda: vela.Stream.create("a"), TypeError, "create: channels must be int, not str"),
        (lambda: vela.Stream.create(-1), OverflowError, "create: channels is out of range"),
        (lambda: stream.read("a"), TypeError, "read: start must be float, not str"),
        (lambda: stream.read(float("nan")), ValueError, "read: start must be a time, not NaN"),
        (lambda: stream.read(first=1.5), TypeError, "read: first must be a whole number"),
        (lambda: stream.set_metadata(1, "a"), TypeError, "set_metadata: key must be str, not int"),
    ]:
        with pytest.raises(refusal, match="^" + words):
            call()


def test_metadata_are_texts_and_numbers():
    stream = vela.Stream.create(1)
    stream.set_metadata("unit", "m/s")
    stream.set_metadata("rate", 0)
    stream.set_metadata("rate", 10)
    assert stream.metadata == {"unit": "m/s", "rate": 10.0}
    with pytest.raises(TypeError):
        stream.set_metadata("rate", None)
