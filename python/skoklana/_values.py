"""Arrays of users as arguments of the library, and results as arrays for users."""

from __future__ import annotations

from typing import Any, Optional, Sequence, Tuple

import numpy as np

_TYPES = {("i", 1), ("u", 1), ("i", 2), ("i", 4), ("f", 4), ("f", 8), ("i", 8)}
_TYPE_NAMES = "int8, uint8, int16, int32, int64, float32 or float64"


def typed(values: Any, name: str) -> np.ndarray:
    """An array of one of the library's element types, in this machine's byte order; bool counts as uint8."""
    array = np.asarray(values)
    if array.dtype.kind == "b":
        array = array.view(np.uint8)
    if (array.dtype.kind, array.dtype.itemsize) not in _TYPES:
        raise TypeError(f"{name}: has the type {array.dtype}; it must be {_TYPE_NAMES}")
    if not array.dtype.isnative:
        array = array.astype(array.dtype.newbyteorder("="))
    return array


def null_element(null: Any, dtype: np.dtype, name: str) -> np.ndarray:
    """A null value as an array of one element."""
    if null != null:
        raise ValueError(
            f"null: NaN equals no value of {name}; give np.ma.masked_invalid({name}), which marks NaN by a number"
        )
    with np.errstate(over="ignore", invalid="ignore"):
        element = np.asarray(null).astype(dtype).reshape(1)
    if dtype.kind in "iu" and element[0] != null:
        raise ValueError(f"null: {null} is no value that {name} can have, which is {dtype}")
    return element


def _value_of_none(valid: np.ndarray, wanted: Any, name: str) -> np.ndarray:
    """What can stand for masked values: the array's own fill_value if it can, or else a value that none has."""
    if valid.dtype.kind == "f":
        others = [np.finfo(valid.dtype).min, np.finfo(valid.dtype).max, -np.inf, np.inf]
    else:
        others = [np.iinfo(valid.dtype).min, np.iinfo(valid.dtype).max]
    for value in [wanted] + others:
        try:
            element = null_element(value, valid.dtype, name)
        except ValueError:
            continue
        if not (valid == element[0]).any():
            return element
    if valid.dtype.kind in "iu":
        there = np.unique(valid)
        gaps = np.flatnonzero(np.diff(there.astype(object)) > 1)
        if len(gaps):
            return there[gaps[:1]] + 1
    raise ValueError(f"{name}: has every value of its type, so that none can stand for what is masked")


class Rows:
    """Values as the library takes them: a row a node, cell or point."""

    __slots__ = ("rows", "null", "masked", "shape")

    def __init__(
        self,
        values: Any,
        name: str,
        count: int,
        shape: Tuple[int, ...],
        null: Any = None,
        components: Tuple[int, ...] = (),
        of: str = "nodes",
    ):
        self.masked = isinstance(values, np.ma.MaskedArray)
        array = typed(np.ma.getdata(values) if self.masked else values, name)
        lead = None
        for candidate in (shape, (count,)):
            if array.shape[: len(candidate)] == candidate and array.ndim - len(candidate) <= 1:
                lead = candidate
                break
        if lead is None:
            wanted = " or ".join(dict.fromkeys(str(s) for s in (shape, (count,))))
            raise ValueError(
                f"{name}: has the shape {array.shape}, but the {of} have {wanted}, with one axis of components "
                f"behind it where there are several"
            )
        tail = array.shape[len(lead) :]
        if tail and tail[0] < 1:
            raise ValueError(f"{name}: has no components")
        width = tail[0] if tail else 1
        if components and width not in components:
            wanted = " or ".join(str(c) for c in components)
            raise ValueError(f"{name}: has {width} components, but {wanted} {'is' if components == (1,) else 'are'} needed")
        if components == (1,):
            tail = ()
        rows = np.ascontiguousarray(array).reshape((count,) + tail)
        self.null = None
        if self.masked:
            mask = np.ma.getmaskarray(values).reshape((count,) + tail)
            if tail:
                mask = mask.any(axis=1)
            rows, self.null = self._without_mask(rows, mask, null, values, name)
        elif null is not None:
            self.null = null_element(null, rows.dtype, name)
        self.rows = rows
        self.shape = lead

    @staticmethod
    def _without_mask(rows: np.ndarray, mask: np.ndarray, null: Any, values: Any, name: str) -> Any:
        if not mask.any():
            return rows, None if null is None else null_element(null, rows.dtype, name)
        leading = rows[:, 0] if rows.ndim > 1 else rows
        valid = leading[~mask]
        if null is not None:
            element = null_element(null, rows.dtype, name)
            if (valid == element[0]).any():
                raise ValueError(f"null: {null}, which is to stand for what is masked, is a value of others too")
        else:
            element = _value_of_none(valid, values.fill_value, name)
        if not (leading[mask] == element[0]).all():
            rows = rows.copy()
            (rows[:, 0] if rows.ndim > 1 else rows)[mask] = element[0]
        return rows, element

    @property
    def tail(self) -> Tuple[int, ...]:
        return self.rows.shape[1:]


def finished(out: np.ndarray, valid: np.ndarray, given: Rows, fill: Any, may_miss: bool) -> np.ndarray:
    """Marks rows without a value: NaN in floats, masked in integers and where the input was masked, or fill."""
    if fill is None and (given.masked or (out.dtype.kind in "iu" and may_miss)):
        mask = ~valid
        if out.ndim > valid.ndim:
            mask = np.broadcast_to(mask.reshape(mask.shape + (1,) * (out.ndim - valid.ndim)), out.shape)
        result = np.ma.MaskedArray(out, mask=mask)
        if given.null is not None:
            result.fill_value = given.null[0]
        return result
    if not valid.all():
        out[~valid] = np.nan if fill is None else fill
    return out


def floats(values: Any, name: str, copy_ok: bool = True) -> np.ndarray:
    """Coordinates: contiguous float32; other numbers are converted, which copies them."""
    array = np.asarray(values)
    if array.dtype.kind not in "iuf":
        raise TypeError(f"{name}: has the type {array.dtype}; coordinates are float32, or numbers to be converted")
    return np.ascontiguousarray(array, dtype=np.float32)


def numbers(values: Any, name: str) -> np.ndarray:
    """Node numbers: contiguous int64; other integers are converted, which copies them."""
    array = np.asarray(values)
    if array.dtype.kind not in "iu" and array.size:
        raise TypeError(f"{name}: has the type {array.dtype}, but numbers of nodes are integers")
    return np.ascontiguousarray(array, dtype=np.int64)


def vector(values: Any, name: str, dtype: Any = np.float64, length: int = 3) -> np.ndarray:
    """x, y, z; missing ones are 0."""
    array = np.atleast_1d(np.asarray(values, dtype=np.float64))
    if array.ndim != 1 or not 1 <= array.size <= length or not np.isfinite(array).all():
        raise ValueError(f"{name}: is not one to {length} finite numbers")
    whole = np.zeros(length, dtype)
    whole[: array.size] = array
    return whole


def level_number(level: Any, name: str = "level") -> float:
    try:
        number = float(level)
    except (TypeError, ValueError):
        raise TypeError(f"{name}: is not a number") from None
    if number != number:
        raise ValueError(f"{name}: is not a number")
    return number


def whole_shape(shape: Any, name: str = "shape") -> Tuple[int, ...]:
    dims = (shape,) if isinstance(shape, (int, np.integer)) else tuple(shape)
    if not 1 <= len(dims) <= 3:
        raise ValueError(f"{name}: has {len(dims)} axes, but a structured mesh has 1 to 3")
    try:
        whole = tuple(int(n) for n in dims)
    except (TypeError, ValueError):
        raise TypeError(f"{name}: is not made of whole numbers") from None
    if any(n < 1 for n in whole):
        raise ValueError(f"{name}: is {whole}, but an axis has at least one node")
    return whole


def points_of(points: Any, name: str = "points", most: int = 3) -> Tuple[np.ndarray, Tuple[int, ...]]:
    """Rows of coordinates, float32 or float64, and the shape without the last axis."""
    array = np.asarray(points)
    if array.dtype.kind not in "iuf":
        raise TypeError(f"{name}: has the type {array.dtype}; coordinates are numbers")
    if array.dtype.type is not np.float32 or not array.dtype.isnative:
        array = array.astype(np.float64, copy=False)
    if array.ndim < 1 or not 1 <= array.shape[-1] <= most:
        raise ValueError(f"{name}: has the shape {array.shape}, but its last axis holds x, y and z")
    lead = array.shape[:-1]
    return np.ascontiguousarray(array).reshape(-1, array.shape[-1]), lead


def optional_list(values: Any, count: int, name: str) -> Sequence[Any]:
    """One value for all axes, or one each."""
    listed: Optional[Sequence[Any]] = None if np.isscalar(values) else list(values)
    if listed is None:
        return [values] * count
    if len(listed) != count:
        raise ValueError(f"{name}: has {len(listed)} entries, but there are {count} axes")
    return listed


def thread_count(threads: Any) -> int:
    if isinstance(threads, bool) or not isinstance(threads, (int, np.integer)):
        raise TypeError("threads: is not a whole number")
    if threads < 1:
        raise ValueError(f"threads: is {threads}, but work takes one and more")
    return min(int(threads), 1024)


def part_of(progress: Any, part: int, parts: int) -> Any:
    """A progress function for one of several operations that are one to the caller."""
    if progress is None or parts < 2:
        return progress
    return lambda percent, message: progress((100 * part + percent) // parts, message)
