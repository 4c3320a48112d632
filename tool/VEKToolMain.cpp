// vektps: looks inside annotation documents from the command line. `summary` tells what a
// document holds, `json` writes its whole model as JSON, `check` lists the problems a user can
// act on.
#include <CLI/CLI.hpp>

#include <csignal>
#include <cstdio>
#include <new>
#include <optional>
#include <string>
#include <vector>

#include "VEKTPSLightJsonExport.h"
#include "VEKToolConvert.h"
#include "VEKToolInput.h"
#include "VEKToolOutput.h"
#include "VEKToolReport.h"
#include "VEKToolScene.h"

namespace {

const std::vector<std::string> kCommands = {"summary", "json", "check", "csv",
                                            "convert", "gltf", "view"};

struct Options {
  std::vector<std::string> files;
  bool base64 = false;
  bool plain = false;
  bool zlib = false;
  std::string schema;
  std::string dump;
  std::string output;
  bool pretty = false;
  bool json = false;
  int set = 0;
  VEKTPSLightLoadOptions load;
};

void Report(const std::string& file, const std::string& message) {
  std::fprintf(stderr, "vektps: %s: %s\n", file.c_str(), message.c_str());
}

// Loads one file; false (reported, status set) when it could not even be read.
bool Load(const std::string& file, const Options& options, VEKTPSLightDocument& document,
          int& status) {
  std::string error;
  bool read = false;
  {
    // A dump being written is never left half-done by an interruption.
    std::optional<VEKToolHeldSignals> held;
    if (!options.load.dumpPath.empty()) held.emplace();
    read = VEKToolLoad(file, options.load, document, error);
  }
  if (read && (document.Status() == VEKTPSLightLoadStatus::ReadFailed ||
               document.Status() == VEKTPSLightLoadStatus::TooLarge)) {
    read = false;
    error = document.Error();
  }
  if (!read) {
    Report(file, error);
    status = 1;
    return false;
  }
  if (!options.load.dumpPath.empty() && !document.Dumped()) {
    if (document.Schema() == VEKTPSLightSchema::Legacy) {
      Report(file, "no dump was written: only a current-schema load writes one");
    } else if (document.Schema()) {
      Report(file, "cannot write the dump to " + options.load.dumpPath);
      status = 1;
    }
  }
  return true;
}

// Writes `text` to `output`; false when the run should end (a message was printed unless the
// reader went away).
bool Emit(VEKToolOutput& output, const std::string& text, int& status) {
  std::string error;
  if (output.Write(text, error)) return true;
  if (!error.empty()) std::fprintf(stderr, "vektps: %s\n", error.c_str());
  status = 1;
  return false;
}

int Finish(VEKToolOutput& output, int status) {
  std::string error;
  if (!output.Commit(error)) {
    std::fprintf(stderr, "vektps: %s\n", error.c_str());
    return 1;
  }
  return status;
}

int Summary(const Options& options) {
  VEKToolOutput output("");
  int status = 0;
  for (std::size_t k = 0; k < options.files.size(); ++k) {
    const std::string& file = options.files[k];
    VEKTPSLightDocument document;
    if (!Load(file, options, document, status)) continue;
    if (!document.Loaded()) {
      if (!options.json) Report(file, VEKToolFailure(document));
      status = 1;
      if (!document.Schema() && !options.json) continue;
    }
    const std::string text = options.json
                                 ? VEKToolSummaryJson(file, document)
                                 : (k > 0 ? "\n" : "") + VEKToolSummaryText(file, document);
    if (!Emit(output, text, status)) break;
  }
  return Finish(output, status);
}

int Json(const Options& options) {
  // One document: its JSON, pretty if asked; several: JSON Lines, one document a line.
  VEKToolOutput output(options.output);
  int status = 0;
  for (const std::string& file : options.files) {
    VEKTPSLightDocument document;
    if (!Load(file, options, document, status)) continue;
    std::string json;
    if (!document.Schema()) {
      Report(file, VEKToolFailure(document));
      status = 1;
      continue;
    }
    if (VEKFailed(VEKExportDocumentToJson(document, options.pretty, json))) {
      Report(file, "the model cannot be written as JSON: out of memory");
      status = 1;
      continue;
    }
    if (!document.Loaded()) {
      Report(file, VEKToolFailure(document));
      status = 1;
    }
    if (!Emit(output, json + "\n", status)) return status;
  }
  return Finish(output, status);
}

int Check(const Options& options) {
  VEKToolOutput output("");
  int status = 0;
  for (const std::string& file : options.files) {
    VEKTPSLightDocument document;
    if (!Load(file, options, document, status)) continue;
    const std::string problems = VEKToolCheckText(file, document);
    if (problems.empty()) continue;
    status = 1;
    if (!Emit(output, problems, status)) break;
  }
  return Finish(output, status);
}

int Csv(const Options& options) {
  const std::string& file = options.files.front();
  int status = 0;
  VEKTPSLightDocument document;
  if (!Load(file, options, document, status)) return status;
  if (!document.Loaded()) {
    Report(file, VEKToolFailure(document));
    if (document.Sets().empty()) return 1;
    status = 1;
  }
  std::vector<std::pair<std::string, std::string>> tables;
  const auto& sets = document.Sets();
  const HRESULT result = VEKExportLoadToCsv(sets.back().Get(), options.set, tables);
  if (result == E_INVALIDARG) {
    Report(file, "--set " + std::to_string(options.set) + ": the load made " +
                     std::to_string(sets.size()) + (sets.size() == 1 ? " set" : " sets"));
    return 2;
  }
  if (VEKFailed(result)) {
    Report(file, "the model cannot be written as CSV: out of memory");
    return 1;
  }
  const std::string directory = options.output.empty() ? "." : options.output;
  for (const auto& [name, csv] : tables) {
    VEKToolOutput output(directory + "/" + name);
    if (!Emit(output, csv, status)) return 1;
    if (Finish(output, 0) != 0) return 1;
  }
  return status;
}

int Scene(const Options& options, VEKToolSceneForm form) {
  const std::string& file = options.files.front();
  int status = 0;
  VEKTPSLightDocument document;
  if (!Load(file, options, document, status)) return status;
  return VEKToolWriteScene(file, document, form, options.output);
}

// ---- command line ----

// The load options from the flags; false (reported) when they do not fit together.
bool LoadOptions(Options& options) {
  if (options.base64) options.load.form = VEKTPSLightForm::Base64;
  if (options.plain) options.load.form = VEKTPSLightForm::Plain;
  if (options.zlib) options.load.form = VEKTPSLightForm::Zlib;
  if (options.schema == "current") options.load.schema = VEKTPSLightSchema::Current;
  if (options.schema == "legacy") options.load.schema = VEKTPSLightSchema::Legacy;
  options.load.dumpPath = options.dump;
  if (!options.dump.empty() && options.files.size() != 1) {
    std::fprintf(stderr, "vektps: --dump keeps the dump of one load: give a single FILE\n");
    return false;
  }
  if (options.pretty && options.files.size() != 1) {
    std::fprintf(stderr,
                 "vektps: --pretty writes one document: several files are written as JSON "
                 "Lines, one document a line\n");
    return false;
  }
  return true;
}

void AddInputOptions(CLI::App& command, Options& options) {
  CLI::Option* zlib = command.add_flag("--zlib", options.zlib, "Read the files as zlib data");
  CLI::Option* base64 =
      command.add_flag("--base64", options.base64, "Read the files as base64 text");
  CLI::Option* plain = command.add_flag("--plain", options.plain, "Read the files as plain XML");
  zlib->excludes(base64)->excludes(plain);
  base64->excludes(plain);
  command.add_option("--schema", options.schema, "Load only documents of this schema")
      ->check(CLI::IsMember({"current", "legacy"}))
      ->type_name("current|legacy");
  command
      .add_option("--dump", options.dump,
                  "Write the dump of the parsed document that a current-schema load makes, to "
                  "PATH")
      ->type_name("PATH");
  command
      .add_option("--max-objects", options.load.maxObjects,
                  "Most objects one load may build, 0 for no limit (a legacy document rebuilds "
                  "every object once per set)")
      ->default_val(options.load.maxObjects)
      ->type_name("N");
  command
      .add_option("--max-bytes", options.load.maxInputBytes,
                  "Most bytes a document may have, read or decoded")
      ->default_val(options.load.maxInputBytes)
      ->check(CLI::PositiveNumber)
      ->type_name("N");
}

// The first argument that is not an option must name a command; CLI11 alone would only say that
// one is required.
bool KnownCommand(int argc, char** argv) {
  for (int k = 1; k < argc; ++k) {
    const std::string argument = argv[k];
    if (argument.rfind("-", 0) == 0) continue;
    for (const std::string& command : kCommands) {
      if (argument == command) return true;
    }
    std::string list;
    for (const std::string& command : kCommands) list += (list.empty() ? "" : ", ") + command;
    std::fprintf(stderr,
                 "vektps: unknown command '%s'; the commands are %s\nRun 'vektps --help' for "
                 "usage.\n",
                 argument.c_str(), list.c_str());
    return false;
  }
  return true;
}

int Run(int argc, char** argv) {
  CLI::App app(
      "Looks inside 3D tolerancing and annotation documents: what they hold, whether their "
      "references resolve, and their whole model as JSON; writes them in the current schema.",
      "vektps");
  app.set_version_flag("--version", std::string("vektps ") + VEK_TOOL_VERSION);
  app.require_subcommand(1);
  app.footer(
      "A FILE of - is standard input. A document is read as plain XML, base64 text or zlib data, "
      "found from its first bytes unless an option forces the form; the schema follows from the "
      "root element. Nothing is written beside the documents unless asked (--dump, -o). Exit "
      "status: 0 on success, 1 when a file cannot be read or loaded (check: when problems were "
      "found), 2 on usage errors.");
  app.failure_message([](const CLI::App*, const CLI::Error& error) {
    return "vektps: " + std::string(error.what()) +
           "\nRun 'vektps --help' or 'vektps COMMAND --help' for usage.\n";
  });

  Options options;
  CLI::App* summary = app.add_subcommand(
      "summary",
      "What each file holds: its schema, the load's result and, per set, its name, "
      "standard and the count of each family and of unresolved references");
  summary->add_option("FILE", options.files, "Documents to load")->required()->type_name("");
  summary->add_flag("--json", options.json, "One line of JSON per file instead of a table");
  AddInputOptions(*summary, options);

  CLI::App* json = app.add_subcommand(
      "json", "The model of each load as JSON (several files: JSON Lines, one document a line)");
  json->add_option("FILE", options.files, "Documents to load")->required()->type_name("");
  json->add_option("-o,--output", options.output, "Write the JSON to OUT, not standard output")
      ->type_name("OUT");
  json->add_flag("--pretty", options.pretty, "Indent the JSON of one document by two spaces");
  AddInputOptions(*json, options);

  CLI::App* check = app.add_subcommand("check", "The problems a user can act on, one per line");
  check->add_option("FILE", options.files, "Documents to check")->required()->type_name("");
  check->footer(
      "Each problem is one line on standard output, prefixed with the file name and, where it "
      "has one, the line in the decoded document: a load that failed and why, and what the "
      "parser passed over or could not resolve while it built the model. Exit status: 0 when "
      "clean, 1 when problems were found, 2 on usage errors.");
  AddInputOptions(*check, options);

  CLI::App* csv = app.add_subcommand(
      "csv",
      "One CSV table per family (annotations.csv, ttrs.csv, views.csv, ref_frames.csv, "
      "cgs.csv, captures.csv), one row per object with its values and links as id lists");
  csv->add_option("FILE", options.files, "Document to load")
      ->required()
      ->expected(1)
      ->type_name("");
  csv->add_option("-o,--output", options.output, "Write the tables into DIR (default: here)")
      ->type_name("DIR");
  csv->add_option("--set", options.set, "Only set N of a load that made several (from 1)")
      ->check(CLI::PositiveNumber)
      ->type_name("N");
  AddInputOptions(*csv, options);

  VEKToolConvertOptions convertOptions;
  CLI::App* convert = VEKToolAddConvert(app, convertOptions);
  CLI::App* gltf = app.add_subcommand(
      "gltf",
      "The scene of a document as binary glTF: a node per set, family and object with its "
      "graphics, a camera per capture, the model's values in extras");
  CLI::App* view = app.add_subcommand(
      "view",
      "One HTML page that shows the scene of a document in a browser, offline: the sets, "
      "captures, views and annotations by name, each capture's camera and annotations");
  for (CLI::App* scene : {gltf, view}) {
    scene->add_option("FILE", options.files, "Document to load")
        ->required()
        ->expected(1)
        ->type_name("");
    scene->add_option("-o,--output", options.output, "Write to OUT (- for standard output)")
        ->required()
        ->type_name("OUT");
    AddInputOptions(*scene, options);
  }

  if (!KnownCommand(argc, argv)) return 2;
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? 0 : 2;
  }
  if (convert->parsed()) return VEKToolConvert(convertOptions);
  if (!LoadOptions(options)) return 2;
  if (summary->parsed()) return Summary(options);
  if (json->parsed()) return Json(options);
  if (csv->parsed()) return Csv(options);
  if (gltf->parsed()) return Scene(options, VEKToolSceneForm::Glb);
  if (view->parsed()) return Scene(options, VEKToolSceneForm::Page);
  return Check(options);
}

}  // namespace

int main(int argc, char** argv) {
  // A reader that goes away (vektps json big.xml | head) ends the run through a failed write,
  // which leaves nothing behind, instead of a signal.
  (void)std::signal(SIGPIPE, SIG_IGN);
  try {
    return Run(argc, argv);
  } catch (const std::bad_alloc&) {
    std::fprintf(stderr, "vektps: out of memory\n");
    return 1;
  }
}
