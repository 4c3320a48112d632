#include "VEKToolReport.h"

#include <algorithm>
#include <cstdio>
#include <optional>
#include <vector>

#include <nlohmann/json.hpp>

namespace {

using Json = nlohmann::ordered_json;

std::string ResultText(HRESULT result) {
  char text[16];
  std::snprintf(text, sizeof text, "0x%08x", static_cast<unsigned>(result));
  return text;
}

const char* FormText(VEKTPSLightForm form) {
  switch (form) {
    case VEKTPSLightForm::Base64:
      return "base64 text";
    case VEKTPSLightForm::Zlib:
      return "zlib data";
    default:
      return "plain XML";
  }
}

// A document's text made safe for a terminal: C0 and C1 control characters and DEL become spaces.
std::string Printable(std::string text) {
  for (std::size_t at = 0; at < text.size(); ++at) {
    const auto byte = static_cast<unsigned char>(text[at]);
    if (byte < 0x20 || byte == 0x7F) text[at] = ' ';
    // U+0080 to U+009F are C2 80 to C2 9F in UTF-8.
    if (byte == 0xC2 && at + 1 < text.size() &&
        (static_cast<unsigned char>(text[at + 1]) & 0xE0) == 0x80) {
      text.replace(at, 2, " ");
    }
  }
  return text;
}

std::optional<std::string> Text(const std::optional<VEKUnicodeString>& text) {
  if (!text) return std::nullopt;
  return std::string(text->ConvertToChar());
}

std::string Cell(const std::optional<std::string>& text) {
  return text && !text->empty() ? Printable(*text) : "-";
}

// Width of a text in columns, one per character.
std::size_t Width(const std::string& text) {
  std::size_t width = 0;
  for (const char c : text) width += (static_cast<unsigned char>(c) & 0xC0) != 0x80;
  return width;
}

// One table, each column as wide as its widest cell: text to the left, counts to the right.
std::string Table(const std::vector<std::vector<std::string>>& rows, std::size_t leftColumns) {
  std::vector<std::size_t> widths(rows.front().size(), 0);
  for (const auto& row : rows) {
    for (std::size_t column = 0; column < row.size(); ++column)
      widths[column] = std::max(widths[column], Width(row[column]));
  }
  std::string table;
  for (const auto& row : rows) {
    std::string line;
    for (std::size_t column = 0; column < row.size(); ++column) {
      const std::string padding(widths[column] - Width(row[column]), ' ');
      line += "  ";
      line += column < leftColumns ? row[column] + padding : padding + row[column];
    }
    while (!line.empty() && line.back() == ' ') line.pop_back();
    table += line + "\n";
  }
  return table;
}

// The counts of one set, as the summary shows them.
struct SetCounts {
  std::optional<std::string> name;
  std::optional<std::string> standard;
  int ttrs = 0;
  int annotations = 0;
  int views = 0;
  int refFrames = 0;
  int cgs = 0;
  int captures = 0;
  int unresolved = 0;
};

std::vector<SetCounts> CountSets(const VEKTPSLightDocument& document) {
  std::vector<SetCounts> counts;
  for (const VEKComPtr<VEKITPSLightSet>& set : document.Sets()) {
    SetCounts row;
    VEKComPtr<VEKITPSLight> light;
    if (VEKSucceeded(set.As(&light)) && light) row.name = Text(light->GetName());
    row.standard = Text(set->GetStandard());
    const VEKLightObjectList* annotations = set->GetAnnotations();
    row.annotations = annotations ? annotations->Count() : 0;
    row.ttrs = set->GetTTRS().Count();
    row.views = set->GetViews().Count();
    row.refFrames = set->GetRefFrames().Count();
    row.cgs = set->GetCGs().Count();
    row.captures = set->GetCaptures().Count();
    counts.push_back(row);
  }
  for (const VEKTPSLightDiagnostic& diagnostic : document.Diagnostics()) {
    const bool unresolved = diagnostic.kind == VEKTPSLightDiagnosticKind::UnresolvedId;
    if (unresolved && diagnostic.set >= 0 && diagnostic.set < static_cast<int>(counts.size()))
      ++counts[static_cast<std::size_t>(diagnostic.set)].unresolved;
  }
  return counts;
}

Json Nullable(const std::optional<std::string>& text) { return text ? Json(*text) : Json(nullptr); }

}  // namespace

std::string VEKToolFailure(const VEKTPSLightDocument& document) {
  if (document.Loaded()) return "";
  std::string text = "load failed";
  if (document.Status() == VEKTPSLightLoadStatus::NoSet)
    text += " (" + ResultText(document.Result()) + ")";
  if (document.ErrorLine() > 0) {
    text += ": XML error at line " + std::to_string(document.ErrorLine()) + ", column " +
            std::to_string(document.ErrorColumn());
  }
  return document.Error().empty() ? text : text + ": " + document.Error();
}

std::string VEKToolSummaryText(const std::string& path, const VEKTPSLightDocument& document) {
  const std::optional<VEKTPSLightSchema> schema = document.Schema();
  std::string text = path + ": ";
  text += schema ? std::string(VEKTPSLightSchemaName(*schema)) + " schema, " : "";
  text += std::string(FormText(document.Form())) + ", load result " +
          ResultText(document.Result()) + "\n";
  const std::vector<SetCounts> sets = CountSets(document);
  if (sets.empty()) return text + "  no set was made\n";
  std::vector<std::vector<std::string>> rows = {{"set", "name", "standard", "TTRS", "annotations",
                                                 "views", "ref frames", "CGs", "captures",
                                                 "unresolved"}};
  for (std::size_t k = 0; k < sets.size(); ++k) {
    const SetCounts& set = sets[k];
    rows.push_back(
        {std::to_string(k + 1), Cell(set.name), Cell(set.standard), std::to_string(set.ttrs),
         std::to_string(set.annotations), std::to_string(set.views), std::to_string(set.refFrames),
         std::to_string(set.cgs), std::to_string(set.captures), std::to_string(set.unresolved)});
  }
  return text + Table(rows, 3);
}

std::string VEKToolSummaryJson(const std::string& path, const VEKTPSLightDocument& document) {
  Json record;
  record["path"] = path;
  const std::optional<VEKTPSLightSchema> schema = document.Schema();
  record["schema"] = schema ? Json(VEKTPSLightSchemaName(*schema)) : Json(nullptr);
  record["form"] = VEKTPSLightFormName(document.Form());
  record["result"] = ResultText(document.Result());
  record["error"] = nullptr;
  if (!document.Loaded()) {
    record["error"] = {
        {"message", document.Error()},
        {"line", document.ErrorLine() > 0 ? Json(document.ErrorLine()) : Json()},
        {"column", document.ErrorColumn() > 0 ? Json(document.ErrorColumn()) : Json()}};
  }
  Json sets = Json::array();
  for (const SetCounts& set : CountSets(document)) {
    sets.push_back({{"name", Nullable(set.name)},
                    {"standard", Nullable(set.standard)},
                    {"ttrs", set.ttrs},
                    {"annotations", set.annotations},
                    {"views", set.views},
                    {"refFrames", set.refFrames},
                    {"cgs", set.cgs},
                    {"captures", set.captures},
                    {"unresolved", set.unresolved}});
  }
  record["sets"] = std::move(sets);
  record["diagnostics"] = document.Diagnostics().size();
  return record.dump(-1, ' ', false, Json::error_handler_t::replace) + "\n";
}

std::string VEKToolCheckText(const std::string& path, const VEKTPSLightDocument& document) {
  std::string text;
  if (!document.Loaded()) text += path + ": " + VEKToolFailure(document) + "\n";
  for (const VEKTPSLightDiagnostic& diagnostic : document.Diagnostics()) {
    text += path + ": ";
    if (diagnostic.line > 0) text += "line " + std::to_string(diagnostic.line) + ": ";
    text += Printable(diagnostic.message) + "\n";
  }
  return text;
}
