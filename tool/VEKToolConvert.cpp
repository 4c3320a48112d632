#include "VEKToolConvert.h"

#include <CLI/CLI.hpp>

#include <cstdio>
#include <filesystem>
#include <map>
#include <set>
#include <system_error>
#include <tuple>

#include "VEKTPSLightWriter.h"
#include "VEKToolInput.h"
#include "VEKToolOutput.h"
#include "VEKToolReport.h"

namespace {

// Warnings of one kind shown before the rest of that kind is only counted.
constexpr int kShownPerKind = 3;

void Report(const std::string& file, const std::string& message) {
  std::fprintf(stderr, "vektps: %s: %s\n", file.c_str(), message.c_str());
}

// Every warning, or the first few of each kind (issue, family, member) and a count of the rest.
void ReportWarnings(const std::string& file, const VEKTPSLightWriteResult& written, bool several,
                    bool all) {
  using Kind = std::tuple<VEKTPSLightWriteIssue, int, std::string>;
  std::map<Kind, int> seen;
  for (const VEKTPSLightWriteWarning& warning : written.warnings) {
    if (++seen[{warning.issue, warning.objectKind, warning.field}] > kShownPerKind && !all)
      continue;
    const std::string set = several ? "set " + std::to_string(warning.set + 1) + ": " : "";
    Report(file, "warning: " + set + warning.message + " (" +
                     VEKTPSLightWriteIssueName(warning.issue) + ")");
  }
  if (all) return;
  for (const auto& [kind, count] : seen) {
    if (count <= kShownPerKind) continue;
    Report(file, "warning: " + std::to_string(count - kShownPerKind) +
                     " more like these: " + VEKTPSLightKindName(std::get<1>(kind)) + ", " +
                     std::get<2>(kind) + " (" + VEKTPSLightWriteIssueName(std::get<0>(kind)) + ")");
  }
}

// The name a document gets in --out-dir: its own, without a form's suffix, with the suffix of the
// form written.
std::string OutputName(const std::string& file, VEKTPSLightForm form) {
  std::string name = std::filesystem::path(file).filename().string();
  for (const char* suffix : {".b64", ".base64", ".z", ".zlib"}) {
    const std::string ending = suffix;
    if (name.size() > ending.size() &&
        name.compare(name.size() - ending.size(), ending.size(), ending) == 0) {
      name.resize(name.size() - ending.size());
      break;
    }
  }
  if (form == VEKTPSLightForm::Base64) name += ".b64";
  if (form == VEKTPSLightForm::Zlib) name += ".z";
  return name;
}

// Where each file goes (empty: standard output); false (reported) on a usage error.
bool Destinations(const VEKToolConvertOptions& options, VEKTPSLightForm form,
                  std::vector<std::string>& destinations) {
  const auto usage = [](const std::string& message) {
    std::fprintf(stderr, "vektps: %s\nRun 'vektps convert --help' for usage.\n", message.c_str());
    return false;
  };
  if (options.outDir.empty()) {
    if (options.files.size() > 1) {
      return usage("several files are written each under its own name: give --out-dir DIR");
    }
    destinations.push_back(options.output == "-" ? "" : options.output);
    return true;
  }
  std::set<std::string> names;
  for (const std::string& file : options.files) {
    if (file == "-") return usage("standard input has no name to be written under in --out-dir");
    const std::string name = OutputName(file, form);
    if (!names.insert(name).second) {
      return usage("two files would be written to " + options.outDir + "/" + name);
    }
    destinations.push_back((std::filesystem::path(options.outDir) / name).string());
  }
  return true;
}

// Loads and writes one file; false (reported) when it could not be loaded or written.
bool ConvertOne(const std::string& file, const std::string& destination,
                const VEKToolConvertOptions& options, const VEKTPSLightWriteOptions& write) {
  VEKTPSLightDocument document;
  std::string error;
  if (!VEKToolLoad(file, options.load, document, error)) {
    Report(file, error);
    return false;
  }
  if (!document.Loaded()) {
    const bool unread = document.Status() == VEKTPSLightLoadStatus::ReadFailed ||
                        document.Status() == VEKTPSLightLoadStatus::TooLarge;
    Report(file, unread ? document.Error() : VEKToolFailure(document));
    return false;
  }
  VEKTPSLightWriteResult written;
  if (destination.empty()) {
    written = VEKWriteDocument(document, write);
  } else {
    // The new file is renamed into place only whole: no interruption may leave it half-made.
    const VEKToolHeldSignals held;
    written = VEKWriteDocumentFile(destination.c_str(), document, write);
  }
  if (VEKFailed(written.result)) {
    Report(file, "cannot convert: " + written.error);
    return false;
  }
  ReportWarnings(file, written, document.Sets().size() > 1, options.allWarnings);
  if (!destination.empty()) return true;
  VEKToolOutput output("");
  if (!output.Write(written.bytes, error) || !output.Commit(error)) {
    if (!error.empty()) std::fprintf(stderr, "vektps: %s\n", error.c_str());
    return false;
  }
  return true;
}

}  // namespace

CLI::App* VEKToolAddConvert(CLI::App& app, VEKToolConvertOptions& options) {
  CLI::App* convert = app.add_subcommand(
      "convert", "Each document, of either schema and in any form, written in the current schema");
  convert->add_option("FILE", options.files, "Documents to convert")->required()->type_name("");
  CLI::Option* output =
      convert
          ->add_option("-o,--output", options.output,
                       "Write the document to OUT (one FILE; default: standard output)")
          ->type_name("OUT");
  CLI::Option* outDir =
      convert
          ->add_option("--out-dir", options.outDir,
                       "Write each document into DIR (made if missing) under its own name, less "
                       "a .b64 or .z suffix, plus that of the form written")
          ->type_name("DIR");
  output->excludes(outDir);
  CLI::Option* base64 =
      convert->add_flag("--base64", options.base64, "Write the base64 text of the XML");
  CLI::Option* zlib = convert->add_flag("--zlib", options.zlib, "Write a zlib stream of the XML");
  base64->excludes(zlib);
  convert->add_flag("--all-warnings", options.allWarnings,
                    "Print every warning, not only the first three of each kind and a count");
  convert->footer(
      "A FILE of - is standard input. The input form (plain XML, base64 text, zlib data) is found "
      "from the bytes, the schema from the root element. What the current schema cannot keep is "
      "told on standard error, each warning naming the object and the value (the first three of "
      "each kind, then a count, unless --all-warnings). An output file is replaced only by a "
      "whole document. Exit status: 0 when every document was written, 1 when one could not be "
      "loaded or written, 2 on usage errors.");
  return convert;
}

int VEKToolConvert(const VEKToolConvertOptions& options) {
  VEKTPSLightWriteOptions write;
  if (options.base64) write.form = VEKTPSLightForm::Base64;
  if (options.zlib) write.form = VEKTPSLightForm::Zlib;
  std::vector<std::string> destinations;
  if (!Destinations(options, write.form, destinations)) return 2;
  if (!options.outDir.empty()) {
    std::error_code error;
    std::filesystem::create_directories(options.outDir, error);
    if (error) {
      std::fprintf(stderr, "vektps: cannot make %s: %s\n", options.outDir.c_str(),
                   error.message().c_str());
      return 1;
    }
  }
  int status = 0;
  for (std::size_t k = 0; k < options.files.size(); ++k) {
    if (!ConvertOne(options.files[k], destinations[k], options, write)) status = 1;
  }
  return status;
}
