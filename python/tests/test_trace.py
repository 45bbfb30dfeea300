"""Stream lines, ribbons and glyphs."""

import numpy as np
import pytest
import skoklana as sk
from support import SIZE, ids, solids


def whirl(points):
    p = points.astype(np.float64)
    return np.stack([-(p[:, 1] - 0.5), p[:, 0] - 0.5, np.full(len(p), 0.1)], axis=1)


@pytest.mark.parametrize("name, mesh", solids(False), ids=ids(solids(False)))
def test_lines_follow_the_field_on_every_mesh(name, mesh):
    seeds = [[0.7, 0.5, 0.2], [0.5, 0.6, 0.1], [99, 99, 99]]
    lines = mesh.stream_lines(whirl(mesh.points), seeds, steps_per_cell=4, max_nodes=200)
    assert len(lines) == 3 and len(lines[2]) == 0 and len(lines[0]) > 20
    radius = np.linalg.norm(lines[0][:, :2] - 0.5, axis=1)
    assert np.abs(radius - 0.2).max() < 0.01
    assert (np.diff(lines[0][:, 2]) > 0).all()
    assert np.allclose(lines.speeds, np.linalg.norm(lines.vectors, axis=1), rtol=1e-5)
    assert np.allclose(lines.vectors, whirl(lines.points), atol=0.02)
    assert lines.lines.shape == (sum(max(len(line) - 1, 0) for line in lines), 2)
    assert np.allclose(lines.carry(mesh.points), lines.points, atol=0.05)  # the last step may end outside
    back = mesh.stream_lines(whirl(mesh.points), seeds[:1], direction="backward", max_nodes=50)
    assert (np.diff(back[0][:, 2]) < 0).all() and (back.steps < 0).all()
    both = mesh.stream_lines(whirl(mesh.points), seeds[:1], direction="both", max_nodes=50)
    assert (np.diff(both[0][:, 2]) > 0).all() and len(both[0]) > len(back[0])
    assert (both[0] == np.float32(seeds[0])).all(axis=1).sum() == 1


def test_flat_fields_and_rest():
    mesh = sk.uniform((8, 9), 0.1)
    field = np.zeros((8, 9, 2), np.float32)
    field[..., 0] = 1
    lines = mesh.stream_lines(field, [[0.05, 0.35]])
    assert np.allclose(lines[0][:, 1], 0.35) and lines[0][-1, 0] > 0.7
    assert len(mesh.stream_lines(0 * field, [[0.1, 0.1]])[0]) <= 1
    assert len(mesh.stream_lines(field, [[0.1, 0.1]], min_speed=2)[0]) == 0
    with pytest.raises(IndexError):
        lines[1]


def test_ribbons_turn_with_the_field():
    mesh = sk.uniform((9, 9, 9), 1 / 8)
    lines = mesh.stream_lines(whirl(mesh.points), [[0.7, 0.5, 0.2], [9, 9, 9]], max_nodes=40)
    ribbons = lines.ribbons(0.05)
    n = len(lines.points)
    assert ribbons.made.tolist() == [True, False] and ribbons.points.shape == (2 * n, 3)
    assert len(ribbons.quads) == len(lines.lines)
    width = np.linalg.norm(ribbons.points[n:] - ribbons.points[:n], axis=1)
    assert width.min() > 0.01 and width.max() < 0.1
    fixed = lines.ribbons(0.05, fixed_width=True)
    assert np.allclose(np.linalg.norm(fixed.points[n:] - fixed.points[:n], axis=1)[1:], 0.05, atol=1e-3)
    both = mesh.stream_lines(whirl(mesh.points), [[0.7, 0.5, 0.2]], direction="both")
    with pytest.raises(ValueError, match="ribbons: "):
        both.ribbons(0.1)


@pytest.mark.parametrize("name, mesh", solids(False), ids=ids(solids(False)))
def test_glyphs_stand_at_the_nodes(name, mesh):
    vectors = np.tile(np.array([0.0, 2.0, 0.0], np.float32), (mesh.nnodes, 1))
    glyphs = mesh.glyphs(vectors, np.array([[0, 0, 0], [1, 0, 0]], np.float32), scale=0.5)
    assert glyphs.points.shape == (mesh.nnodes, 2, 3)
    assert np.allclose(glyphs.points[:, 0], mesh.points) and np.allclose(glyphs.values, 2)
    assert np.allclose(glyphs.points[:, 1] - glyphs.points[:, 0], [0, 1, 0], atol=1e-6)
    arrows = mesh.glyphs(vectors, scale_by=np.ones(mesh.nnodes, np.float32), colour_by=linear_rows(mesh))
    points, faces = sk.arrow()
    assert arrows.triangles.shape == (mesh.nnodes * len(faces), 3)
    assert arrows.triangles.max() == mesh.nnodes * len(points) - 1
    assert np.allclose(arrows.values[:, 0], linear_rows(mesh))
    surface = sk.cells(points, {"triangle": faces})
    assert surface.boundary().ncells == 0
    with pytest.raises(ValueError, match="triangles: "):
        glyphs.triangles


def linear_rows(mesh):
    return np.ascontiguousarray(mesh.points[:, 0])


@pytest.mark.parametrize(
    "call, error, text",
    [
        (lambda m, v: m.stream_lines(v[..., 0:0], [[0, 0, 0]]), ValueError, "vectors: has no components"),
        (lambda m, v: m.stream_lines(v, [[0, 0, 0]], direction="up"), ValueError, "direction: is 'up'"),
        (lambda m, v: m.stream_lines(v, [[0, 0, 0]], order=5), ValueError, "order: is 5"),
        (lambda m, v: m.stream_lines(v, [[0, 0, 0]], max_nodes=0), ValueError, "max_nodes"),
        (lambda m, v: m.stream_lines(v, "here"), TypeError, "seeds: has the type"),
        (lambda m, v: m.glyphs(v, np.zeros(3)), ValueError, "glyph: has the shape (3,)"),
        (lambda m, v: m.glyphs(v, scale_by=np.zeros(SIZE, np.int8)), TypeError, "scale_by: has the type int8"),
        (lambda m, v: m.glyphs(v, scale_axes=(1,)), ValueError, "scale_axes: "),
        (lambda m, v: sk.arrow(2), ValueError, "sides: is 2"),
    ],
)
def test_what_can_not_be_traced_is_refused_by_name(call, error, text):
    with pytest.raises(error) as caught:
        call(sk.uniform(SIZE), np.zeros(SIZE + (3,)))
    assert text in str(caught.value)
