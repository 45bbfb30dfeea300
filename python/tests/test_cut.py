"""Cuts, bands, slices, thresholds and removal of null nodes on every kind of mesh."""

import numpy as np
import pytest
import skoklana as sk
from support import SIZE, TYPES, area, bumpy, ids, linear, solids, surfaces, volume


@pytest.mark.parametrize("name, mesh", solids(), ids=ids(solids()))
def test_the_two_sides_of_a_linear_cut_are_the_mesh(name, mesh):
    values = linear(mesh.points)
    above, below = mesh.cut(values, 0.7), mesh.cut(values, 0.7, "below")
    rel = 1e-5 if mesh.kind == "uniform" or "tetra" in name else 2e-3  # bent cells have bent sides
    assert volume(above.to_mesh()) + volume(below.to_mesh()) == pytest.approx(volume(mesh), rel=rel)
    assert above.carry(values).min() > 0.7 - 1e-5 and below.carry(values).max() < 0.7 + 1e-5
    for part in (above, below):
        used = np.unique(np.concatenate([rows.ravel() for rows in part.cells.values()]))
        assert np.array_equal(used, np.arange(part.nnodes))
        assert np.array_equal(part.carry_cells(np.arange(mesh.ncells)), part.cell_numbers)
        assert np.allclose(part.carry(mesh.points.astype(np.float64)), part.points, atol=1e-5)
    middles = np.concatenate([above.points[rows].mean(axis=1) for rows in above.cells.values()])
    assert (mesh.locate(middles).cells == above.cell_numbers).mean() > 0.95


@pytest.mark.parametrize("name, mesh", surfaces(), ids=ids(surfaces()))
def test_flat_meshes_are_cut_and_banded(name, mesh):
    values = mesh.points[:, 0] + 0.5 * mesh.points[:, [1, 2][name == "layer"]]
    sides = [area(mesh.cut(values, 0.6, keep).to_mesh()) for keep in ("above", "below")]
    assert sum(sides) == pytest.approx(1, rel=1e-5) and min(sides) > 0.1
    bands = mesh.bands(values, [-1, 0.3, 0.6, 2], lines=True)
    assert sum(area(band.to_mesh()) for band in bands) == pytest.approx(1, rel=1e-5)
    assert len(bands[1].lines) > 0
    assert len(mesh.band(values, 0.3, 0.6).lines) == 0


@pytest.mark.parametrize("name, mesh", solids(), ids=ids(solids()))
def test_bands_fill_the_mesh(name, mesh):
    values = linear(mesh.points)
    bands = mesh.bands(values, [-10, 0.2, 0.4, 1.1, 10])
    rel = 1e-4 if mesh.kind == "uniform" or "tetra" in name else 3e-3
    assert sum(volume(band.to_mesh()) for band in bands) == pytest.approx(volume(mesh), rel=rel)
    band = mesh.band(values, 0.2, 0.4)
    carried = band.carry(values)
    assert carried.min() > 0.2 - 1e-5 and carried.max() < 0.4 + 1e-5
    assert np.allclose(band.carry(mesh.points.astype(np.float64)), band.points, atol=1e-5)
    assert band.cell_numbers is None
    with pytest.raises(ValueError, match="carry_cells: "):
        band.carry_cells(np.zeros(mesh.ncells))


@pytest.mark.parametrize("dtype", TYPES)
def test_bands_of_any_type_take_levels_beyond_it(dtype):
    mesh = sk.uniform(SIZE, 0.2)
    values = np.rint(60 + 25 * bumpy(mesh.points)).astype(dtype)
    whole = mesh.band(values, -1e30, np.inf)
    assert whole.ncells == mesh.ncells and whole.cells.keys() == {"hexahedron"}
    part = mesh.band(values, 50.5, 70.5)
    exact = mesh.band(values.astype(np.float64), 50.5, 70.5)
    assert volume(part.to_mesh()) == pytest.approx(volume(exact.to_mesh()), rel=1e-6)
    assert 0 < volume(part.to_mesh()) < volume(mesh)


def test_the_librarys_cut_keeps_nodes_that_no_cell_has():
    mesh = sk.uniform(SIZE)
    values = mesh.points[:, 0]
    assert mesh.cut(values, 2, "below", library=True).nnodes > mesh.cut(values, 2, "below").nnodes


@pytest.mark.parametrize("name, mesh", solids(), ids=ids(solids()))
def test_slices_lie_in_the_plane_and_have_its_area(name, mesh):
    middle = mesh.points.mean(axis=0)
    normal = np.array([1.0, 2.0, 3.0])
    plane = mesh.slice(middle, normal)
    assert np.abs((plane.points - middle) @ normal).max() < 1e-5
    assert len(plane.triangles) > 10 and len(plane.cell_numbers) == len(plane.triangles)
    if name == "uniform":
        assert area(mesh.slice((0.5, 0, 0), (2, 0, 0)).to_mesh()) == pytest.approx(1, rel=1e-5)  # through nodes
        assert area(mesh.slice((0.3, 0, 0), (1, 0, 0)).to_mesh()) == pytest.approx(1, rel=1e-5)
        assert area(mesh.slice((0, 0, 0), (1, 0, 0)).to_mesh()) == pytest.approx(1, rel=1e-5)  # the rim
        assert area(mesh.slice((1, 0, 0), (1, 0, 0)).to_mesh()) == pytest.approx(1, rel=1e-5)
    assert mesh.slice((9, 9, 9), normal).ncells == 0


def test_flat_meshes_are_sliced_into_lines():
    for name, mesh in surfaces():
        if name != "layer":
            assert len(mesh.slice((0.4, 0, 0), (1, 0)).lines) > 3, name


def test_the_librarys_slice_is_a_grid():
    mesh = sk.uniform(SIZE, (1, 1, 1))
    values = linear(mesh.points).reshape(SIZE)
    grid = mesh.plane_grid((0, 0, 1), 1.25)
    assert grid.low.shape == SIZE[1:] and grid.valid.all()
    assert np.allclose(grid.carry(values), 0.75 * values[1] + 0.25 * values[2])
    assert not mesh.plane_grid((0, 0, 1), 99).valid.any()
    with pytest.raises(ValueError, match="uniform and rectilinear"):
        mesh.to_cells().plane_grid((0, 0, 1), 0)


@pytest.mark.parametrize("name, mesh", solids() + surfaces(), ids=ids(solids() + surfaces()))
def test_thresholds_keep_whole_cells(name, mesh):
    values = bumpy(mesh.points)
    all_, any_ = mesh.threshold(values, -0.5, 1.2), mesh.threshold(values, -0.5, 1.2, any=True)
    rows = np.concatenate([r for r in mesh.cells.values()]) if len(mesh.cells) == 1 else None
    if rows is not None:
        inside = (values >= -0.5) & (values <= 1.2)
        assert np.array_equal(all_.cell_numbers, np.flatnonzero(inside[rows].all(axis=1)))
        assert np.array_equal(any_.cell_numbers, np.flatnonzero(inside[rows].any(axis=1)))
        kept = np.concatenate(list(all_.cells.values()))
        assert all_.old_nodes[kept].shape[1] == rows.shape[1]
        if mesh.kind == "cells":
            assert np.array_equal(all_.old_nodes[kept], rows[all_.cell_numbers])
        else:
            assert np.array_equal(np.sort(all_.old_nodes[kept]), np.sort(rows[all_.cell_numbers]))
    assert 0 < all_.ncells < any_.ncells <= mesh.ncells
    assert np.array_equal(all_.points, mesh.points[all_.old_nodes])
    by_cell = mesh.threshold(np.arange(mesh.ncells), 3, 7, "cells")
    assert by_cell.cell_numbers.tolist() == [3, 4, 5, 6, 7]
    whole = mesh.threshold(values)
    assert whole.ncells == mesh.ncells


@pytest.mark.parametrize("name, mesh", solids(), ids=ids(solids()))
def test_kept_cells_have_the_volume_that_they_had(name, mesh):
    part = mesh.threshold(bumpy(mesh.points), 0.2, any=True)
    each = mesh.threshold(np.arange(mesh.ncells), where="cells")
    assert volume(each.to_mesh()) == pytest.approx(volume(mesh), rel=1e-5)
    assert volume(part.to_mesh()) < volume(mesh)


@pytest.mark.parametrize("name, mesh", solids(), ids=ids(solids()))
def test_null_nodes_go_with_their_cells(name, mesh):
    values = np.ma.masked_greater(bumpy(mesh.points), 0.9)
    part = mesh.without_null(values)
    assert np.array_equal(part.old_nodes, np.flatnonzero(~values.mask))
    same = mesh.threshold(bumpy(mesh.points), high=0.9)
    assert np.array_equal(part.cell_numbers, same.cell_numbers)
    assert volume(part.to_mesh()) == pytest.approx(volume(same.to_mesh()), rel=1e-6)
    assert mesh.without_null(np.ma.MaskedArray(values.data, mask=False)).ncells == mesh.ncells
    with pytest.raises(ValueError, match="null: is needed"):
        mesh.without_null(values.data)


@pytest.mark.parametrize(
    "call, text",
    [
        (lambda m, v: m.cut(v, 0.5, "left"), "keep: is 'left'"),
        (lambda m, v: m.bands(v, [1]), "levels: must be two or more"),
        (lambda m, v: m.bands(v, [1, 0]), "levels: must be two or more, ascending"),
        (lambda m, v: m.slice((0, 0, 0), (0, 0, 0)), "normal: has no direction"),
        (lambda m, v: m.slice((0, np.nan, 0), (0, 0, 1)), "origin: is not one to 3 finite numbers"),
        (lambda m, v: m.threshold(v, 0, 1, "faces"), "where: is 'faces'"),
        (lambda m, v: sk.uniform(5).cut(np.zeros(5), 0), "mesh of one axis"),
        (lambda m, v: sk.uniform(5).band(np.zeros(5), 0, 1), "meshes of one axis"),
    ],
)
def test_what_has_no_part_is_refused_by_name(call, text):
    mesh = sk.uniform(SIZE)
    with pytest.raises(ValueError) as caught:
        call(mesh, np.zeros(SIZE))
    assert text in str(caught.value)


def test_null_is_carried_as_nan_or_mask():
    mesh = sk.uniform(SIZE, 0.2)
    values = bumpy(mesh.points)
    surface = mesh.isosurface(values, 0.3)
    holed = values.copy()
    holed[surface.first[0]] = -999
    carried = surface.carry(holed, null=-999)
    hit = (surface.first == surface.first[0]) | (surface.second == surface.first[0])
    assert np.array_equal(np.isnan(carried), hit)
    assert surface.carry(holed, null=-999, fill=5)[0] == 5
    numbers = np.rint(100 * holed).astype(np.int32)
    masked = surface.carry(numbers, null=numbers.min())
    assert isinstance(masked, np.ma.MaskedArray) and np.array_equal(masked.mask, hit)
    assert not isinstance(surface.carry(numbers), np.ma.MaskedArray)
    rows = np.ma.masked_equal(np.stack([holed, values], axis=1), -999)
    both = surface.carry(rows)
    assert both.shape == (surface.nnodes, 2) and np.array_equal(both.mask.all(axis=1), hit)
    single = surface.carry(values.astype(np.float32), library=True)
    assert np.allclose(single, 0.3, atol=1e-6)
    with pytest.raises(ValueError, match="values: has the shape"):
        surface.carry(np.zeros(7))
