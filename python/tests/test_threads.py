"""threads=: the same results by any number of threads, and what comes of progress, signals and failures."""

import numpy as np
import pytest
import skoklana as sk
from skoklana import _core
from support import bumpy, ids, solids, surfaces

COUNTS = (2, 7)


def same_result(a, b):
    assert np.array_equal(a.points, b.points) and a.cells.keys() == b.cells.keys()
    assert all(np.array_equal(a.cells[kind], b.cells[kind]) for kind in a.cells)
    assert np.array_equal(a.cell_numbers, b.cell_numbers) and np.array_equal(a.old_nodes, b.old_nodes)
    assert all(np.array_equal(getattr(a, name), getattr(b, name)) for name in ("first", "second", "t"))


@pytest.mark.parametrize("name, mesh", solids() + surfaces(), ids=ids(solids() + surfaces()))
def test_levels_cuts_and_slices_are_the_same_by_any_number(name, mesh):
    values = bumpy(mesh.points)
    holed = np.where(np.random.default_rng(2).random(values.shape) < 0.05, -9, values)
    middle = mesh.points.mean(axis=0)
    calls = [lambda **of: mesh.slice(middle, (1, 2, 3)[: mesh.nspace], **of)]
    for data, null in ((values, None), (holed, -9)):
        calls += [
            lambda data=data, null=null, **of: mesh.isosurface(data, 0.4, null=null, **of),
            lambda data=data, null=null, **of: mesh.isoline(data, 0.4, null=null, **of),
            lambda data=data, null=null, **of: mesh.cut(data, 0.4, null=null, **of),
            lambda data=data, null=null, **of: mesh.cut(data, 0.4, "below", null=null, library=True, **of),
        ]
    for call in calls:
        alone = call()
        for threads in (2, 3, 100):
            same_result(call(threads=threads), alone)
    assert mesh.isosurface(values, 0.4, cells=False, threads=2).cell_numbers is None
    assert mesh.isosurface(values, 99, threads=2).ncells == 0


def test_larger_meshes_are_the_same_by_any_number():
    values = np.random.default_rng(1).random((30, 20, 25)).astype(np.float32)
    lattice = sk.uniform(values.shape)
    for mesh in (lattice, lattice.to_cells(), sk.curvilinear(lattice.points.reshape(values.shape + (3,)))):
        data = values.reshape(mesh.shape)
        for threads in (2, 5):
            same_result(mesh.isosurface(data, 0.5, threads=threads), mesh.isosurface(data, 0.5))
            same_result(mesh.cut(data, 0.5, threads=threads), mesh.cut(data, 0.5))


def points_in_and_around(mesh, count=18000):
    random = np.random.default_rng(4)
    low, high = mesh.bounds
    points = low + (random.random((count, mesh.nspace)) * 1.2 - 0.1) * (high - low)
    points[7] = np.nan
    return points


def same(a, b):
    if isinstance(a, np.ma.MaskedArray) or isinstance(b, np.ma.MaskedArray):
        return np.array_equal(a.mask, b.mask) and np.array_equal(a.filled(0), b.filled(0))
    return a.dtype == b.dtype and np.array_equal(a, b, equal_nan=a.dtype.kind == "f")


@pytest.mark.parametrize("name, mesh", solids() + surfaces()[:5], ids=ids(solids() + surfaces()[:5]))
def test_points_are_sampled_alike_by_any_number(name, mesh):
    points = points_in_and_around(mesh)
    values = bumpy(mesh.points).reshape(mesh.shape)
    numbers = np.rint(100 * values).astype(np.int16)
    of_cells = np.arange(2 * mesh.ncells).reshape(mesh.ncells, 2)
    alone = mesh.locate(points)
    expected = [
        mesh.sample(values, points), mesh.sample(numbers, points, null=numbers.flat[3]), mesh.sample_cells(of_cells, points)
    ]  # fmt: skip
    assert same(alone.sample(values), expected[0]) and same(alone.sample_cells(of_cells), expected[2])
    drawn = mesh.sample(values, points.astype(np.float32), library=True, fill=-5)
    for threads in COUNTS:
        places = mesh.locate(points, threads=threads)
        assert np.array_equal(places.cells, alone.cells) and np.array_equal(places.uvw, alone.uvw)
        assert same(places.sample(values), expected[0]) and same(places.sample_cells(of_cells), expected[2])
        for point in (0, 7, 8191, 8192, 17999):
            assert all(np.array_equal(a, b) for a, b in zip(places.weights(point), alone.weights(point)))
        assert same(mesh.sample(values, points, threads=threads), expected[0])
        assert same(mesh.sample(numbers, points, null=numbers.flat[3], threads=threads), expected[1])
        assert same(mesh.sample_cells(of_cells, points, threads=threads), expected[2])
        assert same(mesh.sample(values, points.astype(np.float32), library=True, fill=-5, threads=threads), drawn)
    assert mesh.sample(values, np.empty((0, mesh.nspace)), threads=2).shape == (0,)
    assert mesh.locate(np.empty((0, mesh.nspace)), threads=2).cells.shape == (0,)


@pytest.mark.parametrize("name, mesh", solids(False), ids=ids(solids(False)))
def test_stream_lines_are_the_same_by_any_number(name, mesh):
    p = mesh.points
    vectors = np.stack([0.5 - p[:, 1], p[:, 0] - 0.5, np.full(len(p), 0.05)], axis=1)
    seeds = np.random.default_rng(5).random((150, 3))
    seeds[11] = 9  # outside
    for direction in ("forward", "both"):
        alone = mesh.stream_lines(vectors, seeds, direction=direction, max_nodes=50)
        for threads in COUNTS:
            lines = mesh.stream_lines(vectors, seeds, direction=direction, max_nodes=50, threads=threads)
            for what in ("points", "begin", "vectors", "speeds", "cells", "uvw", "steps"):
                assert np.array_equal(getattr(lines, what), getattr(alone, what)), what
    assert len(mesh.stream_lines(vectors, seeds[:1], threads=8)) == 1
    assert len(mesh.stream_lines(vectors, seeds[:0], threads=8)) == 0


@pytest.mark.parametrize("dtype", [np.uint8, np.int64, np.float32, np.float64])
def test_scattered_values_are_the_same_by_any_number(dtype):
    random = np.random.default_rng(6)
    for axes, shape in ((1, 50), (2, (20, 30)), (3, (9, 11, 13))):
        points = random.random((500, axes))
        values = random.integers(0, 100, (500, 2)).astype(dtype)
        for options in ({}, {"null": values[0, 0], "radius": 2}, {"power": 3}):
            alone = sk.scatter(points, values, shape, **options)
            for threads in COUNTS:
                assert same(sk.scatter(points, values, shape, threads=threads, **options), alone)


def test_progress_of_threads_rises_and_what_it_raises_comes_through():
    mesh = sk.uniform((40, 40, 40)).to_cells()
    points = np.random.default_rng(2).random((150000, 3)) * 39
    values = np.zeros(mesh.nnodes)
    vectors = np.ones((mesh.nnodes, 3))
    for call in (
        lambda told: mesh.locate(points, threads=3, progress=told),
        lambda told: mesh.sample(values, points, threads=3, progress=told),
        lambda told: mesh.stream_lines(vectors, points[:400], max_nodes=100, threads=3, progress=told),
    ):
        seen = []
        call(lambda percent, message: seen.append(percent))
        assert seen == sorted(seen) and all(0 <= percent <= 100 for percent in seen)

        def stop(percent, message):
            raise KeyError("mine")

        with pytest.raises(KeyError, match="mine"):
            call(stop)
    assert mesh.sample(values, points, threads=2).shape == (150000,)


def test_what_a_thread_fails_with_comes_through():
    mesh = sk.uniform((20, 20, 20))
    points = np.random.default_rng(2).random((100000, 3)) * 19
    places = mesh.locate(points, threads=3)
    before = _core.live_lists()
    with pytest.raises(IndexError, match="values: has fewer rows"):
        _core.sample_at(places._places, np.zeros(5), None, True, None)
    with pytest.raises(IndexError, match="values: has fewer rows"):
        _core.sample_points(mesh._locator(0, None)[0], points, np.zeros(5), None, True, 3, None)
    assert _core.live_lists() == before
    for threads in (1, 3):
        with pytest.raises(ValueError, match="points have 4 coordinates, but a point has 1 to 3"):
            _core.locate(mesh._locator(0, None)[0], np.zeros((10, 4)), threads, None)


def test_a_number_of_threads_is_a_whole_one_from_1():
    mesh = sk.uniform((5, 5, 5))
    values, points = np.zeros((5, 5, 5)), [[1, 1, 1]]
    for threads, error in ((0, ValueError), (-1, ValueError), (1.5, TypeError), ("2", TypeError), (True, TypeError)):
        for call in (
            lambda: mesh.isosurface(values, 0.5, threads=threads),
            lambda: mesh.isoline(values, 0.5, threads=threads),
            lambda: mesh.cut(values, 0.5, threads=threads),
            lambda: mesh.slice((0, 0, 0), (0, 0, 1), threads=threads),
            lambda: mesh.locate(points, threads=threads),
            lambda: mesh.sample(values, points, threads=threads),
            lambda: mesh.sample(values, points, library=True, threads=threads),
            lambda: mesh.sample_cells(np.zeros((4, 4, 4)), points, threads=threads),
            lambda: mesh.stream_lines(np.zeros((5, 5, 5, 3)), points, threads=threads),
            lambda: sk.scatter(points, [1.0], (2, 2, 2), threads=threads),
        ):
            with pytest.raises(error, match="threads: "):
                call()
    assert len(mesh.sample(values, points, threads=np.int64(2))) == 1
