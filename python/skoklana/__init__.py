"""skoklana: mesh and field algorithms for scientific visualisation, on numpy arrays.

::

    import numpy as np, skoklana as sk
    density = np.load("density.npy")                         # (nz, ny, nx), any of the seven types
    grid = sk.uniform(density.shape, spacing=(0.1, 0.1, 0.2))
    surface = grid.isosurface(density, 0.5)
    surface.points, surface.triangles                        # (n, 3) float32, (m, 3) int64
    surface.carry(temperature)                               # another field on the surface, without a second extraction

Meshes
    `uniform`, `rectilinear`, `curvilinear`, `cells`, `from_vtk`, `from_meshio` make a `Mesh`; its methods are the
    operations: levels (`Mesh.isosurface`, `Mesh.isoline`), parts (`Mesh.cut`, `Mesh.band`, `Mesh.slice`,
    `Mesh.threshold`, `Mesh.without_null`), points (`Mesh.locate`, `Mesh.sample`), operators (`Mesh.gradient`,
    `Mesh.curl`, `Mesh.divergence`, `Mesh.cell_to_node`, `Mesh.measure`), tracing (`Mesh.stream_lines`, `Mesh.glyphs`),
    boundary (`Mesh.boundary`, `Mesh.boundary_edges`, `Mesh.edges`), heights (`Mesh.reduce_heights`).
Results
    `Result`: points, cells by kind, and `Result.carry` for any array of the mesh.
Scattered points
    `delaunay`, `scatter`, `bins`.
Arrays
    `clamp`, `replace_outside`, `classify`, `take`, `component`, `stack`, `downsize`, `resample`, `filter1d`, `blend`,
    `project`; `polyfit`, `polyval`, `solve`, `quadratic`.
Charts
    `smith_chart`, `sort_outline`, `join_outlines`.
Exchange
    `from_vtk`, `to_vtk`, `from_meshio`, `to_meshio`, `save`. VTK and meshio are imported when these are called.

Conventions
-----------
Order of axes
    Shapes and indices are in numpy's order, z, y, x: ``density[k, j, i]`` is the node at place i along x. What lives in
    space goes by x, y, z: the columns of points, the components of vectors, ``spacing``, ``origin``, ``normal``. Node data
    has the shape of the mesh or is a list of nodes in the order of ``density.ravel()``; components stand behind. Cells of
    a lattice are numbered in the same order.
Order of nodes in a cell
    VTK's, in what is given and in what comes out. Solid cells whose nodes turn the other way are turned round, so that
    surfaces of all cells agree on their sides: VTK's texts and its shape functions disagree on wedges, and data sets
    follow either. meshio has the wedges of the latter.
Types
    Data: int8, uint8, int16, int32, int64, float32, float64; bool counts as uint8. Others raise TypeError. Coordinates
    are float32.
Copies
    A mesh borrows its arrays and keeps them alive; operations read data where it stands. Copied are: arrays that are not
    contiguous or in another byte order; coordinates that are not float32 and node numbers that are not int64; rows of
    solid cells, which are put into the library's order of nodes; masked arrays whose masked elements don't hold their
    fill_value already. What comes out owns the library's memory, which goes with the last array that shows it.
Null
    ``null=`` names a value that stands for none. A masked array brings its own: its fill_value, or another one where that is
    a value of others or not of the type. Results without a value are NaN in floats and masked in integers, or ``fill=``; what was masked comes back
    masked.
Right numbers
    Samples, derivatives, measures and carried data are worked out exactly, to the precision of coordinates. Where the
    library itself has another, faster or traditional way, ``library=True`` gives that.
Errors
    TypeError, ValueError and IndexError name the argument. MemoryError is one that can be caught. Ctrl-C ends an
    operation within a tenth of a second, wherever the library looks for it, and raises KeyboardInterrupt; so does what
    ``progress=`` raises.
Threads
    The interpreter's lock is released while the library works. Operations on one mesh take turns; those on different
    meshes run side by side. ``threads=`` is for levels, cuts, slices, points, stream lines and scattered values: what comes
    out is the same for any number. More than one spreading scattered values, or extracting from a structured mesh, can't
    be stopped before their end.
"""

from ._arrays import (
    blend,
    clamp,
    classify,
    component,
    downsize,
    filter1d,
    polyfit,
    polyval,
    project,
    quadratic,
    replace_outside,
    resample,
    solve,
    stack,
    take,
)
from ._chart import SmithChart, join_outlines, smith_chart, sort_outline
from ._interchange import from_meshio, from_vtk, save, to_meshio, to_vtk
from ._lines import Glyphs, Ribbons, StreamLines, arrow
from ._mesh import Measured, Measures, Mesh, Places, PlaneGrid, Terrain, cells, curvilinear, rectilinear, uniform
from ._result import Result, join_lines
from ._scatter import bins, delaunay, scatter

__version__ = "0.1.0"

__all__ = [
    "Glyphs", "Measured", "Measures", "Mesh", "Places", "PlaneGrid", "Result", "Ribbons", "SmithChart", "StreamLines",
    "Terrain", "arrow", "bins", "blend", "cells", "clamp", "classify", "component", "curvilinear", "delaunay", "downsize", "filter1d", "from_meshio",
    "from_vtk", "join_lines", "join_outlines", "polyfit", "polyval", "project", "quadratic", "rectilinear", "replace_outside", "resample",
    "save", "scatter", "smith_chart", "solve", "sort_outline", "stack", "take", "to_meshio", "to_vtk", "uniform",
]  # fmt: skip
