"""Kernels on arrays against numpy, over all types."""

import numpy as np
import pytest
import skoklana as sk
from support import TYPES


def random_of(dtype, shape, seed=2):
    return np.random.default_rng(seed).integers(0, 100, shape).astype(dtype)


@pytest.mark.parametrize("dtype", TYPES)
def test_kernels_agree_with_numpy(dtype):
    a = random_of(dtype, (6, 7, 8))
    assert np.array_equal(sk.clamp(a, 20, 60), np.clip(a, 20, 60))
    assert np.array_equal(sk.clamp(a, high=60), np.minimum(a, dtype(60)))
    kept = np.where(a == 90, a, np.clip(a, 20, 60))
    assert np.array_equal(sk.clamp(a, 20, 60, null=90), kept)
    assert np.array_equal(sk.replace_outside(a, 20, 60, fill=7), np.where((a >= 20) & (a <= 60), a, 7))
    rows = random_of(np.float32, (6, 7, 8, 3))
    chosen = sk.replace_outside(a, 20, target=rows, fill=-1)
    assert np.array_equal(chosen, np.where((a >= 20)[..., None], rows, -1))
    assert np.array_equal(sk.classify(a, 50), (a >= 50).astype(np.uint8))
    assert np.array_equal(sk.classify(a, 50, False, null=7), np.where(a == 7, 2, a > 50))
    assert np.array_equal(sk.take(a, [5, 0, 0]), a[[5, 0, 0]])
    assert np.array_equal(sk.component(a, 3), a[..., 3])
    assert np.array_equal(sk.stack(a, a[::-1]), np.stack([a, a[::-1]], axis=-1))
    assert np.array_equal(sk.downsize(a, (2, 3, 1)), a[::2, ::3])
    assert np.array_equal(sk.downsize(a, 2), a[::2, ::2, ::2])
    assert np.array_equal(sk.downsize(a, (2,)), a[::2])
    again = sk.resample(a, (6, 7, 8))
    assert np.array_equal(again, a) and again.dtype == dtype
    near = np.array([0, 2, 5])
    assert np.array_equal(sk.resample(a, (3, 7, 8)), a[near])
    assert np.array_equal(sk.resample(a, (3, 7)), a[near])
    smooth = sk.filter1d(a, [1, 2, 1])
    inner = (a[:-2].astype(float) + 2.0 * a[1:-1] + a[2:]) / 4
    assert np.allclose(smooth[1:-1], inner if np.issubdtype(dtype, np.floating) else np.trunc(inner))
    half = sk.blend(a, a[::-1], 0.25)
    exact = (a[::-1].astype(float) - a) * 0.25 + a
    assert np.allclose(half, exact if np.issubdtype(dtype, np.floating) else np.trunc(exact))
    vectors = random_of(dtype, (9, 3))
    along = sk.project(vectors, (0, 0, 1))
    assert along.dtype == np.float32 and np.array_equal(along[:, 2], vectors[:, 2]) and not along[:, :2].any()
    assert np.allclose(along + sk.project(vectors, (0, 0, 1), tangential=True), vectors)


@pytest.mark.parametrize("dtype", [np.uint8, np.int8, np.int32])
def test_bounds_beyond_the_type_hold_nothing_back(dtype):
    a = random_of(dtype, 50)
    assert np.array_equal(sk.clamp(a, -1e9, 1e9), a)
    assert np.array_equal(sk.clamp(a, 19.5, 60.5), np.clip(a, 20, 60))
    assert (sk.clamp(a, low=1e20) == np.iinfo(dtype).max).all()


def test_layouts_and_empty_arrays():
    a = np.asfortranarray(random_of(np.float64, (4, 5)))
    assert np.array_equal(sk.clamp(a[::2, ::-1], 10, 50), np.clip(a[::2, ::-1], 10, 50))
    assert np.array_equal(sk.clamp(a.astype(">f8"), 10, 50), np.clip(a, 10, 50))
    for call in (sk.clamp, lambda e: sk.classify(e, 1), lambda e: sk.downsize(e, 1), lambda e: sk.filter1d(e, [1])):
        assert call(np.empty((0, 3))).shape == (0, 3)
    assert sk.take(np.empty((0, 3)), []).shape == (0, 3)


def test_polynomials():
    x = np.linspace(5, 9, 20)
    y = 1 + 2 * x - 3 * x**2 + 0.5 * x**3
    assert np.allclose(sk.polyfit(x, y, 3), [1, 2, -3, 0.5], atol=1e-5)
    assert np.allclose(sk.polyfit(x, 2 * x + 1, 3)[:2], [1, 2], atol=1e-4)
    assert np.allclose(sk.polyfit(np.linspace(-1, 1, 9), 1 + np.linspace(-1, 1, 9), 1, library=True), [1, 1], atol=1e-6)
    assert np.allclose(sk.polyval([1, 2, 3], [0, 1, 2]), [1, 6, 17])
    assert sk.polyval([0.7], [1, 2], np.int32).tolist() == [0, 0]
    assert np.allclose(sk.solve([[2, 1], [1, 3]], [3, 5]), np.linalg.solve([[2, 1], [1, 3]], [3, 5]))
    p = np.random.default_rng(3).random((7, 2)).astype(np.float32)
    expected = 1 + 2 * p[:, 0] + 3 * p[:, 1] + 4 * p[:, 0] * p[:, 1] + 5 * p[:, 0] ** 2 + 6 * p[:, 1] ** 2
    assert np.allclose(sk.quadratic(p, [1, 2, 3, 4, 5, 6]), expected, rtol=1e-5)


@pytest.mark.parametrize(
    "call, error, text",
    [
        (lambda: sk.clamp(np.zeros(3, np.uint32)), TypeError, "values: has the type uint32"),
        (lambda: sk.clamp(np.ma.masked_equal([1, 2], 2)), TypeError, "values: is a masked array"),
        (lambda: sk.take([1, 2], [2]), IndexError, "rows: 2 is none of the 2 rows"),
        (lambda: sk.component([[1, 2]], 2), IndexError, "component: 2 is none of 0 to 1"),
        (lambda: sk.component([1, 2], 0), ValueError, "values: has no components"),
        (lambda: sk.stack([1], [1.5]), ValueError, "arrays: are not all of one shape and type"),
        (lambda: sk.downsize([1, 2], 0), ValueError, "steps: are 1 and up"),
        (lambda: sk.downsize([1, 2], (1, 1)), ValueError, "steps: are more"),
        (lambda: sk.resample([1, 2], (2, 2)), ValueError, "shape: has one to three axes"),
        (lambda: sk.filter1d([1, 2], []), ValueError, "weights: there are none"),
        (lambda: sk.filter1d([1, 2], [1, -1]), ValueError, "weights: sum to 0"),
        (lambda: sk.blend([1, 2], [1], 0.5), ValueError, "b: is not of the shape"),
        (lambda: sk.project(np.zeros((2, 4)), (1, 0, 0)), ValueError, "vectors: have one to three"),
        (lambda: sk.polyfit([1, 1], [2, 3], 1), ValueError, "x: a fit of degree 1 needs"),
        (lambda: sk.polyfit([1], [2, 3], 1), ValueError, "y: has 2 samples"),
        (lambda: sk.solve([[1, 1], [1, 1]], [1, 2]), ValueError, "matrix: is singular"),
        (lambda: sk.solve([[1, 1]], [1]), ValueError, "matrix: has the shape"),
        (lambda: sk.quadratic([[1, 2]], [1]), ValueError, "coefficients: has 1, but 6"),
        (lambda: sk.replace_outside([1, 2, 3], target=[1, 2]), ValueError, "target: has no row"),
    ],
)
def test_what_the_kernels_refuse_they_name(call, error, text):
    with pytest.raises(error) as caught:
        call()
    assert text in str(caught.value)
