"""Values the host knows and numpy does not: enumerations and fixed-point numbers."""

from __future__ import annotations

import enum
import functools
import re
import typing

import numpy as np

if typing.TYPE_CHECKING:
    from numpy.typing import ArrayLike, DTypeLike


def without_mask(array: typing.Any) -> np.ndarray | None:
    """The elements of a masked array, NaN where one is masked; None for types that know no NaN."""
    if not np.ma.is_masked(array):
        return np.asarray(array.data)
    return np.asarray(array.filled(np.nan)) if array.dtype.kind in "fc" else None


@functools.lru_cache(maxsize=None)
def enumeration_class(name: str, members: tuple[tuple[str, int], ...]) -> typing.Any:
    """The class of a definition: one for each name and tuple of (label, value) pairs."""
    return enum.IntEnum(name, members)


def enumeration_members(samples: ArrayLike, labels: list[str], class_name: str, values: ArrayLike) -> np.ndarray:
    """An object array, shaped like `samples`, of members of the class so defined."""
    members = tuple(zip(labels, (int(value) for value in np.atleast_1d(values))))
    cls = enumeration_class(class_name, members)
    by_value = {int(member): member for member in cls}
    samples = np.asarray(samples)
    out = np.empty(samples.shape, dtype=object)
    for index, sample in np.ndenumerate(samples):
        try:
            out[index] = by_value[int(sample)]
        except KeyError:
            raise ValueError(f"{int(sample)} is no value of the enumeration {class_name}") from None
    return out


class FixedPoint(np.lib.mixins.NDArrayOperatorsMixin):
    """Fixed-point numbers: real-world values beside the integer type that holds them.

    Arithmetic works on the real-world values and gives plain arrays.

    Parameters
    ----------
    values : array_like of float
        Real-world values.
    signed : bool
    wordLength : int
        Bits of one stored integer.
    fractionLength : int, optional
        Bits right of the binary point. Left out where `slope` and `bias` scale instead.
    slope, bias : float, optional
        value = slope * stored integer + bias; with `fractionLength`, slope is 2**-fractionLength.
    """

    __slots__ = ("_values", "signed", "wordLength", "fractionLength", "slope", "bias")

    def __init__(
        self,
        values: ArrayLike,
        signed: bool = True,
        wordLength: int = 16,
        fractionLength: int | None = None,
        slope: float | None = None,
        bias: float = 0.0,
    ) -> None:
        if (fractionLength is None) == (slope is None):
            raise TypeError("FixedPoint: give either fractionLength or slope")
        if fractionLength is not None and bias:
            raise TypeError("FixedPoint: a bias goes with slope, not with fractionLength")
        self._values = np.array(values, dtype=np.float64)
        self.signed = bool(signed)
        self.wordLength = int(wordLength)
        self.fractionLength = None if fractionLength is None else int(fractionLength)
        self.slope = float(slope) if slope is not None else 2.0 ** -(self.fractionLength or 0)
        self.bias = float(bias)

    def __array__(self, dtype: DTypeLike = None) -> np.ndarray:
        return self._values.astype(np.float64 if dtype is None else dtype)

    def __array_ufunc__(
        self, ufunc: np.ufunc, method: str, *inputs: typing.Any, **keywords: typing.Any
    ) -> typing.Any:
        plain = [np.asarray(each) if isinstance(each, FixedPoint) else each for each in inputs]
        return getattr(ufunc, method)(*plain, **keywords)

    def __len__(self) -> int:
        return len(self._values)

    def __getitem__(self, index: typing.Any) -> typing.Any:
        return self._values[index]

    @property
    def shape(self) -> tuple[int, ...]:
        return self._values.shape

    @property
    def ndim(self) -> int:
        return self._values.ndim

    @property
    def size(self) -> int:
        return self._values.size

    @property
    def dtype(self) -> np.dtype[typing.Any]:
        return self._values.dtype

    def __repr__(self) -> str:
        scale = (
            f"slope={self.slope!r}, bias={self.bias!r}"
            if self.fractionLength is None
            else f"fractionLength={self.fractionLength}"
        )
        return f"FixedPoint({self._values!r}, signed={self.signed}, wordLength={self.wordLength}, {scale})"


_FIXED_POINT_TYPE = re.compile(r"(?P<sign>[su])fix(?P<bits>\d+)(_E(?P<right>n?)(?P<length>\d+))?")


def fixed_point_values(metadata: dict[str, typing.Any], values: ArrayLike) -> FixedPoint:
    """`FixedPoint` of real-world values; `metadata` has "TypeName", "Slope" and "Bias"."""
    name = _FIXED_POINT_TYPE.fullmatch(metadata["TypeName"])
    if not name:
        raise ValueError(f"{metadata['TypeName']!r} names no fixed-point type")
    signed, bits = name["sign"] == "s", int(name["bits"])
    if name["length"] is None:
        return FixedPoint(values, signed, bits, slope=metadata["Slope"], bias=metadata["Bias"])
    length = int(name["length"]) if name["right"] else -int(name["length"])
    return FixedPoint(values, signed, bits, fractionLength=length)
