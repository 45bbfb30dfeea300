"""What a user does from Python, here and with other packages: arrays in, arrays out, in the same run.

Each contender is checked against the others before anything is timed. Then they take turns; the table has the least time
of each. One thread, VTK with its sequential backend; times are the processor's.
"""

import argparse
import importlib.util
import time

import numpy as np
import skoklana as sk


def has(name):
    return importlib.util.find_spec(name) is not None


HAS_VTK, HAS_SKIMAGE, HAS_SCIPY = has("vtkmodules"), has("skimage"), has("scipy")


def wave(n):
    """Marschner and Lobb's test signal on a cube of n nodes a side, from 0 to 1."""
    t = np.linspace(-1, 1, n, dtype=np.float32)
    z, y, x = np.meshgrid(t, t, t, indexing="ij", sparse=True)
    rings = np.cos(12 * np.pi * np.cos(np.pi * np.sqrt(x * x + y * y) / 2))
    return np.ascontiguousarray((1 - np.sin(np.pi * z / 2) + 0.25 * (1 + rings)) / 2.5, dtype=np.float32)


def whirl(n):
    """A field that turns about a slanted axis."""
    t = np.linspace(-1, 1, n, dtype=np.float32)
    z, y, x = np.meshgrid(t, t, t, indexing="ij")
    return np.cross(np.array([0.3, 0.2, 1.0], np.float32), np.stack([x, y, z], axis=-1)).astype(np.float32)


# ---- VTK, as its own examples do it ------------------------------------------------------------------------------------


def vtk_image(n, values, name="v", vectors=False):
    from vtkmodules.util.numpy_support import numpy_to_vtk
    from vtkmodules.vtkCommonDataModel import vtkImageData

    image = vtkImageData()
    image.SetDimensions(n, n, n)
    image.SetOrigin(-1, -1, -1)
    image.SetSpacing(*[2 / (n - 1)] * 3)
    array = numpy_to_vtk(values.reshape(-1, 3) if vectors else values.ravel())
    array.SetName(name)
    attributes = image.GetPointData()
    if vectors:
        attributes.SetVectors(array)
    else:
        attributes.SetScalars(array)
    return image


def vtk_surface(n, values, level):
    from vtkmodules.util.numpy_support import vtk_to_numpy
    from vtkmodules.vtkFiltersCore import vtkFlyingEdges3D

    contour = vtkFlyingEdges3D()
    contour.SetInputData(vtk_image(n, values))
    contour.ComputeNormalsOff()
    contour.SetValue(0, level)
    contour.Update()
    out = contour.GetOutput()
    return vtk_to_numpy(out.GetPoints().GetData()), vtk_to_numpy(out.GetPolys().GetConnectivityArray()).reshape(-1, 3)


def vtk_probe(n, values, points):
    from vtkmodules.util.numpy_support import numpy_to_vtk, vtk_to_numpy
    from vtkmodules.vtkCommonCore import vtkPoints
    from vtkmodules.vtkCommonDataModel import vtkPolyData
    from vtkmodules.vtkFiltersCore import vtkProbeFilter

    at, where = vtkPolyData(), vtkPoints()
    where.SetData(numpy_to_vtk(points))
    at.SetPoints(where)
    probe = vtkProbeFilter()
    probe.SetSourceData(vtk_image(n, values))
    probe.SetInputData(at)
    probe.Update()
    return vtk_to_numpy(probe.GetOutput().GetPointData().GetArray("v"))


def vtk_cut(n, values, level):
    from vtkmodules.util.numpy_support import vtk_to_numpy
    from vtkmodules.vtkFiltersGeneral import vtkClipDataSet

    clip = vtkClipDataSet()
    clip.SetInputData(vtk_image(n, values))
    clip.SetValue(level)
    clip.Update()
    out = clip.GetOutput()
    return vtk_to_numpy(out.GetPoints().GetData()), vtk_to_numpy(out.GetCells().GetConnectivityArray()), out


def vtk_gradient(n, values):
    from vtkmodules.util.numpy_support import vtk_to_numpy
    from vtkmodules.vtkFiltersGeneral import vtkGradientFilter

    derive = vtkGradientFilter()
    derive.SetInputData(vtk_image(n, values))
    derive.SetInputScalars(0, "v")
    derive.SetResultArrayName("g")
    derive.Update()
    return vtk_to_numpy(derive.GetOutput().GetPointData().GetArray("g"))


def vtk_lines(n, vectors, seeds, steps):
    from vtkmodules.util.numpy_support import numpy_to_vtk, vtk_to_numpy
    from vtkmodules.vtkCommonCore import vtkPoints
    from vtkmodules.vtkCommonDataModel import vtkPolyData
    from vtkmodules.vtkFiltersFlowPaths import vtkStreamTracer

    at, where = vtkPolyData(), vtkPoints()
    where.SetData(numpy_to_vtk(seeds))
    at.SetPoints(where)
    tracer = vtkStreamTracer()
    tracer.SetInputData(vtk_image(n, vectors, vectors=True))
    tracer.SetSourceData(at)
    tracer.SetIntegratorTypeToRungeKutta4()
    tracer.SetIntegrationStepUnit(2)  # of a cell
    tracer.SetInitialIntegrationStep(0.35)
    tracer.SetMaximumPropagation(1e9)
    tracer.SetMaximumNumberOfSteps(steps)
    tracer.SetComputeVorticity(False)
    tracer.Update()
    return vtk_to_numpy(tracer.GetOutput().GetPoints().GetData())


def vtk_delaunay(points):
    from vtkmodules.util.numpy_support import numpy_to_vtk, vtk_to_numpy
    from vtkmodules.vtkCommonCore import vtkPoints
    from vtkmodules.vtkCommonDataModel import vtkPolyData
    from vtkmodules.vtkFiltersCore import vtkDelaunay2D

    at, where = vtkPolyData(), vtkPoints()
    where.SetData(numpy_to_vtk(np.column_stack([points, np.zeros(len(points), np.float32)])))
    at.SetPoints(where)
    tesselate = vtkDelaunay2D()
    tesselate.SetInputData(at)
    tesselate.Update()
    return vtk_to_numpy(tesselate.GetOutput().GetPolys().GetConnectivityArray()).reshape(-1, 3)


# ---- cases -----------------------------------------------------------------------------------------------------------------


def check(what, close):
    if not close:
        raise SystemExit(f"{what}: the contenders do not agree")


def isosurface(quick):
    n = 128 if quick else 256
    values = wave(n)

    def ours():
        grid = sk.uniform(values.shape, 2 / (n - 1), (-1, -1, -1))
        surface = grid.isosurface(values, 0.5, cells=False)
        return surface.points, surface.triangles

    peers = {}
    if HAS_VTK:
        peers["VTK flying edges"] = lambda: vtk_surface(n, values, 0.5)
    if HAS_SKIMAGE:
        from skimage.measure import marching_cubes

        peers["scikit-image marching cubes"] = lambda: marching_cubes(values, 0.5, spacing=[2 / (n - 1)] * 3)[:2]

    def agree(mine, other):
        return abs(len(mine[1]) / len(other[1]) - 1) < 0.02 and abs(len(mine[0]) / len(other[0]) - 1) < 0.02

    return f"isosurface of {n}^3 floats", ours, peers, agree


def probe(quick):
    n, count = 128, 100_000 if quick else 1_000_000
    values = wave(n)
    points = np.random.default_rng(1).uniform(-0.99, 0.99, (count, 3)).astype(np.float32)

    def ours():
        return sk.uniform(values.shape, 2 / (n - 1), (-1, -1, -1)).sample(values, points)

    peers = {}
    if HAS_VTK:
        peers["VTK probe"] = lambda: vtk_probe(n, values, points)
    if HAS_SCIPY:
        from scipy.ndimage import map_coordinates

        def interpolate():
            at = (points[:, ::-1].T.astype(np.float64) + 1) * ((n - 1) / 2)
            return map_coordinates(values, at, order=1)

        peers["scipy map_coordinates"] = interpolate
    return f"{count} points sampled in {n}^3 floats", ours, peers, lambda a, b: np.abs(a - b).max() < 1e-3


def cut(quick):
    n = 64 if quick else 128
    values = wave(n)

    def ours():
        part = sk.uniform(values.shape, 2 / (n - 1), (-1, -1, -1)).cut(values, 0.5)
        return part.points, part.cells, part

    peers = {"VTK clip": lambda: vtk_cut(n, values, 0.5)} if HAS_VTK else {}

    def agree(mine, other):  # pieces differ, what they fill does not
        filled = [mesh.measure().volume.measure for mesh in (mine[2].to_mesh(), sk.from_vtk(other[2])[0])]
        return abs(filled[0] / filled[1] - 1) < 0.02

    return f"cut of {n}^3 floats", ours, peers, agree


def gradient(quick):
    n = 128 if quick else 256
    values = wave(n)
    h = 2 / (n - 1)

    def ours():
        return sk.uniform(values.shape, h, (-1, -1, -1)).gradient(values)

    peers = {"numpy gradient": lambda: np.stack(np.gradient(values, h)[::-1], axis=-1)}
    if HAS_VTK:
        peers["VTK gradient"] = lambda: vtk_gradient(n, values)
    inner = (slice(1, -1),) * 3

    def agree(a, b):
        return np.abs(a[inner] - b.reshape(a.shape)[inner]).max() < 0.05

    return f"gradient of {n}^3 floats", ours, peers, agree


def stream_lines(quick):
    n, count, steps = 64, 100 if quick else 1000, 500
    vectors = whirl(n)
    seeds = np.random.default_rng(2).uniform(-0.4, 0.4, (count, 3)).astype(np.float32)

    def ours():
        grid = sk.uniform((n, n, n), 2 / (n - 1), (-1, -1, -1))
        return grid.stream_lines(vectors, seeds, steps_per_cell=2, max_nodes=steps).points

    peers = {"VTK stream tracer": lambda: vtk_lines(n, vectors, seeds, steps)} if HAS_VTK else {}
    return f"{count} stream lines of {steps} steps", ours, peers, lambda a, b: abs(len(a) / len(b) - 1) < 0.05


def tesselation(quick):
    count = 20_000 if quick else 200_000
    points = np.random.default_rng(3).random((count, 2)).astype(np.float32)

    def ours():
        return sk.delaunay(points)

    peers = {}
    if HAS_SCIPY:
        from scipy.spatial import Delaunay

        peers["scipy Delaunay"] = lambda: Delaunay(points.astype(np.float64)).simplices
    if HAS_VTK and quick:  # minutes otherwise
        peers["VTK Delaunay 2-D"] = lambda: vtk_delaunay(points)

    def covered(rows):
        p = points[rows].astype(np.float64)
        return np.abs(np.cross(p[:, 1] - p[:, 0], p[:, 2] - p[:, 0])).sum() / 2

    # VTK leaves thin triangles at the rim out.
    return f"triangles of {count} points", ours, peers, lambda a, b: abs(covered(a) / covered(b) - 1) < 0.005


def scattered(quick):
    count, n = 20_000 if quick else 200_000, 512
    random = np.random.default_rng(4)
    points = random.random((count, 2)).astype(np.float32)
    values = (points[:, 0] + 2 * points[:, 1]).astype(np.float32)

    def ours():
        return sk.scatter(points, values, (n, n), box=[[0, 0], [1, 1]])

    peers = {}
    if HAS_SCIPY:
        from scipy.interpolate import griddata

        y, x = np.meshgrid(np.linspace(0, 1, n), np.linspace(0, 1, n), indexing="ij")
        peers["scipy griddata, linear"] = lambda: griddata(points, values, (x, y), method="linear")
    return (
        f"{count} scattered values on {n}^2 nodes",
        ours,
        peers,
        lambda a, b: np.nanmean(np.abs(a - b)) < 0.02,
    )


def overhead(quick):
    values = np.arange(8.0).reshape(2, 2, 2)
    grid = sk.uniform((2, 2, 2))

    def ours():
        for _ in range(1000):
            surface = grid.isosurface(values, 3.5)
        return surface.triangles

    return "1000 isosurfaces of 2^3 doubles", ours, {}, lambda a, b: True


CASES = (isosurface, probe, cut, gradient, stream_lines, tesselation, scattered, overhead)


def measure(contenders, repeats):
    least = [float("inf")] * len(contenders)
    for _ in range(repeats):
        for i, run in enumerate(contenders):
            begin = time.process_time()
            made = run()
            least[i] = min(least[i], time.process_time() - begin)
            del made
    return least


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--quick", action="store_true")
    parser.add_argument("--only", default="")
    parser.add_argument("--repeats", type=int, default=5)
    parser.add_argument("--commit", default="")
    options = parser.parse_args()
    if HAS_VTK:
        from vtkmodules import vtkCommonCore

        vtkCommonCore.vtkSMPTools.SetBackend("Sequential")
    missing = [name for name, there in (("VTK", HAS_VTK), ("scikit-image", HAS_SKIMAGE), ("scipy", HAS_SCIPY)) if not there]
    print(f"From Python, one thread, least of {options.repeats}; commit {options.commit}")
    if missing:
        print(f"Not installed: {', '.join(missing)}")
    print("\n| operation | ours ms | peer | peer ms | peer / ours |\n|---|---|---|---|---|", flush=True)
    for case in CASES:
        name, ours, peers, agree = case(options.quick)
        if options.only not in name:
            continue
        mine = ours()
        for peer, run in peers.items():
            check(f"{name}, {peer}", agree(mine, run()))
        del mine
        times = measure([ours, *peers.values()], options.repeats)
        if not peers:
            print(f"| {name} | {times[0] * 1e3:.2f} | | | |", flush=True)
        for peer, other in zip(peers, times[1:]):
            print(f"| {name} | {times[0] * 1e3:.2f} | {peer} | {other * 1e3:.2f} | {other / times[0]:.2f} |", flush=True)


if __name__ == "__main__":
    main()
