"""Stream lines through a mesh of tetrahedra made of scattered points."""

import numpy as np
import skoklana as sk

random = np.random.default_rng(4)
corners = np.stack(np.meshgrid([-1, 1], [-1, 1], [-1, 1]), axis=-1).reshape(-1, 3)
points = np.concatenate([corners, random.uniform(-1, 1, (3000, 3))]).astype(np.float32)
mesh = sk.cells(points, {"tetra": sk.delaunay(points)})
print(f"volume {mesh.measure().volume.measure:.2f}")

x, y, z = points.T
wind = np.stack([-y, x, np.full_like(x, 0.2)], axis=1)
lines = mesh.stream_lines(wind, seeds=[[r, 0, -0.8] for r in (0.2, 0.4, 0.6)], steps_per_cell=2)
for line in lines:
    radius = np.hypot(line[:, 0], line[:, 1])
    print(f"radius {radius[0]:.1f} stays within {np.abs(radius - radius[0]).max() < 0.05 and '0.05' or 'more'}")

turning = mesh.curl(wind)
print(f"curl {np.nanmean(turning, axis=0).round(3).tolist()}")
