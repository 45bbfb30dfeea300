"""Tesselations and values at scattered points."""

import numpy as np
import pytest
import skoklana as sk
from support import area, volume


def test_triangles_fill_the_square_and_hold_no_point():
    points = np.concatenate([np.random.default_rng(5).random((200, 2)), [[0, 0], [1, 0], [1, 1], [0, 1]]])
    triangles = sk.delaunay(points)
    mesh = sk.cells(points, {"triangle": triangles})
    assert area(mesh) == pytest.approx(1, rel=1e-4)
    p = points.astype(np.float32).astype(np.float64)[triangles]
    turned = np.cross(p[:, 1] - p[:, 0], p[:, 2] - p[:, 0])
    assert (turned > 0).all()
    for a, b, c in p[::10]:
        d = 2 * np.cross(b - a, c - a)
        ux = ((c - a)[1] * ((b - a) ** 2).sum() - (b - a)[1] * ((c - a) ** 2).sum()) / d
        uy = ((b - a)[0] * ((c - a) ** 2).sum() - (c - a)[0] * ((b - a) ** 2).sum()) / d
        centre, radius = a + [ux, uy], np.hypot(ux, uy)
        assert (np.linalg.norm(points - centre, axis=1) > radius - 1e-5).all()
    assert len(sk.delaunay(points, library=True)) <= len(triangles)


def test_tetrahedra_fill_the_cube_the_right_way_round():
    corners = np.stack(np.meshgrid([0, 1], [0, 1], [0, 1]), -1).reshape(-1, 3)
    points = np.concatenate([np.random.default_rng(6).random((100, 3)), corners])
    tetrahedra = sk.delaunay(points)
    p = points[tetrahedra]
    sign = np.einsum("ij,ij->i", p[:, 1] - p[:, 0], np.cross(p[:, 2] - p[:, 0], p[:, 3] - p[:, 0]))
    assert (sign > 0).mean() == 1
    assert volume(sk.cells(points, {"tetra": tetrahedra})) == pytest.approx(1, rel=1e-4)


def test_points_without_cells():
    assert sk.delaunay([[0, 0], [1, 1], [2, 2]]).shape == (0, 3)
    assert sk.delaunay([[0, 0], [0, 1], [0, 2]]).shape == (0, 3)
    assert sk.delaunay(np.empty((0, 3))).shape == (0, 4)
    assert sk.delaunay([[0, 0], [1, 0], [0, 1]], box=[[-9, -9], [9, 9]]).shape == (1, 3)


def test_values_are_spread_by_distance():
    random = np.random.default_rng(7)
    points = random.random((4000, 2))
    values = points[:, 0] + 2 * points[:, 1]
    grid = sk.scatter(points, values, (20, 30), box=[[0, 0], [1, 1]])
    y, x = np.meshgrid(np.linspace(0, 1, 20), np.linspace(0, 1, 30), indexing="ij")
    assert grid.shape == (20, 30) and np.abs(grid - (x + 2 * y)).max() < 0.15
    exact = sk.scatter([[0, 0], [1, 0]], [5.0, 7.0], (2, 3), radius=1)
    assert exact[0, 0] == 5 and exact[0, 2] == 7
    rows = sk.scatter(points, np.stack([values, -values], 1), (20, 30), box=[[0, 0], [1, 1]])
    assert np.allclose(rows[..., 0], grid) and np.allclose(rows[..., 1], -grid)
    solid = sk.scatter(random.random((500, 3)), np.ones(500, np.float32), (4, 5, 6))
    assert solid.shape == (4, 5, 6) and solid.dtype == np.float32 and np.allclose(solid, 1)


def test_nodes_that_no_point_reaches():
    points, values = [[0.0, 0.0], [0.1, 0.1]], np.array([3, 4], np.int16)
    box = [[0, 0], [9, 9]]
    grid = sk.scatter(points, values, (10, 10), box=box, radius=1)
    assert isinstance(grid, np.ma.MaskedArray) and grid.dtype == np.int16 and grid.mask[9, 9] and grid[0, 0] == 3
    floats = sk.scatter(points, values.astype(float), (10, 10), box=box, radius=1)
    assert np.isnan(floats[9, 9])
    assert sk.scatter(points, values, (10, 10), box=box, radius=1, fill=-1)[9, 9] == -1
    part = sk.scatter(points, np.ma.masked_equal(values, 3), (10, 10), box=box, radius=1)
    assert part[0, 0] == 4


def test_bins_hold_their_points_in_order():
    points = np.random.default_rng(8).random((300, 3)).astype(np.float32)
    numbers, begin = sk.bins(points, (3, 4, 5), box=[[0, 0, 0], [1, 1, 1]])
    assert len(begin) == 2 * 3 * 4 + 1 and sorted(numbers.tolist()) == list(range(300))
    for bin_ in range(len(begin) - 1):
        mine = numbers[begin[bin_] : begin[bin_ + 1]]
        assert (np.diff(mine) > 0).all()
        i, j, k = bin_ % 4, bin_ // 4 % 3, bin_ // 12
        low, high = np.array([i / 4, j / 3, k / 2]), np.array([(i + 1) / 4, (j + 1) / 3, (k + 1) / 2])
        assert ((points[mine] >= low - 1e-6) & (points[mine] <= high + 1e-6)).all()


@pytest.mark.parametrize(
    "call, text",
    [
        (lambda: sk.delaunay([[1], [2]]), "points: have one coordinate"),
        (lambda: sk.delaunay([1, 2]), "points: has the shape (2,)"),
        (lambda: sk.delaunay([[1, 2]], box=[1, 2]), "box: is not two corners of 2"),
        (lambda: sk.scatter([[0, 0]], [1.0, 2.0], (3, 3)), "values: has the shape (2,), but the points have (1,)"),
        (lambda: sk.scatter([[0, 0]], [1.0], (3, 3, 3)), "shape: has 3 axes, but points have 2"),
        (lambda: sk.scatter([[0, 0]], [1.0], (3, 3), radius=0), "radius: is 1 and up"),
        (lambda: sk.scatter([[0, 0]], [1.0], (3, 3), power=0), "power: is 1 and up"),
        (lambda: sk.bins([[0, 0]], (1, 1)), "shape: has one to three axes of two nodes"),
    ],
)
def test_what_can_not_be_spread_is_refused_by_name(call, text):
    with pytest.raises(ValueError) as caught:
        call()
    assert text in str(caught.value)
