"""What extractions give: nodes, cells, and data carried onto both."""

from __future__ import annotations

from typing import Any, Dict, List, Optional, Tuple

import numpy as np

from . import _core
from ._values import Rows, finished

# Kinds of cells by the library's numbers, first order and second, under the names that meshio has for them.
KINDS = (
    ("line", "line3"),
    ("triangle", "triangle6"),
    ("quad", "quad8"),
    ("tetra", "tetra10"),
    ("pyramid", "pyramid13"),
    ("wedge", "wedge15"),
    ("hexahedron", "hexahedron20"),
)
SIZES = {
    "line": 2, "line3": 3, "triangle": 3, "triangle6": 6, "quad": 4, "quad8": 8, "tetra": 4, "tetra10": 10,
    "pyramid": 5, "pyramid13": 13, "wedge": 6, "wedge15": 15, "hexahedron": 8, "hexahedron20": 20,
}  # fmt: skip
NUMBERS = {name: (kind, order + 1) for kind, names in enumerate(KINDS) for order, name in enumerate(names)}


class Result:
    """A piece of a mesh, or a surface or lines in it: nodes and cells, and the way of data onto them.

    Nodes are nodes of the mesh, or lie between two of them; so any array of the mesh can be carried onto a result
    without a second extraction. A result needs neither the mesh nor the data any more that it was made of.

    Attributes
    ----------
    points : ndarray of float32, shape (nnodes, nspace)
        Places of the nodes, the columns being x, y and z.
    cells : dict of str to ndarray of int64
        The cells by kind, ``"triangle"``, ``"tetra"``, ...: a row of node numbers a cell, in VTK's order. Kinds without
        cells are not in it. `triangles`, `lines` and the like give an array in any case.
    cell_numbers : ndarray of int64, shape (ncells,), or None
        The cell of the mesh that each cell was made of, in the order of `cells`, kind after kind. None where the
        library can't tell, as for bands.
    old_nodes : ndarray of int64
        The nodes of the mesh among the result's own; they come first.
    first, second, t : ndarray
        The other nodes lie between two nodes of the mesh, `t` from the first, 0, to the second, 1.

    All arrays own their memory, which goes with the last of them.
    """

    __slots__ = ("_parts", "points", "cells", "cell_numbers", "_nnodes", "_ncells", "_order", "__weakref__")

    def __init__(self, parts: Dict[str, Any], nnodes: int, ncells: int, order: Optional[Tuple[Any, Any]] = None):
        self._parts = parts
        self.points = parts["points"]
        self._nnodes, self._ncells, self._order = nnodes, ncells, order
        by_kind: Dict[str, List[Any]] = {}
        for kind, degree, rows, cell in parts.pop("sets"):
            by_kind.setdefault(KINDS[kind][degree - 1], []).append((rows, cell))
        self.cells: Dict[str, np.ndarray] = {}
        cells = []
        for name, sets in by_kind.items():
            self.cells[name] = sets[0][0] if len(sets) == 1 else np.concatenate([rows for rows, _ in sets])
            cells += [cell for _, cell in sets]
        if any(cell is None for cell in cells):
            self.cell_numbers = None
        else:
            joined = cells[0] if len(cells) == 1 else np.concatenate(cells or [np.empty(0, np.int64)])
            self.cell_numbers = joined if order is None else order[1][joined]

    @property
    def nnodes(self) -> int:
        """Count of nodes."""
        return len(self.points)

    @property
    def ncells(self) -> int:
        """Count of cells of all kinds."""
        return sum(len(rows) for rows in self.cells.values())

    @property
    def old_nodes(self) -> np.ndarray:
        return self._parts["old"]

    @property
    def first(self) -> np.ndarray:
        return self._parts["first"]

    @property
    def second(self) -> np.ndarray:
        return self._parts["second"]

    @property
    def t(self) -> np.ndarray:
        return self._parts["t"]

    def _rows(self, name: str) -> np.ndarray:
        rows = self.cells.get(name)
        return np.empty((0, SIZES[name]), np.int64) if rows is None else rows

    @property
    def lines(self) -> np.ndarray:
        """Rows of two nodes."""
        return self._rows("line")

    @property
    def triangles(self) -> np.ndarray:
        """Rows of three nodes."""
        return self._rows("triangle")

    @property
    def quads(self) -> np.ndarray:
        """Rows of four nodes, around the cell."""
        return self._rows("quad")

    @property
    def tetrahedra(self) -> np.ndarray:
        """Rows of four nodes."""
        return self._rows("tetra")

    @property
    def pyramids(self) -> np.ndarray:
        """Rows of five nodes, the apex last."""
        return self._rows("pyramid")

    @property
    def wedges(self) -> np.ndarray:
        """Rows of six nodes."""
        return self._rows("wedge")

    @property
    def hexahedra(self) -> np.ndarray:
        """Rows of eight nodes."""
        return self._rows("hexahedron")

    def carry(self, values: Any, *, null: Any = None, fill: Any = None, library: bool = False) -> np.ndarray:
        """Data of the mesh's nodes at the nodes of this result.

        Parameters
        ----------
        values : array_like
            Node data of the mesh, in its shape or as rows; any number of components.
        null : scalar, optional
            Rows whose first component equals it have no value. Masked arrays bring their own.
        fill : scalar, optional
            What nodes get that lie between others one of which has no value. Without it they are NaN in floats and
            masked in integers.
        library : bool
            The library's own way: in single precision for most types, truncated for integers, null as the null value.

        Returns
        -------
        ndarray, shape (nnodes,) or (nnodes, components), of the type of `values`
            Weighted in double; integers are rounded to the nearest. Masked if `values` was.
        """
        given = self._given(values, null)
        if library:
            return _core.carry_by_library(self._parts, given.rows, given.null)
        out, valid = _core.carry(self._parts, given.rows, given.null)
        return finished(out, valid, given, fill, given.null is not None)

    def _given(self, values: Any, null: Any) -> Rows:
        array = values if isinstance(values, np.ndarray) else np.asarray(values)
        shape: Tuple[int, ...] = (self._nnodes,)
        for axes in (1, 2, 3):
            if array.ndim >= axes and int(np.prod(array.shape[:axes])) == self._nnodes:
                shape = array.shape[:axes]
        return Rows(values, "values", self._nnodes, shape, null)

    def carry_cells(self, values: Any) -> np.ndarray:
        """Data of the mesh's cells at the cells of this result, each row as it stands.

        Parameters
        ----------
        values : array_like
            Cell data of the mesh, in the shape of its cells or as rows.

        Returns
        -------
        ndarray, shape (ncells,) or (ncells, components)
            In the order of `cells`, kind after kind.
        """
        if self.cell_numbers is None:
            raise ValueError("carry_cells: the library does not tell which cells this result was made of")
        array = values if isinstance(values, np.ndarray) else np.asarray(values)
        shape: Tuple[int, ...] = (self._ncells,)
        for axes in (1, 2, 3):
            if array.ndim >= axes and int(np.prod(array.shape[:axes])) == self._ncells:
                shape = array.shape[:axes]
        given = Rows(values, "values", self._ncells, shape, None, of="cells")
        out = _core.take(given.rows, self.cell_numbers)
        if not given.masked:
            return out
        mask = np.ma.getmaskarray(values).reshape(given.rows.shape)[self.cell_numbers]
        return np.ma.MaskedArray(out, mask=mask)

    def chains(self) -> List[np.ndarray]:
        """The lines of this result, joined end to end.

        Returns
        -------
        list of ndarray of int64
            The nodes along each chain; one that is closed ends with its first node. Each line is in one chain; where
            more than two lines meet, chains end.
        """
        return join_lines(self.lines, self.nnodes)

    def to_mesh(self) -> "Any":
        """The result as a mesh, to go on with.

        Returns
        -------
        Mesh
            Of cell sets, over the same points.
        """
        from ._mesh import cells

        return cells(self.points, self.cells)

    def to_vtk(self, point_data: Any = None, cell_data: Any = None) -> "Any":
        """The result as a vtkPolyData or vtkUnstructuredGrid: see `skoklana.to_vtk`."""
        from ._interchange import to_vtk

        return to_vtk(self, point_data, cell_data)

    def to_meshio(self, point_data: Any = None, cell_data: Any = None) -> "Any":
        """The result as a meshio.Mesh: see `skoklana.to_meshio`."""
        from ._interchange import to_meshio

        return to_meshio(self, point_data, cell_data)

    def save(self, path: Any, point_data: Any = None, cell_data: Any = None) -> None:
        """Writes the result to a file, in the format that the name ends in: see `skoklana.save`."""
        from ._interchange import save

        save(self, path, point_data, cell_data)

    def __repr__(self) -> str:
        kinds = ", ".join(f"{len(rows)} {name}" for name, rows in self.cells.items()) or "no cells"
        return f"<skoklana.Result: {self.nnodes} nodes, {kinds}>"

    def __reduce__(self) -> Any:
        raise TypeError("a Result can't be pickled; pickle its arrays: points, cells and what was carried")


def join_lines(lines: Any, nnodes: Optional[int] = None, *, library: bool = False) -> Any:
    """Joins loose lines into chains.

    Parameters
    ----------
    lines : array_like of int, shape (n, 2)
        Two nodes a line.
    nnodes : int, optional
        Node numbers are below it; by default the largest one tells.
    library : bool
        The library's own order of lines instead: a copy of `lines` in which each chain's lines follow one another. Where
        more than two lines meet it loses some.

    Returns
    -------
    list of ndarray of int64
        The nodes along each chain; one that is closed ends with its first node.
    """
    rows = np.ascontiguousarray(lines, dtype=np.int64)
    if rows.ndim != 2 or rows.shape[1] != 2:
        raise ValueError(f"lines: has the shape {rows.shape}, but a line is a row of two nodes")
    count = int(rows.max()) + 1 if nnodes is None and rows.size else int(nnodes or 0)
    if library:
        rows = rows.copy()
        _core.join_lines(rows, count)
        return rows
    path, begin = _core.chains(rows, count)
    return [path[begin[i] : begin[i + 1]] for i in range(len(begin) - 1)]
