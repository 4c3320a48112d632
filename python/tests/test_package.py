"""The package as built and as installed, imported by Debian's interpreter."""

import os
import subprocess
import sys

import vektps

BUILD_DIR = os.path.dirname(os.path.dirname(os.path.dirname(vektps.__file__)))


def test_version_matches_the_tool():
    tool = subprocess.run([os.environ["VEKTPS_TOOL"], "--version"], capture_output=True, text=True)
    assert vektps.__version__ and vektps.__version__ in tool.stdout


def test_installed_package_finds_its_libraries(tmp_path):
    subprocess.run(["cmake", "--install", BUILD_DIR, "--prefix", str(tmp_path)], check=True,
                   capture_output=True)
    package = tmp_path / "lib" / "python3" / "dist-packages"
    assert (package / "vektps" / "py.typed").exists()
    environment = {"PATH": os.environ["PATH"], "PYTHONPATH": str(package)}
    imported = subprocess.run(
        [sys.executable, "-c", "import vektps; print(vektps.__file__, vektps.__version__)"],
        env=environment, capture_output=True, text=True, check=True)
    assert imported.stdout.startswith(str(package))
