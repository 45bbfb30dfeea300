"""Smith charts, and outlines joined by strips of triangles."""

from __future__ import annotations

from typing import Any, List, NamedTuple, Sequence, Tuple

import numpy as np

from . import _core
from ._values import floats

_SIDES = {"+x": 0, "-y": 1, "-x": 2, "+y": 3}


class SmithChart(NamedTuple):
    """The lines and labels of a Smith chart, in the unit disc: from `smith_chart`."""

    points: np.ndarray  #: float32, shape (n, 3); z is 0
    begin: np.ndarray  #: line i has the points from ``begin[i]`` to ``begin[i + 1] - 1``
    labels: List[str]  #: the values that have a label
    axis: np.ndarray  #: shape (labels, 3): where they stand on the real axis, for resistance
    upper: np.ndarray  #: on the upper half of the unit circle, for reactance
    lower: np.ndarray  #: on the lower half

    @property
    def lines(self) -> List[np.ndarray]:
        """The points of each line: the real axis, the unit circle, then the arcs."""
        return [self.points[a:b] for a, b in zip(self.begin[:-1], self.begin[1:])]


def smith_chart(
    density: float = 40.0, min_spacing: float = 0.05, ticks: Sequence[int] = (1, 2, 5, 10, 2, 5, 10, 5, 10)
) -> SmithChart:
    """The lines of constant resistance and reactance in the disc of reflection coefficients.

    Parameters
    ----------
    density : float
        Points of an arc: so many times the root of its radius on half a circle.
    min_spacing : float
        The least gap between neighbouring circles on the real axis, above 0.
    ticks : sequence of int
        Whole numbers from 1 up. Each one that is not greater than the one before begins a new run; a band of values takes
        the run with the closest gaps that are wide enough.

    Returns
    -------
    SmithChart
    """
    if not density > 0 or not min_spacing > 0:
        raise ValueError("density and min_spacing: are above 0")
    numbers = np.ascontiguousarray(list(ticks), np.int32)
    if numbers.ndim != 1 or (numbers < 1).any():
        raise ValueError("ticks: are whole numbers from 1 up")
    points, ends, axis, upper, lower, labels = _core.smith_chart(float(density), float(min_spacing), numbers)
    begin = np.append(ends[:, 0], len(points))
    return SmithChart(points, begin, labels, axis, upper, lower)


def sort_outline(points: Any, side: str = "+x") -> Tuple[np.ndarray, np.ndarray]:
    """Turns a closed outline so that it starts at one side of its centre.

    Parameters
    ----------
    points : array_like, shape (n, 2 or more)
        x and y of the vertices, in order.
    side : {"+x", "-y", "-x", "+y"}
        It starts where it crosses the line through its centre going this way.

    Returns
    -------
    order : ndarray of int64, shape (n + 1,)
        Numbers of the points, the first once more at the end.
    places : ndarray of float32, shape (n + 1,)
        The length of the outline up to there, from 0 to 1.
    """
    if side not in _SIDES:
        raise ValueError(f'side: is {side!r}, but must be "+x", "-y", "-x" or "+y"')
    coords = floats(points, "points")
    if coords.ndim != 2 or coords.shape[1] < 2:
        raise ValueError(f"points: has the shape {coords.shape}, but it is rows of x and y")
    found = _core.sort_outline(coords, _SIDES[side]) if len(coords) else None
    if found is None:
        raise ValueError("points: are no outline that crosses its centre this way")
    return found


def join_outlines(first: Any, second: Any, side: str = "+x") -> np.ndarray:
    """A strip of triangles between two closed outlines, walking along both together.

    Parameters
    ----------
    first, second : array_like, shape (n, 2 or more)
        x and y of the vertices, in order, both the same way round.
    side : {"+x", "-y", "-x", "+y"}
        Where the walk starts, as of `sort_outline`.

    Returns
    -------
    ndarray of int64, shape (m, 3)
        Numbers of points, those of `second` behind those of `first`. At the end of the walk the last step of `first` is not
        taken, and a triangle is missing there.
    """
    order1, places1 = sort_outline(first, side)
    order2, places2 = sort_outline(second, side)
    return _core.join_outlines(order1, places1, order2 + (len(order1) - 1), places2)
