"""Paths of the tool, the generator and the bundled documents, from the build (ctest sets them)."""

import json
import os
import subprocess

DOCUMENTS = os.environ["VEKTPS_DOCUMENTS"]
TOOL = os.environ["VEKTPS_TOOL"]
GENERATE = os.environ["VEKTPS_GENERATE"]
# In the sanitizer build the interpreter runs with the sanitizer runtime preloaded; the tool and
# the generator carry their own.
SANITIZED = bool(os.environ.get("VEKTPS_SANITIZED"))
NATIVE = {name: value for name, value in os.environ.items() if name != "LD_PRELOAD"}
FAMILIES = ["ttrs", "annotations", "views", "ref_frames", "cgs", "captures"]


def document(name):
    return os.path.join(DOCUMENTS, name)


def tool_json(path):
    """What `vektps json` writes for the file at `path`, parsed."""
    result = subprocess.run([TOOL, "json", str(path)], capture_output=True, check=True, env=NATIVE)
    return json.loads(result.stdout)


def generate(path, *, objects, seed, schema="current", form="plain"):
    subprocess.run([GENERATE, "--schema", schema, "--form", form, "-n", str(objects),
                    "--seed", str(seed), "-o", str(path)], check=True, capture_output=True,
                   env=NATIVE)
