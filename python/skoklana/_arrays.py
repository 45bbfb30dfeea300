"""Kernels on plain arrays, and polynomials. They run at the speed of memory, for all element types."""

from __future__ import annotations

from typing import Any, Optional, Sequence

import numpy as np

from . import _core
from ._values import null_element, typed, vector, whole_shape


def _block(values: Any, name: str = "values") -> np.ndarray:
    if isinstance(values, np.ma.MaskedArray):
        raise TypeError(f"{name}: is a masked array; give {name}.filled(), and null= where the function has it")
    return np.ascontiguousarray(typed(values, name))


def _null(null: Any, values: np.ndarray) -> Optional[np.ndarray]:
    return None if null is None else null_element(null, values.dtype, "values")


def _bounds(values: np.ndarray, low: Any, high: Any) -> Any:
    """Bounds within the type. Without a fraction where it has none: the least and the greatest whole number between."""
    if values.dtype.kind in "iu":
        info = np.iinfo(values.dtype)
        low = None if low is None or low <= info.min else float(np.ceil(min(low, float(info.max))))
        high = None if high is None or high >= info.max else float(np.floor(max(high, float(info.min))))
        return low, high
    return (None if low is None else float(low)), (None if high is None else float(high))


def clamp(values: Any, low: Optional[float] = None, high: Optional[float] = None, *, null: Any = None) -> np.ndarray:
    """Values held within bounds.

    Parameters
    ----------
    values : array_like
        Of any shape.
    low, high : float, optional
        The bounds; in integers the whole numbers between them count.
    null : scalar, optional
        Values equal to it stay as they are.

    Returns
    -------
    ndarray
        Of the shape and type of `values`.
    """
    block = _block(values)
    return _core.clamp(block, *_bounds(block, low, high), _null(null, block))


def replace_outside(
    values: Any,
    low: Optional[float] = None,
    high: Optional[float] = None,
    *,
    fill: float = 0.0,
    target: Any = None,
    null: Any = None,
) -> np.ndarray:
    """An array with `fill` wherever values lie outside bounds, or are null.

    Parameters
    ----------
    values : array_like
        What is tested.
    low, high : float, optional
        The bounds, both included.
    fill : float
        Brought into the type of the result as the library does: truncated for integers.
    target : array_like, optional
        The array to replace in, a row for each value; `values` without it.

    Returns
    -------
    ndarray
        Of the shape and type of `target`.
    """
    block = _block(values)
    rows = block if target is None else _block(target, "target")
    return _core.replace_outside(block, rows, *_bounds(block, low, high), float(fill), _null(null, block))


def classify(values: Any, level: float, inclusive: bool = True, *, null: Any = None) -> np.ndarray:
    """On which side of a level values lie: 0 below, 1 above, 2 null, as uint8.

    Parameters
    ----------
    values : array_like
    level : float
    inclusive : bool
        Whether a value at the level is above it.
    null : scalar, optional
    """
    block = _block(values)
    return _core.classify(block, float(level), inclusive, _null(null, block))


def take(values: Any, rows: Any) -> np.ndarray:
    """Rows of an array by their numbers: ``values[rows]``."""
    return _core.take(_block(values), np.ascontiguousarray(rows, np.int64))


def component(values: Any, number: int) -> np.ndarray:
    """One component of rows: ``values[..., number]``, side by side in memory."""
    return _core.component(_block(values), number)


def stack(*arrays: Any) -> np.ndarray:
    """Arrays of one shape and type as components of rows: ``np.stack(arrays, axis=-1)``."""
    blocks = [_block(array, "arrays") for array in arrays]
    if blocks and any(b.shape != blocks[0].shape or b.dtype != blocks[0].dtype for b in blocks):
        raise ValueError("arrays: are not all of one shape and type")
    return _core.stack(blocks)


def downsize(values: Any, steps: Any) -> np.ndarray:
    """Every so-manieth sample along each axis: ``values[::steps[0], ::steps[1], ...]``, side by side in memory.

    Parameters
    ----------
    values : array_like
    steps : int or sequence of int
        By axis, in numpy's order; axes behind them are kept whole. One number is for all axes.
    """
    block = _block(values)
    listed = [steps] * block.ndim if np.isscalar(steps) else list(steps)
    return _core.downsize(block, listed)


def resample(values: Any, shape: Any) -> np.ndarray:
    """A grid of another size by nearest sample, corners on corners.

    Parameters
    ----------
    values : array_like
        A grid of as many axes as `shape`, with components behind them where there are any.
    shape : tuple of int
        The axes of the result, one to three, in numpy's order.
    """
    block = _block(values)
    return _core.resample(block, whole_shape(shape))


def filter1d(values: Any, weights: Any) -> np.ndarray:
    """A weighted window along the first axis; weights are divided by their sum, and by what is left of it at the ends.

    Parameters
    ----------
    values : array_like
        Other axes are components, each by itself.
    weights : array_like of float
        Sample i of the result is the sum of ``weights[k] * values[i + k - len(weights) // 2]``; integers are truncated.
    """
    return _core.filter(_block(values), np.ascontiguousarray(weights, np.float32).reshape(-1))


def blend(a: Any, b: Any, t: float) -> np.ndarray:
    """``(b - a) * t + a``, worked out in double; integers are truncated."""
    first, second = _block(a, "a"), _block(b, "b")
    if first.shape != second.shape or first.dtype != second.dtype:
        raise ValueError("b: is not of the shape and type of a")
    return _core.blend(first, second, float(t))


def project(vectors: Any, direction: Any, *, tangential: bool = False) -> np.ndarray:
    """The part of each vector along a direction, or the part across it.

    Parameters
    ----------
    vectors : array_like, shape (..., 1 to 3)
    direction : array_like
        x, y, z, taken as it stands: a unit vector for parts that add up.
    tangential : bool
        The part across.

    Returns
    -------
    ndarray of float32
    """
    return _core.project(_block(vectors, "vectors"), vector(direction, "direction", np.float32), tangential)


def polyfit(x: Any, y: Any, degree: int, *, library: bool = False) -> np.ndarray:
    """The polynomial that fits samples best, by least squares.

    Parameters
    ----------
    x, y : array_like
        Samples.
    degree : int
        0 and up; the samples must be at more different places than that.
    library : bool
        The library's own fit, which takes `x` unscaled and may have coefficients in a wrong order from degree 2 on.

    Returns
    -------
    ndarray of float64, shape (degree + 1,)
        Coefficients, the constant first.
    """
    ordinates = _block(y, "y").reshape(-1)
    abscissae = np.asarray(x, np.float64).reshape(-1)
    if len(abscissae) != len(ordinates):
        raise ValueError(f"y: has {len(ordinates)} samples, but x has {len(abscissae)}")
    if degree < 0:
        raise ValueError(f"degree: is {degree}, but it is 0 and up")
    if library:
        found = _core.least_squares(abscissae.astype(np.float32), ordinates, degree + 1)
    else:
        # Between -1 and 1 the normal equations stay sound.
        low, high = (abscissae.min(), abscissae.max()) if len(abscissae) else (0.0, 0.0)
        middle, half = (low + high) / 2, (high - low) / 2 or 1.0
        powers = np.vander((abscissae - middle) / half, degree + 1, increasing=True)
        found = _core.solve(powers.T @ powers, powers.T @ ordinates.astype(np.float64), 1e-9)
        if found is not None:
            found = np.polynomial.Polynomial(found, domain=[middle - half, middle + half]).convert().coef
            found = np.pad(found, (0, degree + 1 - len(found)))
    if found is None:
        raise ValueError(f"x: a fit of degree {degree} needs samples at more than {degree} places")
    return found


def polyval(coefficients: Any, x: Any, dtype: Any = np.float64) -> np.ndarray:
    """Values of a polynomial, the constant first, by Horner's rule in double; `x` is taken in single precision."""
    return _core.polynomial(
        np.ascontiguousarray(coefficients, np.float64).reshape(-1), np.ascontiguousarray(x, np.float32), np.dtype(dtype)
    )


def solve(matrix: Any, right: Any, eps: float = 1e-12) -> np.ndarray:
    """Solves linear equations by Gaussian elimination.

    Parameters
    ----------
    matrix : array_like, shape (n, n)
    right : array_like, shape (n,)
    eps : float
        The least pivot.
    """
    a, b = np.ascontiguousarray(matrix, np.float64), np.ascontiguousarray(right, np.float64)
    if a.ndim != 2 or a.shape[0] != a.shape[1] or b.shape != a.shape[:1]:
        raise ValueError(f"matrix: has the shape {a.shape} beside {b.shape}, but it is square and right a column")
    found = _core.solve(a, b, float(eps))
    if found is None:
        raise ValueError("matrix: is singular")
    return found


def quadratic(points: Any, coefficients: Any, dtype: Any = np.float32) -> np.ndarray:
    """Values of a polynomial of second degree at points, for made-up data.

    Parameters
    ----------
    points : array_like, shape (n, 1 to 3)
    coefficients : array_like
        Of 1, x, x² in one dimension; 1, x, y, xy, x², y² in two; 1, x, y, z, xy, xz, yz, x², y², z² in three.
    dtype : dtype
        Of the result; integers are truncated.
    """
    coords = np.ascontiguousarray(points, np.float32)
    if coords.ndim != 2 or not 1 <= coords.shape[1] <= 3:
        raise ValueError(f"points: has the shape {coords.shape}, but it is rows of one to three coordinates")
    wanted = (3, 6, 10)[coords.shape[1] - 1]
    given: Sequence[float] = np.ascontiguousarray(coefficients, np.float32).reshape(-1)
    if len(given) != wanted:
        raise ValueError(f"coefficients: has {len(given)}, but {wanted} are needed")
    return _core.quadratic(coords, given, np.dtype(dtype))
