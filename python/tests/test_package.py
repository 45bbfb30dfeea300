"""The package as such: examples, documents, stubs, the README."""

import ast
import inspect
import os
import pathlib
import shutil
import subprocess
import sys

import numpy as np
import pytest
import skoklana as sk
from skoklana import _core

SOURCE = pathlib.Path(os.environ.get("SKOKLANA_SOURCE", pathlib.Path(__file__).parents[2]))
EXAMPLES = sorted((SOURCE / "examples" / "python").glob("*.py"))


@pytest.mark.parametrize("example", EXAMPLES, ids=[path.stem for path in EXAMPLES])
def test_examples_run_and_print_what_they_say(example, tmp_path):
    env = {**os.environ, "PYTHONPATH": str(pathlib.Path(sk.__file__).parents[1])}
    done = subprocess.run(
        [sys.executable, str(example)], capture_output=True, text=True, cwd=tmp_path, timeout=120, env=env
    )
    assert done.returncode == 0, done.stderr
    expected = example.with_suffix(".txt").read_text()
    assert done.stdout == expected


def test_there_are_five_examples():
    assert len(EXAMPLES) == 5


def test_the_ten_lines_of_the_readme_work_as_they_stand(tmp_path, monkeypatch):
    text = (SOURCE / "README.md").read_text()
    blocks = [block.split("```")[0] for block in text.split("```python\n")[1:]]
    assert len(blocks) == 1 and len(blocks[0].strip().splitlines()) == 10
    monkeypatch.chdir(tmp_path)
    z, y, x = np.meshgrid(*[np.linspace(-1, 1, 20)] * 3, indexing="ij")
    np.save("density.npy", 1 - x**2 - y**2 - z**2)
    np.save("temperature.npy", (300 + x).astype(np.float32))
    names = {}
    exec(compile(blocks[0], "README.md", "exec"), names)
    assert len(names["surface"].triangles) > 100


def test_everything_public_has_a_text_and_types():
    for name in sk.__all__:
        thing = getattr(sk, name)
        assert inspect.getdoc(thing), name
        if inspect.isclass(thing):
            for member, value in vars(thing).items():
                if member.startswith("_") or not (inspect.isfunction(value) or isinstance(value, property)):
                    continue
                function = value.fget if isinstance(value, property) else value
                assert "return" in function.__annotations__, f"{name}.{member}"
                if inspect.isfunction(value):
                    assert inspect.getdoc(value), f"{name}.{member}"
        else:
            hints = thing.__annotations__
            assert "return" in hints and set(inspect.signature(thing).parameters) <= set(hints), name
    text = pydoc_of(sk)
    assert "Order of axes" in text and "isosurface" in text
    assert (pathlib.Path(sk.__file__).parent / "py.typed").exists()


def pydoc_of(module):
    import pydoc

    return pydoc.render_doc(module, renderer=pydoc.plaintext)


def test_the_stubs_name_what_the_compiled_part_has():
    stub = pathlib.Path(sk.__file__).parent / "_core.pyi"
    tree = ast.parse(stub.read_text())
    functions = {node.name: node for node in tree.body if isinstance(node, ast.FunctionDef)}
    classes = {node.name: node for node in tree.body if isinstance(node, ast.ClassDef)}
    public = {name for name in vars(_core) if not name.startswith("_")}
    assert functions.keys() | classes.keys() == public
    for name, node in functions.items():
        told = getattr(_core, name).__doc__.split("\n")[0]
        assert told.count("arg") == len(node.args.args), name
    for name, node in classes.items():
        members = {n.name for n in node.body if isinstance(n, ast.FunctionDef)}
        assert members == {m for m in vars(getattr(_core, name)) if not m.startswith("_")}


@pytest.mark.skipif("SKOKLANA_SANITIZED" in os.environ, reason="the plain build tells")
def test_mypy_finds_the_stubs_true(tmp_path):
    stubtest = shutil.which("stubtest")
    if stubtest is None:
        pytest.skip("mypy is not installed")
    allowed = tmp_path / "allowed"  # what pybind11 puts into its classes
    names = ("Locator", "Mesh", "Places")
    allowed.write_text("".join(f"skoklana._core.{name}\nskoklana._core.{name}.__init__\n" for name in names))
    env = {**os.environ, "MYPYPATH": str(pathlib.Path(sk.__file__).parents[1])}
    done = subprocess.run(
        [stubtest, "skoklana._core", "--concise", "--allowlist", str(allowed)],
        capture_output=True, text=True, cwd=tmp_path, env=env,
    )  # fmt: skip
    assert done.returncode == 0, done.stdout + done.stderr


def test_version_is_the_librarys():
    major, minor, patch = (int(part) for part in sk.__version__.split("."))
    assert _core.version() == 10000 * major + 100 * minor + patch


def test_examples_in_texts_are_true():
    import doctest

    from skoklana import _mesh

    found = doctest.testmod(_mesh)
    assert found.attempted > 3 and found.failed == 0
