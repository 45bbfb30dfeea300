"""To and from VTK and meshio, where these are installed."""

import importlib.util
import subprocess
import sys
import types

import numpy as np
import pytest
import skoklana as sk
from support import SIZE, axes, bumpy, ids, lattice_points, linear, solids, surfaces, volume

has_vtk = importlib.util.find_spec("vtkmodules") is not None
needs_vtk = pytest.mark.skipif(not has_vtk, reason="VTK is not installed")


def test_importing_the_package_imports_neither():
    program = "import sys, skoklana; print([m for m in sys.modules if m.startswith(('vtk', 'meshio', 'pyvista'))])"
    assert subprocess.run([sys.executable, "-c", program], capture_output=True, text=True).stdout.strip() == "[]"


@needs_vtk
@pytest.mark.parametrize("name, mesh", solids() + surfaces(), ids=ids(solids() + surfaces()))
def test_meshes_come_back_from_vtk(name, mesh):
    values = bumpy(mesh.points).reshape(mesh.shape)
    numbers = np.arange(mesh.ncells).reshape(mesh.cell_shape)
    data = sk.to_vtk(mesh, {"bumpy": values, "xyz": mesh.points}, {"number": numbers})
    assert data.GetNumberOfPoints() == mesh.nnodes and data.GetNumberOfCells() == mesh.ncells
    again, of_points, of_cells = sk.from_vtk(data)
    lattice = mesh.kind != "cells"
    assert (again.kind == mesh.kind) and again.nnodes == mesh.nnodes and again.ncells == mesh.ncells
    low, high = again.points[:, : mesh.nspace], mesh.points
    assert np.allclose(low, high, atol=1e-6)
    assert np.array_equal(of_points["bumpy"].ravel(), values.ravel())
    assert np.array_equal(of_cells["number"].ravel(), numbers.ravel())
    assert of_points["bumpy"].shape == again.shape and of_cells["number"].shape == again.cell_shape
    measured = [m.measure for m in mesh.measure()]
    assert np.allclose([m.measure for m in again.measure()], measured, rtol=1e-4)
    if lattice and len(mesh.shape) == 3:
        assert again.shape == mesh.shape


@needs_vtk
def test_vtks_numbers_of_cells_hold():
    from vtkmodules import vtkCommonCore, vtkCommonDataModel

    points = vtkCommonCore.vtkPoints()
    for row in ([0, 0, 0], [1, 0, 0], [1, 1, 0], [0, 1, 0], [0, 0, 1], [2, 0, 0], [2, 1, 0]):
        points.InsertNextPoint(row)
    grid = vtkCommonDataModel.vtkUnstructuredGrid()
    grid.SetPoints(points)
    for kind, nodes in ((9, [1, 5, 6, 2]), (10, [0, 1, 2, 4]), (5, [0, 2, 3])):
        grid.InsertNextCell(kind, len(nodes), nodes)
    mesh, _, _ = sk.from_vtk(grid)
    assert mesh.sample_cells([10, 20, 30], [[1.5, 0.5, 0], [0.6, 0.2, 0.1], [0.2, 0.7, 0]]).tolist() == [10, 20, 30]
    back = sk.to_vtk(mesh, None, {"n": [10, 20, 30]})
    assert [back.GetCellType(i) for i in range(3)] == [9, 10, 5]
    assert [back.GetCellData().GetArray("n").GetValue(i) for i in range(3)] == [10, 20, 30]


@needs_vtk
def test_results_go_to_vtk_and_into_files(tmp_path):
    mesh = sk.uniform(SIZE, 0.2)
    values = bumpy(mesh.points)
    surface, part = mesh.isosurface(values, 0.3), mesh.cut(values, 0.3)
    data = surface.to_vtk({"x": surface.carry(mesh.points[:, 0])}, {"cell": surface.cell_numbers})
    assert data.GetClassName() == "vtkPolyData" and data.GetNumberOfPolys() == len(surface.triangles)
    assert part.to_vtk().GetClassName() == "vtkUnstructuredGrid"
    lines = mesh.stream_lines(np.ones((mesh.nnodes, 3)), [[0.1, 0.1, 0.1]])
    glyphs = mesh.glyphs(np.ones((mesh.nnodes, 3)))
    assert lines.to_vtk().GetNumberOfLines() == len(lines.lines)
    assert sk.to_vtk(lines.ribbons(0.1)).GetNumberOfPolys() == len(lines.lines)
    assert sk.to_vtk(glyphs).GetNumberOfPoints() == glyphs.values.size
    from vtkmodules import vtkIOXML

    for what, ending, reader in (
        (surface, "vtp", "PolyData"), (surface, "vtu", "UnstructuredGrid"), (part, "vtu", "UnstructuredGrid"),
        (mesh, "vti", "ImageData"), (sk.rectilinear(*axes()), "vtr", "RectilinearGrid"),
        (sk.curvilinear(lattice_points()), "vts", "StructuredGrid"), (lines, "vtp", "PolyData"),
    ):  # fmt: skip
        path = tmp_path / f"x.{ending}"
        what.save(path)
        read = getattr(vtkIOXML, f"vtkXML{reader}Reader")()
        read.SetFileName(str(path))
        read.Update()
        assert read.GetOutput().GetNumberOfPoints() == len(what.points)
    with pytest.raises(ValueError, match="does not go into a file that ends in .vti"):
        surface.save(tmp_path / "x.vti")
    with pytest.raises(ValueError, match="point_data"):
        surface.to_vtk({"x": np.zeros(3)})
    mixed = sk.cells(
        [[0, 0], [1, 0], [1, 1], [0, 1]], {"triangle": [[0, 1, 2]], "line": [[2, 3]]}
    ).threshold(np.array([1, 2]), where="cells")
    table = mixed.to_vtk(None, {"n": [5, 6]}).GetCellData().GetArray("n")
    assert [table.GetValue(i) for i in range(2)] == [6, 5]  # polygonal data has its lines first


@needs_vtk
def test_what_vtk_has_and_the_library_has_not():
    from vtkmodules import vtkCommonCore, vtkCommonDataModel

    with pytest.raises(TypeError, match="data: is a int"):
        sk.from_vtk(7)
    with pytest.raises(TypeError, match="of: is a str"):
        sk.to_vtk("a mesh")
    points = vtkCommonCore.vtkPoints()
    for i in range(5):
        points.InsertNextPoint(i, i * i, 0)
    polygon = vtkCommonDataModel.vtkPolyData()
    polygon.SetPoints(points)
    cells = vtkCommonDataModel.vtkCellArray()
    cells.InsertNextCell(5, list(range(5)))
    polygon.SetPolys(cells)
    with pytest.raises(ValueError, match="polygon of 5 points"):
        sk.from_vtk(polygon)


_CELL_TYPES = {
    3: "line", 5: "triangle", 9: "quad", 10: "tetra", 12: "hexahedron", 13: "wedge", 14: "pyramid", 21: "line3",
    22: "triangle6", 23: "quad8", 24: "tetra10", 25: "hexahedron20", 26: "wedge15", 27: "pyramid13",
}  # fmt: skip


def made_by_vtk(cell_type):
    """A box, square or line of cells whose nodes VTK has put where it wants them."""
    from vtkmodules.vtkFiltersSources import vtkCellTypeSource

    source = vtkCellTypeSource()
    source.SetCellType(cell_type)
    source.SetBlocksDimensions(2, 2, 2)
    source.SetOutputPrecision(0)
    source.Update()
    return source.GetOutput()


@needs_vtk
@pytest.mark.parametrize("cell_type", _CELL_TYPES, ids=_CELL_TYPES.values())
def test_nodes_of_each_kind_stand_where_vtk_has_them(cell_type):
    data = made_by_vtk(cell_type)
    mesh, _, _ = sk.from_vtk(data)
    kind = _CELL_TYPES[cell_type]
    assert list(mesh.cells) == [kind] and mesh.ncells == data.GetNumberOfCells()
    second = kind[-1].isdigit()

    def field(p):
        x, y, z = p.astype(np.float64).T
        return 3 * x - 2 * y + z + (x * x - x * y + 2 * y * z - z * z if second else 0)

    def inner(of, rows):  # points away from the middle of each cell
        corners = of.points[rows].astype(np.float64)
        weights = np.arange(1, rows.shape[1] + 1) / np.arange(1, rows.shape[1] + 1).sum()
        return np.einsum("k,ikd->id", weights, corners)

    at = inner(mesh, mesh.cells[kind])
    assert np.allclose(mesh.sample(field(mesh.points), at), field(at), atol=1e-5)
    again, _, _ = sk.from_vtk(sk.to_vtk(mesh))
    assert np.array_equal(again.points, mesh.points) and np.array_equal(again.cells[kind], mesh.cells[kind])
    back = sk.to_vtk(mesh)
    assert [back.GetCellType(i) for i in range(mesh.ncells)] == [cell_type] * mesh.ncells
    # Whichever way VTK turns its cells: where there is a surface its sides agree.
    if mesh.measure().volume.ncells:
        surface = mesh.isosurface(mesh.points @ np.array([3, 2, 1], np.float32), float((mesh.points @ [3, 2, 1]).mean()))
        p = surface.points[surface.triangles].astype(np.float64)
        turned = np.cross(p[:, 1] - p[:, 0], p[:, 2] - p[:, 0]) @ [3, 2, 1]
        assert len(turned) > 4 and (turned < 1e-9).all()


@needs_vtk
def test_wedges_of_vtks_texts_are_turned_round():
    from vtkmodules.vtkFiltersGeneral import vtkClipDataSet

    grid = sk.uniform((8, 8, 8), 1 / 7)
    values = bumpy(grid.points).astype(np.float32)
    clip = vtkClipDataSet()
    clip.SetInputData(sk.to_vtk(grid, {"v": values}))
    clip.SetValue(0.3)
    clip.Update()
    part, of_points, _ = sk.from_vtk(clip.GetOutput())
    assert len(part.cells["wedge"]) > 10 and len(part.cells["tetra"]) > 10
    assert volume(part) == pytest.approx(volume(grid.cut(values, 0.3).to_mesh()), rel=3e-3)
    level = part.isosurface(part.points[:, 0], 0.4)
    p = level.points[level.triangles].astype(np.float64)
    turned = np.cross(p[:, 1] - p[:, 0], p[:, 2] - p[:, 0])[:, 0]
    assert len(turned) > 10 and (turned < 1e-9).all()
    h = grid.cells["hexahedron"][:1]
    for rows in (h[:, [0, 1, 2, 4, 5, 6]], h[:, [0, 2, 1, 4, 6, 5]]):
        wedge = sk.cells(grid.points, {"wedge": rows})
        assert wedge.cells["wedge"].tolist() == h[:, [0, 1, 2, 4, 5, 6]].tolist() or rows[0, 1] != h[0, 1]
        assert sorted(wedge.cells["wedge"][0]) == sorted(rows[0])
        assert len(wedge.boundary().triangles) == 2
    own = sk.cells(grid.points, {"wedge": rows}, order="library")
    assert np.array_equal(sk._core.reorder(rows, 5, 1, True), own.cells["wedge"])


@pytest.fixture
def meshio(monkeypatch):
    """meshio, or what the package uses of it."""
    try:
        import meshio as module
    except ImportError:
        module = types.ModuleType("meshio")

        class Block:
            def __init__(self, kind, data):
                self.type, self.data = kind, data

        class Mesh:
            def __init__(self, points, cells, point_data=None, cell_data=None):
                self.points, self.cells = points, [Block(*block) for block in cells]
                self.point_data, self.cell_data = point_data or {}, cell_data or {}

            def write(self, path):
                np.save(path, self.points)

        module.Mesh = Mesh
        monkeypatch.setitem(sys.modules, "meshio", module)
    return module


def test_meshes_come_back_from_meshio(meshio):
    for name, mesh in solids() + surfaces():
        values, numbers = linear(mesh.points), np.arange(mesh.ncells)
        try:
            data = mesh.to_meshio({"v": values}, {"n": numbers})
        except ValueError as refused:  # not all versions have them
            assert name in ("wedge2", "pyramid2") and "of the kind 'wedge15'" in str(refused).replace("pyramid13", "wedge15")
            continue
        again, of_points, of_cells = sk.from_meshio(data)
        assert [m.measure for m in again.measure()] == pytest.approx([m.measure for m in mesh.measure()], rel=1e-5)
        assert np.array_equal(of_points["v"], values) and np.array_equal(of_cells["n"], numbers)
        assert again.cells.keys() == mesh.cells.keys()
        assert all(np.array_equal(again.cells[kind], mesh.cells[kind]) for kind in mesh.cells)
    mesh = solids()[0][1]
    values = linear(mesh.points)
    part = mesh.cut(values, 0.7)
    again, _, of_cells = sk.from_meshio(part.to_meshio(cell_data={"n": part.cell_numbers}))
    assert np.array_equal(of_cells["n"], part.cell_numbers)
    odd = meshio.Mesh(np.zeros((9, 3)), [("vertex", np.array([[0]])), ("quad9", np.arange(9)[None])])
    with pytest.raises(ValueError, match="quad9"):
        sk.from_meshio(odd)


@needs_vtk
def test_files_of_meshio_hold_what_vtk_reads(meshio, tmp_path):
    if not hasattr(meshio, "__version__"):
        pytest.skip("meshio is not installed")
    from vtkmodules.vtkIOXML import vtkXMLUnstructuredGridReader

    for name, mesh in solids():
        if name in ("wedge2", "pyramid2"):
            continue
        path = tmp_path / f"{name}.vtu"
        meshio.write(path, mesh.to_meshio({"v": linear(mesh.points)}))
        reader = vtkXMLUnstructuredGridReader()
        reader.SetFileName(str(path))
        reader.Update()
        read, of_points, _ = sk.from_vtk(reader.GetOutput())
        assert volume(read) == pytest.approx(volume(mesh), rel=1e-5), name
        assert np.array_equal(np.asarray(of_points["v"]).ravel(), linear(mesh.points))
        surface = read.isosurface(of_points["v"], 0.7)
        p = surface.points[surface.triangles].astype(np.float64)
        assert (np.cross(p[:, 1] - p[:, 0], p[:, 2] - p[:, 0]) @ [3, -2, 1] < 1e-9).all(), name
        again, _, _ = sk.from_meshio(meshio.read(path))
        assert volume(again) == pytest.approx(volume(mesh), rel=1e-5)


def test_other_endings_are_meshios(meshio, tmp_path):
    surface = sk.uniform(SIZE).isosurface(np.arange(210.0), 100.5)
    if hasattr(meshio, "__version__"):
        surface.save(tmp_path / "x.stl")
        assert (tmp_path / "x.stl").exists()
    else:
        surface.save(tmp_path / "x.npy")
        assert np.array_equal(np.load(tmp_path / "x.npy"), surface.points)


def test_what_is_not_installed_is_told(monkeypatch):
    monkeypatch.setitem(sys.modules, "meshio", None)
    monkeypatch.setitem(sys.modules, "vtkmodules", None)
    surface = sk.uniform(SIZE).isosurface(np.arange(210.0), 100.5)
    with pytest.raises(ImportError, match="meshio is not installed"):
        surface.to_meshio()
    with pytest.raises(ImportError, match="VTK's Python modules are not installed"):
        surface.to_vtk()
    with pytest.raises(ImportError, match="VTK"):
        surface.save("x.vtp")
    with pytest.raises(ImportError, match="meshio"):
        surface.save("x.ply")
