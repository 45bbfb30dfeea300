"""Data with gaps: masked arrays in, masked values out."""

import numpy as np
import skoklana as sk

y, x = np.meshgrid(np.linspace(0, 1, 50), np.linspace(0, 1, 50), indexing="ij")
depth = np.ma.masked_where(np.hypot(x - 0.5, y - 0.5) < 0.2, 10 * x + y)

sea = sk.uniform(depth.shape, spacing=1 / 49)
part = sea.without_null(depth)
print(f"cells with a value at each corner: {part.ncells} of {sea.ncells}")
print(f"area {part.to_mesh().measure().area.measure:.2f}")

line = np.stack([np.linspace(0, 1, 6), np.full(6, 0.5)], axis=1)
print(f"along the middle: {sea.sample(depth, line)}")
print(f"filled: {sea.sample(depth, line, fill=-1).round(2).tolist()}")
