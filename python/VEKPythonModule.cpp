// _vektps: the compiled part of the Python package vektps. Loads run without the GIL; the Python
// objects of a load hold references into its model, which lives as long as any of them.
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "VEKPython.h"
#include "VEKTPSLightDocument.h"
#include "VEKTPSLightJsonExport.h"
#include "VEKTPSLightWriter.h"

namespace {

const char* StatusName(VEKTPSLightLoadStatus status) {
  switch (status) {
    case VEKTPSLightLoadStatus::Loaded:
      return "loaded";
    case VEKTPSLightLoadStatus::NoSet:
      return "no-set";
    case VEKTPSLightLoadStatus::ReadFailed:
      return "read-failed";
    case VEKTPSLightLoadStatus::TooLarge:
      return "too-large";
    case VEKTPSLightLoadStatus::DecodeFailed:
      return "decode-failed";
    case VEKTPSLightLoadStatus::XmlError:
      return "xml-error";
    case VEKTPSLightLoadStatus::UnknownRoot:
      return "unknown-root";
    case VEKTPSLightLoadStatus::OutOfMemory:
      return "out-of-memory";
  }
  return "";
}

VEKTPSLightLoadOptions Options(const std::optional<std::string>& form,
                               const std::optional<std::string>& dump) {
  VEKTPSLightLoadOptions options;
  if (form) {
    const VEKTPSLightForm forms[] = {VEKTPSLightForm::Plain, VEKTPSLightForm::Base64,
                                     VEKTPSLightForm::Zlib};
    bool known = false;
    for (const VEKTPSLightForm candidate : forms) {
      if (*form == VEKTPSLightFormName(candidate)) {
        options.form = candidate;
        known = true;
      }
    }
    if (!known) throw py::value_error("unknown form '" + *form + "': plain, base64 or zlib");
  }
  if (dump) options.dumpPath = *dump;
  return options;
}

// Writes the document's sets as a current-schema document: the bytes when `path` is None,
// else the file (replaced only whole) and None. The writer's warnings go out as Python warnings
// (vektps.WriteWarning), one per object and value not kept; a failure raises OSError or
// ValueError.
py::object Write(const VEKTPSLightDocument& document, const std::optional<std::string>& path,
                 const std::string& form) {
  VEKTPSLightWriteOptions options;
  options.form = Options(form, std::nullopt).form;
  VEKTPSLightWriteResult written;
  {
    py::gil_scoped_release unlocked;
    written = path ? VEKWriteDocumentFile(path->c_str(), document, options)
                   : VEKWriteDocument(document, options);
  }
  if (written.result == E_INVALIDARG) throw py::value_error(written.error);
  if (VEKFailed(written.result)) throw std::runtime_error(written.error);
  const py::object category = py::module_::import("vektps").attr("WriteWarning");
  const py::object warn = py::module_::import("warnings").attr("warn");
  for (const VEKTPSLightWriteWarning& warning : written.warnings)
    warn(warning.message, category, 2);
  if (path) return py::none();
  return py::bytes(written.bytes);
}

py::object PositiveOrNone(int value) { return value > 0 ? py::cast(value) : py::none(); }

py::object TextOrNone(const std::string& text) {
  return text.empty() ? py::none() : py::cast(text);
}

// One load: the library's document and the state of each of its sets.
class Document {
 public:
  explicit Document(VEKTPSLightDocument loaded) : document_(std::move(loaded)) {
    for (const VEKComPtr<VEKITPSLightSet>& set : document_.Sets())
      sets_.push_back(std::make_shared<VEKPySetState>(set));
  }

  const VEKTPSLightDocument& Get() const { return document_; }

  py::list Sets() const {
    py::list sets;
    for (const VEKPySetStatePtr& set : sets_) sets.append(VEKPyWrapSet(set));
    return sets;
  }

  std::string Json(bool pretty) const {
    std::string json;
    const HRESULT result = VEKExportDocumentToJson(document_, pretty, json);
    if (result == E_FAIL) throw py::value_error("the document did not load: " + document_.Error());
    if (VEKFailed(result)) throw std::bad_alloc();
    return json;
  }

 private:
  VEKTPSLightDocument document_;
  std::vector<VEKPySetStatePtr> sets_;
};

std::unique_ptr<Document> LoadFile(const std::string& path, const std::optional<std::string>& form,
                                   const std::optional<std::string>& dump) {
  const VEKTPSLightLoadOptions options = Options(form, dump);
  VEKTPSLightDocument document;
  {
    py::gil_scoped_release release;
    document = VEKLoadDocumentFile(path.c_str(), options);
  }
  return std::make_unique<Document>(std::move(document));
}

std::unique_ptr<Document> LoadBytes(const py::object& source,
                                    const std::optional<std::string>& form,
                                    const std::optional<std::string>& dump) {
  const VEKTPSLightLoadOptions options = Options(form, dump);
  // The exported buffer cannot be resized or freed until it is released, after the load.
  Py_buffer view;
  if (PyObject_GetBuffer(source.ptr(), &view, PyBUF_SIMPLE) != 0) throw py::error_already_set();
  struct Release {
    Py_buffer* view;
    ~Release() { PyBuffer_Release(view); }
  } release{&view};
  VEKTPSLightDocument document;
  {
    py::gil_scoped_release unlocked;
    document = VEKLoadDocument(view.buf, static_cast<std::size_t>(view.len), options);
  }
  return std::make_unique<Document>(std::move(document));
}

py::object DiagnosticSet(const VEKTPSLightDiagnostic& diagnostic) {
  return diagnostic.set >= 0 ? py::cast(diagnostic.set) : py::none();
}

py::object DiagnosticObjectKind(const VEKTPSLightDiagnostic& diagnostic) {
  return diagnostic.objectKind ? VEKPyKindName(diagnostic.objectKind) : py::none();
}

py::object DiagnosticId(const VEKTPSLightDiagnostic& diagnostic) {
  return diagnostic.objectKind ? py::cast(diagnostic.id) : py::none();
}

py::dict DiagnosticDict(const VEKTPSLightDiagnostic& diagnostic) {
  py::dict out;
  out["kind"] = VEKTPSLightDiagnosticKindName(diagnostic.kind);
  out["set"] = DiagnosticSet(diagnostic);
  out["object_kind"] = DiagnosticObjectKind(diagnostic);
  out["id"] = DiagnosticId(diagnostic);
  out["line"] = PositiveOrNone(diagnostic.line);
  out["element"] = TextOrNone(diagnostic.element);
  out["text"] = TextOrNone(diagnostic.text);
  out["message"] = diagnostic.message;
  return out;
}

}  // namespace

PYBIND11_MODULE(_vektps, module) {
  module.doc() =
      "Reads 3D functional tolerancing and annotation documents (compiled part of vektps).";
  module.attr("__version__") = VEK_PYTHON_VERSION;

  VEKPyBindModel(module);
  VEKPyBindGraphics(module);

  py::class_<VEKTPSLightDiagnostic>(
      module, "Diagnostic",
      "What the parser passed over or could not resolve while it built the model.")
      .def_property_readonly(
          "kind",
          [](const VEKTPSLightDiagnostic& self) {
            return VEKTPSLightDiagnosticKindName(self.kind);
          },
          "'unresolved-id', 'duplicate-id', 'unknown-ttrs', 'unknown-ref-frame', 'bad-number', "
          "'legacy-value-count', 'legacy-sets-multiply', 'object-limit' or 'family-before-set'.")
      .def_property_readonly(
          "set", &DiagnosticSet,
          "Index of the set being built (into Document.sets); None before any set.")
      .def_property_readonly(
          "object_kind", &DiagnosticObjectKind,
          "Kind of the id concerned, as Set.find names it; None when no id is concerned.")
      .def_property_readonly("id", &DiagnosticId, "The id concerned; None when no id is concerned.")
      .def_property_readonly(
          "line", [](const VEKTPSLightDiagnostic& self) { return PositiveOrNone(self.line); },
          "1-based line of the element concerned; None when unknown.")
      .def_property_readonly(
          "element", [](const VEKTPSLightDiagnostic& self) { return TextOrNone(self.element); },
          "The element concerned (for references, the one naming the id); None when unknown.")
      .def_property_readonly(
          "text", [](const VEKTPSLightDiagnostic& self) { return TextOrNone(self.text); },
          "The text as written where it matters (a number that did not convert); else None.")
      .def_readonly("message", &VEKTPSLightDiagnostic::message, "One English sentence.")
      .def("to_dict", &DiagnosticDict, "The diagnostic as a dict of its attributes.")
      .def("__repr__", [](const VEKTPSLightDiagnostic& self) {
        return "<Diagnostic " + std::string(VEKTPSLightDiagnosticKindName(self.kind)) + ": " +
               self.message + ">";
      });

  py::class_<Document>(module, "Document",
                       "One load: its sets, form, schema, result and diagnostics.")
      .def_property_readonly(
          "schema",
          [](const Document& self) -> py::object {
            const auto schema = self.Get().Schema();
            if (!schema) return py::none();
            return py::str(VEKTPSLightSchemaName(*schema));
          },
          "'current' or 'legacy'; None when the document did not parse to a known root.")
      .def_property_readonly(
          "form",
          [](const Document& self) -> py::object {
            const VEKTPSLightForm form = self.Get().Form();
            if (form == VEKTPSLightForm::Detect) return py::none();
            return py::str(VEKTPSLightFormName(form));
          },
          "'plain', 'base64' or 'zlib': how the bytes were read; None when they could not be.")
      .def_property_readonly(
          "result",
          [](const Document& self) { return static_cast<std::uint32_t>(self.Get().Result()); },
          "The load's result code (0 on success, e.g. 0x80004005 on failure).")
      .def_property_readonly(
          "status", [](const Document& self) { return StatusName(self.Get().Status()); },
          "'loaded', or why not: 'no-set', 'read-failed', 'too-large', 'decode-failed', "
          "'xml-error', 'unknown-root' or 'out-of-memory'.")
      .def_property_readonly(
          "loaded", [](const Document& self) { return self.Get().Loaded(); },
          "Whether at least one set was made.")
      .def_property_readonly(
          "dumped", [](const Document& self) { return self.Get().Dumped(); },
          "Whether the dump that `dump` asked for was written whole (only a current-schema "
          "document is dumped).")
      .def_property_readonly(
          "error", [](const Document& self) { return TextOrNone(self.Get().Error()); },
          "Why the load failed, in one sentence; None when it loaded.")
      .def_property_readonly(
          "error_line", [](const Document& self) { return PositiveOrNone(self.Get().ErrorLine()); },
          "1-based line of an XML error; None when the error has no place.")
      .def_property_readonly(
          "error_column",
          [](const Document& self) { return PositiveOrNone(self.Get().ErrorColumn()); },
          "1-based column (in characters) of an XML error; None when the error has no place.")
      .def_property_readonly("sets", &Document::Sets, "Every set of the load, in creation order.")
      .def("__repr__",
           [](const py::object& self) {
             return py::str("<Document {} {} {}>")
                 .format(self.attr("schema"), self.attr("form"), self.attr("status"));
           })
      .def_property_readonly(
          "diagnostics",
          [](const Document& self) {
            py::list diagnostics;
            for (const VEKTPSLightDiagnostic& diagnostic : self.Get().Diagnostics())
              diagnostics.append(py::cast(diagnostic));
            return diagnostics;
          },
          "What the parser passed over or could not resolve (Diagnostic objects), in document "
          "order within each set.")
      .def("to_json", &Document::Json, py::kw_only(), py::arg("pretty") = false,
           "The whole model as JSON text, as `vektps json` writes it.")
      .def(
          "write",
          [](const Document& self, const std::optional<std::string>& path,
             const std::string& form) { return Write(self.Get(), path, form); },
          py::arg("path") = py::none(), py::kw_only(), py::arg("form") = "plain",
          "Writes the model as a current-schema document (form 'plain', 'base64' or 'zlib'): the "
          "bytes when path is None, else the file, replaced only by a whole document. What the "
          "current schema cannot keep is told by a vektps.WriteWarning per object.")
      .def(
          "to_dict",
          [](const Document& self) {
            return py::module_::import("json").attr("loads")(self.Json(false));
          },
          "The whole model as the JSON export's dicts and lists.");

  module.def("load_file", &LoadFile, py::arg("path"), py::arg("form") = py::none(),
             py::arg("dump") = py::none(),
             "Loads the document at `path` (bytes of a file system path) without the GIL; returns "
             "the Document whether or not it loaded.");
  module.def("load_bytes", &LoadBytes, py::arg("source"), py::arg("form") = py::none(),
             py::arg("dump") = py::none(),
             "Loads a document held in a bytes-like object without the GIL; returns the Document "
             "whether or not it loaded.");
}
