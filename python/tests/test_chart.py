"""Smith charts, outlines and reduced heights."""

import numpy as np
import pytest
import skoklana as sk


def test_the_lines_of_a_chart_are_arcs_of_its_circles():
    chart = sk.smith_chart()
    assert np.abs(np.hypot(chart.points[:, 0], chart.points[:, 1])).max() < 1 + 1e-5 and not chart.points[:, 2].any()
    axis, circle = chart.lines[:2]
    assert axis[:, 0].min() == -1 and axis[:, 0].max() == 1 and not axis[:, 1].any()
    assert np.allclose(np.hypot(circle[:, 0], circle[:, 1]), 1, atol=1e-5)
    for arc in chart.lines[2:]:  # reflection back to impedance: one part is constant
        inner = arc[np.hypot(arc[:, 0] - 1, arc[:, 1]) > 0.05].astype(np.float64)
        gamma = inner[:, 0] + 1j * inner[:, 1]
        z = (1 + gamma) / (1 - gamma)
        if len(z) > 1:
            assert min(np.ptp(z.real) / max(z.real.max(), 1e-3), np.ptp(z.imag) / max(np.abs(z.imag).max(), 1e-3)) < 2e-2
    assert chart.labels[0] == "0" and len(chart.labels) == len(chart.axis) == len(chart.upper) == len(chart.lower)
    values = np.array([float(label) for label in chart.labels])
    assert (np.diff(values) > 0).all()
    assert np.allclose(chart.axis[:, 0], (values - 1) / (values + 1), atol=1e-4)
    assert np.allclose(chart.upper * [1, -1, 1], chart.lower)
    assert len(sk.smith_chart(ticks=[]).lines) == 2
    for call in (lambda: sk.smith_chart(0), lambda: sk.smith_chart(min_spacing=0), lambda: sk.smith_chart(ticks=[0])):
        with pytest.raises(ValueError):
            call()


def ring(count, radius=1.0, shift=0.3):
    angle = 2 * np.pi * (np.arange(count) + shift) / count
    return radius * np.stack([np.cos(angle), np.sin(angle)], axis=1)


def test_outlines_are_turned_and_joined():
    outer, inner = ring(24), ring(17, 0.5, 0.8)
    order, places = sk.sort_outline(outer)
    assert sorted(order[:-1].tolist()) == list(range(24)) and order[0] == order[-1]
    assert places[0] == 0 and places[-1] == pytest.approx(1, abs=1e-5) and (np.diff(places) > 0).all()
    strip = sk.join_outlines(outer, inner)
    points = np.concatenate([outer, inner])
    p = points[strip]
    area = np.abs(np.cross(p[:, 1] - p[:, 0], p[:, 2] - p[:, 0])).sum() / 2
    ring_area = 12 * np.sin(2 * np.pi / 24) - 0.25 * 8.5 * np.sin(2 * np.pi / 17)
    assert 0.9 * ring_area < area < 1.02 * ring_area
    assert ((strip < 24).any(axis=1) & (strip >= 24).any(axis=1)).all()
    for call, text in (
        (lambda: sk.sort_outline(outer, "up"), "side: is 'up'"),
        (lambda: sk.sort_outline([[0, 0]]), "points: are no outline"),
        (lambda: sk.sort_outline(np.empty((0, 2))), "points: are no outline"),
        (lambda: sk.sort_outline([1, 2]), "points: has the shape (2,)"),
    ):
        with pytest.raises(ValueError) as caught:
            call()
        assert text in str(caught.value)


@pytest.mark.parametrize("dtype", [np.int16, np.float32, np.float64])
def test_heights_are_reduced_within_sight_of_the_tolerance(dtype):
    y, x = np.meshgrid(np.linspace(0, 3, 41), np.linspace(0, 3, 41), indexing="ij")
    heights = (100 * np.sin(x) * np.cos(y)).astype(dtype)
    grid = sk.uniform(heights.shape, 0.075)
    land = grid.reduce_heights(heights, 2)
    assert 10 < len(land.triangles) < 2 * 40 * 40 and land.heights.dtype == dtype
    assert np.allclose(land.points[:, 2], land.heights)
    flat = sk.cells(land.points[:, :2], {"triangle": land.triangles})
    assert flat.measure().area.measure == pytest.approx(9, rel=0.05)
    error = np.abs(flat.sample(land.heights.astype(float), grid.points, tolerance=0.01) - heights.ravel())
    assert np.nanmean(error) < 2
    assert len(grid.reduce_heights(heights, 20).triangles) < len(land.triangles)
    for call, text in (
        (lambda: grid.reduce_heights(heights, -1), "tolerance: "),
        (lambda: grid.reduce_heights(heights, np.nan), "tolerance: "),
        (lambda: sk.uniform(5).reduce_heights(np.zeros(5), 1), "reduce_heights: is for"),
        (lambda: grid.reduce_heights(np.ma.masked_less(heights, 0), 1), "heights: has masked nodes"),
    ):
        with pytest.raises(ValueError) as caught:
            call()
        assert text in str(caught.value)
