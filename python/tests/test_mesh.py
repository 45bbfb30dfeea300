"""Meshes from arrays: what is borrowed, what is refused, what they tell of themselves."""

import gc
import pickle
import weakref

import numpy as np
import pytest
import skoklana as sk
from support import SIZE, axes, hexahedra, ids, lattice_points, solids, surfaces, volume


@pytest.mark.parametrize("name, mesh", solids(), ids=ids(solids()))
def test_every_kind_tells_its_nodes_cells_and_box(name, mesh):
    points = mesh.points
    assert points.shape == (mesh.nnodes, mesh.nspace) and points.dtype == np.float32
    assert np.array_equal(mesh.bounds, [points.min(axis=0), points.max(axis=0)])
    assert sum(len(rows) for rows in mesh.cells.values()) == mesh.ncells == np.prod(mesh.cell_shape)
    assert volume(mesh) == pytest.approx(volume(mesh.to_cells()), rel=1e-6)
    assert name in repr(mesh) or mesh.kind == "cells"


def test_shapes_are_in_numpys_order():
    grid = sk.uniform((2, 3, 4), spacing=(1, 10, 100), origin=(5, 6, 7))
    assert grid.shape == (2, 3, 4) and grid.cell_shape == (1, 2, 3)
    points = grid.points.reshape(2, 3, 4, 3)
    assert points[1, 2, 3].tolist() == [8, 26, 107]
    assert points[0, 0, 1].tolist() == [6, 6, 7]
    x, y, z = [0, 1, 4], [0, 2], [1]
    lattice = sk.rectilinear(x, y, z)
    assert lattice.shape == (1, 2, 3)
    assert lattice.points.reshape(1, 2, 3, 3)[0, 1, 2].tolist() == [4, 2, 1]


def test_flat_meshes_may_lie_in_space():
    grid = sk.uniform((3, 4), 0.5, origin=(1, 2, 3))
    assert grid.nspace == 3 and grid.points[-1].tolist() == [2.5, 3, 3]
    assert sk.uniform(5).points.shape == (5, 1)


@pytest.mark.parametrize("name, mesh", surfaces(), ids=ids(surfaces()))
def test_surfaces_have_the_area_of_the_square(name, mesh):
    assert mesh.measure().area.measure == pytest.approx(1, rel=1e-5)


def test_coordinates_of_the_right_type_are_borrowed():
    points = lattice_points()
    assert np.shares_memory(sk.curvilinear(points).points, points)
    flat = points.reshape(-1, 3)
    mesh = sk.cells(flat, {"hexahedron": hexahedra()})
    assert np.shares_memory(mesh.points, flat)
    triangles = hexahedra()[:, :3].copy()
    assert np.shares_memory(sk.cells(flat, {"triangle": triangles}).cells["triangle"], triangles)
    own = sk.cells(flat, {"hexahedron": hexahedra()}, order="library")
    assert own.cells["hexahedron"].shape == hexahedra().shape


def test_other_numbers_are_converted():
    points = lattice_points()
    exact = sk.curvilinear(points)
    for other in (points.astype(np.float64), points.astype(">f4"), np.asfortranarray(points), points[::1].tolist()):
        mesh = sk.curvilinear(other)
        assert np.array_equal(mesh.points, exact.points)
    rows = hexahedra()
    for other in (rows.astype(np.int32), rows.astype(">i8"), rows.astype(np.uint16), np.asfortranarray(rows)):
        assert volume(sk.cells(points.reshape(-1, 3), {"hexahedron": other})) == pytest.approx(1, rel=1e-5)


def test_vtks_lists_of_cells_are_taken_in_any_order():
    points = lattice_points().reshape(-1, 3)
    rows = hexahedra()
    h, t = rows[3], rows[0][[0, 1, 2, 6]]
    nodes = np.concatenate([t, h, rows[5][[0, 1, 3, 2, 4, 5, 7, 6]], rows[1][[0, 1, 2]]])
    mesh = sk.cells(points, (nodes, [0, 4, 12, 20, 23], np.array([10, 12, 11, 5])))
    assert mesh.ncells == 4
    middle = points[rows[[3, 5]]].mean(axis=1)
    assert mesh.locate(middle).cells.tolist() == [1, 2]
    data = np.array([10, 20, 30, 40])
    assert mesh.sample_cells(data, middle).tolist() == [20, 30]
    part = mesh.threshold(data, 25, 35, "cells")
    assert part.cell_numbers.tolist() == [2] and part.carry_cells(data).tolist() == [30]
    assert mesh.isosurface(points[:, 2], 0.1).cell_numbers.size > 0


@pytest.mark.parametrize(
    "make, error, text",
    [
        (lambda: sk.uniform((2, 2, 2, 2)), ValueError, "shape: has 4 axes"),
        (lambda: sk.uniform((2, 0)), ValueError, "shape: is (2, 0)"),
        (lambda: sk.uniform("ab"), TypeError, "shape: "),
        (lambda: sk.uniform((2, 2), spacing=(1, 2, 3)), ValueError, "spacing: has 3 entries"),
        (lambda: sk.uniform((2, 2), spacing=0), ValueError, "spacing: must not be 0"),
        (lambda: sk.uniform((2, 2), origin=np.nan), ValueError, "must be finite"),
        (lambda: sk.rectilinear([0, 1], z=[1]), ValueError, "z: is given without"),
        (lambda: sk.rectilinear([0, np.inf]), ValueError, "x: must be finite"),
        (lambda: sk.rectilinear([[0, 1]]), ValueError, "x: has the shape (1, 2)"),
        (lambda: sk.curvilinear(np.zeros((2, 2, 2, 2))), ValueError, "points: has the shape"),
        (lambda: sk.curvilinear(np.zeros((2, 3), complex)), TypeError, "points: has the type complex128"),
        (lambda: sk.cells(np.zeros(3), {}), ValueError, "points: has the shape (3,)"),
        (lambda: sk.cells(np.zeros((3, 3)), {"quod": [[0]]}), ValueError, "there is no kind 'quod'"),
        (lambda: sk.cells(np.zeros((3, 3)), {"triangle": [[0, 1]]}), ValueError, "a row has 3 nodes"),
        (lambda: sk.cells(np.zeros((3, 3)), {"triangle": [[0, 1, 3]]}), IndexError, "names node 3, but points has 3"),
        (lambda: sk.cells(np.zeros((3, 3)), {"triangle": [[0, 1, -1]]}), IndexError, "names node -1"),
        (lambda: sk.cells(np.zeros((3, 3)), {"triangle": [[0, 1, 0.5]]}), TypeError, "numbers of nodes are integers"),
        (lambda: sk.cells(np.zeros((3, 2)), {"tetra": [[0, 1, 2, 2]]}), ValueError, "coordinates"),
        (lambda: sk.cells(np.zeros((3, 3)), {}, order="mine"), ValueError, "order: is 'mine'"),
        (lambda: sk.cells(np.zeros((3, 3)), ([0, 1], [0, 2], [7])), ValueError, "types: 7"),
        (lambda: sk.cells(np.zeros((3, 3)), ([0, 1], [0, 2, 5], [3])), ValueError, "offsets: has 3 entries"),
        (lambda: sk.cells(np.zeros((3, 3)), ([0, 9], [0, 2], [3])), IndexError, "connectivity: names node 9"),
        (lambda: sk.cells(np.zeros((3, 3)), ([0, 1], [0, 3], [3])), ValueError, "offsets: do not ascend"),
    ],
)
def test_what_is_no_mesh_is_refused_by_name(make, error, text):
    with pytest.raises(error) as caught:
        make()
    assert text in str(caught.value)


def test_a_closed_mesh_refuses_everything_and_gives_its_memory_back():
    x, y, z = axes()
    points = lattice_points()
    for mesh in (sk.uniform(SIZE), sk.rectilinear(x, y, z), sk.curvilinear(points)):
        values = np.zeros(SIZE)
        mesh.isosurface(values, 0.5)
        mesh.close()
        mesh.close()
        assert mesh.closed and "closed" in repr(mesh)
        for call in (
            lambda: mesh.isosurface(values, 0.5),
            lambda: mesh.sample(values, [[0, 0, 0]]),
            lambda: mesh.gradient(values),
            lambda: mesh.bounds,
            lambda: mesh.measure(),
            lambda: mesh.stream_lines(np.zeros(SIZE + (3,)), [[0, 0, 0]]),
            lambda: mesh.cut(values, 0.5),
        ):
            with pytest.raises(ValueError, match="closed"):
                call()


def test_an_array_of_a_closed_mesh_stays():
    mesh = sk.uniform(SIZE)
    points = mesh.points
    before = points.copy()
    mesh.close()
    gc.collect()
    assert np.array_equal(points, before)


def test_meshes_and_results_go_with_the_last_name():
    mesh = sk.uniform(SIZE)
    result = mesh.isosurface(np.arange(mesh.nnodes, dtype=float), 7.5)
    gone = [weakref.ref(mesh._core) if False else weakref.ref(result)]
    del mesh, result
    gc.collect()
    assert all(ref() is None for ref in gone)


def test_pickling_is_refused_in_words():
    mesh = sk.uniform(SIZE)
    values = np.arange(mesh.nnodes, dtype=float)
    lines = mesh.stream_lines(np.ones(SIZE + (3,)), [[0.5, 0.5, 0.5]])
    for what in (mesh, mesh.isosurface(values, 7.5), mesh.locate([[0, 0, 0]]), lines):
        with pytest.raises(TypeError, match="can't be pickled"):
            pickle.dumps(what)
    surface = mesh.isosurface(values, 7.5)
    again = pickle.loads(pickle.dumps((surface.points, surface.triangles)))
    assert np.array_equal(again[0], surface.points)
