"""Meshes, and every operation on them."""

from __future__ import annotations

import math
from typing import Any, Callable, Dict, List, NamedTuple, Optional, Sequence, Tuple, Union

import numpy as np

from . import _core
from ._lines import Glyphs, StreamLines, arrow
from ._result import KINDS, NUMBERS, SIZES, Result
from ._values import (
    Rows, finished, floats, level_number, numbers, optional_list, part_of, points_of, thread_count,
    vector, whole_shape
)  # fmt: skip

Progress = Optional[Callable[[int, Optional[str]], Any]]

_ALIASES = {
    "tri": "triangle", "tri6": "triangle6", "tet": "tetra", "tet10": "tetra10", "prism": "wedge", "prism15": "wedge15",
    "hex": "hexahedron", "hex20": "hexahedron20", "pyr": "pyramid", "pyr13": "pyramid13", "quadrilateral": "quad",
}  # fmt: skip


class Measured(NamedTuple):
    """What `Mesh.measure` finds for the cells of one dimension."""

    ncells: int
    measure: float  #: their length, area or volume
    integral: float  #: of the values, over the cells that have a value at each node
    valued: float  #: the measure of these cells
    null_cells: int  #: cells with a node without a value

    @property
    def mean(self) -> float:
        """The mean of the values."""
        return self.integral / self.valued if self.valued else math.nan


class Measures(NamedTuple):
    """Measures by dimension of cells."""

    length: Measured
    area: Measured
    volume: Measured


class PlaneGrid(NamedTuple):
    """The library's own slice of a lattice: see `Mesh.plane_grid`."""

    transform: np.ndarray  #: 4 x 4: row vectors (u, v, 0, 1) times it are points, u and v from 0 to 1
    low: np.ndarray  #: the node of the mesh on one side of each grid node, -1 outside; axes v, u
    high: np.ndarray  #: the node on the other side
    weight: np.ndarray  #: the place between them, 0 at `low`
    valid: np.ndarray  #: whether the grid node is in the mesh

    def carry(self, values: Any, fill: Any = np.nan) -> np.ndarray:
        """Node data of the mesh, one element a node, on the grid; `fill` outside."""
        rows = np.asarray(values).reshape(-1)
        low, high = np.where(self.valid, self.low, 0), np.where(self.valid, self.high, 0)
        between = rows[low] + (rows[high].astype(np.float64) - rows[low]) * self.weight
        return np.where(self.valid, between, fill)


class Terrain(NamedTuple):
    """A height grid as triangles: from `Mesh.reduce_heights`."""

    points: np.ndarray  #: float32, shape (n, 3): x, y and the height
    triangles: np.ndarray  #: int64, shape (m, 3)
    heights: np.ndarray  #: shape (n,), of the type of the data


class Places:
    """Located points: from `Mesh.locate`.

    Attributes
    ----------
    cells : ndarray of int64
        The cell that holds each point, -1 outside, in the shape of the points.
    uvw : ndarray of float64, shape (..., 3)
        The place in the cell, in the library's parameters of the cell's kind.
    """

    __slots__ = ("_mesh", "_places", "_lead", "cells", "__weakref__")

    def __init__(self, mesh: "Mesh", places: Any, lead: Tuple[int, ...]):
        self._mesh, self._places, self._lead = mesh, places, lead
        cells = places.cell()
        if mesh._order is not None:
            cells = np.where(cells >= 0, mesh._order[1][cells], -1)
        self.cells = cells.reshape(lead)

    @property
    def uvw(self) -> np.ndarray:
        return self._places.uvw().reshape(self._lead + (3,))

    @property
    def inside(self) -> np.ndarray:
        """Which points lie in a cell."""
        return self.cells >= 0

    def weights(self, point: int) -> Tuple[np.ndarray, np.ndarray]:
        """The nodes that take part in the value at a point, by its number, and their weights, which sum to 1."""
        return self._places.weights(point)

    def sample(self, values: Any, *, null: Any = None, fill: Any = None, progress: Progress = None) -> np.ndarray:
        """Node data at the points: see `Mesh.sample`."""
        given = self._mesh._node_rows(values, "values", null)
        out, valid = _core.sample_at(self._places, given.rows, given.null, False, progress)
        return finished(out, valid, given, fill, True).reshape(self._lead + given.tail)

    def sample_cells(self, values: Any, *, null: Any = None, fill: Any = None, progress: Progress = None) -> np.ndarray:
        """Cell data at the points: see `Mesh.sample_cells`."""
        given = self._mesh._cell_rows(values, null)
        out, valid = _core.sample_at(self._places, given.rows, given.null, True, progress)
        return finished(out, valid, given, fill, True).reshape(self._lead + given.tail)

    def __repr__(self) -> str:
        return f"<skoklana.Places: {self.cells.size} points, {int((self.cells >= 0).sum())} in cells>"

    def __reduce__(self) -> Any:
        raise TypeError("Places can't be pickled; pickle their cells and uvw")


class Mesh:
    """A mesh: from `uniform`, `rectilinear`, `curvilinear`, `cells`, `from_vtk` or `from_meshio`.

    Attributes
    ----------
    kind : str
        "uniform", "rectilinear", "curvilinear" or "cells".
    shape : tuple of int
        Nodes along each axis in numpy's order, x last; of cell sets (nnodes,).
    cell_shape : tuple of int
        The same of cells; an axis of one node has one layer of them.
    nnodes, ncells, nspace : int
        Nodes, cells, and coordinates a node.
    """

    def __init__(
        self,
        core: Any,
        kind: str,
        shape: Tuple[int, ...],
        nspace: int,
        points: Optional[np.ndarray],
        sets: Sequence[Tuple[str, np.ndarray]],
        order: Optional[Tuple[np.ndarray, np.ndarray]],
    ):
        self._core = core
        self.kind = kind
        self.shape = shape
        self.nspace = nspace
        self.nnodes = math.prod(shape)
        self._points = points
        self._sets = sets  # in the library's order of nodes
        self._order = order  # numbers of the user's cells in the mesh, and the other way round
        self._locators: Dict[float, Any] = {}
        self._corners: Optional[np.ndarray] = None  # of a uniform mesh
        if kind == "cells":
            self.ncells = sum(len(rows) for _, rows in sets)
            self.cell_shape: Tuple[int, ...] = (self.ncells,)
        else:
            self.cell_shape = tuple(max(n - 1, 1) for n in shape)
            self.ncells = math.prod(self.cell_shape) if self.nnodes > 1 else 0

    # ---- what it is --------------------------------------------------------------------------------------------

    @property
    def points(self) -> np.ndarray:
        """Places of the nodes, float32, shape (nnodes, nspace). Those of uniform and rectilinear meshes are made now."""
        if self._points is None:
            return self._core.coords()
        return self._points

    @property
    def bounds(self) -> np.ndarray:
        """The box of all nodes, shape (2, nspace): lowest x, y, z, then highest."""
        return np.array(self._core.box(), np.float32)

    @property
    def cells(self) -> Dict[str, np.ndarray]:
        """The cells by kind, rows of nodes in VTK's order. Those of lattices are made now."""
        if self.kind == "cells":
            made: Dict[str, Any] = {}
            for name, rows in self._sets:
                kind, degree = NUMBERS[name]
                made.setdefault(name, []).append(rows if kind < 3 else _core.reorder(rows, kind, degree, True))
            return {name: sets[0] if len(sets) == 1 else np.concatenate(sets) for name, sets in made.items()}
        axes = [d for d, n in enumerate(self.shape) if n > 1]
        if not axes:
            return {}
        node = np.arange(self.nnodes, dtype=np.int64).reshape([self.shape[d] for d in axes])
        low = {1: [(0,), (1,)], 2: [(0, 0), (0, 1), (1, 1), (1, 0)]}
        corners = low.get(len(axes)) or [(k,) + c for k in (0, 1) for c in low[2]]
        rows = [node[tuple(slice(c, n - 1 + c) for c, n in zip(corner, node.shape))].ravel() for corner in corners]
        return {("line", "quad", "hexahedron")[len(axes) - 1]: np.stack(rows, axis=1)}

    @property
    def closed(self) -> bool:
        """Whether `close` was called."""
        return self._core.closed

    def close(self) -> None:
        """Lets go of the mesh's memory and of the arrays that it leans on; no operation takes the mesh any more.

        Not needed: a mesh goes with the last name that stands for it.
        """
        self._locators.clear()
        self._core.close()
        self._points = None
        self._sets = []

    def to_cells(self) -> "Mesh":
        """The same mesh as one of cell sets, with explicit points and cells."""
        return cells(np.array(self.points), self.cells)

    def to_vtk(self, point_data: Any = None, cell_data: Any = None) -> Any:
        """The mesh as a VTK data set: see `skoklana.to_vtk`."""
        from ._interchange import to_vtk

        return to_vtk(self, point_data, cell_data)

    def to_meshio(self, point_data: Any = None, cell_data: Any = None) -> Any:
        """The mesh as a meshio.Mesh: see `skoklana.to_meshio`."""
        from ._interchange import to_meshio

        return to_meshio(self, point_data, cell_data)

    def save(self, path: Any, point_data: Any = None, cell_data: Any = None) -> None:
        """Writes the mesh to a file: see `skoklana.save`."""
        from ._interchange import save

        save(self, path, point_data, cell_data)

    def __repr__(self) -> str:
        state = ", closed" if self.closed else ""
        return f"<skoklana.Mesh: {self.kind}, shape {self.shape}, {self.ncells} cells{state}>"

    def __reduce__(self) -> Any:
        raise TypeError("a Mesh can't be pickled; pickle the arrays that it was made of")

    # ---- arrays ------------------------------------------------------------------------------------------------

    def _node_rows(self, values: Any, name: str, null: Any = None, components: Tuple[int, ...] = ()) -> Rows:
        return Rows(values, name, self.nnodes, self.shape, null, components)

    def _cell_rows(self, values: Any, null: Any = None, components: Tuple[int, ...] = ()) -> Rows:
        if isinstance(values, dict):
            names = list(dict.fromkeys(name for name, _ in self._sets))
            values = np.concatenate([np.asarray(values[name]) for name in names])
        given = Rows(values, "values", self.ncells, self.cell_shape, null, components, of="cells")
        if self._order is not None:
            given.rows = _core.take(given.rows, self._order[1])
        return given

    def _result(self, parts: Dict[str, Any]) -> Result:
        return Result(parts, self.nnodes, self.ncells, self._order)

    def _scalar(self, values: Any, null: Any) -> Rows:
        return self._node_rows(values, "values", null, (1,))

    def _extract(self, extraction: Callable[..., Dict[str, Any]], values: Any, null: Any, *arguments: Any) -> Result:
        """What an extraction of the compiled part makes of a scalar a node."""
        given = values if isinstance(values, Rows) else self._scalar(values, null)
        return self._result(extraction(self._core, given.rows, given.null, *arguments))

    # ---- levels ------------------------------------------------------------------------------------------------

    def isosurface(
        self,
        values: Any,
        level: float,
        *,
        null: Any = None,
        cells: bool = True,
        threads: int = 1,
        progress: Progress = None,
    ) -> Result:
        """The surface at which a scalar reaches a level.

        Parameters
        ----------
        values : array_like
            A scalar a node.
        level : float
        null : scalar, optional
            Cells with a node of this value are left out.
        cells : bool
            Whether the result knows the cells that its triangles come from; without, large surfaces are made sooner.
        threads : int
            How many work; the result is the same for any number. Structured meshes of fewer than three axes take one. On
            structured meshes more than one can be stopped at the end of their work only.
        progress : callable, optional
            Called with a percentage and a text, or None, as the work goes on. What it raises ends the work.

        Returns
        -------
        Result
            `triangles` of solid cells, whose right-hand normals point to lower values, and `lines` of flat ones.
        """
        return self._extract(_core.level, values, null, level_number(level), False, cells, thread_count(threads), progress)

    def isoline(
        self,
        values: Any,
        level: float,
        *,
        null: Any = None,
        cells: bool = True,
        threads: int = 1,
        progress: Progress = None,
    ) -> Result:
        """The lines at which a scalar of flat cells reaches a level; `Result.chains` joins them.

        The parameters are those of `isosurface`.
        """
        return self._extract(_core.level, values, null, level_number(level), True, cells, thread_count(threads), progress)

    def _trace(self, values: Any, seed: Any, null: Any, lines: bool, progress: Progress) -> Tuple[float, Result]:
        if self.kind == "cells":
            raise ValueError("the library traces levels on structured meshes alone")
        axes = 2 if lines else 3
        if len(self.shape) < axes or (not lines and len(self.shape) != 3):
            raise ValueError(f"the mesh has {len(self.shape)} axes, and {axes} are needed")
        given = self._scalar(values, null)
        found, level, parts = _core.trace(
            self._core, given.rows, given.null, vector(seed, "seed", np.float32), lines, progress
        )
        if not found:
            raise ValueError("seed: does not lie in a cell with values")
        return level, self._result(parts)

    def trace_isosurface(
        self, values: Any, seed: Any, *, null: Any = None, progress: Progress = None
    ) -> Tuple[float, Result]:
        """The piece of a level surface that is reached from a point, walking from cell to cell.

        For small pieces of structured meshes of three axes: the time grows with the square of the surface. Sheets that
        lie across y or z are followed along one row of cells only; `isosurface` has all of a surface.

        Returns
        -------
        level : float
            The value at the seed.
        Result
        """
        return self._trace(values, seed, null, False, progress)

    def trace_isoline(
        self, values: Any, seed: Any, *, null: Any = None, progress: Progress = None
    ) -> Tuple[float, Result]:
        """The same for lines on a structured mesh of two axes."""
        return self._trace(values, seed, null, True, progress)

    # ---- parts -------------------------------------------------------------------------------------------------

    def cut(
        self,
        values: Any,
        level: float,
        keep: str = "above",
        *,
        null: Any = None,
        library: bool = False,
        threads: int = 1,
        progress: Progress = None,
    ) -> Result:
        """The part of the mesh on one side of a level.

        Whole cells stay as they are; crossed ones become tetrahedra, triangles or lines.

        Parameters
        ----------
        values : array_like
            A scalar a node.
        level : float
        keep : {"above", "below"}
            Which side: values at the level and above, or those below.
        null : scalar, optional
            Cells with a node of this value are left out.
        library : bool
            Keep nodes at the level that no cell has, as the library does.
        threads : int
            As of `isosurface`.
        """
        if keep not in ("above", "below"):
            raise ValueError(f'keep: is {keep!r}, but must be "above" or "below"')
        side = 1 if keep == "above" else -1
        return self._extract(_core.cut, values, null, level_number(level), side, library, thread_count(threads), progress)

    def band(
        self,
        values: Any,
        low: float,
        high: float,
        *,
        null: Any = None,
        lines: bool = False,
        progress: Progress = None,
    ) -> Result:
        """The part of the mesh with values between two levels, both included.

        Parameters
        ----------
        values : array_like
            A scalar a node.
        low, high : float
        null : scalar, optional
            Cells with a node of this value are left out.
        lines : bool
            Whether to have the `lines` in which the band of a surface ends too.

        Returns
        -------
        Result
            Its `cell_numbers` are None. New nodes may lie between three nodes of the mesh.
        """
        given = self._scalar(values, null)
        ends = _levels_of_type([level_number(low, "low"), level_number(high, "high")], given.rows.dtype)
        return self._extract(_core.band, given, null, *ends, lines, progress)

    def bands(
        self, values: Any, levels: Sequence[float], *, null: Any = None, lines: bool = False, progress: Progress = None
    ) -> List[Result]:
        """Bands from each level to the next, half open but for the last, so that each value is in one.

        Returns
        -------
        list of Result
            One fewer than levels.
        """
        limits = [level_number(level, "levels") for level in levels]
        if len(limits) < 2 or any(a >= b for a, b in zip(limits, limits[1:])):
            raise ValueError("levels: must be two or more, ascending")
        given = self._scalar(values, null)
        made = []
        for band, (low, high) in enumerate(zip(limits, limits[1:])):
            if band + 2 < len(limits):
                high = float(np.nextafter(high, -np.inf))
            ends = _levels_of_type([low, high], given.rows.dtype)
            made.append(self._extract(_core.band, given, null, *ends, lines, part_of(progress, band, len(limits) - 1)))
        return made

    def slice(
        self, origin: Any, normal: Any, *, cells: bool = True, threads: int = 1, progress: Progress = None
    ) -> Result:
        """The plane through a point, across a direction: triangles of solid cells, lines of flat ones.

        Parameters
        ----------
        origin, normal : array_like
            x, y, z. A side of a cell that lies in the plane is in the slice once.
        cells : bool
        threads : int
            As of `isosurface`.
        """
        across = vector(normal, "normal")
        if not across.any():
            raise ValueError("normal: has no direction")
        at, nthreads = vector(origin, "origin"), thread_count(threads)
        return self._result(_core.slice(self._core, at, across, cells, nthreads, progress))

    def plane_grid(self, normal: Any, distance: float) -> PlaneGrid:
        """The library's slice of a uniform or rectilinear mesh of three axes: a grid on the plane normal . x = distance.

        The grid has a node above each pair of nodes of the two axes that the plane is least steep along. What a plane
        through nodes takes, and what is lost in single precision, is told in the library's header.
        """
        if self.kind not in ("uniform", "rectilinear") or len(self.shape) != 3:
            raise ValueError("the library makes such slices of uniform and rectilinear meshes of three axes")
        matrix, low, high, weight, valid = _core.plane_grid(
            self._core, vector(normal, "normal", np.float32), float(distance)
        )
        return PlaneGrid(matrix, low, high, weight, valid.view(np.bool_))

    def threshold(
        self,
        values: Any,
        low: float = -math.inf,
        high: float = math.inf,
        where: str = "nodes",
        *,
        any: bool = False,
        null: Any = None,
        progress: Progress = None,
    ) -> Result:
        """Whole cells with values in a range, both ends included.

        Parameters
        ----------
        values : array_like
            A scalar a node, or a cell.
        low, high : float
        where : {"nodes", "cells"}
            What `values` belongs to.
        any : bool
            By nodes: one in the range is enough, instead of all.
        null : scalar, optional
            In no range, as NaN is.
        """
        if where not in ("nodes", "cells"):
            raise ValueError(f'where: is {where!r}, but must be "nodes" or "cells"')
        given = self._scalar(values, null) if where == "nodes" else self._cell_rows(values, null, (1,))
        rows = given.rows
        marks = (rows >= level_number(low, "low")) & (rows <= level_number(high, "high"))
        if given.null is not None:
            marks &= rows != given.null[0]
        chosen = marks.view(np.uint8)
        if where == "nodes":
            chosen = _core.marks_of_cells(self._core, chosen, any)
        return self._result(_core.cells_by_mark(self._core, chosen, progress))

    def without_null(self, values: Any, *, null: Any = None, progress: Progress = None) -> Result:
        """The nodes that have a value, and the cells that have only such nodes.

        Parameters
        ----------
        values : array_like
            A scalar a node; masked, or with `null`.
        """
        given = self._scalar(values, null)
        if given.null is None:
            if not given.masked:
                raise ValueError("null: is needed where values is not a masked array")
            unused = np.ones(self.nnodes, np.uint8)  # nothing is masked
            parts = _core.without_null(self._core, unused, np.zeros(1, np.uint8), progress)
        else:
            parts = _core.without_null(self._core, given.rows, given.null, progress)
        result = self._result(parts)
        if result.cell_numbers is None:  # lattices: the library has them in the order of their numbers
            marks = np.zeros(self.nnodes, np.uint8)
            marks[result.old_nodes] = 1
            result.cell_numbers = np.flatnonzero(_core.marks_of_cells(self._core, marks, False))
        return result

    # ---- points ------------------------------------------------------------------------------------------------

    def locate(self, points: Any, *, tolerance: float = 0, threads: int = 1, progress: Progress = None) -> Places:
        """The cells that hold points, and where in them, to the precision of coordinates.

        Parameters
        ----------
        points : array_like, shape (..., 1 to 3)
            x, y, z; missing ones are 0. float32 and float64 are taken as they are.
        tolerance : float
            How far outside all cells a point may lie and still belong to the nearest. 0: a millionth of the diagonal of
            the mesh's box; below 0: none.
        threads : int
            How many work, here and where the places are sampled; the result is the same for any number.

        Returns
        -------
        Places
            To sample any number of arrays at.
        """
        rows, lead = points_of(points)
        nthreads = thread_count(threads)
        locator, rest = self._locator(tolerance, progress)
        return Places(self, _core.locate(locator, rows, nthreads, rest), lead)

    def _locator(self, tolerance: float, progress: Progress) -> Tuple[Any, Progress]:
        """The locator, made if there is none, and what is left of the progress."""
        key = float(tolerance)
        locator = self._locators.get(key)
        if locator is not None:
            return locator, progress
        locator = self._locators[key] = _core.make_locator(self._core, key, part_of(progress, 0, 2))
        return locator, part_of(progress, 1, 2)

    def sample(
        self,
        values: Any,
        points: Any,
        *,
        null: Any = None,
        fill: Any = None,
        tolerance: float = 0,
        library: bool = False,
        threads: int = 1,
        progress: Progress = None,
    ) -> np.ndarray:
        """Node data at any points.

        Parameters
        ----------
        values : array_like
            Node data, any number of components.
        points : array_like, shape (..., 1 to 3)
            x, y, z.
        null : scalar, optional
            Rows whose first component equals it have no value; nor have points next to such nodes.
        fill : scalar, optional
            What points without a value get. Without it they are NaN in floats and masked in integers.
        tolerance : float
            As of `locate`.
        library : bool
            The library's own way, made for drawing: points up to a twentieth of a cell outside count as inside, places
            and values have single precision, integers are truncated. Points without a value get `fill`, or 0.
        threads : int
            How many work; the result is the same for any number.

        Returns
        -------
        ndarray
            In the shape of the points, of the type of `values`. Worked out in double by the shape functions of the
            cells; integers are rounded to the nearest.
        """
        if library:
            given = self._node_rows(values, "values", null)
            rows, lead = points_of(points)
            out = _core.sample_by_library(
                self._core,
                given.rows,
                given.null,
                np.ascontiguousarray(rows, np.float32),
                0.0 if fill is None else float(fill),
                thread_count(threads),
                progress,
            )
            return out.reshape(lead + given.tail)
        return self._sample(self._node_rows(values, "values", null), False, points, fill, tolerance, threads, progress)

    def _sample(
        self, given: Rows, of_cells: bool, points: Any, fill: Any, tolerance: float, threads: int, progress: Progress
    ) -> np.ndarray:
        rows, lead = points_of(points)
        nthreads = thread_count(threads)
        locator, rest = self._locator(tolerance, progress)
        out, valid = _core.sample_points(locator, rows, given.rows, given.null, of_cells, nthreads, rest)
        return finished(out, valid, given, fill, True).reshape(lead + given.tail)

    def sample_cells(
        self,
        values: Any,
        points: Any,
        *,
        null: Any = None,
        fill: Any = None,
        tolerance: float = 0,
        threads: int = 1,
        progress: Progress = None,
    ) -> np.ndarray:
        """Cell data at any points: the row of the cell that holds each, as it stands. The parameters are those of `sample`."""
        return self._sample(self._cell_rows(values, null), True, points, fill, tolerance, threads, progress)

    # ---- operators ---------------------------------------------------------------------------------------------

    def _derivative(
        self, which: int, values: Any, components: Tuple[int, ...], null: Any, library: bool, progress: Progress
    ) -> np.ndarray:
        given = self._node_rows(values, "values", null, components)
        if library:
            out = _core.derivative_by_library(self._core, which, given.rows, given.null, progress)
        else:
            out, valid = _core.derivative(self._core, which, given.rows, given.null, progress)
            if given.masked:
                out = finished(out, valid, given, None, True)
        return out.reshape(self.shape + out.shape[1:])

    def gradient(
        self, values: Any, *, null: Any = None, library: bool = False, progress: Progress = None
    ) -> np.ndarray:
        """The gradient of a scalar at the nodes, exact for linear fields on every mesh.

        Parameters
        ----------
        values : array_like
            A scalar a node.
        null : scalar, optional
            Cells with a node of this value take no part.
        library : bool
            The library's own form, which differs at some ends of rectilinear meshes, on surfaces and around null.

        Returns
        -------
        ndarray of float32, shape ``mesh.shape + (3,)``
            Derivatives along x, y and z. On surfaces and curves those within them. NaN where there is none; masked if
            `values` was.
        """
        return self._derivative(0, values, (1,), null, library, progress)

    def curl(self, values: Any, *, null: Any = None, library: bool = False, progress: Progress = None) -> np.ndarray:
        """The curl of vectors of two or three components at the nodes: see `gradient`."""
        return self._derivative(1, values, (3,) if library else (2, 3), null, library, progress)

    def divergence(
        self, values: Any, *, null: Any = None, library: bool = False, progress: Progress = None
    ) -> np.ndarray:
        """The divergence of vectors of two or three components at the nodes: see `gradient`.

        Returns
        -------
        ndarray of float32, shape ``mesh.shape``
        """
        return self._derivative(2, values, (3,) if library else (2, 3), null, library, progress)

    def cell_to_node(
        self,
        values: Any,
        weight: str = "none",
        *,
        null: Any = None,
        fill: Any = None,
        library: bool = False,
        progress: Progress = None,
    ) -> np.ndarray:
        """Cell data at the nodes: the mean of the cells around each.

        Parameters
        ----------
        values : array_like
            Cell data, in `cell_shape` or as rows; for `cells` made of a dict also a dict by kind.
        weight : {"none", "distance"}
            Cells count alike, or by 1 / the distance of the node from the middle of the cell.
        null : scalar, optional
            Cells with this value take no part.
        fill : scalar, optional
            What nodes get that have no such cell. Without it they are NaN in floats and masked in integers.
        library : bool
            The library's own form: sums in the type of `values`, which wrap round, and integers truncated.
        """
        if weight not in ("none", "distance"):
            raise ValueError(f'weight: is {weight!r}, but must be "none" or "distance"')
        given = self._cell_rows(values, null)
        if library:
            out = _core.cell_to_node_by_library(self._core, given.rows, given.null, int(weight == "distance"))
        else:
            out, valid = _core.cell_to_node(
                self._core, given.rows, len(given.rows), given.null, weight == "distance", progress
            )
            out = finished(out, valid, given, fill, given.null is not None or not valid.all())
        return out.reshape(self.shape + given.tail)

    def measure(
        self, values: Any = None, component: int = 0, *, null: Any = None, library: bool = False, progress: Progress = None
    ) -> Measures:
        """Length, area and volume of the mesh, and the integral of node data over them.

        Parameters
        ----------
        values : array_like, optional
            Node data to integrate.
        component : int
            Which component.
        library : bool
            The library's own sums: in single precision, without pyramids and second-order cells.

        Returns
        -------
        Measures
            `length`, `area` and `volume`, each with `measure`, `integral`, `mean` and counts of cells.
        """
        given = None if values is None else self._node_rows(values, "values", null, (1,) if library else ())
        rows, none = (None, None) if given is None else (given.rows, given.null)
        if library:
            sums = [_core.measure_by_library(self._core, ndim, rows, none) for ndim in (1, 2, 3)]
            return Measures(*(Measured(0, m, i, m, 0) for m, i in sums))
        if given is not None and not 0 <= component < (given.tail[0] if given.tail else 1):
            raise IndexError(f"component: {component} is none of values")
        return Measures(*(Measured(*of) for of in _core.measure(self._core, rows, none, component, progress)))

    # ---- tracing -----------------------------------------------------------------------------------------------

    def stream_lines(
        self,
        vectors: Any,
        seeds: Any,
        *,
        direction: str = "forward",
        order: int = 4,
        steps_per_cell: int = 2,
        min_speed: float = 0.0,
        max_nodes: int = 1000,
        null: Any = None,
        threads: int = 1,
        progress: Progress = None,
    ) -> StreamLines:
        """Lines along a vector field.

        Parameters
        ----------
        vectors : array_like
            Rows of one to three components at the nodes.
        seeds : array_like, shape (..., nspace)
            Where lines begin: x, y, z.
        direction : {"forward", "backward", "both"}
            With the field, against it, or a line through each seed.
        order : int
            Of the integrator: 1 to 4.
        steps_per_cell : int
            Steps wanted in a cell.
        min_speed : float
            Lines end where the field is slower.
        max_nodes : int
            Lines end after so many nodes, each way.
        threads : int
            How many work, on a line each; the result is the same for any number.

        Returns
        -------
        StreamLines
        """
        if direction not in ("forward", "backward", "both"):
            raise ValueError(f'direction: is {direction!r}, but must be "forward", "backward" or "both"')
        if order not in (1, 2, 3, 4):
            raise ValueError(f"order: is {order}, but integrators have 1 to 4")
        if steps_per_cell < 1 or max_nodes < 1:
            raise ValueError("steps_per_cell and max_nodes: are 1 and up")
        given = self._node_rows(vectors, "vectors", null, (1, 2, 3))
        rows, _ = points_of(seeds, "seeds")
        at = np.zeros((len(rows), self.nspace), np.float32)
        width = min(rows.shape[1], self.nspace)
        at[:, :width] = rows[:, :width]
        nthreads = thread_count(threads)

        def run(way: int, tell: Progress) -> Dict[str, np.ndarray]:
            return _core.stream_lines(
                self._core, given.rows, given.null, at, order, way, steps_per_cell, min_speed, max_nodes, nthreads, tell
            )

        if direction == "both":
            lists = StreamLines.joined(run(-1, part_of(progress, 0, 2)), run(1, part_of(progress, 1, 2)))
            return StreamLines(self, given, lists, None)
        return StreamLines(self, given, run(1 if direction == "forward" else -1, progress), direction)

    def glyphs(
        self,
        values: Any,
        glyph: Any = None,
        *,
        scale: float = 1.0,
        scale_by: Any = None,
        colour_by: Any = None,
        orient: bool = True,
        by_component: bool = False,
        normalize: bool = False,
        scale_axes: Sequence[bool] = (True, True, True),
        null: Any = None,
        progress: Progress = None,
    ) -> Glyphs:
        """Copies of a small shape at the nodes, turned and sized by data.

        Parameters
        ----------
        values : array_like
            Rows of one to three components at the nodes. Where there are two or three the x axis of the shape is turned
            along them, and their length is the size.
        glyph : tuple of (points, triangles), or points, optional
            The shape; an arrow along x of length 1 without it.
        scale : float
            Factor of all sizes.
        scale_by, colour_by : array_like, optional
            Other node data of the same type for sizes and for the values of the result.
        orient : bool
            Whether to turn the shape.
        by_component : bool
            Scale each axis by its own component.
        normalize : bool
            The length of the vectors does not count.
        scale_axes : sequence of bool
            The axes of the mesh that are scaled.

        Returns
        -------
        Glyphs
        """
        given = self._node_rows(values, "values", null, (1, 2, 3))
        points, triangles = glyph if isinstance(glyph, tuple) else (glyph, None)
        if points is None:
            points, triangles = arrow()
        shape = floats(points, "glyph")
        if shape.ndim != 2 or not 1 <= shape.shape[1] <= 3:
            raise ValueError(f"glyph: has the shape {shape.shape}, but it is rows of x, y and z")

        def others(data: Any, name: str) -> Optional[np.ndarray]:
            if data is None:
                return None
            rows = self._node_rows(data, name, None, (1, 2, 3)).rows
            if rows.dtype != given.rows.dtype:
                raise TypeError(f"{name}: has the type {rows.dtype}, but values has {given.rows.dtype}")
            return rows

        axes = np.array([1 if flag else 0 for flag in scale_axes], np.int32)
        if axes.size != 3:
            raise ValueError("scale_axes: is three flags")
        coords, out = _core.glyphs(
            self._core,
            given.rows,
            given.null,
            others(scale_by, "scale_by"),
            others(colour_by, "colour_by"),
            shape,
            float(scale),
            axes,
            orient,
            by_component,
            normalize,
            progress,
        )
        count = len(shape)
        faces = None if triangles is None else numbers(triangles, "glyph")
        return Glyphs(coords.reshape(self.nnodes, count, 3), out.reshape(self.nnodes, count), faces)

    # ---- heights ------------------------------------------------------------------------------------------------

    def reduce_heights(self, heights: Any, tolerance: float) -> Terrain:
        """A grid of heights as fewer triangles over some of its nodes.

        Parameters
        ----------
        heights : array_like
            A scalar a node of a uniform mesh of two axes.
        tolerance : float
            How far edges may be off the heights, in their unit. The error at other nodes can be larger: sample the result
            where a bound must hold.

        Returns
        -------
        Terrain
            Triangles without cracks, anticlockwise from above.
        """
        if self.kind != "uniform" or len(self.shape) != 2 or min(self.shape) < 2:
            raise ValueError("reduce_heights: is for uniform meshes of two axes with two nodes and more along each")
        if not tolerance >= 0:
            raise ValueError("tolerance: is 0 and up")
        if self.closed:
            raise ValueError("the mesh was closed")
        given = self._node_rows(heights, "heights", None, (1,))
        if given.null is not None:
            raise ValueError("heights: has masked nodes, which the library knows nothing of")
        corners = np.ascontiguousarray(self._corners[:, :2])  # type: ignore[index]
        coords, triangles, found = _core.reduce_heights(given.rows.reshape(self.shape), corners, float(tolerance))
        points = np.column_stack([coords, found.astype(np.float32)])
        return Terrain(points, triangles, found)

    # ---- boundary ----------------------------------------------------------------------------------------------

    def boundary(self, *, progress: Progress = None) -> Result:
        """The faces of solid cells that no second one shares; of meshes without solids the outer edges of surfaces.

        Faces are turned outward where cells have positive volume; those of second-order cells are of second order.
        """
        return _boundary(self, progress)

    def boundary_edges(self, angle: float = math.inf, *, progress: Progress = None) -> Result:
        """The edges of surface cells that no second one shares, and those where two meet at an angle.

        Parameters
        ----------
        angle : float
            Radians between the normals of two cells from which on their edge counts; without it, none does.
        """
        edges = []
        rings = _rings(self)
        for rows, corners in rings:
            edges.append(_core.external_edges(self.points, rows, corners, min(float(angle), 100.0), progress))
        pairs = np.concatenate(edges) if edges else np.empty((0, 2), np.int64)
        return _faces_result(self, {"line": (pairs[pairs[:, 0] != pairs[:, 1]], None)})

    def edges(self, *, progress: Progress = None) -> np.ndarray:
        """All edges of surface and solid cells, each once: rows of two nodes, the lower one first."""
        found = []
        for name, rows in _library_sets(self):
            kind, degree = NUMBERS[name]
            if kind > 0 and len(rows):
                found.append(_core.all_edges(rows, self.nnodes, kind, degree, progress))
        if len(found) == 1:
            return found[0]
        return np.unique(np.concatenate(found), axis=0) if found else np.empty((0, 2), np.int64)


def _levels_of_type(levels: List[float], dtype: np.dtype) -> List[float]:
    """Levels within what the type can hold, which changes the side of no value."""
    info = np.iinfo(dtype) if dtype.kind in "iu" else np.finfo(dtype)
    return [min(max(level, float(info.min)), float(info.max)) for level in levels]


def _library_sets(mesh: Mesh) -> List[Tuple[str, np.ndarray]]:
    """Cells in the library's order of nodes."""
    if mesh.kind == "cells":
        return list(mesh._sets)
    made = []
    for name, rows in mesh.cells.items():
        kind, degree = NUMBERS[name]
        made.append((name, rows if kind < 3 else _core.reorder(rows, kind, degree, False)))
    return made


def _rings(mesh: Mesh) -> List[Tuple[np.ndarray, int]]:
    """Surface cells as one list: beside quadrilaterals triangles are such that end in one corner twice."""
    triangles, quads = [], []
    for name, rows in _library_sets(mesh):
        kind, _ = NUMBERS[name]
        if kind in (1, 2):
            (triangles if kind == 1 else quads).append(rows[:, : 3 if kind == 1 else 4])
    if triangles and quads:
        quads += [rows[:, [0, 1, 2, 2]] for rows in triangles]
        triangles = []
    return [(np.ascontiguousarray(np.concatenate(sets)), n) for sets, n in ((triangles, 3), (quads, 4)) if sets]


def _faces_result(mesh: Mesh, faces: Dict[str, Tuple[np.ndarray, Any]]) -> Result:
    """A result of rows of nodes of the mesh."""
    faces = {name: found for name, found in faces.items() if len(found[0])}
    used = np.zeros(mesh.nnodes, bool)
    for rows, _ in faces.values():
        used[rows] = True
    old = np.flatnonzero(used)
    number = np.empty(mesh.nnodes, np.int64)
    number[old] = np.arange(len(old))
    nothing = np.empty(0, np.int64)
    parts = {
        "old": old,
        "first": nothing,
        "second": nothing,
        "t": np.empty(0, np.float32),
        "points": np.ascontiguousarray(mesh.points[old]),
        "sets": [NUMBERS[name] + (number[rows], cell) for name, (rows, cell) in faces.items()],
    }
    return mesh._result(parts)


def _lattice_sides(mesh: Mesh) -> Dict[str, Tuple[np.ndarray, Any]]:
    node = np.arange(mesh.nnodes, dtype=np.int64).reshape(mesh.shape)
    cell = np.arange(mesh.ncells, dtype=np.int64).reshape(mesh.cell_shape)
    rows, numbers_ = [], []
    for axis in (2, 1, 0):  # x, y, z
        u, v = {2: (1, 0), 1: (0, 2), 0: (2, 1)}[axis]
        for upper in (False, True):
            side = np.take(node, -1 if upper else 0, axis=axis)
            of = np.take(cell, -1 if upper else 0, axis=axis)
            if u < v:  # the first axis of the side runs along v otherwise
                side, of = side.T, of.T
            ring = [side[:-1, :-1], side[:-1, 1:], side[1:, 1:], side[1:, :-1]]
            if not upper:
                ring = [ring[0], ring[3], ring[2], ring[1]]
            rows.append(np.stack([corner.ravel() for corner in ring], axis=1))
            numbers_.append(of.ravel())
    quads = np.concatenate(rows)
    points = mesh.points
    p = points[quads].astype(np.float64) - points[quads[0, 0]]
    volume = sum(np.einsum("ij,ij->", p[:, 0], np.cross(p[:, a], p[:, a + 1])) for a in (1, 2))
    if volume < 0:
        quads = quads[:, [0, 3, 2, 1]]
    return {"quad": (quads, np.concatenate(numbers_))}


def _boundary(mesh: Mesh, progress: Progress) -> Result:
    if mesh.kind != "cells" and sum(n > 1 for n in mesh.shape) == 3:
        return _faces_result(mesh, _lattice_sides(mesh))
    solids = []
    before = 0
    for name, rows in _library_sets(mesh):
        kind, degree = NUMBERS[name]
        if kind >= 3:
            for cell, faces in _core.external_faces(rows, mesh.nnodes, kind, degree, progress):
                solids.append((KINDS[1 if faces.shape[1] in (3, 6) else 2][degree - 1], faces, cell + before, len(solids)))
        before += len(rows)
    if not solids and not any(NUMBERS[name][0] >= 3 for name, _ in _library_sets(mesh)):
        return mesh.boundary_edges(progress=progress)
    found: Dict[str, Tuple[np.ndarray, Any]] = {}
    for name in dict.fromkeys(of[0] for of in solids):
        found[name] = tuple(np.concatenate([of[i] for of in solids if of[0] == name]) for i in (1, 2))  # type: ignore
    if sum(NUMBERS[name][0] >= 3 for name, _ in _library_sets(mesh)) > 1:
        for corners, names in ((3, ("triangle", "triangle6")), (4, ("quad", "quad8"))):
            present = [name for name in names if name in found]
            if not present:
                continue
            rings = np.concatenate([found[name][0][:, :corners] for name in present])
            alone = np.zeros(len(rings), bool)
            alone[_core.unshared_faces(np.ascontiguousarray(rings), mesh.nnodes, corners, progress)] = True
            first = 0
            for name in present:
                rows, cell = found[name]
                mine = alone[first : first + len(rows)]
                first += len(rows)
                found[name] = (np.ascontiguousarray(rows[mine]), cell[mine])
    return _faces_result(mesh, found)


# ---- meshes from arrays ----------------------------------------------------------------------------------------------


def uniform(shape: Any, spacing: Any = 1.0, origin: Any = 0.0) -> Mesh:
    """A uniform mesh: nodes evenly spaced along each axis.

    Parameters
    ----------
    shape : int or tuple of int
        Nodes along each axis in numpy's order, (nz, ny, nx), (ny, nx) or (nx,): the shape of an array of node data.
    spacing : float or sequence of float
        The distance of neighbours: one for all axes, or dx, dy, dz.
    origin : float or sequence of float
        x, y, z of the first node. Three numbers place a mesh of fewer axes in space.

    Returns
    -------
    Mesh

    Examples
    --------
    >>> import numpy as np, skoklana as sk
    >>> grid = sk.uniform((4, 3, 2), spacing=(0.5, 1, 1))
    >>> grid.bounds.tolist()
    [[0.0, 0.0, 0.0], [0.5, 2.0, 3.0]]
    """
    dims = whole_shape(shape)
    ndim = len(dims)
    nspace = ndim if np.isscalar(origin) else max(ndim, len(origin))
    first = np.array(optional_list(origin, nspace, "origin"), np.float64)
    step = np.array(optional_list(spacing, ndim, "spacing"), np.float64)
    if nspace > 3:
        raise ValueError("origin: has more than three coordinates")
    if not (np.isfinite(first).all() and np.isfinite(step).all()):
        raise ValueError("spacing and origin: must be finite")
    if (step == 0).any():
        raise ValueError("spacing: must not be 0")
    last = first.copy()
    last[:ndim] += step * (np.array(dims[::-1]) - 1)
    corners = np.concatenate([first, last]).astype(np.float32)
    mesh = Mesh(_core.uniform(dims[::-1], nspace, corners), "uniform", dims, nspace, None, (), None)
    mesh._corners = corners.reshape(2, nspace)
    return mesh


def rectilinear(x: Any, y: Any = None, z: Any = None) -> Mesh:
    """A rectilinear mesh: nodes spaced at will along each axis.

    Parameters
    ----------
    x, y, z : array_like of float
        Coordinates along each axis. The last one that is given is the mesh's slowest: with all three node data has the
        shape ``(len(z), len(y), len(x))``. float32 is borrowed as it is; other numbers are converted, which copies.

    Returns
    -------
    Mesh
    """
    axes = []
    for name, axis in (("x", x), ("y", y), ("z", z)):
        if axis is None:
            continue
        if len(axes) != "xyz".index(name):
            raise ValueError(f"{name}: is given without the axis before it")
        coords = floats(axis, name)
        if coords.ndim != 1 or coords.size < 1:
            raise ValueError(f"{name}: has the shape {coords.shape}, but an axis is one list of coordinates")
        if not np.isfinite(coords).all():
            raise ValueError(f"{name}: must be finite")
        axes.append(coords)
    dims = tuple(len(axis) for axis in axes)
    return Mesh(_core.rectilinear(dims, axes), "rectilinear", dims[::-1], len(axes), None, (), None)


def curvilinear(points: Any) -> Mesh:
    """A curvilinear mesh: a lattice whose nodes lie anywhere.

    Parameters
    ----------
    points : array_like, shape (nz, ny, nx, 3), (ny, nx, 2 or 3) or (nx, 1 to 3)
        x, y, z of each node. float32 is borrowed as it is; other numbers are converted, which copies.

    Returns
    -------
    Mesh
    """
    coords = floats(points, "points")
    if not 2 <= coords.ndim <= 4 or not 1 <= coords.shape[-1] <= 3 or coords.shape[-1] < coords.ndim - 1:
        raise ValueError(
            f"points: has the shape {coords.shape}, but it is (nz, ny, nx, 3), (ny, nx, 2 or 3) or (nx, 1 to 3)"
        )
    shape = whole_shape(coords.shape[:-1], "points")
    nspace = coords.shape[-1]
    core = _core.curvilinear(shape[::-1], nspace, coords)
    return Mesh(core, "curvilinear", shape, nspace, coords.reshape(-1, nspace), (), None)


def _kind_name(name: Any) -> str:
    text = _ALIASES.get(str(name), str(name))
    if text not in NUMBERS:
        raise ValueError(f"cells: there is no kind {name!r}; kinds are {', '.join(NUMBERS)}")
    return text


def _from_vtk_order(points: np.ndarray, name: str, rows: np.ndarray) -> np.ndarray:
    """Rows of VTK's order in the library's; solid cells whose nodes turn the other way are turned round."""
    kind, degree = NUMBERS[name]
    if kind < 3:
        return rows
    rows = _core.reorder(rows, kind, degree, False)
    if points.shape[1] == 3:
        _core.turn_round(points, rows, kind, degree)
    return rows


def cells(points: Any, cells: Union[Dict[str, Any], Sequence[Any]], order: str = "vtk") -> Mesh:
    """A mesh of cell sets: cells of any kinds over any points.

    Parameters
    ----------
    points : array_like, shape (n, 1 to 3)
        x, y, z of each node. float32 is borrowed as it is; other numbers are converted, which copies.
    cells : dict, list of (kind, rows), or tuple of (connectivity, offsets, types)
        By kind an array of node numbers, a row a cell. Kinds: line, triangle, quad, tetra, pyramid, wedge, hexahedron, and
        with nodes on the edges line3, triangle6, quad8, tetra10, pyramid13, wedge15, hexahedron20. Or three arrays as VTK
        has them: the nodes of all cells, where each begins (and the last ends), and VTK's cell types; they are copied.
    order : {"vtk", "library"}
        The order of the nodes in a row. Rows in VTK's are borrowed for lines and surfaces and copied for solids, of which
        those of negative volume are turned round; rows in the library's own are borrowed and taken as they are.

    Returns
    -------
    Mesh
        Cells are numbered as they are given, kind after kind.

    Examples
    --------
    >>> import skoklana as sk
    >>> square = sk.cells([[0, 0], [1, 0], [1, 1], [0, 1]], {"triangle": [[0, 1, 2], [0, 2, 3]]})
    >>> square.measure().area.measure
    1.0
    """
    if order not in ("vtk", "library"):
        raise ValueError(f'order: is {order!r}, but must be "vtk" or "library"')
    coords = floats(points, "points")
    if coords.ndim != 2 or not 1 <= coords.shape[1] <= 3:
        raise ValueError(f"points: has the shape {coords.shape}, but it is rows of x, y and z")
    if isinstance(cells, tuple) and len(cells) == 3 and not isinstance(cells[0], (str, tuple)):
        return _cells_of_vtk(coords, *cells)
    sets = []
    for name, given in cells.items() if isinstance(cells, dict) else cells:
        name = _kind_name(name)
        rows = numbers(given, f"cells[{name!r}]")
        if rows.size == 0:
            rows = rows.reshape(0, SIZES[name])
        if rows.ndim != 2 or rows.shape[1] != SIZES[name]:
            raise ValueError(f"cells[{name!r}]: has the shape {rows.shape}, but a row has {SIZES[name]} nodes")
        if rows.size and (rows.min() < 0 or rows.max() >= len(coords)):
            bad = rows.min() if rows.min() < 0 else rows.max()
            raise IndexError(f"cells[{name!r}]: names node {bad}, but points has {len(coords)}")
        sets.append((name, _from_vtk_order(coords, name, rows) if order == "vtk" else rows))
    core = _core.cells(coords, [NUMBERS[name] + (rows,) for name, rows in sets])
    return Mesh(core, "cells", (len(coords),), coords.shape[1], coords, sets, None)


# VTK's cell types: the kind, and for lattice order which of VTK's nodes stands at each place.
_VTK_TYPES = {
    3: "line", 5: "triangle", 9: "quad", 10: "tetra", 12: "hexahedron", 13: "wedge", 14: "pyramid",
    21: "line3", 22: "triangle6", 23: "quad8", 24: "tetra10", 25: "hexahedron20", 26: "wedge15", 27: "pyramid13",
}  # fmt: skip
_VTK_LATTICE = {8: ("quad", [0, 1, 3, 2]), 11: ("hexahedron", [0, 1, 3, 2, 4, 5, 7, 6])}


def _cells_of_vtk(coords: np.ndarray, connectivity: Any, offsets: Any, types: Any) -> Mesh:
    nodes, begin = numbers(connectivity, "connectivity"), numbers(offsets, "offsets")
    type_of = np.asarray(types)
    if nodes.ndim != 1 or begin.ndim != 1 or type_of.ndim != 1:
        raise ValueError("connectivity, offsets and types: have one axis each")
    if len(begin) == len(type_of):
        begin = np.append(begin, len(nodes))
    if len(begin) != len(type_of) + 1:
        raise ValueError(f"offsets: has {len(begin)} entries, but there are {len(type_of)} types")
    lengths = np.diff(begin)
    if len(type_of) and (begin[0] < 0 or (lengths < 0).any() or begin[-1] > len(nodes)):
        raise ValueError("offsets: do not ascend from 0 to the end of connectivity")
    if nodes.size and (nodes.min() < 0 or nodes.max() >= len(coords)):
        bad = nodes.min() if nodes.min() < 0 else nodes.max()
        raise IndexError(f"connectivity: names node {bad}, but points has {len(coords)}")
    by_kind: Dict[str, List[Tuple[np.ndarray, np.ndarray]]] = {}
    for number in dict.fromkeys(type_of.tolist()):
        if number in _VTK_LATTICE:
            name, places = _VTK_LATTICE[number]
        elif number in _VTK_TYPES:
            name, places = _VTK_TYPES[number], list(range(SIZES[_VTK_TYPES[number]]))
        else:
            raise ValueError(f"types: {number} is none of 3, 5, 8 to 14 and 21 to 27")
        which = np.flatnonzero(type_of == number)
        if (lengths[which] != SIZES[name]).any():
            raise ValueError(f"offsets: a cell of type {number} has {SIZES[name]} nodes")
        by_kind.setdefault(name, []).append((which, nodes[begin[which][:, None] + np.array(places)]))
    sets, which_cells = [], []
    for name, found in by_kind.items():
        which_cells += [which for which, _ in found]
        rows = np.concatenate([rows for _, rows in found])
        sets.append((name, _from_vtk_order(coords, name, rows)))
    core = _core.cells(coords, [NUMBERS[name] + (rows,) for name, rows in sets])
    theirs = np.concatenate(which_cells) if which_cells else np.empty(0, np.int64)
    renumbered = None
    if (theirs != np.arange(len(theirs))).any():
        ours = np.empty_like(theirs)
        ours[theirs] = np.arange(len(theirs))
        renumbered = (ours, theirs)
    return Mesh(core, "cells", (len(coords),), coords.shape[1], coords, sets, renumbered)
