"""Level surfaces and lines on every kind of mesh, against the library called directly and by what must hold."""

import ctypes
import os

import numpy as np
import pytest
import skoklana as sk
from support import SIZE, TYPES, area, bumpy, closed, ids, linear, solids, surfaces, volume


@pytest.mark.parametrize("name, mesh", solids(), ids=ids(solids()))
def test_a_linear_level_is_a_plane_on_every_mesh(name, mesh):
    values = linear(mesh.points)
    surface = mesh.isosurface(values, 0.7)
    assert len(surface.triangles) > 10 and surface.cells.keys() == {"triangle"}
    assert np.abs(linear(surface.points) - 0.7).max() < 1e-5
    normals = np.cross(
        surface.points[surface.triangles[:, 1]] - surface.points[surface.triangles[:, 0]],
        surface.points[surface.triangles[:, 2]] - surface.points[surface.triangles[:, 0]],
    )
    towards = normals @ [3.0, -2.0, 1.0]
    large = np.linalg.norm(normals, axis=1) > 1e-4
    assert (towards[large] < 0).all()  # to lower values
    assert np.allclose(surface.carry(values), 0.7, atol=1e-5)
    assert np.allclose(surface.carry(mesh.points.astype(np.float64)), surface.points, atol=1e-5)


@pytest.mark.parametrize("name, mesh", solids(), ids=ids(solids()))
def test_triangles_know_the_cells_that_they_come_from(name, mesh):
    surface = mesh.isosurface(bumpy(mesh.points), 0.3)
    middle = surface.points[surface.triangles].mean(axis=1)
    cells = mesh.locate(middle).cells
    agree = surface.cell_numbers == cells
    assert agree.mean() > (0.9 if not name.endswith("2") else 0.8)  # flat triangles lie between two
    data = np.arange(mesh.ncells) * 7
    assert np.array_equal(surface.carry_cells(data), surface.cell_numbers * 7)
    assert np.array_equal(surface.carry_cells(data.reshape(mesh.cell_shape)), surface.cell_numbers * 7)
    assert mesh.isosurface(bumpy(mesh.points), 0.3, cells=False).cell_numbers is None


@pytest.mark.parametrize("dtype", TYPES)
def test_all_types_and_layouts_give_the_same_surface(dtype):
    values = np.rint(60 + 25 * bumpy(sk.uniform(SIZE, 0.2).points)).reshape(SIZE)
    mesh = sk.uniform(SIZE, 0.2)
    expected = mesh.isosurface(values, 65.5)
    assert len(expected.triangles) > 20
    data = values.astype(dtype)
    swapped = data.astype(data.dtype.newbyteorder(">"))
    padded = np.zeros(SIZE[:2] + (2 * SIZE[2],), dtype)
    padded[..., ::2] = data
    for given in (data, data.ravel(), swapped, np.asfortranarray(data), padded[..., ::2], data.tolist(), data[..., None]):
        surface = mesh.isosurface(given, 65.5)
        assert np.array_equal(surface.triangles, expected.triangles)
        assert np.array_equal(surface.points, expected.points)
    carried = expected.carry(data)
    assert carried.dtype == dtype and np.abs(carried - 65.5).max() <= 0.5


def test_null_leaves_cells_out_and_masked_arrays_say_the_same():
    mesh = sk.uniform(SIZE, 0.2)
    values = bumpy(mesh.points).reshape(SIZE)
    holed = values.copy()
    holed[2, 3, 3] = -999
    whole, part = mesh.isosurface(values, 0.3), mesh.isosurface(holed, 0.3, null=-999)
    assert 0 < len(part.triangles) < len(whole.triangles)
    masked = np.ma.masked_equal(holed, -999)
    again = mesh.isosurface(masked, 0.3)
    assert np.array_equal(again.triangles, part.triangles)
    infinite = np.ma.masked_invalid(np.where(holed == -999, np.nan, holed))
    assert np.array_equal(mesh.isosurface(infinite, 0.3).triangles, part.triangles)
    untouched = np.ma.MaskedArray(values, mask=False)
    assert np.array_equal(mesh.isosurface(untouched, 0.3).triangles, whole.triangles)


def test_data_under_a_mask_is_copied_only_where_it_must_be():
    from skoklana._values import Rows

    masked = np.ma.masked_equal(np.array([1.0, -9.0, 3.0]), -9.0)
    assert np.shares_memory(Rows(masked, "values", 3, (3,)).rows, masked.data)
    other = np.ma.MaskedArray([1.0, 2.0, 3.0], mask=[0, 1, 0], fill_value=-9.0)
    rows = Rows(other, "values", 3, (3,))
    assert rows.rows.tolist() == [1, -9, 3] and other.data.tolist() == [1, 2, 3]
    for dtype in TYPES:  # the fill_value that numpy gives by itself, 999999 or 1e20, fits in few of them
        of = np.ma.MaskedArray(np.arange(100).astype(dtype), mask=np.arange(100) == 7)
        rows = Rows(of, "values", 100, (100,))
        assert np.array_equal(rows.rows == rows.null[0], of.mask)
    lowest = np.ma.MaskedArray(np.arange(256).astype(np.uint8), mask=np.arange(256) == 77)
    assert Rows(lowest, "values", 256, (256,)).null[0] == 77
    full = np.ma.MaskedArray(np.arange(257).astype(np.uint8), mask=np.arange(257) == 256)
    with pytest.raises(ValueError, match="has every value of its type"):
        Rows(full, "values", 257, (257,))
    plain = np.arange(3.0)
    assert np.shares_memory(Rows(plain, "values", 3, (3,)).rows, plain)


@pytest.mark.parametrize(
    "given, options, error, text",
    [
        (np.zeros(SIZE, np.uint16), {}, TypeError, "values: has the type uint16"),
        (np.zeros(SIZE, complex), {}, TypeError, "values: has the type complex128"),
        (np.full(SIZE, "a"), {}, TypeError, "values: has the type <U1"),
        (np.zeros((5, 6)), {}, ValueError, "values: has the shape (5, 6), but the nodes have (5, 6, 7) or (210,)"),
        (np.zeros(SIZE + (3,)), {}, ValueError, "values: has 3 components, but 1 is needed"),
        (np.zeros(SIZE), {"level": np.nan}, ValueError, "level: is not a number"),
        (np.zeros(SIZE), {"level": "high"}, TypeError, "level: is not a number"),
        (np.zeros(SIZE), {"null": np.nan}, ValueError, "null: NaN equals no value of values"),
        (np.zeros(SIZE, np.uint8), {"null": 300}, ValueError, "null: 300 is no value that values can have"),
        (np.zeros(SIZE, np.uint8), {"null": 0.5}, ValueError, "null: 0.5 is no value"),
        (
            np.ma.MaskedArray(np.ones(SIZE), mask=np.arange(210).reshape(SIZE) == 3),
            {"null": 1},
            ValueError,
            "null: 1, which is to stand for what is masked, is a value of others too",
        ),
    ],
)
def test_what_is_no_scalar_is_refused_by_name(given, options, error, text):
    with pytest.raises(error) as caught:
        sk.uniform(SIZE).isosurface(given, **{"level": 0.5, **options})
    assert text in str(caught.value)


@pytest.mark.parametrize("name, mesh", surfaces(), ids=ids(surfaces()))
def test_lines_of_flat_meshes_join_into_rings(name, mesh):
    x, y = mesh.points[:, 0], mesh.points[:, [1, 2][name == "layer"]]
    values = (x - 0.5) ** 2 + (y - 0.5) ** 2
    lines = mesh.isoline(values, 0.1)
    assert len(lines.lines) > 10 and np.array_equal(lines.lines, mesh.isosurface(values, 0.1).lines)
    chains = lines.chains()
    assert len(chains) == 1 and chains[0][0] == chains[0][-1]
    assert len(chains[0]) == len(lines.lines) + 1
    assert np.allclose(lines.carry(values), 0.1)
    open_ = mesh.isoline(x, 0.3).chains()
    assert len(open_) == 1 and open_[0][0] != open_[0][-1]


def test_chains_lose_no_line_where_many_meet():
    lines = np.array([[0, 1], [1, 2], [1, 3], [3, 4], [4, 1], [5, 6], [6, 5]])
    chains = sk.join_lines(lines)
    found = sorted(tuple(sorted(pair)) for chain in chains for pair in zip(chain[:-1], chain[1:]))
    assert found == sorted(tuple(sorted(pair)) for pair in lines.tolist())
    ordered = sk.join_lines([[2, 3], [0, 1], [1, 2]], library=True)
    assert sorted(map(tuple, np.sort(ordered, axis=1).tolist())) == [(0, 1), (1, 2), (2, 3)]
    with pytest.raises(IndexError, match="lines: "):
        sk.join_lines([[0, 5]], 3)
    assert sk.join_lines(np.empty((0, 2), int)) == []


def test_a_closed_surface_is_closed():
    mesh = sk.uniform((20, 20, 20), 2 / 19, (-1, -1, -1))
    r = np.linalg.norm(mesh.points, axis=1)
    surface = mesh.isosurface(r, 0.6)
    assert closed(surface.triangles)
    assert area(surface.to_mesh()) == pytest.approx(4 * np.pi * 0.36, rel=0.01)


def test_seeds_lead_to_the_same_surface():
    mesh = sk.uniform((12, 12, 12), 2 / 11, (-1, -1, -1))
    values = np.linalg.norm(mesh.points, axis=1)
    level, piece = mesh.trace_isosurface(values, (0.55, 0.1, 0.05))
    assert 0.4 < level < 0.7 and len(piece.triangles) > 4
    assert np.allclose(piece.carry(values), level, atol=1e-6)
    flat = sk.uniform((12, 12), 2 / 11, (-1, -1))
    rings = np.linalg.norm(flat.points, axis=1)
    level, ring = flat.trace_isoline(rings, (0.5, 0.1))
    assert np.allclose(ring.carry(rings), level, atol=1e-6) and len(ring.lines) > 8
    for call in (
        lambda: mesh.trace_isosurface(values, (5, 5, 5)),
        lambda: flat.trace_isosurface(rings, (0, 0)),
        lambda: mesh.to_cells().trace_isosurface(values, (0, 0, 0)),
    ):
        with pytest.raises(ValueError):
            call()


class _Libraries:
    """The library and the host, called directly."""

    def __init__(self):
        build = os.environ["SKOKLANA_BUILD"]
        self.host = ctypes.CDLL(os.path.join(build, "host", "libskoklana_host.so"), ctypes.RTLD_GLOBAL)
        self.lib = ctypes.CDLL(os.path.join(build, "libskoklana.so"), ctypes.RTLD_GLOBAL)
        self.host.host_uniform.restype = self.host.host_mesh.restype = ctypes.c_void_p


@pytest.mark.skipif("SKOKLANA_BUILD" not in os.environ, reason="needs the built libraries")
def test_the_lists_are_the_librarys_own():
    libs = _Libraries()
    dims = (ctypes.c_int64 * 3)(*SIZE[::-1])
    corners = (ctypes.c_float * 6)(0, 0, 0, *(0.2 * np.float32(n - 1) for n in SIZE[::-1]))
    field = libs.host.host_uniform(3, dims, 3, corners)
    record = ctypes.c_void_p(libs.host.host_mesh(ctypes.c_void_p(field)))
    mesh = sk.uniform(SIZE, 0.2)
    values = bumpy(mesh.points).astype(np.float32)
    n, nline, nlc, ntri, ntc = (ctypes.c_int64() for _ in range(5))
    low, high, lines, triangles = (ctypes.POINTER(ctypes.c_int64)() for _ in range(4))
    data = values.ctypes.data_as(ctypes.c_void_p)
    by = ctypes.byref
    done = libs.lib.UTILisosurf(
        record, data, 4, 0, None, ctypes.c_double(0.3), by(n), by(low), by(high), by(nline), by(lines), by(nlc), by(ntri),
        by(triangles), by(ntc), None, None,
    )  # fmt: skip
    assert done == 1
    surface = mesh.isosurface(values, 0.3)
    assert np.array_equal(surface.triangles.ravel(), triangles[: 3 * ntri.value])
    assert np.array_equal(surface.first, low[: n.value]) and np.array_equal(surface.second, high[: n.value])
    gradient = np.zeros((mesh.nnodes, 3), np.float32)
    done = libs.lib.UTILgrad(record, data, 1, 4, 0, None, gradient.ctypes.data_as(ctypes.c_void_p))
    assert done == 1
    assert np.array_equal(mesh.gradient(values, library=True).reshape(-1, 3), gradient)
    libs.host.host_free_field(ctypes.c_void_p(field))
