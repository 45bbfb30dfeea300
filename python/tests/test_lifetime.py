"""Who keeps what alive: arrays, meshes, results. These run with the address sanitizer too."""

import gc
import os
import subprocess
import sys
import textwrap
import weakref

import numpy as np
import pytest
import skoklana as sk
from skoklana import _core
from support import SIZE, bumpy, hexahedra, lattice_points


def scalar():
    return bumpy(lattice_points()).astype(np.float32)


def test_results_outlive_mesh_and_data():
    values = scalar()
    mesh = sk.curvilinear(lattice_points())
    surface, part = mesh.isosurface(values, 0.3), mesh.cut(values, 0.3)
    places = mesh.locate([[0.5, 0.5, 0.5]])
    points, cells = surface.points, mesh.points
    expected = points.copy(), part.tetrahedra.copy(), surface.carry(values)
    del mesh
    gc.collect()
    np.zeros(1000000)  # what was freed is written over
    assert np.array_equal(points, expected[0]) and np.array_equal(part.tetrahedra, expected[1])
    assert np.array_equal(surface.carry(values), expected[2])
    assert places.sample(values).shape == (1,)
    del surface
    gc.collect()
    assert np.array_equal(points, expected[0]) and np.isfinite(cells).all()


@pytest.mark.parametrize("kind", ["curvilinear", "rectilinear", "cells", "uniform"])
def test_meshes_outlive_their_arrays(kind):
    points, values = lattice_points(), scalar()
    rows = hexahedra()
    axes = [np.linspace(0, 1, n).astype(np.float32) for n in SIZE[::-1]]
    mesh = {
        "curvilinear": lambda: sk.curvilinear(points),
        "rectilinear": lambda: sk.rectilinear(*axes),
        "cells": lambda: sk.cells(points.reshape(-1, 3), {"hexahedron": rows}, order="library"),
        "uniform": lambda: sk.uniform(SIZE),
    }[kind]()
    values = values.reshape(mesh.shape)
    expected = mesh.isosurface(values, 0.3).points.copy()
    del points, rows, axes
    gc.collect()
    np.full(1000000, 7.0)
    assert np.array_equal(mesh.isosurface(values, 0.3).points, expected)
    assert mesh.sample(values, [[0.4, 0.4, 0.4]]).shape == (1,)


def test_each_view_keeps_the_memory_that_it_shows():
    before = _core.live_lists()
    surface = sk.uniform(SIZE).isosurface(scalar(), 0.3)
    view = surface.points[3:5, 1]
    expected = view.copy()
    assert _core.live_lists() > before
    del surface
    gc.collect()
    assert _core.live_lists() == before + 1
    assert np.array_equal(view, expected)
    del view
    gc.collect()
    assert _core.live_lists() == before


def test_everything_that_comes_out_is_given_back():
    values, points = scalar(), lattice_points()
    vectors = np.ones(SIZE + (3,), np.float32)
    gc.collect()
    before = _core.live_lists()
    for mesh in (sk.uniform(SIZE, 0.2), sk.curvilinear(points), sk.cells(points.reshape(-1, 3), {"hexahedron": hexahedra()})):
        values, vectors = values.reshape(mesh.shape), vectors.reshape(mesh.shape + (3,))
        kept = [
            mesh.isosurface(values, 0.3), mesh.cut(values, 0.3), mesh.band(values, 0.1, 0.4), mesh.slice((0.5,) * 3, (1, 2, 3)),
            mesh.threshold(values, 0.1), mesh.without_null(values, null=values.flat[0]), mesh.boundary(), mesh.edges(),
            mesh.stream_lines(vectors, [[0.5] * 3]), mesh.glyphs(vectors), mesh.locate([[0.5] * 3]), mesh.points,
            mesh.gradient(values), mesh.cell_to_node(np.ones(mesh.ncells)),
        ]  # fmt: skip
        assert len(kept) == 14
    del kept, mesh
    gc.collect()
    assert _core.live_lists() == before


def test_what_fails_leaves_nothing():
    mesh = sk.uniform((30, 30, 30))
    values = np.random.default_rng(1).random((30, 30, 30))
    gc.collect()
    before = _core.live_lists()

    def stop(percent, message):
        raise RuntimeError("enough")

    for call in (mesh.isosurface, mesh.cut, mesh.locate):
        with pytest.raises(RuntimeError, match="enough"):
            if call == mesh.locate:
                call(np.random.default_rng(2).random((300000, 3)) * 29, progress=stop)
            else:
                call(values, 0.5, progress=stop)
    gc.collect()
    assert _core.live_lists() == before
    assert len(mesh.isosurface(values, 0.5).triangles) > 0


def test_results_go_without_the_collector():
    gc.disable()
    try:
        mesh = sk.uniform(SIZE)
        surface = mesh.isosurface(scalar(), 0.3)
        gone = weakref.ref(surface)
        del surface
        assert gone() is None
    finally:
        gc.enable()


@pytest.mark.skipif("SKOKLANA_SANITIZED" in os.environ, reason="the sanitizer has an allocator of its own")
def test_repeated_work_does_not_grow():
    program = """
        import numpy as np, skoklana as sk, resource
        mesh = sk.uniform((40, 40, 40))
        values = np.random.default_rng(1).random((40, 40, 40)).astype(np.float32)
        points = np.random.default_rng(2).random((1000, 3)) * 39
        def work():
            surface = mesh.isosurface(values, 0.5)
            surface.carry(values), mesh.cut(values, 0.9), mesh.sample(values, points), mesh.gradient(values)
            try:
                mesh.isosurface(values, 0.5, progress=lambda *of: 1 / 0)
            except ZeroDivisionError:
                pass
        for _ in range(10):
            work()
        before = resource.getrusage(resource.RUSAGE_SELF).ru_maxrss
        for _ in range(40):
            work()
        print(resource.getrusage(resource.RUSAGE_SELF).ru_maxrss - before)
    """
    done = subprocess.run([sys.executable, "-c", textwrap.dedent(program)], capture_output=True, text=True, check=True)
    assert int(done.stdout) < 40000  # kB; a surface alone has 20 MB


@pytest.mark.skipif("SKOKLANA_SANITIZED" in os.environ, reason="the sanitizer needs address space by the terabyte")
@pytest.mark.parametrize("what", ["isosurface(values, 0.5)", "cut(values, 0.5)", "to_cells().isosurface(values.ravel(), 0.5)",
                                  "band(values, 0.2, 0.7)", "locate(points)", "gradient(values)"])  # fmt: skip
def test_want_of_memory_is_one_error_that_can_be_caught(what):
    program = f"""
        import numpy as np, skoklana as sk, resource, gc
        from skoklana import _core
        mesh = sk.uniform((64, 64, 64))
        values = np.random.default_rng(1).random((64, 64, 64)).astype(np.float32)
        points = np.random.default_rng(2).random((1000000, 3)) * 63
        before = _core.live_lists()
        vm = int(open("/proc/self/statm").read().split()[0]) * 4096
        soft, hard = resource.getrlimit(resource.RLIMIT_AS)
        caught, done = 0, 0
        for room in (100_000, 300_000, 1_000_000, 3_000_000, 10_000_000, 30_000_000, 1_000_000_000_000):
            resource.setrlimit(resource.RLIMIT_AS, (vm + room, hard))
            try:
                mesh.{what}
                done += 1
            except MemoryError:
                caught += 1
            finally:
                resource.setrlimit(resource.RLIMIT_AS, (soft, hard))
        gc.collect()
        print(caught, done, _core.live_lists() - before)
    """
    done = subprocess.run(
        [sys.executable, "-c", textwrap.dedent(program)], capture_output=True, text=True, timeout=200,
        env={**os.environ, "MALLOC_ARENA_MAX": "1", "MALLOC_TOP_PAD_": "0", "MALLOC_MMAP_THRESHOLD_": "65536"},
    )  # fmt: skip
    assert done.returncode == 0, done.stderr
    caught, ended, left = (int(word) for word in done.stdout.split())
    assert caught >= 1 and ended >= 1 and left == 0
