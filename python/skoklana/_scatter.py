"""Scattered points: tesselations, and values spread onto grids."""

from __future__ import annotations

from typing import Any, List, Optional

import numpy as np

from . import _core
from ._mesh import Progress
from ._values import Rows, floats, null_element, optional_list, thread_count, whole_shape

# Beyond the points' own box on each side, in its longest side: thin cells at the rim need next to no room then.
_STRETCH = 100000.0


def _cloud(points: Any) -> np.ndarray:
    coords = floats(points, "points")
    if coords.ndim != 2 or not 1 <= coords.shape[1] <= 3:
        raise ValueError(f"points: has the shape {coords.shape}, but it is rows of x, y and z")
    return coords


def _own_box(coords: np.ndarray) -> np.ndarray:
    finite = coords[np.isfinite(coords).all(axis=1)]
    if not len(finite):
        return np.zeros((2, coords.shape[1]), np.float32)
    return np.stack([finite.min(axis=0), finite.max(axis=0)])


def _box(box: Any, coords: np.ndarray, axes: int) -> np.ndarray:
    corners = _own_box(coords)[:, :axes] if box is None else np.asarray(box, np.float32)
    if corners.shape != (2, axes) or not np.isfinite(corners).all():
        raise ValueError(f"box: is not two corners of {axes} coordinates")
    return np.ascontiguousarray(corners, np.float32)


def delaunay(points: Any, *, box: Any = None, library: bool = False, progress: Progress = None) -> np.ndarray:
    """Triangles, or tetrahedra, whose circles or spheres hold no point.

    Parameters
    ----------
    points : array_like, shape (n, 2) or (n, 3)
        Points at the place of another one, and those with NaN, are in no cell.
    box : array_like, shape (2, 2) or (2, 3), optional
        The box to begin with. Near boxes leave out thin cells at the rim; the default is far beyond the points, which
        gives their convex hull but for cells of next to no thickness.
    library : bool
        Begin with the points' own box, as plain callers of the library do.

    Returns
    -------
    ndarray of int64, shape (m, 3) or (m, 4)
        Numbers of points. Triangles run counter-clockwise, tetrahedra are of positive volume in VTK's order.
    """
    coords = _cloud(points)
    axes = coords.shape[1]
    if axes < 2:
        raise ValueError("points: have one coordinate, and two or three are needed")
    corners = _box(box, coords, axes)
    if box is None and not library:
        size = float((corners[1] - corners[0]).max())
        flat = (corners[1] == corners[0]).any()
        if not flat:
            corners = (corners.astype(np.float64) + np.array([[-1.0], [1.0]]) * _STRETCH * size).astype(np.float32)
    rows = _core.delaunay(coords, corners, progress)
    if axes == 3 and len(rows):
        rows[:, [1, 2]] = rows[:, [2, 1]]  # seen from vertex 0 the library's others run clockwise
        p = coords[rows[0]].astype(np.float64)
        if np.dot(p[1] - p[0], np.cross(p[2] - p[0], p[3] - p[0])) < 0:
            rows[:, [1, 2]] = rows[:, [2, 1]]
    return rows


def scatter(
    points: Any,
    values: Any,
    shape: Any,
    *,
    box: Any = None,
    radius: Any = None,
    power: int = 2,
    null: Any = None,
    fill: Any = None,
    threads: int = 1,
    progress: Progress = None,
) -> np.ndarray:
    """Values at scattered points, spread onto the nodes of a regular grid by inverse distance (Shepard's method).

    Parameters
    ----------
    points : array_like, shape (n, 1 to 3)
        x, y, z.
    values : array_like, shape (n,) or (n, components)
    shape : tuple of int
        Nodes of the grid, in numpy's order.
    box : array_like, shape (2, axes), optional
        x, y, z of the first and last node; the box of the points without it.
    radius : int or sequence of int, optional
        How many nodes a point reaches to either side, one number or rx, ry, rz; without it some six points reach a node.
    power : int
        Values weigh by 1 / distance ** power.
    null : scalar, optional
        Points whose first component equals it are left out.
    fill : scalar, optional
        What nodes get that no point reaches. Without it they are NaN in floats and masked in integers.
    threads : int
        How many work; the result is the same for any number. With more than one the work can't be stopped.

    Returns
    -------
    ndarray, shape ``shape`` or ``shape + (components,)``
        Of the type of `values`, in single precision; integers are rounded to the nearest.
    """
    coords = _cloud(points)
    dims = whole_shape(shape)
    axes = len(dims)
    if axes > coords.shape[1]:
        raise ValueError(f"shape: has {axes} axes, but points have {coords.shape[1]} coordinates")
    given = Rows(values, "values", len(coords), (len(coords),), null, of="points")
    corners = _box(box, coords, axes)
    if radius is None:
        share = 6.0 * np.prod([float(n) for n in dims]) / max(len(coords), 1)
        radius = max(1, int(np.ceil((share ** (1 / axes) - 1) / 2)))
    reach: List[int] = [int(r) for r in optional_list(radius, axes, "radius")]
    if any(r < 1 for r in reach):
        raise ValueError("radius: is 1 and up")
    if power < 1:
        raise ValueError("power: is 1 and up")
    kind = given.rows.dtype
    rows, none = given.rows, given.null
    if kind.kind in "iu":  # the library truncates
        rows = rows.astype(np.float64)
        none = None if none is None else none.astype(np.float64)
    # A value that no result can have tells the nodes that stay empty: sums are within 1e38.
    empty: Optional[np.ndarray] = null_element(-3e38, rows.dtype, "values")
    if none is not None:
        rows = rows.copy()
        leading = rows[:, 0] if rows.ndim > 1 else rows
        leading[leading == none[0]] = empty[0]
    reserved = None if none is None else empty
    out, _ = _core.scatter(coords, rows, corners, dims, reach, power, reserved, empty, thread_count(threads), progress)
    missing = (out if not given.tail else out[..., 0]) == empty[0]
    if kind.kind in "iu":
        info = np.iinfo(kind)
        out[missing] = 0
        out = np.clip(np.rint(out), info.min, info.max).astype(kind)
    if fill is None and (kind.kind in "iu" or given.masked):
        return np.ma.MaskedArray(out, mask=np.broadcast_to(missing.reshape(missing.shape + (1,) * len(given.tail)), out.shape))
    out[missing] = np.nan if fill is None else fill
    return out


def bins(points: Any, shape: Any, *, box: Any = None) -> Any:
    """The points in each cell of a regular grid.

    Parameters
    ----------
    points : array_like, shape (n, 1 to 3)
    shape : tuple of int
        Nodes of the grid in numpy's order, two and more along each axis.
    box : array_like, shape (2, axes), optional
        The first and the last node; the box of the points without it. Points outside are in no bin.

    Returns
    -------
    numbers : ndarray of int64
        Points, bin by bin, those of a bin in their order.
    begin : ndarray of int64, shape (bins + 1,)
        Where each bin begins; bins are numbered with x fastest.
    """
    coords = _cloud(points)
    dims = whole_shape(shape)
    if len(dims) > coords.shape[1]:
        raise ValueError(f"shape: has {len(dims)} axes, but points have {coords.shape[1]} coordinates")
    return _core.bins(coords, _box(box, coords, len(dims)), dims)
