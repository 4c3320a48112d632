"""The package as built and as installed, imported by Debian's interpreter."""

import os
import subprocess
import sys

import vektps
from conftest import NATIVE, TOOL

BUILD_DIR = os.path.dirname(os.path.dirname(os.path.dirname(vektps.__file__)))


def test_version_matches_the_tool():
    tool = subprocess.run([TOOL, "--version"], capture_output=True, text=True, env=NATIVE)
    assert vektps.__version__ and vektps.__version__ in tool.stdout


def test_installed_package_finds_its_libraries(tmp_path):
    subprocess.run(["cmake", "--install", BUILD_DIR, "--prefix", str(tmp_path)], check=True,
                   capture_output=True)
    package = tmp_path / "lib" / "python3" / "dist-packages"
    assert (package / "vektps" / "py.typed").exists()
    environment = {name: value for name, value in os.environ.items()
                   if name in ("PATH", "LD_PRELOAD", "ASAN_OPTIONS", "UBSAN_OPTIONS")}
    environment["PYTHONPATH"] = str(package)
    document = os.path.join(os.environ["VEKTPS_DOCUMENTS"], "bracket.xml")
    imported = subprocess.run(
        [sys.executable, "-c", "import sys, vektps; print(vektps.__file__);"
                               "print(vektps.load(sys.argv[1]).sets[0].name)", document],
        env=environment, capture_output=True, text=True, check=True)
    assert imported.stdout.split("\n")[:2] == [str(package / "vektps" / "__init__.py"),
                                               "Bracket MB-200"]


def public_members(cls):
    return {name for name in dir(cls) if not name.startswith("_")}


def test_stubs_and_docstrings_cover_the_module():
    import ast
    import inspect

    from vektps import _vektps

    stub = ast.parse(open(os.path.join(os.path.dirname(vektps.__file__), "_vektps.pyi")).read())
    stubbed = {node.name: {item.name for item in node.body if isinstance(item, ast.FunctionDef)}
               for node in stub.body if isinstance(node, ast.ClassDef)}
    functions = {node.name for node in stub.body if isinstance(node, ast.FunctionDef)}
    compiled = {name: value for name, value in vars(_vektps).items() if not name.startswith("_")}
    classes = {name: value for name, value in compiled.items() if inspect.isclass(value)}
    assert set(stubbed) == set(classes)
    assert functions == set(compiled) - set(classes)
    for name, cls in classes.items():
        own = public_members(cls) - public_members(object)
        inherited = set().union(*(public_members(base) for base in cls.__mro__[1:]
                                  if base.__module__ == cls.__module__))
        assert stubbed[name] == own - inherited, name
    for name in vektps.__all__:
        value = getattr(vektps, name)
        if name != "__version__":
            assert value.__doc__, name
        for cls in value.__mro__ if inspect.isclass(value) else []:
            if cls.__module__.startswith("vektps"):
                for member in public_members(cls) & set(vars(cls)):
                    assert getattr(cls, member).__doc__, f"{name}.{member}"
