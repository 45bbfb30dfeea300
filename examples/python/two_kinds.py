"""A mesh of prisms under a mesh of hexahedra, sampled, sliced and given to cell data."""

import numpy as np
import skoklana as sk

grid = sk.uniform((5, 4, 4))
points, cells = np.array(grid.points), grid.cells["hexahedron"]
lower, upper = cells[:18], cells[18:]
prisms = np.concatenate([lower[:, [0, 1, 2, 4, 5, 6]], lower[:, [0, 2, 3, 4, 6, 7]]])
mesh = sk.cells(points, {"wedge": prisms, "hexahedron": upper})
print(mesh)

layer = np.concatenate([np.zeros(len(prisms)), np.ones(len(upper))])
print("kind at two places:", mesh.sample_cells(layer, [[1.5, 1.5, 0.5], [1.5, 1.5, 3.5]]).tolist())
print("at the nodes between:", mesh.cell_to_node(layer).reshape(grid.shape)[2, 1, 1].round(3))

plane = mesh.slice(origin=(1.5, 1.5, 2), normal=(1, 0, 1))
height = plane.carry(points[:, 2])
print(f"{plane}, from z = {height.min():.2f} to {height.max():.2f}")
print("of prisms:", int((plane.carry_cells(layer) == 0).sum()), "triangles")
print("skin:", mesh.boundary())
