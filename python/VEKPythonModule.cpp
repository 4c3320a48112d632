// _vektps: the compiled part of the Python package vektps.
#include <pybind11/pybind11.h>

namespace py = pybind11;

PYBIND11_MODULE(_vektps, module) {
  module.doc() =
      "Reads 3D functional tolerancing and annotation documents (compiled part of vektps).";
  module.attr("__version__") = VEK_PYTHON_VERSION;
}
