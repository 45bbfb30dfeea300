"""Meshes for the tests: one box as every kind of mesh, and functions on it."""

import numpy as np
import skoklana as sk

TYPES = [np.int8, np.uint8, np.int16, np.int32, np.int64, np.float32, np.float64]
SIZE = (5, 6, 7)  # nodes along z, y, x


def axes(stretched=False):
    made = []
    for n in SIZE[::-1]:
        t = np.linspace(0, 1, n)
        made.append((t + 0.1 * np.sin(3 * t) if stretched else t).astype(np.float32))
    return made


def lattice_points(bent=False):
    x, y, z = axes(bent)
    points = np.stack(np.meshgrid(z, y, x, indexing="ij")[::-1], axis=-1)
    if bent:
        points = points + 0.05 * np.sin(4 * points[..., [1, 2, 0]])
    return np.ascontiguousarray(points, np.float32)


def hexahedra():
    return sk.uniform(SIZE).cells["hexahedron"]


def split(kind):
    """The lattice's cells cut into another kind, in VTK's order, without new nodes."""
    h = hexahedra()
    if kind == "hexahedron":
        return h
    if kind == "wedge":
        return np.concatenate([h[:, [0, 1, 2, 4, 5, 6]], h[:, [0, 2, 3, 4, 6, 7]]])
    if kind == "tetra":
        six = [(0, 1, 2, 6), (0, 2, 3, 6), (0, 3, 7, 6), (0, 7, 4, 6), (0, 4, 5, 6), (0, 5, 1, 6)]
        return np.concatenate([h[:, list(t)] for t in six])
    if kind == "pyramid":  # to corner 6
        return np.concatenate([h[:, list(b) + [6]] for b in ((0, 1, 2, 3), (0, 3, 7, 4), (0, 4, 5, 1))])
    raise KeyError(kind)


def second_order(points, kind, rows):
    """The same cells with nodes in the middle of their edges."""
    edges = {
        "triangle": [(0, 1), (1, 2), (2, 0)],
        "quad": [(0, 1), (1, 2), (2, 3), (3, 0)],
        "tetra": [(0, 1), (1, 2), (2, 0), (0, 3), (1, 3), (2, 3)],
        "pyramid": [(0, 1), (1, 2), (2, 3), (3, 0), (0, 4), (1, 4), (2, 4), (3, 4)],
        "wedge": [(0, 1), (1, 2), (2, 0), (3, 4), (4, 5), (5, 3), (0, 3), (1, 4), (2, 5)],
        "hexahedron": [(0, 1), (1, 2), (2, 3), (3, 0), (4, 5), (5, 6), (6, 7), (7, 4), (0, 4), (1, 5), (2, 6), (3, 7)],
    }[kind]
    pairs = np.sort(np.stack([rows[:, list(e)] for e in edges], axis=1).reshape(-1, 2), axis=1)
    unique, which = np.unique(pairs, axis=0, return_inverse=True)
    middles = points[unique].astype(np.float64).mean(axis=1).astype(np.float32)
    name = {"triangle": "triangle6", "quad": "quad8", "tetra": "tetra10", "pyramid": "pyramid13", "wedge": "wedge15",
            "hexahedron": "hexahedron20"}[kind]
    more = len(points) + which.reshape(len(rows), len(edges))
    return np.concatenate([points, middles]), {name: np.concatenate([rows, more], axis=1)}


def solids(second=True):
    """(name, mesh) of the box as every kind of solid mesh."""
    x, y, z = axes(True)
    made = [
        ("uniform", sk.uniform(SIZE, [1 / (n - 1) for n in SIZE[::-1]])),
        ("rectilinear", sk.rectilinear(x, y, z)),
        ("curvilinear", sk.curvilinear(lattice_points(True))),
    ]
    points = lattice_points(True).reshape(-1, 3)
    for kind in ("hexahedron", "wedge", "tetra", "pyramid"):
        made.append((kind, sk.cells(points, {kind: split(kind)})))
        if second:
            made.append((kind + "2", sk.cells(*second_order(points, kind, split(kind)))))
    h = hexahedra()
    half = len(h) // 2
    tets = [(0, 1, 2, 6), (0, 2, 3, 6), (0, 3, 7, 6), (0, 7, 4, 6), (0, 4, 5, 6), (0, 5, 1, 6)]
    made.append(
        ("mixed", sk.cells(points, [("hex", h[:half]), ("tet", np.concatenate([h[half:, list(t)] for t in tets]))]))
    )
    return made


def surfaces():
    """(name, mesh) of the unit square as every kind of flat mesh."""
    shape = (6, 7)
    grid = sk.uniform(shape, (1 / 6, 1 / 5))
    points = np.array(grid.points)
    quads = grid.cells["quad"]
    triangles = np.concatenate([quads[:, [0, 1, 2]], quads[:, [0, 2, 3]]])
    space = np.concatenate([points, np.zeros((len(points), 1), np.float32)], axis=1)
    return [
        ("uniform", grid),
        ("rectilinear", sk.rectilinear(*(np.unique(points[:, d]) for d in (0, 1)))),
        ("curvilinear", sk.curvilinear(space.reshape(shape + (3,)))),
        ("layer", sk.uniform(shape[:1] + (1,) + shape[1:], (1 / 6, 1, 1 / 5))),
        ("triangle", sk.cells(space, {"triangle": triangles})),
        ("quad", sk.cells(points, {"quad": quads})),
        ("triangle6", sk.cells(*second_order(points, "triangle", triangles))),
        ("quad8", sk.cells(*second_order(points, "quad", quads))),
    ]


def ids(named):
    return [name for name, _ in named]


def linear(points):
    return 3 * points[..., 0] - 2 * points[..., 1] + (points[..., 2] if points.shape[-1] > 2 else 0)


def bumpy(points):
    p = np.zeros(points.shape[:-1] + (3,))
    p[..., : points.shape[-1]] = points
    return np.sin(5 * p[..., 0]) + np.cos(4 * p[..., 1] + 1) * np.sin(3 * p[..., 2] + 2) + 0.3 * p[..., 0] * p[..., 1]


def volume(mesh):
    return mesh.measure().volume.measure


def area(mesh):
    return mesh.measure().area.measure


def closed(triangles):
    """Whether each edge has two triangles, run through in opposite directions."""
    edges = np.concatenate([triangles[:, [0, 1]], triangles[:, [1, 2]], triangles[:, [2, 0]]])
    there = {tuple(e) for e in edges.tolist()}
    return len(there) == len(edges) and all((b, a) in there for a, b in there)
