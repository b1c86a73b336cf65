"""What goes in comes out: every kind of value through the data of a run."""

import array
import collections
import enum
import math
import struct

import numpy as np
import pandas
import pytest

import vela


class Gear(enum.IntEnum):
    PARK = -1
    DRIVE = 5
    REVERSE = 2


def same(left, right):
    """Equal in class, dtype, shape, nesting and bits."""
    if type(left) is not type(right):
        return False
    if isinstance(left, np.ndarray):
        if left.dtype == object:
            return left.shape == right.shape and all(map(same, left.flat, right.flat))
        return left.dtype == right.dtype and left.shape == right.shape and left.tobytes() == right.tobytes()
    if isinstance(left, np.generic):
        return left.tobytes() == right.tobytes()
    if isinstance(left, dict):
        return list(left) == list(right) and all(same(left[key], right[key]) for key in left)
    if isinstance(left, list):
        return len(left) == len(right) and all(map(same, left, right))
    return left == right


@pytest.fixture
def through(repo, run):
    """Stores a value and reads it back."""

    def round_trip(value):
        repo.setRunData(run, value)
        return repo.getRunData(run)

    return round_trip


NUMBER_TYPES = ["f8", "f4", "i1", "u1", "i2", "u2", "i4", "u4", "i8", "u8", "?", "c16", "c8"]


@pytest.mark.parametrize("code", NUMBER_TYPES)
def test_arrays_keep_type_shape_and_bits(through, code):
    values = np.random.default_rng(7).integers(0, 256, 64, dtype=np.uint8)
    numbers = (values % 2).astype("?") if code == "?" else np.frombuffer(values.tobytes(), code)[:4]
    numbers = np.resize(numbers, 24)
    for shape in [(24,), (1,), (0,), (4, 6), (1, 24), (24, 1), (2, 3, 4), (0, 0), (0, 3), (2, 0, 2)]:
        given = numbers[: math.prod(shape)].reshape(shape)
        assert same(through(given), given), shape
    if code != "?":
        assert same(through(numbers[0]), numbers[0])
    else:
        assert through(np.True_) is True


def test_layouts_do_not_matter(through):
    wide = np.arange(120, dtype=np.int32).reshape(4, 5, 6)
    unaligned = np.frombuffer(b"x" + np.arange(5.0).tobytes(), dtype="f8", offset=1)
    frozen = np.arange(3.0)
    frozen.flags.writeable = False
    for given in [
        wide.T, wide[::2, ::-1, 1:5], wide.astype(">i4"), wide.transpose(1, 2, 0), unaligned, frozen,
        np.asfortranarray(wide), np.broadcast_to(np.float32(2), (3, 2)),
    ]:
        expected = np.ascontiguousarray(given).astype(given.dtype.newbyteorder("="))
        result = through(given)
        assert same(np.ascontiguousarray(result), expected)
        assert result.flags.f_contiguous and result.flags.writeable


def test_numbers_keep_every_bit(through):
    quiet = struct.unpack("<d", struct.pack("<Q", 0x7FF8DEADBEEF0001))[0]
    doubles = np.array([quiet, -0.0, 5e-324, math.inf, -math.inf, 1.7976931348623157e308])
    assert same(through(doubles), doubles)
    for number in doubles:
        assert same(through(number), number)
    large = np.array([2**63 - 1, -(2**63), 2**53 + 1])
    assert same(through(large), large)
    assert same(through(2**53 + 1), np.int64(2**53 + 1))
    assert same(through(2**64 - 1), np.uint64(2**64 - 1))
    assert same(through([2**63, 2**64 - 1]), np.array([2**63, 2**64 - 1], dtype=np.uint64))
    # numpy would turn these into doubles.
    assert same(through([2**63, -1]), [np.uint64(2**63), np.int64(-1)])


@pytest.mark.parametrize("given, expected", [
    (None, np.empty((0, 0))),
    ([], np.empty((0, 0))),
    (True, True),
    (3, np.int64(3)),
    (2.5, np.float64(2.5)),
    (1 - 2j, np.complex128(1 - 2j)),
    (np.array(2.5), np.float64(2.5)),
    ("", ""),
    ("A\0b \U0001f600 ü", "A\0b \U0001f600 ü"),
    (np.str_("text"), "text"),
    ([1, 2], np.array([1, 2])),
    ((1, 2.5), np.array([1, 2.5])),
    ([True, False], np.array([True, False])),
    ([[1, 2], [3, 4]], np.array([[1, 2], [3, 4]])),
    ([np.float32(1), np.float32(2)], np.array([1, 2], dtype="f4")),
    (range(3), np.array([0, 1, 2])),
    (array.array("h", [1, -2]), np.array([1, -2], dtype=np.int16)),
    (b"\x00\xff", np.array([0, 255], dtype=np.uint8)),
    (pandas.Series([1.5, 2.5]), np.array([1.5, 2.5])),
    (["a", ""], ["a", ""]),
    (np.array(["a", "bc"]), ["a", "bc"]),
    (np.array([["a", "b"], ["c", "d"]]), [["a", "b"], ["c", "d"]]),
    ([[1, 2], [3]], [np.array([1, 2]), np.array([3])]),
    ([1, "a", None], [np.int64(1), "a", np.empty((0, 0))]),
    ([np.array([1, 2]), np.array([3, 4])], [np.array([1, 2]), np.array([3, 4])]),
    ({}, {}),
    ({"b": 1, "a": {"c": "x"}}, {"b": np.int64(1), "a": {"c": "x"}}),
    ([{"a": 1, "b": "x"}, {"b": "y", "a": 2}],
     [{"a": np.int64(1), "b": "x"}, {"a": np.int64(2), "b": "y"}]),
    ([{"a": 1}], [{"a": np.int64(1)}]),
    ([{"a": 1}, {"b": 2}], [{"a": np.int64(1)}, {"b": np.int64(2)}]),
    (collections.OrderedDict(z=1), {"z": np.int64(1)}),
])
def test_values_come_back_as_documented(through, given, expected):
    assert same(through(given), expected)
    # What was read can be written again without a change.
    assert same(through(through(given)), expected)


def test_enumerations_come_back_as_members_of_an_equal_class(through):
    grid = np.empty((2, 3), dtype=object)
    grid[...] = [[Gear.PARK, Gear.DRIVE, Gear.PARK], [Gear.REVERSE, Gear.DRIVE, Gear.DRIVE]]
    for given in [grid, list(grid.flat), grid.T]:
        result = through(given)
        wanted = np.array(given, dtype=object)
        assert result.shape == wanted.shape and (result == wanted).all()
        cls = type(result.flat[0])
        assert cls.__name__ == "Gear" and issubclass(cls, enum.IntEnum)
        assert [(member.name, member.value) for member in cls] == [
            (member.name, member.value) for member in Gear]
    first, second = through([Gear.PARK])[0], through([Gear.DRIVE])[0]
    assert type(first) is type(second)
    single = through(Gear.DRIVE)
    assert single.shape == () and single[()] == Gear.DRIVE
    assert through({"gear": [Gear.REVERSE]})["gear"][0].name == "REVERSE"


def test_fixed_point_values_keep_their_scaling(through):
    binary = through(vela.FixedPoint([0.5, -1.25], signed=True, wordLength=8, fractionLength=4))
    assert np.array_equal(binary, [0.5, -1.25])
    assert (binary.signed, binary.wordLength, binary.fractionLength) == (True, 8, 4)
    assert (binary.slope, binary.bias) == (1 / 16, 0)
    sloped = through(vela.FixedPoint([[1.5], [3.0]], signed=False, wordLength=12, slope=0.75, bias=-3))
    assert sloped.shape == (2, 1) and (sloped + 1).tolist() == [[2.5], [4.0]]
    assert (sloped.fractionLength, sloped.slope, sloped.bias) == (None, 0.75, -3.0)
    assert through(vela.FixedPoint([4], fractionLength=-2)).fractionLength == -2


def test_what_has_no_place_in_a_repository_is_refused(repo, run):
    class Colour(enum.IntEnum):
        HUGE = 2**40

    endless = []
    endless.append(endless)
    tangled = {}
    tangled["a"] = [tangled, 1]
    cases = [
        (TypeError, [object(), {1, 2}, np.array([object()]), np.float16(1), np.longdouble(1),
                     np.array(["2020"], dtype="M8[Y]"), {1: 2}, {"": 1}, {"no name": 1}, {"1a": 1},
                     {"ä": 1}, [Gear.PARK, object()], np.array([b"x"]), [1, np.longdouble(2)],
                     np.array([Gear.PARK, 1], dtype=object)]),
        (OverflowError, [2**64, -(2**63) - 1, [2**70], Colour.HUGE]),
        (ValueError, ["ab\ud800", ["\udfff"], {"a": "\ud83d"}, endless, tangled]),
    ]
    repo.setRunData(run, "before")
    for exception, values in cases:
        for value in values:
            with pytest.raises(exception, match="setRunData: data "):
                repo.setRunData(run, value)
    with pytest.raises(ValueError, match="character 2"):
        repo.setRunData(run, "ab\ud800")
    with pytest.raises(TypeError, match="float16"):
        repo.setRunData(run, np.zeros(2, dtype=np.float16))
    for value in [repo, len]:
        with pytest.raises(vela.Error):
            repo.setRunData(run, value)
    assert repo.getRunData(run) == "before"


def test_results_own_their_memory(repo, run):
    for count in [3, 100_000]:
        given = np.arange(float(count))
        repo.setRunData(run, given)
        given[:] = -1
        first, second = repo.getRunData(run), repo.getRunData(run)
        first[:] = -2
        assert second[-1] == count - 1 == repo.getRunData(run)[-1]
        echoed = repo.safeTransaction(lambda: given)
        echoed[0] = 5
        assert given[0] == -1


def test_integer_inputs(repo):
    def number(value):
        run = repo.createRun("x")
        repo.setRunNumber(run, value)
        return repo.getRunNumber(run)

    for value in [7, np.int8(7), np.uint64(7), 7.0, np.float32(7), np.array(7), np.array(7.0), Seven()]:
        assert number(value) == 7
    for value in [True, np.True_, "7", None, [7], np.array([7]), 7.5, math.nan, 7 + 0j, b"7"]:
        with pytest.raises(TypeError, match="setRunNumber: number must be"):
            number(value)
    for value in [2**31, -(2**31) - 1, 2**80, 1e300, math.inf, np.uint64(2**63)]:
        with pytest.raises(OverflowError, match="setRunNumber: number is out of range"):
            number(value)


class Seven:
    def __index__(self):
        return 7


def test_double_and_logical_inputs(repo, run):
    for value in [2, 2.0, np.float32(2), np.int8(2), np.array(2.0)]:
        repo.setRunStartTime(run, value)
        assert repo.getRunStartTime(run) == 2.0
    for value in ["2", None, 2j, [2.0], np.array([2.0])]:
        with pytest.raises(TypeError, match="setRunStartTime: "):
            repo.setRunStartTime(run, value)
    for value, expected in [(True, True), (0, False), (1.0, True), (np.False_, False), (np.int8(1), True)]:
        repo.setShowRunAtTop(value)
        assert repo.getShowRunAtTop() is expected
    for value in ["yes", None, 2, [True], math.nan, 1j]:
        with pytest.raises(TypeError, match="setShowRunAtTop: "):
            repo.setShowRunAtTop(value)


def test_list_inputs(repo):
    first, second = repo.createRun("a"), repo.createRun("b")
    both = [first, second]
    for ids in [both, tuple(both), np.array(both), np.array(both, dtype=float), np.array(both, dtype=">u8"),
                range(first, second + 1, second - first), array.array("q", both), pandas.Series(both)]:
        assert repo.getUniqueRunAndSignalIDs(ids, [])[0].tolist() == both
    assert repo.getUniqueRunAndSignalIDs(first, [])[0].tolist() == [first]
    empty = repo.getUniqueRunAndSignalIDs([], ())[0]
    assert empty.dtype == np.int32 and empty.shape == (0,)
    for ids in [None, "12", [1.5], [math.nan], ["a"], [[1], [2, 3]], [[1, 2]], [True], {1: 2}, [None], 1j]:
        with pytest.raises(TypeError, match="getUniqueRunAndSignalIDs: runIDs"):
            repo.getUniqueRunAndSignalIDs(ids, [])
    for ids in [[2**31], [2**63], [2**70], np.array([2**63], dtype=np.uint64), [1e20]]:
        with pytest.raises(OverflowError, match="getUniqueRunAndSignalIDs: runIDs"):
            repo.getUniqueRunAndSignalIDs(ids, [])


def test_outputs_have_plain_types(repo, run):
    assert type(repo.getRunCount()) is int
    assert type(repo.getRunStartTime(run)) is float
    assert type(repo.getShowRunAtTop()) is bool
    assert type(repo.getRunName(run)) is str
    assert repo.setRunName(run, "b") is None
    ids = repo.getAllRunIDs()
    assert ids.dtype == np.int32 and ids.shape == (1,)
    assert isinstance(repo.getUniqueRunAndSignalIDs([run], []), tuple)
