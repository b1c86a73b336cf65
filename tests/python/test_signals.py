"""Samples between numpy arrays and signals."""

import enum
import gc

import numpy as np
import pytest

import vela


class Gear(enum.IntEnum):
    LOW = 1
    HIGH = 7


@pytest.fixture
def signal(repo, run):
    return repo.createSignal(run)


def add(repo, run, times, values, **inputs):
    """`add` with everything left out that is not named."""
    given = dict.fromkeys(["units", "dataSource", "dimensions", "portIndex", "channel", "sid", "absTol",
                           "relTol", "timeAlignment", "metaData"])
    given.update(dict.fromkeys(["rootSource", "rootDataSource", "timeSource", "blockPath", "model", "name"], ""))
    return repo.add(data={"Time": times, "Data": values}, runID=run, **{**given, **inputs})


@pytest.mark.parametrize("dtype", ["f8", "f4", "i1", "u1", "i2", "u2", "i4", "u4", "i8", "u8", "?"])
def test_the_first_append_decides_the_type(repo, signal, dtype):
    values = np.array([0, 1, 1]).astype(dtype)
    repo.appendSignalData(signal, [0, 1, 2], values)
    back = repo.getSignalDataValues(signal)
    assert back.dtype == values.dtype and back.tolist() == values.tolist()


def test_layouts_of_arrays_do_not_matter(repo, run):
    table = np.arange(24.0).reshape(4, 6)
    times = np.arange(8.0)[::2]
    for values in [table, np.asfortranarray(table), table[:, ::2], table[::-1], table.astype(">f8"),
                   np.broadcast_to(table[:, :1], (4, 3))]:
        data = repo.getHierarchicalSignalData(add(repo, run, times, values))
        assert np.array_equal(data["Data"], values) and np.array_equal(data["Time"], times)


def test_numbers_keep_every_bit(repo, signal):
    odd = np.array([-0.0, np.inf, -np.inf, 5e-324, 1.7976931348623157e308, 0])
    odd.view(np.uint64)[-1] = 0x7FF80000DEADBEEF
    repo.appendSignalData(signal, np.arange(6), odd)
    assert repo.getSignalDataValues(signal).tobytes() == odd.tobytes()


def test_arrays_are_borrowed_for_the_call_and_results_own_their_memory(repo, signal):
    times, values = np.arange(100_000.0), np.ones(100_000)
    repo.appendSignalData(signal, times, values)
    values[:] = times[:] = -1
    first = repo.getSignalDataValues(signal)
    assert first.min() == 1
    first[:] = 5
    assert repo.getSignalDataValues(signal).max() == 1
    data = repo.getSignalDataValues(signal, True)
    repo.remove(signal)
    repo.close()
    gc.collect()
    assert data["Time"][-1] == 99_999 and data["Data"].sum() == 100_000


def test_single_samples_may_be_plain_numbers(repo, signal):
    for index in range(3):
        repo.appendSignalData(signal, index, index / 2)
    data = repo.getHierarchicalSignalData(signal)
    assert data["Time"].tolist() == [0, 1, 2] and data["Data"].tolist() == [0, 0.5, 1]


def test_signals_may_be_added_without_samples(repo, run):
    for times, values, dims in [([], [], None), ([], [], [2, 2]), (np.empty(0), np.empty((0, 3)), None)]:
        signal = add(repo, run, times, values, dimensions=dims)
        assert repo.signalIsEmpty(signal)
        assert repo.getSignalSampleDims(signal).tolist() == (dims or [values.shape[1] if len(np.shape(values)) > 1 else 1])


def test_dimensions_arrange_the_elements_of_a_sample(repo, run):
    values = np.arange(12.0).reshape(3, 4)
    data = repo.getHierarchicalSignalData(add(repo, run, [0, 1, 2], values, dimensions=[2, 2]))["Data"]
    assert [data[:, 0, 0].tolist(), data[:, 1, 0].tolist()] == [[0, 4, 8], [1, 5, 9]]
    assert np.array_equal(data, values.reshape(3, 2, 2, order="F"))
    with pytest.raises(vela.DataError, match="InvalidDimensions"):
        add(repo, run, [0, 1, 2], values, dimensions=[2, 3])


def test_masked_elements_are_missing_or_refused(repo, run):
    mask = [False, True, False]
    signal = add(repo, run, [0, 1, 2], np.ma.array([1.0, 2.0, 3.0], mask=mask))
    assert np.array_equal(repo.getSignalDataValues(signal), [1, np.nan, 3], equal_nan=True)
    add(repo, run, [0, 1, 2], np.ma.array([1, 2, 3], mask=False))
    for values in [np.ma.array([1, 2, 3], mask=mask), np.ma.array([True, False, True], mask=mask)]:
        with pytest.raises(ValueError, match="masked"):
            add(repo, run, [0, 1, 2], values)
    with pytest.raises(TypeError):
        repo.setSignalAbsTol(signal, np.ma.masked)


def test_enumerations_come_back_as_members(repo, run):
    signal = add(repo, run, [0, 1], [Gear.LOW, Gear.HIGH])
    assert repo.getSignalDataTypeLabel(signal) == "Gear" and repo.isEnum(signal)
    assert repo.runHasEnumSignals(run)
    repo.appendSignalData(signal, [2], [Gear.LOW])
    back = repo.getSignalDataValues(signal)
    assert [member.name for member in back] == ["LOW", "HIGH", "LOW"]
    assert type(back[0]).__name__ == "Gear" and back[1] == Gear.HIGH
    with pytest.raises(vela.DataError, match="Gear"):
        repo.appendSignalData(signal, [3], [2])


def test_a_host_function_makes_the_members(repo, run):
    signal = add(repo, run, [0, 1], [Gear.LOW, Gear.HIGH])
    name = "Korvo.vela.createEnumValuesFromClassDefinition"
    calls = []
    vela.host.register(name, lambda *given: calls.append(given) or "made")
    try:
        assert repo.getSignalDataValues(signal) == "made"
    finally:
        vela.host.register(name, None)
    samples, labels, class_name, values = calls[0]
    assert samples.tolist() == [1, 7] and samples.dtype == np.int32
    assert (labels, class_name, values.tolist()) == (["LOW", "HIGH"], "Gear", [1, 7])


@pytest.mark.parametrize("scaling", [
    {"fractionLength": 4}, {"fractionLength": -2}, {"slope": 0.3, "bias": -1.0}])
def test_fixed_point_values_keep_their_scaling(repo, run, scaling):
    given = vela.FixedPoint([0.5, 8.0], signed=False, wordLength=12, **scaling)
    signal = add(repo, run, [0, 1], given)
    repo.appendSignalData(signal, [2], [4.0])
    back = repo.getSignalDataValues(signal)
    assert isinstance(back, vela.FixedPoint) and np.asarray(back).tolist() == [0.5, 8, 4]
    assert (back.signed, back.wordLength) == (False, 12)
    assert (back.slope, back.bias, back.fractionLength) == (given.slope, given.bias, given.fractionLength)


def test_what_does_not_fit_names_the_reason_and_changes_nothing(repo, run):
    signal = add(repo, run, [0.0, 1.0], np.array([1, 2], np.int8))
    for times, values, identifier in [
        ([2], [1.5], "IntegerExpected"), ([2], [128], "InvalidData"), ([2], [1j], "InvalidData"),
        ([2, 3], [1], "InvalidDimensions"), ([2], [[1, 2]], "InvalidDimensions"),
        ([3, 2], [1, 2], "InvalidData"), ([np.nan], [1], "InvalidData"), ("ab", [1], "InvalidData"),
        ([[2, 3], [4, 5]], [1, 2], "InvalidDimensions"), ([2], "a", "InvalidData"), ([2], {}, "InvalidData"),
    ]:
        with pytest.raises(vela.DataError) as refusal:
            repo.appendSignalData(signal, times, values)
        assert refusal.value.identifier == f"nexstore:nex:{identifier}", (times, values)
    assert repo.getSignalDataValues(signal).tolist() == [1, 2]


def test_signals_can_be_written_in_a_transaction_that_fails(repo, run):
    def write():
        add(repo, run, [0], [1.0])
        raise ZeroDivisionError

    with pytest.raises(ZeroDivisionError):
        repo.safeTransaction(write)
    assert repo.isSignalCountZero()


def test_properties_come_back_in_python_types(repo, run):
    signal = add(repo, run, [0], [1.0], units="V", blockPath="m/b", portIndex=2, sid="m:1",
                 metaData={"note": "kept", "list": [1, 2]})
    assert repo.getUnit(signal) == "V" and repo.getSignalSID(signal) == "m:1"
    assert repo.getSignalBlockSource(signal, True) == ["m/b"]
    assert repo.getSignalBlockSource(signal, False) == "m/b"
    assert repo.getSignalMetaData(signal, "note") == "kept"
    assert repo.getSignalMetaData(signal, "missing").shape == (0, 0)
    repo.setSignalChecked(signal, [2, 1])
    assert repo.getSignalChecked(signal).tolist() == [1, 2]
    assert repo.getAllCheckedSignals().tolist() == [signal]
    repo.setSignalLineColor(signal, (0.1, 0.2, 0.3))
    assert repo.getSignalLineColor(signal).tolist() == [0.1, 0.2, 0.3]
    assert repo.getSignalComplexityAndLeafPath(signal) == {
        "IsComplex": False, "IsImagPart": False, "LeafBusPath": ""}
    assert repo.getSignalExportProps(signal)["BlockPath"] == ["m/b"]


def test_comparisons_return_two_results(repo, run):
    baseline, other = add(repo, run, [0, 1], [1, 2]), add(repo, run, [0, 1], [1, 3])
    comparison, family = repo.addSignalComparison(run, True, "Name", baseline, other, None, None)
    assert repo.getSignalChildren(comparison).tolist() == family.tolist() and len(family) == 4
    assert repo.getSignalDataValues(family[1]).tolist() == [1, 3]
    repo.updateSignalComparison(comparison, other, None, False)
    assert not repo.getIsWithinTol(comparison)
