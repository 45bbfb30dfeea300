"""To and from VTK and meshio. Both are imported only when a function is called that needs them."""

from __future__ import annotations

from typing import Any, Dict, List, Optional, Tuple

import numpy as np

from . import _core
from ._lines import Glyphs, Ribbons, StreamLines
from ._mesh import _VTK_TYPES, Mesh, cells, curvilinear, rectilinear, uniform
from ._result import SIZES, Result

_VTK_NUMBERS = {name: number for number, name in _VTK_TYPES.items()}
_SURFACE = ("line", "triangle", "quad")

Data = Optional[Dict[str, Any]]


def _vtk() -> Tuple[Any, Any, Any]:
    try:
        from vtkmodules import vtkCommonCore, vtkCommonDataModel
        from vtkmodules.util import numpy_support
    except ImportError:
        raise ImportError("VTK's Python modules are not installed (Debian: python3-vtk9; pip: vtk)") from None
    return vtkCommonCore, vtkCommonDataModel, numpy_support


def _meshio() -> Any:
    try:
        import meshio
    except ImportError:
        raise ImportError("meshio is not installed (Debian: python3-meshio; pip: meshio)") from None
    return meshio


def _as_array(vtk_array: Any) -> np.ndarray:
    return _vtk()[2].vtk_to_numpy(vtk_array)


# ---- from VTK --------------------------------------------------------------------------------------------------------


def _arrays_of(attributes: Any, shape: Tuple[int, ...]) -> Dict[str, np.ndarray]:
    made = {}
    for i in range(attributes.GetNumberOfArrays()):
        vtk_array = attributes.GetArray(i)
        if vtk_array is None or vtk_array.GetName() is None:
            continue
        array = _as_array(vtk_array)
        made[vtk_array.GetName()] = array.reshape(shape + array.shape[1:])
    return made


def from_vtk(data: Any) -> Tuple[Mesh, Dict[str, np.ndarray], Dict[str, np.ndarray]]:
    """A mesh from a VTK data set, and so from one of PyVista.

    Parameters
    ----------
    data : vtkImageData, vtkRectilinearGrid, vtkStructuredGrid, vtkUnstructuredGrid or vtkPolyData
        Data arrays are not copied, nor are points in single precision.

    Returns
    -------
    mesh : Mesh
    point_data, cell_data : dict of str to ndarray
        Its arrays by name, in the shape of the mesh and of its cells.
    """
    core, model, support = _vtk()
    if not isinstance(data, model.vtkDataSet):
        raise TypeError(f"data: is a {type(data).__name__}, but must be a vtkDataSet")
    if isinstance(data, model.vtkImageData):
        dims = data.GetDimensions()
        low = data.GetBounds()[0::2]
        direction = np.array([data.GetDirectionMatrix().GetElement(i, j) for i in range(3) for j in range(3)])
        if (direction.reshape(3, 3) == np.eye(3)).all():
            mesh = uniform(dims[::-1], data.GetSpacing(), low)
        else:
            mesh = curvilinear(_points_of(data).reshape(dims[::-1] + (3,)))
    elif isinstance(data, model.vtkRectilinearGrid):
        axes = (data.GetXCoordinates(), data.GetYCoordinates(), data.GetZCoordinates())
        mesh = rectilinear(*(_as_array(axis) for axis in axes))
    elif isinstance(data, model.vtkStructuredGrid):
        mesh = curvilinear(_as_array(data.GetPoints().GetData()).reshape(data.GetDimensions()[::-1] + (3,)))
    elif isinstance(data, (model.vtkUnstructuredGrid, model.vtkPolyData)):
        mesh = cells(_points_of(data), _triple_of(data, model))
    else:
        raise TypeError(f"data: is a {data.GetClassName()}, which holds no mesh that the library has")
    return mesh, _arrays_of(data.GetPointData(), mesh.shape), _arrays_of(data.GetCellData(), mesh.cell_shape)


def _points_of(data: Any) -> np.ndarray:
    if hasattr(data, "GetPoints") and data.GetPoints() is not None:
        return _as_array(data.GetPoints().GetData())
    points = [data.GetPoint(i) for i in range(data.GetNumberOfPoints())]
    return np.array(points, np.float32).reshape(-1, 3)


def _list_of(cell_array: Any) -> Tuple[np.ndarray, np.ndarray]:
    return _as_array(cell_array.GetConnectivityArray()), _as_array(cell_array.GetOffsetsArray())


def _triple_of(data: Any, model: Any) -> Tuple[np.ndarray, np.ndarray, np.ndarray]:
    if isinstance(data, model.vtkUnstructuredGrid):
        if data.GetNumberOfCells() == 0:
            return np.empty(0, np.int64), np.zeros(1, np.int64), np.empty(0, np.uint8)
        nodes, offsets = _list_of(data.GetCells())
        return nodes, offsets, _as_array(data.GetCellTypesArray())
    # Polygonal data: vertices and strips have no cells of ours; lines and polygons must be single ones.
    if data.GetNumberOfVerts() or data.GetNumberOfStrips():
        raise ValueError("data: has vertices or strips, which the library has no cells for")
    nodes, offsets, types = [], [np.zeros(1, np.int64)], []
    for cell_array, by_size in ((data.GetLines(), {2: 3}), (data.GetPolys(), {3: 5, 4: 9})):
        if cell_array.GetNumberOfCells() == 0:
            continue
        connect, begin = _list_of(cell_array)
        sizes = np.diff(begin)
        for size in np.unique(sizes):
            if int(size) not in by_size:
                raise ValueError(f"data: has a line or polygon of {size} points, which the library has no cell for")
        nodes.append(connect)
        offsets.append(begin[1:] + offsets[-1][-1])
        types.append(np.array([0, 0] + [by_size.get(n, 0) for n in (2, 3, 4)], np.uint8)[sizes])
    if not nodes:
        return np.empty(0, np.int64), np.zeros(1, np.int64), np.empty(0, np.uint8)
    return np.concatenate(nodes), np.concatenate(offsets), np.concatenate(types)


# ---- to VTK ----------------------------------------------------------------------------------------------------------


def _add_arrays(attributes: Any, arrays: Data, count: int, what: str) -> None:
    support = _vtk()[2]
    for name, values in (arrays or {}).items():
        array = values
        if isinstance(array, np.ma.MaskedArray):
            array = array.filled(np.nan) if array.dtype.kind == "f" else array.filled()
        array = np.asarray(array)
        if array.dtype.kind == "b":
            array = array.view(np.uint8)
        if count and array.size % count == 0 and (array.shape[0] != count or array.ndim > 2):
            array = array.reshape(count, -1)
        if array.shape[:1] != (count,):
            raise ValueError(f"{what}[{name!r}]: has the shape {np.shape(values)}, but there are {count} rows")
        if array.ndim == 2 and array.shape[1] == 1:
            array = array[:, 0]
        made = support.numpy_to_vtk(np.ascontiguousarray(array), deep=1)
        made.SetName(name)
        attributes.AddArray(made)
        if attributes.GetNumberOfArrays() == 1 and (array.ndim == 1 or array.shape[1] == 1):
            attributes.SetActiveScalars(name)


def _vtk_points(points: np.ndarray) -> Any:
    core, _, support = _vtk()
    rows = np.zeros((len(points), 3), np.float32)
    rows[:, : points.shape[1]] = points
    made = core.vtkPoints()
    made.SetData(support.numpy_to_vtk(rows, deep=1))
    return made


def _vtk_cells(rows: List[np.ndarray]) -> Any:
    _, model, support = _vtk()
    made = model.vtkCellArray()
    offsets = np.concatenate([[0], np.cumsum(np.repeat([r.shape[1] for r in rows], [len(r) for r in rows]))])
    nodes = np.concatenate([r.ravel() for r in rows]) if rows else np.empty(0, np.int64)
    made.SetData(
        support.numpy_to_vtkIdTypeArray(offsets.astype(np.int64), deep=1),
        support.numpy_to_vtkIdTypeArray(np.ascontiguousarray(nodes, np.int64), deep=1),
    )
    return made


def _explicit_to_vtk(points: np.ndarray, by_kind: Dict[str, np.ndarray]) -> Any:
    _, model, support = _vtk()
    if all(name in _SURFACE for name in by_kind):
        made = model.vtkPolyData()
        made.SetPoints(_vtk_points(points))
        if "line" in by_kind:
            made.SetLines(_vtk_cells([by_kind["line"]]))
        polygons = [rows for name, rows in by_kind.items() if name != "line"]
        if polygons:
            made.SetPolys(_vtk_cells(polygons))
        return made
    made = model.vtkUnstructuredGrid()
    made.SetPoints(_vtk_points(points))
    types = np.repeat([_VTK_NUMBERS[name] for name in by_kind], [len(rows) for rows in by_kind.values()])
    made.SetCells(support.numpy_to_vtk(types.astype(np.uint8), deep=1), _vtk_cells(list(by_kind.values())))
    return made


def _cells_in_vtk_order(by_kind: Dict[str, np.ndarray], arrays: Data) -> Data:
    """Polygonal data has its lines first."""
    if not arrays or "line" not in by_kind or next(iter(by_kind)) == "line":
        return arrays
    if not all(name in _SURFACE for name in by_kind):
        return arrays
    begin, order = 0, []
    for name, rows in by_kind.items():
        order.append((name != "line", np.arange(begin, begin + len(rows))))
        begin += len(rows)
    wanted = np.concatenate([numbers for _, numbers in sorted(order, key=lambda of: of[0])])
    return {name: np.asarray(values)[wanted] for name, values in arrays.items()}


def to_vtk(of: Any, point_data: Data = None, cell_data: Data = None) -> Any:
    """A VTK data set of a mesh or a result; PyVista's ``pv.wrap`` takes it as it is.

    Parameters
    ----------
    of : Mesh, Result, StreamLines, Ribbons or Glyphs
    point_data, cell_data : dict of str to array_like, optional
        Arrays by name: data of the mesh's nodes and cells, or what was carried onto a result.

    Returns
    -------
    vtkImageData, vtkRectilinearGrid, vtkStructuredGrid, vtkUnstructuredGrid or vtkPolyData
        Polygonal data for lines, triangles and quadrilaterals. It has copies of all arrays.
    """
    core, model, support = _vtk()
    if isinstance(of, Mesh):
        made = _mesh_to_vtk(of, core, model, support)
    else:
        points, by_kind, extra = _explicit(of)
        made = _explicit_to_vtk(points, by_kind)
        point_data = {**extra, **(point_data or {})}
        cell_data = _cells_in_vtk_order(by_kind, cell_data)
    _add_arrays(made.GetPointData(), point_data, made.GetNumberOfPoints(), "point_data")
    _add_arrays(made.GetCellData(), cell_data, made.GetNumberOfCells(), "cell_data")
    return made


def _mesh_to_vtk(mesh: Mesh, core: Any, model: Any, support: Any) -> Any:
    if mesh.kind == "cells":
        by_kind = mesh.cells
        made = model.vtkUnstructuredGrid()
        made.SetPoints(_vtk_points(mesh.points))
        types = np.repeat([_VTK_NUMBERS[name] for name in by_kind], [len(rows) for rows in by_kind.values()])
        if mesh._order is not None:
            mesh_rows = [row for rows in by_kind.values() for row in rows]
            rows = [np.array([mesh_rows[i]]) for i in mesh._order[0]]
            types = types[mesh._order[0]]
        else:
            rows = list(by_kind.values())
        if len(types):
            made.SetCells(support.numpy_to_vtk(types.astype(np.uint8), deep=1), _vtk_cells(rows))
        return made
    dims = (mesh.shape[::-1] + (1, 1))[:3]
    if mesh.kind == "uniform":
        low, high = mesh._corners
        low, high = np.append(low, [0, 0])[:3], np.append(high, [0, 0])[:3]
        image = model.vtkImageData()
        image.SetDimensions(dims)
        image.SetOrigin([float(x) for x in low])
        image.SetSpacing([float((h - l) / (n - 1)) if n > 1 else 1.0 for l, h, n in zip(low, high, dims)])
        return image
    if mesh.kind == "rectilinear":
        grid = model.vtkRectilinearGrid()
        grid.SetDimensions(dims)
        lattice = mesh.points.reshape(mesh.shape + (mesh.nspace,))
        for d, put in enumerate((grid.SetXCoordinates, grid.SetYCoordinates, grid.SetZCoordinates)):
            axis = np.zeros(1, np.float32)
            if d < len(mesh.shape):
                where: List[Any] = [0] * len(mesh.shape) + [d]
                where[len(mesh.shape) - 1 - d] = slice(None)
                axis = lattice[tuple(where)]
            put(support.numpy_to_vtk(np.ascontiguousarray(axis), deep=1))
        return grid
    lattice_grid = model.vtkStructuredGrid()
    lattice_grid.SetDimensions(dims)
    lattice_grid.SetPoints(_vtk_points(mesh.points))
    return lattice_grid


def _explicit(of: Any) -> Tuple[np.ndarray, Dict[str, np.ndarray], Dict[str, np.ndarray]]:
    if isinstance(of, Result):
        return of.points, of.cells, {}
    if isinstance(of, StreamLines):
        return of.points, {"line": of.lines}, {"vectors": of.vectors, "speed": of.speeds}
    if isinstance(of, Ribbons):
        return of.points, {"quad": of.quads}, {}
    if isinstance(of, Glyphs):
        return of.points.reshape(-1, 3), {"triangle": of.triangles}, {"value": of.values.reshape(-1)}
    raise TypeError(f"of: is a {type(of).__name__}, but must be a Mesh, Result, StreamLines, Ribbons or Glyphs")


# ---- meshio ----------------------------------------------------------------------------------------------------------


def from_meshio(data: Any) -> Tuple[Mesh, Dict[str, np.ndarray], Dict[str, np.ndarray]]:
    """A mesh of cell sets from a meshio.Mesh.

    Parameters
    ----------
    data : meshio.Mesh
        With cells of the kinds of `cells`; vertices are passed over.

    Returns
    -------
    mesh : Mesh
    point_data, cell_data : dict of str to ndarray
        Its arrays by name.
    """
    _meshio()
    blocks = [(block.type, np.asarray(block.data)) for block in data.cells]
    kept = [i for i, (name, _) in enumerate(blocks) if name != "vertex"]
    for i in kept:
        if blocks[i][0] not in SIZES:
            raise ValueError(f"data: has cells of the kind {blocks[i][0]!r}, which the library has none of")
    mesh = cells(np.asarray(data.points)[:, :3], [blocks[i] for i in kept])
    of_cells = {
        name: np.concatenate([np.asarray(arrays[i]) for i in kept]) if kept else np.empty(0)
        for name, arrays in data.cell_data.items()
    }
    return mesh, {name: np.asarray(array) for name, array in data.point_data.items()}, of_cells


def to_meshio(of: Any, point_data: Data = None, cell_data: Data = None) -> Any:
    """A meshio.Mesh of a mesh or a result: see `to_vtk` for the parameters."""
    meshio = _meshio()
    if isinstance(of, Mesh):
        points, extra = np.array(of.points), {}
        if of._order is None:
            blocks = list(of.cells.items())
            numbers: Any = None
        else:
            blocks, numbers = list(of.cells.items()), of._order[1]
    else:
        points, by_kind, extra = _explicit(of)
        blocks, numbers = list(by_kind.items()), None
    ends = np.cumsum([0] + [len(rows) for _, rows in blocks])
    of_cells = {}
    for name, values in (cell_data or {}).items():
        array = np.asarray(values)
        if array.shape[:1] != (ends[-1],):
            array = array.reshape((ends[-1], -1)) if ends[-1] and array.size % ends[-1] == 0 else array
        if array.shape[:1] != (ends[-1],):
            raise ValueError(f"cell_data[{name!r}]: has the shape {np.shape(values)}, but there are {ends[-1]} cells")
        array = array if numbers is None else array[numbers]
        of_cells[name] = [np.squeeze(array[a:b]) if array.ndim > 1 else array[a:b] for a, b in zip(ends, ends[1:])]
    of_points = {}
    for name, values in {**extra, **(point_data or {})}.items():
        array = np.asarray(values)
        if array.shape[:1] != (len(points),):
            array = array.reshape(len(points), -1)
        of_points[name] = array[:, 0] if array.ndim == 2 and array.shape[1] == 1 else array
    try:
        return meshio.Mesh(points, blocks, point_data=of_points, cell_data=of_cells)
    except KeyError as unknown:  # versions differ in the kinds that they have
        raise ValueError(f"of: has cells of the kind {unknown}, which this meshio has no place for") from None


# ---- files -----------------------------------------------------------------------------------------------------------

_WRITERS = {
    ".vtp": "vtkXMLPolyDataWriter",
    ".vtu": "vtkXMLUnstructuredGridWriter",
    ".vti": "vtkXMLImageDataWriter",
    ".vtr": "vtkXMLRectilinearGridWriter",
    ".vts": "vtkXMLStructuredGridWriter",
}


def save(of: Any, path: Any, point_data: Data = None, cell_data: Data = None) -> None:
    """Writes a mesh or a result to a file.

    Parameters
    ----------
    of : Mesh, Result, StreamLines, Ribbons or Glyphs
    path : str or path
        Its ending tells the format. ``.vtp``, ``.vtu``, ``.vti``, ``.vtr`` and ``.vts`` are written by VTK where that is
        installed; ``.vtu`` without it, and every other ending, by meshio. A result of lines and surfaces goes into
        ``.vtp``, or ``.vtu`` as well.
    point_data, cell_data : dict of str to array_like, optional
        Arrays by name.
    """
    name = str(path)
    ending = name[name.rfind(".") :].lower() if "." in name else ""
    try:
        _vtk()
        has_vtk = True
    except ImportError:
        has_vtk = False
    if ending in _WRITERS and (has_vtk or ending != ".vtu"):
        _vtk()
        from vtkmodules import vtkIOXML

        data = to_vtk(of, point_data, cell_data)
        writer = getattr(vtkIOXML, _WRITERS[ending])()
        if ending == ".vtu" and data.GetClassName() == "vtkPolyData":
            data = _grid_of(data)
        writer.SetFileName(name)
        writer.SetInputData(data)
        if not _fits(writer, data):
            raise ValueError(f"path: a {data.GetClassName()} does not go into a file that ends in {ending}")
        if writer.Write() != 1:
            raise OSError(f"{name}: could not be written")
        return
    to_meshio(of, point_data, cell_data).write(name)


def _fits(writer: Any, data: Any) -> bool:
    return data.GetClassName() in writer.GetClassName().replace("Writer", "").replace("XML", "")


def _grid_of(surface: Any) -> Any:
    from vtkmodules import vtkFiltersCore

    join = vtkFiltersCore.vtkAppendFilter()
    join.AddInputData(surface)
    join.Update()
    return join.GetOutput()
