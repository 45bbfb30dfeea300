"""Progress, interruption and threads."""

import os
import signal
import subprocess
import sys
import textwrap
import threading
import time

import numpy as np
import pytest
import skoklana as sk

SLOW = 6 if "SKOKLANA_SANITIZED" in os.environ else 1


def test_progress_rises_and_tells_what_is_done():
    mesh = sk.uniform((60, 60, 60))
    values = np.random.default_rng(1).random((60, 60, 60))
    for call in (
        lambda told: mesh.isosurface(values, 0.5, progress=told),
        lambda told: mesh.cut(values, 0.5, progress=told),
        lambda told: mesh.locate(np.random.default_rng(2).random((200000, 3)) * 59, progress=told),
        lambda told: mesh.gradient(values, progress=told),
        lambda told: sk.delaunay(np.random.default_rng(2).random((3000, 2)), progress=told),
        lambda told: mesh.stream_lines(np.ones((60, 60, 60, 3)), np.ones((50, 3)), progress=told),
    ):
        seen = []
        call(lambda percent, message: seen.append((percent, message)))
        percents = [percent for percent, _ in seen]
        assert len(percents) > 1 and percents == sorted(percents) and 0 <= percents[0] and percents[-1] <= 100
        assert all(message is None or isinstance(message, str) for _, message in seen)


def test_what_progress_raises_comes_through():
    mesh = sk.uniform((60, 60, 60))
    values = np.random.default_rng(1).random((60, 60, 60))

    def stop(percent, message):
        raise KeyError("mine")

    with pytest.raises(KeyError, match="mine"):
        mesh.isosurface(values, 0.5, progress=stop)
    with pytest.raises(TypeError):
        mesh.isosurface(values, 0.5, progress=7)
    assert len(mesh.isosurface(values, 0.5).triangles) > 0


def test_a_mesh_is_not_used_from_its_own_progress():
    mesh = sk.uniform((60, 60, 60))
    other = sk.uniform((3, 3, 3))
    values = np.random.default_rng(1).random((60, 60, 60))
    with pytest.raises(RuntimeError, match="in use"):
        mesh.isosurface(values, 0.5, progress=lambda *_: mesh.isosurface(values, 0.5))
    with pytest.raises(RuntimeError, match="in use"):
        mesh.isosurface(values, 0.5, progress=lambda *_: mesh.close())
    found = []
    mesh.isosurface(values, 0.5, progress=lambda *_: found.append(other.isosurface(np.arange(27.0), 13.5)))
    assert len(found) > 1 and len(found[0].triangles) > 0


@pytest.mark.skipif("SKOKLANA_SANITIZED" in os.environ, reason="times are those of the plain build")
@pytest.mark.parametrize("what", ["locate(points)", "stream_lines(vectors, points[:20000], max_nodes=2000)"])
def test_ctrl_c_ends_the_work_at_once(what):
    program = f"""
        import numpy as np, skoklana as sk, signal, threading, os, time
        mesh = sk.uniform((40, 40, 40)).to_cells()
        points = np.random.default_rng(2).random((20_000_000, 3)) * 39
        vectors = np.random.default_rng(3).normal(size=(64000, 3))
        mesh.locate(points[:10])
        def interrupt():
            global sent
            sent = time.perf_counter()
            os.kill(os.getpid(), signal.SIGINT)
        threading.Timer(0.7, interrupt).start()
        try:
            mesh.{what}
        except KeyboardInterrupt:
            print("interrupted", time.perf_counter() - sent)
        else:
            print("ended", 0)
        print(len(mesh.locate(points[:10]).cells), sk._core.live_lists())
    """
    done = subprocess.run([sys.executable, "-c", textwrap.dedent(program)], capture_output=True, text=True, timeout=300)
    assert done.returncode == 0, done.stderr
    word, after, count, left = done.stdout.split()
    assert word == "interrupted" and count == "10"
    assert float(after) < 5  # it takes hundredths of a second where the machine is idle: the work would be a minute


def test_two_threads_work_at_the_same_time_on_two_meshes():
    """Each waits in its progress for the other: they would never meet if one kept the interpreter's lock."""
    meet = threading.Barrier(2, timeout=60)
    found = {}

    def work(name):
        met = []

        def progress(percent, message):
            if not met:
                met.append(meet.wait())

        mesh = sk.uniform((60, 60, 60))
        values = np.random.default_rng(name).random((60, 60, 60))
        found[name] = mesh.isosurface(values, 0.5, progress=progress), values

    threads = [threading.Thread(target=work, args=(name,)) for name in (1, 2)]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    assert len(found) == 2 and not meet.broken
    for surface, values in found.values():
        alone = sk.uniform((60, 60, 60)).isosurface(values, 0.5)
        assert np.array_equal(surface.triangles, alone.triangles) and np.array_equal(surface.points, alone.points)


def test_the_interpreters_lock_is_free_while_the_library_works():
    mesh = sk.uniform((40, 40, 40)).to_cells()
    points = np.random.default_rng(2).random((400000, 3)) * 39
    ticks, running = [], [True]

    def tick():
        while running:
            ticks.append(time.perf_counter())
            time.sleep(0.001)

    ticker = threading.Thread(target=tick)
    ticker.start()
    mesh.locate(points[:10])
    begin = time.perf_counter()
    mesh.locate(points)
    end = time.perf_counter()
    running.clear()
    ticker.join()
    within = [t for t in ticks if begin < t < end]
    assert len(within) > 5


def test_many_threads_take_turns_on_one_mesh():
    mesh = sk.uniform((20, 20, 20))
    values = np.random.default_rng(1).random((20, 20, 20))
    expected = mesh.isosurface(values, 0.5).points
    points = np.random.default_rng(2).random((1000, 3)) * 19
    sampled = mesh.sample(values, points)
    wrong = []

    def work():
        for _ in range(20):
            if not np.array_equal(mesh.isosurface(values, 0.5).points, expected):
                wrong.append("surface")
            if not np.array_equal(mesh.sample(values, points), sampled):
                wrong.append("sample")

    threads = [threading.Thread(target=work) for _ in range(4)]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    assert not wrong


def test_a_report_of_one_thread_is_not_anothers():
    def fail():
        for _ in range(50):
            with pytest.raises(ValueError, match="mesh of one axis"):
                sk.uniform(5).cut(np.zeros(5), 0)

    threads = [threading.Thread(target=fail) for _ in range(3)]
    for thread in threads:
        thread.start()
    mesh = sk.uniform((10, 10, 10))
    for _ in range(50):
        mesh.isosurface(np.arange(1000.0), 500.5)
    for thread in threads:
        thread.join()


def test_a_signal_handler_runs_while_the_library_works():
    if threading.current_thread() is not threading.main_thread():
        pytest.skip("signals go to the main thread")
    seen = []
    before = signal.signal(signal.SIGALRM, lambda *_: seen.append(time.perf_counter()))
    try:
        mesh = sk.uniform((40, 40, 40)).to_cells()
        points = np.random.default_rng(2).random((800000, 3)) * 39
        mesh.locate(points[:10])
        signal.setitimer(signal.ITIMER_REAL, 0.05)
        mesh.locate(points)
        ended = time.perf_counter()
    finally:
        signal.setitimer(signal.ITIMER_REAL, 0)
        signal.signal(signal.SIGALRM, before)
    assert seen and seen[0] <= ended
