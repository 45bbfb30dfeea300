"""Height lines, bands and slopes of a terrain."""

import numpy as np
import skoklana as sk

y, x = np.meshgrid(np.linspace(0, 3, 151), np.linspace(0, 4, 201), indexing="ij")
height = 400 + 300 * np.sin(1.5 * x) * np.cos(2 * y) + 80 * np.sin(5 * x + 3 * y)

land = sk.uniform(height.shape, spacing=(0.02, 0.02))
for level in (300, 400, 500):
    rings = land.isoline(height, level).chains()
    print(f"{level} m: {len(rings)} lines, the longest of {max(len(ring) for ring in rings)} points")

limits = [height.min(), 300, 500, height.max()]
for low, high, band in zip(limits, limits[1:], land.bands(height, limits)):
    print(f"{low:.0f} to {high:.0f} m: {band.to_mesh().measure().area.measure:.2f} km2")

steepness = np.linalg.norm(land.gradient(height), axis=-1)
print(f"steepest: {steepness.max():.0f} m in a km")
