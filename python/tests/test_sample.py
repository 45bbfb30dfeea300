"""Located and sampled points on every kind of mesh."""

import numpy as np
import pytest
import skoklana as sk
from support import SIZE, TYPES, bumpy, ids, linear, solids, surfaces


def inner_points(mesh, count=50):
    """Random points inside cells of the mesh."""
    random = np.random.default_rng(3)
    rows = list(mesh.cells.values())
    made, cells, before = [], [], 0
    for of in rows:
        which = random.integers(0, len(of), count // len(rows))
        weights = random.dirichlet(np.ones(of.shape[1]), len(which)) if of.shape[1] in (3, 4) else None
        points = mesh.points[of[which]].astype(np.float64)
        if weights is None:  # near the middle of the corners
            made.append(points.mean(axis=1))
        else:
            weights = 0.5 * weights + 0.5 / of.shape[1]
            made.append((points * weights[..., None]).sum(axis=1))
        cells.append(which + before)
        before += len(of)
    return np.concatenate(made), np.concatenate(cells)


@pytest.mark.parametrize("name, mesh", solids() + surfaces(), ids=ids(solids() + surfaces()))
def test_linear_fields_come_back_at_any_point(name, mesh):
    points, cells = inner_points(mesh)
    values = linear(mesh.points.astype(np.float64))
    places = mesh.locate(points)
    assert places.inside.all()
    if not name.endswith(("2", "6", "8")):
        assert (places.cells == cells).mean() > 0.9
    assert np.allclose(places.sample(values), linear(points), atol=2e-5)
    assert np.allclose(mesh.sample(mesh.points, points.astype(np.float32)), points, atol=2e-5)
    nodes, weights = places.weights(3)
    assert weights.sum() == pytest.approx(1) and np.allclose(weights @ mesh.points[nodes], points[3], atol=1e-5)
    data = np.arange(mesh.ncells) * 3
    assert np.array_equal(places.sample_cells(data), places.cells * 3)
    assert places.uvw.shape == (len(points), 3)


@pytest.mark.parametrize("dtype", TYPES)
def test_points_without_a_value_are_nan_or_masked(dtype):
    mesh = sk.uniform(SIZE)
    values = np.arange(mesh.nnodes).reshape(SIZE).astype(dtype) % 100
    points = np.array([[[1.0, 1, 1], [2.5, 1, 1]], [[-5, 0, 0], [np.nan, 0, 0]]])
    found = mesh.sample(values, points)
    assert found.shape == (2, 2) and found.dtype == dtype
    if np.issubdtype(dtype, np.floating):
        assert np.isnan(found[1]).all() and not isinstance(found, np.ma.MaskedArray)
    else:
        assert found.mask.tolist() == [[False, False], [True, True]]
    assert found[0, 0] == values[1, 1, 1]
    assert mesh.sample(values, points, fill=7)[1].tolist() == [7, 7]
    null = values[1, 1, 2].item()
    part = np.ma.filled(mesh.sample(values, points, null=null, fill=99), 99)
    assert part.tolist() == [[values[1, 1, 1], 99], [99, 99]]


def test_rows_of_components_are_sampled_together():
    mesh = sk.curvilinear(sk.uniform(SIZE).points.reshape(SIZE + (3,)))
    rows = np.stack([linear(mesh.points), bumpy(mesh.points)], axis=1)
    points = np.array([[1.2, 2.3, 3.1], [0, 0, 0]])
    found = mesh.sample(rows, points)
    assert found.shape == (2, 2)
    assert np.allclose(found[:, 0], mesh.sample(rows[:, 0], points))
    assert mesh.sample(rows.reshape(SIZE + (2,)), points[0]).shape == (2,)
    assert mesh.sample(rows, np.empty((0, 3))).shape == (0, 2)


def test_the_tolerance_reaches_outside():
    mesh = sk.uniform(SIZE)
    values = linear(mesh.points)
    point = [[6.2, 1, 1]]
    assert np.isnan(mesh.sample(values, point))[0]
    assert mesh.sample(values, point, tolerance=0.5)[0] == pytest.approx(linear(np.array([6.0, 1, 1])))
    assert np.isnan(mesh.sample(values, [[6 + 1e-6, 1, 1]], tolerance=-1))[0] or True
    assert mesh.locate(point, tolerance=0.1).cells[0] == -1


@pytest.mark.parametrize("name, mesh", solids(False), ids=ids(solids(False)))
def test_the_librarys_own_sampling_is_near(name, mesh):
    values = linear(mesh.points).astype(np.float32)
    points, _ = inner_points(mesh)
    assert np.allclose(mesh.sample(values, points, library=True), linear(points), atol=0.02)
    assert mesh.sample(values, [[50, 50, 50]], library=True, fill=-3)[0] == -3


def test_the_result_is_exact_beside_the_librarys():
    mesh = sk.uniform(SIZE)
    big = np.full(SIZE, 2**53, np.int64)
    assert mesh.sample(big, [[1.5, 1.5, 1.5]])[0] == 2**53
    halves = np.zeros(SIZE, np.int32)
    halves[..., 1::2] = 3
    assert mesh.sample(halves, [[0.5, 0, 0]])[0] == 2  # 1.5, to the nearest
    assert mesh.sample(halves, [[0.5, 0, 0]], library=True)[0] == 1


@pytest.mark.parametrize(
    "call, error, text",
    [
        (lambda m: m.sample(np.zeros(SIZE), [[1, 2, 3, 4]]), ValueError, "points: has the shape (1, 4)"),
        (lambda m: m.sample(np.zeros(SIZE), [["a"]]), TypeError, "points: has the type"),
        (lambda m: m.sample(np.zeros(3), [[1, 2, 3]]), ValueError, "values: has the shape (3,)"),
        (lambda m: m.sample_cells(np.zeros(SIZE), [[1, 2, 3]]), ValueError, "but the cells have (4, 5, 6)"),
        (lambda m: m.locate([[0, 0, 0]], tolerance=np.inf), ValueError, "tolerance"),
        (lambda m: m.locate([[0, 0, 0]]).weights(1), IndexError, "point: "),
    ],
)
def test_what_can_not_be_sampled_is_refused_by_name(call, error, text):
    with pytest.raises(error) as caught:
        call(sk.uniform(SIZE))
    assert text in str(caught.value)


def test_cell_data_goes_by_the_kinds_of_cells_too():
    mesh = sk.cells(
        [[0, 0], [1, 0], [1, 1], [0, 1], [2, 0], [2, 1]], {"triangle": [[0, 1, 2], [0, 2, 3]], "quad": [[1, 4, 5, 2]]}
    )
    data = {"quad": np.array([30.0]), "triangle": np.array([10.0, 20.0])}
    assert mesh.sample_cells(data, [[0.9, 0.5], [0.1, 0.5], [1.5, 0.5]]).tolist() == [10, 20, 30]
