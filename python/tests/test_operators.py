"""Derivatives, cell data at nodes, measures and boundaries on every kind of mesh."""

import numpy as np
import pytest
import skoklana as sk
from support import SIZE, area, bumpy, ids, linear, solids, surfaces, volume


@pytest.mark.parametrize("name, mesh", solids(), ids=ids(solids()))
def test_derivatives_of_linear_fields_are_exact(name, mesh):
    p = mesh.points.astype(np.float64)
    gradient = mesh.gradient(linear(p))
    assert gradient.shape == mesh.shape + (3,) and gradient.dtype == np.float32
    assert np.abs(gradient - [3, -2, 1]).max() < 2e-4
    vectors = np.stack([p[:, 1], 2 * p[:, 2], 3 * p[:, 0]], axis=1) + p
    assert np.abs(mesh.curl(vectors) - [-2, -3, -1]).max() < 4e-4
    assert np.abs(mesh.divergence(vectors) - 3).max() < 4e-4
    assert mesh.divergence(vectors).shape == mesh.shape


@pytest.mark.parametrize("name, mesh", surfaces(), ids=ids(surfaces()))
def test_gradients_of_surfaces_lie_in_them(name, mesh):
    y = [1, 2][name == "layer"]
    gradient = mesh.gradient(3 * mesh.points[:, 0] - 2 * mesh.points[:, y]).reshape(-1, 3)
    expected = np.zeros(3)
    expected[[0, y]] = [3, -2]
    assert np.abs(gradient - expected).max() < 1e-4


def test_null_nodes_have_no_derivative():
    mesh = sk.uniform(SIZE)
    values = linear(mesh.points).reshape(SIZE)
    holed = np.ma.MaskedArray(values, mask=np.zeros(SIZE, bool))
    holed[0:3, 0:3, 0:3] = np.ma.masked
    gradient = mesh.gradient(holed)
    assert gradient.mask[0, 0, 0].all() and not gradient.mask[4, 5, 6].any()
    plain = mesh.gradient(holed.filled(-99), null=-99)
    assert np.isnan(plain[0, 0, 0]).all() and np.array_equal(np.isnan(plain[..., 0]), gradient.mask[..., 0])
    assert np.abs(plain[4, 5, 6] - [3, -2, 1]).max() < 1e-4


def test_the_librarys_own_derivatives():
    mesh = sk.uniform(SIZE)
    values = bumpy(mesh.points).reshape(SIZE)
    assert np.allclose(mesh.gradient(values, library=True), mesh.gradient(values), atol=1e-4)
    vectors = np.stack([values, 2 * values, 3 * values], axis=-1)
    assert np.allclose(mesh.curl(vectors, library=True), mesh.curl(vectors), atol=1e-3)
    assert np.allclose(mesh.divergence(vectors, library=True), mesh.divergence(vectors), atol=1e-3)
    inner = np.gradient(values)
    assert np.allclose(mesh.gradient(values)[1:-1, 1:-1, 1:-1], np.stack(inner[::-1], -1)[1:-1, 1:-1, 1:-1], atol=1e-5)


@pytest.mark.parametrize(
    "call, text",
    [
        (lambda m: m.gradient(np.zeros(SIZE + (3,))), "values: has 3 components, but 1 is needed"),
        (lambda m: m.curl(np.zeros(SIZE)), "values: has 1 components, but 2 or 3 are needed"),
        (lambda m: m.cell_to_node(np.zeros(SIZE)), "but the cells have (4, 5, 6)"),
        (lambda m: m.cell_to_node(np.zeros((4, 5, 6)), "volume"), "weight: is 'volume'"),
    ],
)
def test_what_has_no_derivative_is_refused_by_name(call, text):
    with pytest.raises(ValueError) as caught:
        call(sk.uniform(SIZE))
    assert text in str(caught.value)


@pytest.mark.parametrize("name, mesh", solids() + surfaces(), ids=ids(solids() + surfaces()))
def test_nodes_get_the_mean_of_their_cells(name, mesh):
    data = np.random.default_rng(1).normal(size=(mesh.ncells, 2))
    sums, counts = np.zeros((mesh.nnodes, 2)), np.zeros(mesh.nnodes)
    before = 0
    for rows in mesh.cells.values():
        for column in rows.T:
            np.add.at(sums, column, data[before : before + len(rows)])
            np.add.at(counts, column, 1)
        before += len(rows)
    found = mesh.cell_to_node(data).reshape(-1, 2)
    assert np.allclose(found, sums / counts[:, None])
    constant = mesh.cell_to_node(np.full(mesh.ncells, 5, np.uint8), "distance")
    assert (constant == 5).all()
    if len(mesh.cells) == 1 and name != "layer":
        scalar = np.ascontiguousarray(data[:, 0])
        assert np.allclose(mesh.cell_to_node(scalar, library=True).ravel(), found[:, 0])


def test_cells_without_a_value_take_no_part():
    mesh = sk.uniform((2, 2, 4))
    data = np.array([4, -1, 8], np.int32)
    found = mesh.cell_to_node(data, null=-1).reshape(4, 4)
    assert found[0].tolist() == [4, 4, 8, 8]
    alone = sk.cells([[0, 0], [1, 0], [0, 1], [5, 5]], {"triangle": [[0, 1, 2]]})
    assert np.isnan(alone.cell_to_node([2.0])[3])
    assert alone.cell_to_node([2], fill=0).tolist() == [2, 2, 2, 0]


@pytest.mark.parametrize("name, mesh", solids(), ids=ids(solids()))
def test_measures_and_integrals(name, mesh):
    found = mesh.measure(np.full(mesh.nnodes, 2.0))
    assert found.volume.ncells == mesh.ncells and found.area.ncells == found.length.ncells == 0
    assert found.volume.integral == pytest.approx(2 * found.volume.measure) and found.volume.mean == pytest.approx(2)
    rows = np.stack([linear(mesh.points), np.ones(mesh.nnodes)], axis=1)
    assert mesh.measure(rows, component=1).volume.mean == pytest.approx(1)
    holed = np.ones(mesh.nnodes)
    holed[0] = -1
    assert mesh.measure(holed, null=-1).volume.null_cells > 0
    if name in ("uniform", "hexahedron", "tetra", "wedge"):
        assert mesh.measure(library=True).volume.measure == pytest.approx(found.volume.measure, rel=1e-4)
    with pytest.raises(IndexError, match="component: 2"):
        mesh.measure(rows, component=2)


@pytest.mark.parametrize("name, mesh", solids(), ids=ids(solids()))
def test_boundaries_enclose_the_mesh(name, mesh):
    skin = mesh.boundary()
    assert np.array_equal(skin.points, mesh.points[skin.old_nodes])
    flux = 0.0
    surface = skin.to_mesh()
    for kind, rows in skin.cells.items():
        corners = skin.points[rows[:, : 3 if kind.startswith("tri") else 4]].astype(np.float64)
        for a in range(1, corners.shape[1] - 1):
            flux += np.einsum("ij,ij->", corners[:, 0], np.cross(corners[:, a], corners[:, a + 1])) / 6
    if name == "uniform":
        assert area(surface) == pytest.approx(6, rel=1e-5) and skin.ncells == 2 * (4 * 5 + 4 * 6 + 5 * 6)
    if name == "mixed":
        lattice = sk.uniform(SIZE).boundary()
        assert len(skin.triangles) > 0 and len(skin.quads) > 0
        assert 2 * len(skin.quads) + len(skin.triangles) >= 2 * lattice.ncells
    else:
        assert flux == pytest.approx(volume(mesh), rel=0.02)  # outward, and all of it
    values = bumpy(mesh.points)
    assert np.array_equal(skin.carry(values), values[skin.old_nodes])
    numbers = skin.carry_cells(np.arange(mesh.ncells))
    before = 0
    every = [set(row) for rows in mesh.cells.values() for row in rows.tolist()]
    for rows in skin.cells.values():
        for row in rows:
            assert set(skin.old_nodes[row].tolist()) <= every[numbers[before]]
            before += 1


@pytest.mark.parametrize("name, mesh", surfaces(), ids=ids(surfaces()))
def test_edges_of_surfaces(name, mesh):
    rim = mesh.boundary()
    assert rim.to_mesh().measure().length.measure == pytest.approx(4, rel=1e-5)
    assert mesh.boundary_edges(0.0).ncells > rim.ncells
    assert mesh.boundary_edges(1.0).ncells == rim.ncells  # flat
    if name in ("uniform", "quad"):
        assert len(mesh.edges()) == 6 * 6 + 5 * 7


def test_edges_of_solids_and_mixed_cells():
    grid = sk.uniform(SIZE)
    nz, ny, nx = SIZE
    assert len(grid.edges()) == nz * ny * (nx - 1) + nz * (ny - 1) * nx + (nz - 1) * ny * nx
    mesh = sk.cells(
        [[0, 0], [1, 0], [1, 1], [0, 1], [2, 0], [2, 1]], {"triangle": [[0, 1, 2], [0, 2, 3]], "quad": [[1, 4, 5, 2]]}
    )
    assert len(mesh.edges()) == 8
    assert mesh.boundary().to_mesh().measure().length.measure == pytest.approx(6)
    box = grid.boundary().to_mesh()
    assert box.boundary().ncells == 0
    assert box.boundary_edges(1.0).to_mesh().measure().length.measure == pytest.approx(4 * (4 + 5 + 6))
