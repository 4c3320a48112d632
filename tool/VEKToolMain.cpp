// vektps: looks inside annotation documents from the command line. `summary` tells what a
// document holds, `json` writes its whole model as JSON, `check` lists the problems a user can
// act on.
#include <CLI/CLI.hpp>

#include <algorithm>
#include <climits>
#include <cstdio>
#include <fstream>
#include <new>
#include <optional>
#include <string>
#include <vector>

#include "VEKTPSLightJsonExport.h"
#include "VEKToolCheck.h"
#include "VEKToolInput.h"
#include "VEKToolLoad.h"

namespace {

// The sets of one load in creation order; none when memory ran out.
std::vector<VEKComPtr<VEKITPSLightSet>> SetsOfLoad(VEKITPSLightSet* lastSet) {
  std::vector<VEKComPtr<VEKITPSLightSet>> sets;
  (void)VEKGetSetsOfLoad(lastSet, sets);
  return sets;
}

// Given with --zlib when no SIZE follows it: the size is found by inflating the data.
const char* const kFindSize = "find";

struct Options {
  std::vector<std::string> files;
  std::string zlibSize;
  bool base64 = false;
  bool plain = false;
  std::string dump;
  std::string output;
  bool pretty = false;
  VEKToolInputOptions input;
};

void Report(const std::string& file, const std::string& message) {
  std::fprintf(stderr, "vektps: %s: %s\n", file.c_str(), message.c_str());
}

std::string ResultText(HRESULT result) {
  char text[16];
  std::snprintf(text, sizeof text, "0x%08x", static_cast<unsigned>(result));
  return text;
}

std::string FailedLoad(const VEKToolDocument& document, HRESULT result) {
  const std::string reason = VEKToolExplainFailedLoad(document);
  return "load failed (" + ResultText(result) + ")" + (reason.empty() ? "" : ": " + reason);
}

// Loads an opened document and keeps its dump when asked. False (reported) when nothing loaded.
bool LoadDocument(const VEKToolDocument& document, const Options& options, VEKToolScratch& scratch,
                  VEKToolLoadResult& load, int& status) {
  std::string error;
  if (!VEKToolLoad(document, scratch, load, error)) {
    Report(document.path, error);
    status = 1;
    return false;
  }
  if (!options.dump.empty()) {
    if (!load.dumped) {
      Report(document.path, "no dump was kept: only a current-schema load writes one");
    } else if (!VEKToolKeepDump(scratch, options.dump, error)) {
      Report(document.path, error);
      status = 1;
    }
  }
  return true;
}

// ---- summary ----

// Width of a text in columns, one per character.
std::size_t Width(const std::string& text) {
  std::size_t width = 0;
  for (const char c : text) width += (static_cast<unsigned char>(c) & 0xC0) != 0x80;
  return width;
}

std::string Cell(const std::optional<VEKUnicodeString>& text) {
  if (!text || text->GetLengthInChar() == 0) return "-";
  std::string cell = text->ConvertToChar();
  for (char& c : cell) {
    if (static_cast<unsigned char>(c) < 0x20 || c == 0x7F) c = ' ';
  }
  return cell;
}

// One table, each column as wide as its widest cell: text to the left, counts to the right.
void PrintTable(const std::vector<std::vector<std::string>>& rows, std::size_t leftColumns) {
  std::vector<std::size_t> widths(rows.front().size(), 0);
  for (const auto& row : rows) {
    for (std::size_t column = 0; column < row.size(); ++column)
      widths[column] = std::max(widths[column], Width(row[column]));
  }
  for (const auto& row : rows) {
    std::string line;
    for (std::size_t column = 0; column < row.size(); ++column) {
      const std::string padding(widths[column] - Width(row[column]), ' ');
      line += "  ";
      line += column < leftColumns ? row[column] + padding : padding + row[column];
    }
    while (!line.empty() && line.back() == ' ') line.pop_back();
    std::printf("%s\n", line.c_str());
  }
}

void PrintSummary(const VEKToolDocument& document, const VEKToolLoadResult& load) {
  std::printf("%s: %s schema, %s, load result %s\n", document.path.c_str(),
              document.schema == VEKToolSchema::Legacy ? "legacy" : "current",
              VEKToolFormName(document.form), ResultText(load.result).c_str());
  const std::vector<VEKComPtr<VEKITPSLightSet>> sets = SetsOfLoad(load.lastSet.Get());
  if (sets.empty()) {
    std::printf("  no set was made\n");
    return;
  }
  std::vector<std::vector<std::string>> rows = {{"set", "name", "standard", "TTRS", "annotations",
                                                 "views", "ref frames", "CGs", "captures",
                                                 "unresolved"}};
  for (std::size_t k = 0; k < sets.size(); ++k) {
    VEKITPSLightSet& set = *sets[k].Get();
    VEKComPtr<VEKITPSLight> light;
    const std::optional<VEKUnicodeString> name =
        VEKSucceeded(set.QueryInterface(VEKITPSLight::kIID, light.ReleaseAndGetVoidAddressOf())) && light
            ? light->GetName()
            : std::nullopt;
    const VEKLightObjectList* annotations = set.GetAnnotations();
    rows.push_back({std::to_string(k + 1), Cell(name), Cell(set.GetStandard()),
                    std::to_string(set.GetTTRS().Count()),
                    std::to_string(annotations ? annotations->Count() : 0),
                    std::to_string(set.GetViews().Count()),
                    std::to_string(set.GetRefFrames().Count()),
                    std::to_string(set.GetCGs().Count()), std::to_string(set.GetCaptures().Count()),
                    std::to_string(set.GetUnresolvedReferences().size())});
  }
  PrintTable(rows, 3);
}

int Summary(const Options& options) {
  VEKToolScratch scratch;
  int status = 0;
  bool first = true;
  for (const std::string& file : options.files) {
    VEKToolDocument document;
    std::string error;
    if (!VEKToolOpenDocument(file, options.input, document, error)) {
      Report(file, error);
      status = 1;
      continue;
    }
    VEKToolLoadResult load;
    if (!LoadDocument(document, options, scratch, load, status)) continue;
    if (VEKFailed(load.result)) {
      Report(file, FailedLoad(document, load.result));
      status = 1;
    }
    if (!first) std::printf("\n");
    first = false;
    PrintSummary(document, load);
  }
  return status;
}

// ---- json ----

int Json(const Options& options) {
  const std::string& file = options.files.front();
  VEKToolDocument document;
  std::string error;
  if (!VEKToolOpenDocument(file, options.input, document, error)) {
    Report(file, error);
    return 1;
  }
  VEKToolScratch scratch;
  VEKToolLoadResult load;
  int status = 0;
  if (!LoadDocument(document, options, scratch, load, status)) return 1;

  std::string json;
  const VEKTPSLightSchema schema = document.schema == VEKToolSchema::Legacy
                                       ? VEKTPSLightSchema::Legacy
                                       : VEKTPSLightSchema::Current;
  if (VEKFailed(
          VEKExportLoadToJson(schema, load.result, load.lastSet.Get(), options.pretty, json))) {
    Report(file, "the model cannot be written as JSON: out of memory");
    return 1;
  }
  json += '\n';
  if (options.output.empty()) {
    if (std::fwrite(json.data(), 1, json.size(), stdout) != json.size() || std::fflush(stdout)) {
      Report(file, "cannot write JSON to standard output");
      return 1;
    }
  } else {
    std::ofstream out(options.output, std::ios::binary | std::ios::trunc);
    out << json;
    out.close();
    if (!out) {
      Report(file, "cannot write JSON to " + options.output);
      return 1;
    }
  }
  if (VEKFailed(load.result)) {
    Report(file, FailedLoad(document, load.result));
    status = 1;
  }
  return status;
}

// ---- check ----

int Check(const Options& options) {
  VEKToolScratch scratch;
  int status = 0;
  for (const std::string& file : options.files) {
    VEKToolDocument document;
    document.path = file;
    std::string error;
    if (!VEKToolReadFile(file, document.fileBytes, error)) {
      Report(file, error);
      status = 1;
      continue;
    }
    if (!VEKToolDecode(options.input, document, error) || !VEKToolParse(document, error)) {
      std::printf("%s: load failed: %s\n", file.c_str(), error.c_str());
      status = 1;
      continue;
    }
    VEKToolLoadResult load;
    if (!LoadDocument(document, options, scratch, load, status)) continue;
    if (VEKFailed(load.result)) {
      std::printf("%s: %s\n", file.c_str(), FailedLoad(document, load.result).c_str());
      status = 1;
    }
    for (const VEKToolProblem& problem :
         VEKToolFindProblems(document, SetsOfLoad(load.lastSet.Get()))) {
      std::printf("%s: %s\n", file.c_str(), problem.text.c_str());
      status = 1;
    }
  }
  return status;
}

// ---- command line ----

bool IsDecimal(const std::string& text) {
  return !text.empty() && text.find_first_not_of("0123456789") == std::string::npos;
}

// "--zlib" takes an optional SIZE: when no number follows it, it is given the value that asks for
// the size to be found, so that the next argument is never taken for a SIZE.
std::vector<std::string> Arguments(int argc, char** argv) {
  std::vector<std::string> arguments(argv + 1, argv + argc);
  for (std::size_t k = 0; k < arguments.size() && arguments[k] != "--"; ++k) {
    const bool bare = arguments[k] == "--zlib" || arguments[k] == "--zlib=";
    if (bare && (k + 1 == arguments.size() || !IsDecimal(arguments[k + 1])))
      arguments[k] = std::string("--zlib=") + kFindSize;
  }
  return arguments;
}

// The input options from the flags; false (reported) for a SIZE out of range.
bool InputOptions(Options& options, const CLI::Option* zlib) {
  if (options.base64) options.input.form = VEKToolForm::Base64;
  if (options.plain) options.input.form = VEKToolForm::Plain;
  if (zlib->count() == 0) return true;
  options.input.form = VEKToolForm::Zlib;
  if (options.zlibSize == kFindSize) return true;
  const bool valid = IsDecimal(options.zlibSize) && options.zlibSize.size() <= 10 &&
                     std::stoll(options.zlibSize) >= 1 && std::stoll(options.zlibSize) <= INT_MAX;
  if (!valid) {
    std::fprintf(stderr,
                 "vektps: --zlib: SIZE must be a number of bytes from 1 to 2147483647, not "
                 "\"%s\"\n",
                 options.zlibSize.c_str());
    return false;
  }
  options.input.zlibSize = static_cast<int>(std::stoll(options.zlibSize));
  return true;
}

CLI::Option* AddInputOptions(CLI::App& command, Options& options) {
  CLI::Option* zlib = command
                          .add_option("--zlib", options.zlibSize,
                                      "Read the files as zlib data. SIZE is the decompressed size "
                                      "in bytes; without it the tool finds it")
                          ->expected(0, 1)
                          ->type_name("[SIZE]");
  CLI::Option* base64 =
      command.add_flag("--base64", options.base64, "Read the files as base64 text");
  CLI::Option* plain = command.add_flag("--plain", options.plain, "Read the files as plain XML");
  zlib->excludes(base64)->excludes(plain);
  base64->excludes(plain);
  command
      .add_option("--dump", options.dump,
                  "Keep a copy of the XML dump that a current-schema load writes, at PATH")
      ->type_name("PATH");
  return zlib;
}

int Run(int argc, char** argv) {
  CLI::App app(
      "Looks inside 3D tolerancing and annotation documents: what they hold, whether their "
      "references resolve, and their whole model as JSON.",
      "vektps");
  app.set_version_flag("--version", std::string("vektps ") + VEK_TOOL_VERSION);
  app.require_subcommand(1);
  app.footer(
      "A document is read as plain XML, base64 text or zlib data, found from its first bytes "
      "unless an option forces the form; the schema follows from the root element. Loads run in "
      "a private temporary directory, so the dump of a current-schema load never lands in the "
      "working directory (--dump keeps a copy). Exit status: 0 on success, 1 when a file cannot "
      "be read or loaded (check: when problems were found), 2 on usage errors.");
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
  const CLI::Option* summaryZlib = AddInputOptions(*summary, options);

  CLI::App* json = app.add_subcommand("json", "The model of one load as JSON");
  json->add_option("FILE", options.files, "Document to load")
      ->required()
      ->expected(1)
      ->type_name("");
  json->add_option("-o,--output", options.output, "Write the JSON to OUT, not standard output")
      ->type_name("OUT");
  json->add_flag("--pretty", options.pretty, "Indent the JSON by two spaces");
  const CLI::Option* jsonZlib = AddInputOptions(*json, options);

  CLI::App* check = app.add_subcommand("check", "The problems a user can act on, one per line");
  check->add_option("FILE", options.files, "Documents to check")->required()->type_name("");
  check->footer(
      "Each problem is one line on standard output, prefixed with the file name: a load that "
      "failed and why, unresolved references, duplicate ids, legacy objects passed over for a "
      "wrong count of values. Lines count in the decoded document. Exit status: 0 when clean, 1 "
      "when problems were found, 2 on usage errors.");
  const CLI::Option* checkZlib = AddInputOptions(*check, options);

  try {
    std::vector<std::string> arguments = Arguments(argc, argv);
    std::reverse(arguments.begin(), arguments.end());
    app.parse(arguments);
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? 0 : 2;
  }

  const CLI::Option* zlib = summary->parsed() ? summaryZlib : json->parsed() ? jsonZlib : checkZlib;
  if (!InputOptions(options, zlib)) return 2;
  if (!options.dump.empty() && options.files.size() != 1) {
    std::fprintf(stderr, "vektps: --dump keeps the dump of one load: give a single FILE\n");
    return 2;
  }
  if (summary->parsed()) return Summary(options);
  if (json->parsed()) return Json(options);
  return Check(options);
}

}  // namespace

int main(int argc, char** argv) {
  try {
    return Run(argc, argv);
  } catch (const std::bad_alloc&) {
    std::fprintf(stderr, "vektps: out of memory\n");
    return 1;
  }
}
