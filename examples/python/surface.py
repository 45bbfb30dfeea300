"""A level surface, and another field on it."""

import numpy as np
import skoklana as sk

z, y, x = np.meshgrid(*[np.linspace(-1, 1, 41)] * 3, indexing="ij")
density = np.exp(-3 * (x**2 + y**2 + 2 * z**2)).astype(np.float32)
temperature = (20 + 5 * x).astype(np.float32)

grid = sk.uniform(density.shape, spacing=0.05, origin=(-1, -1, -1))
surface = grid.isosurface(density, 0.5)
on_surface = surface.carry(temperature)

print(surface)
print(f"inside: {grid.cut(density, 0.5).to_mesh().measure().volume.measure:.3f}")
print(f"area: {surface.to_mesh().measure().area.measure:.3f}")
print(f"temperature from {on_surface.min():.2f} to {on_surface.max():.2f}")
