"""Stream lines, ribbons along them, and glyphs."""

from __future__ import annotations

from typing import Any, Dict, Iterator, Optional, Tuple

import numpy as np

from . import _core
from ._values import Rows


class Ribbons:
    """Ribbons along stream lines: from `StreamLines.ribbons`.

    Attributes
    ----------
    points : ndarray of float32, shape (2 n, nspace)
        The nodes of the lines, then those of the other edges in the same order.
    quads : ndarray of int64, shape (m, 4)
        Between neighbours along a line and the other edge.
    made : ndarray of bool
        Which lines have a ribbon: those of two nodes and more along which the field has derivatives.
    """

    __slots__ = ("points", "quads", "made")

    def __init__(self, points: np.ndarray, quads: np.ndarray, made: np.ndarray):
        self.points, self.quads, self.made = points, quads, made

    def __repr__(self) -> str:
        return f"<skoklana.Ribbons: {int(self.made.sum())} of {len(self.made)}, {len(self.quads)} quads>"


class StreamLines:
    """Lines along a vector field: from `Mesh.stream_lines`. Iterating gives the points of each line.

    Attributes
    ----------
    points : ndarray of float32, shape (n, nspace)
        The nodes of all lines, one line after the other.
    begin : ndarray of int64, shape (lines + 1,)
        Line i has the nodes from ``begin[i]`` to ``begin[i + 1] - 1``; seeds outside the mesh have lines without nodes.
    vectors : ndarray of float32, shape (n, components)
        The field at the nodes.
    speeds : ndarray of float32
        The length of `vectors`.
    cells : ndarray of int64
        The cell that holds each node; on structured meshes the number of its lowest node.
    uvw : ndarray of float32, shape (n, 3)
        The place in that cell.
    steps : ndarray of float32
        The step chosen at each node, negative against the field. A step may have been shortened after that.
    """

    __slots__ = ("_mesh", "_given", "_lists", "_direction", "__weakref__")

    def __init__(self, mesh: Any, given: Rows, lists: Dict[str, np.ndarray], direction: Optional[str]):
        self._mesh, self._given, self._lists, self._direction = mesh, given, lists, direction

    @staticmethod
    def joined(back: Dict[str, np.ndarray], on: Dict[str, np.ndarray]) -> Dict[str, np.ndarray]:
        """Each line against the field, turned round, and that with it, the seed once."""
        begin = [0]
        order = []
        nback = len(back["cells"])
        for i in range(len(on["begin"]) - 1):
            first = np.arange(back["begin"][i], back["begin"][i + 1])[:0:-1]
            second = np.arange(on["begin"][i], on["begin"][i + 1]) + nback
            order += [first, second]
            begin.append(begin[-1] + len(first) + len(second))
        nodes = np.concatenate(order) if order else np.empty(0, np.int64)
        made = {name: np.concatenate([back[name], on[name]])[nodes] for name in on if name != "begin"}
        made["begin"] = np.array(begin, np.int64)
        return made

    def __len__(self) -> int:
        return len(self.begin) - 1

    def __getitem__(self, line: int) -> np.ndarray:
        count = len(self)
        if not -count <= line < count:
            raise IndexError(f"line: {line} is none of {count}")
        line %= count
        return self.points[self.begin[line] : self.begin[line + 1]]

    def __iter__(self) -> Iterator[np.ndarray]:
        return (self[line] for line in range(len(self)))

    @property
    def points(self) -> np.ndarray:
        return self._lists["points"]

    @property
    def begin(self) -> np.ndarray:
        return self._lists["begin"]

    @property
    def vectors(self) -> np.ndarray:
        return self._lists["vectors"]

    @property
    def speeds(self) -> np.ndarray:
        return self._lists["speeds"]

    @property
    def cells(self) -> np.ndarray:
        return self._lists["cells"]

    @property
    def uvw(self) -> np.ndarray:
        return self._lists["uvw"]

    @property
    def steps(self) -> np.ndarray:
        return self._lists["steps"]

    @property
    def lines(self) -> np.ndarray:
        """All steps as rows of two nodes."""
        first = np.arange(len(self.points), dtype=np.int64)
        inner = np.ones(len(first), bool)
        inner[self.begin[1:][self.begin[1:] > self.begin[:-1]] - 1] = False
        return np.stack([first[inner], first[inner] + 1], axis=1)

    def carry(self, values: Any, *, null: Any = None, fill: Any = None) -> np.ndarray:
        """Node data of the mesh at the nodes of the lines: see `Mesh.sample`.

        Lines may run a twentieth of a cell outside; there values are those of the nearest place in the mesh.
        """
        low, high = self._mesh.bounds
        reach = 0.05 * float(np.linalg.norm(high - low))
        return self._mesh.sample(values, self.points, null=null, fill=fill, tolerance=reach)

    def ribbons(self, width: float, angle: float = 0.0, fixed_width: bool = False) -> Ribbons:
        """Ribbons along lines that were made in one direction.

        They turn with the field's rotation about the line and widen as it spreads across it.

        Parameters
        ----------
        width : float
            At the start of a line.
        angle : float
            At the start, about the line in radians.
        fixed_width : bool
            Keep the width.

        Returns
        -------
        Ribbons
        """
        if self._direction is None:
            raise ValueError('ribbons: lines of direction="both" have no start; make them forward and backward')
        edge, made = _core.ribbons(
            self._mesh._core, self._given.rows, self._given.null, self._lists, float(width), float(angle), fixed_width, None
        )
        n = len(self.points)
        lines = self.lines
        line_of = np.repeat(np.arange(len(self)), np.diff(self.begin))
        lines = lines[made[line_of[lines[:, 0]]]] if len(lines) else lines
        quads = np.stack([lines[:, 0], lines[:, 1], lines[:, 1] + n, lines[:, 0] + n], axis=1)
        return Ribbons(np.concatenate([self.points, edge]), quads, made)

    def to_vtk(self, point_data: Any = None) -> Any:
        """The lines as a vtkPolyData: see `skoklana.to_vtk`."""
        from ._interchange import to_vtk

        return to_vtk(self, point_data)

    def save(self, path: Any, point_data: Any = None) -> None:
        """Writes the lines to a file: see `skoklana.save`."""
        from ._interchange import save

        save(self, path, point_data)

    def __repr__(self) -> str:
        return f"<skoklana.StreamLines: {len(self)} lines, {len(self.points)} nodes>"

    def __reduce__(self) -> Any:
        raise TypeError("StreamLines can't be pickled; pickle their points and begin")


class Glyphs:
    """Copies of a shape at the nodes of a mesh: from `Mesh.glyphs`.

    Attributes
    ----------
    points : ndarray of float32, shape (nodes, points of the shape, 3)
    values : ndarray, shape (nodes, points of the shape)
        The magnitude of the data, or what `colour_by` gives.
    """

    __slots__ = ("points", "values", "_faces", "__weakref__")

    def __init__(self, points: np.ndarray, values: np.ndarray, faces: Optional[np.ndarray]):
        self.points, self.values, self._faces = points, values, faces

    @property
    def triangles(self) -> np.ndarray:
        """The triangles of all copies, over ``points.reshape(-1, 3)``."""
        if self._faces is None:
            raise ValueError("triangles: the shape was given without any")
        count, size = self.values.shape
        shift = np.arange(count, dtype=np.int64)[:, None, None] * size
        return (self._faces[None] + shift).reshape(-1, self._faces.shape[-1])

    def __repr__(self) -> str:
        return f"<skoklana.Glyphs: {self.values.shape[0]} copies of {self.values.shape[1]} points>"

    def __reduce__(self) -> Any:
        raise TypeError("Glyphs can't be pickled; pickle their points and values")


def arrow(sides: int = 8, head: float = 0.35, radius: float = 0.03, head_radius: float = 0.1) -> Tuple[np.ndarray, np.ndarray]:
    """An arrow along x, from 0 to 1, for `Mesh.glyphs`.

    Parameters
    ----------
    sides : int
        Around the shaft and the head, 3 and up.
    head : float
        The part of its length that is head.
    radius, head_radius : float
        Of shaft and head.

    Returns
    -------
    points : ndarray of float32, shape (n, 3)
    triangles : ndarray of int64, shape (m, 3)
    """
    if sides < 3:
        raise ValueError(f"sides: is {sides}, but an arrow has three and more")
    angle = 2 * np.pi * np.arange(sides) / sides
    ring = np.stack([np.zeros(sides), np.cos(angle), np.sin(angle)], axis=1)
    neck = 1 - head
    levels = [(0.0, radius), (neck, radius), (neck, head_radius)]
    points = [ring * [0, r, r] + [x, 0, 0] for x, r in levels] + [np.array([[0.0, 0, 0], [1.0, 0, 0]])]
    side = np.arange(sides)
    beside = (side + 1) % sides
    start, tip = 3 * sides, 3 * sides + 1
    triangles = [np.stack([np.full(sides, start), beside, side], axis=1)]
    for level in (0, 1):
        a, b = side + level * sides, beside + level * sides
        triangles += [np.stack([a, b, b + sides], axis=1), np.stack([a, b + sides, a + sides], axis=1)]
    triangles.append(np.stack([side + 2 * sides, beside + 2 * sides, np.full(sides, tip)], axis=1))
    return np.concatenate(points).astype(np.float32), np.concatenate(triangles).astype(np.int64)
