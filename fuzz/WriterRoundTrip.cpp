#include "WriterRoundTrip.h"

#include <nlohmann/json.hpp>

#include <stdexcept>
#include <utility>

#include "VEKTPSLightDocument.h"
#include "VEKTPSLightJsonExport.h"

namespace vek_fuzz {

namespace {

using Json = nlohmann::ordered_json;

Json ExportChain(VEKITPSLightSet* lastSet) {
  std::string text;
  if (VEKFailed(VEKExportLoadToJson(VEKTPSLightSchema::Current, S_OK, lastSet, false, text)))
    throw std::runtime_error("the JSON export failed");
  return Json::parse(text)["sets"];
}

// One entry per set of `sets`: the whole chain of the last set when it is exactly these sets (a
// load's), else each set's own entry.
Json ExportEach(const std::vector<VEKComPtr<VEKITPSLightSet>>& sets) {
  if (sets.empty()) return Json::array();
  Json chain = ExportChain(sets.back().Get());
  if (chain.size() == sets.size()) return chain;
  Json each = Json::array();
  for (const VEKComPtr<VEKITPSLightSet>& set : sets) each.push_back(ExportChain(set.Get()).back());
  return each;
}

// The member of a set's export that lists objects of `kind`; none for the set itself.
const char* FamilyMember(int kind) {
  static const std::pair<int, const char*> kMembers[] = {
      {VEKTPSLightKindTTRS, "ttrs"},  {VEKTPSLightKindAnnotation, "annotations"},
      {VEKTPSLightKindView, "views"}, {VEKTPSLightKindRefFrame, "refFrames"},
      {VEKTPSLightKindCG, "cgs"},     {VEKTPSLightKindCapture, "captures"}};
  for (const auto& [family, member] : kMembers) {
    if (family == kind) return member;
  }
  return nullptr;
}

// Links rebuilt from an object whose id was never set name it by the 0 it comes back with: an
// annotation's views, a view's captures.
void NameUnsetIdsZero(Json& set, int kind) {
  const char* owners = kind == VEKTPSLightKindView ? "annotations" : "views";
  const char* member = kind == VEKTPSLightKindView ? "views" : "captures";
  for (Json& owner : set[owners]) {
    for (Json& id : owner[member]) {
      if (id.is_null()) id = 0;
    }
  }
}

// Drops from `sets` the member each warning names, and every set's unresolved references.
void SetAside(Json& sets, const std::vector<VEKTPSLightWriteWarning>& warnings) {
  for (Json& set : sets) set.erase("unresolved");
  for (const VEKTPSLightWriteWarning& warning : warnings) {
    if (warning.set < 0 || static_cast<std::size_t>(warning.set) >= sets.size()) continue;
    if (warning.issue == VEKTPSLightWriteIssue::Unset && warning.field == "id" &&
        (warning.objectKind == VEKTPSLightKindView ||
         warning.objectKind == VEKTPSLightKindCapture)) {
      NameUnsetIdsZero(sets[static_cast<std::size_t>(warning.set)], warning.objectKind);
    }
    Json* object = &sets[static_cast<std::size_t>(warning.set)];
    if (const char* family = FamilyMember(warning.objectKind)) {
      Json& list = (*object)[family];
      if (warning.position < 0 || static_cast<std::size_t>(warning.position) >= list.size())
        continue;
      object = &list[static_cast<std::size_t>(warning.position)];
    }
    const std::size_t dot = warning.field.find('.');
    if (dot == std::string::npos) {
      object->erase(warning.field);
    } else if (object->contains(warning.field.substr(0, dot))) {
      (*object)[warning.field.substr(0, dot)].erase(warning.field.substr(dot + 1));
    }
  }
}

}  // namespace

RoundTrip WriteAndReload(const std::vector<VEKComPtr<VEKITPSLightSet>>& sets,
                         const VEKTPSLightWriteOptions& options) {
  RoundTrip trip;
  trip.written = VEKWriteSets(sets, options);
  if (VEKFailed(trip.written.result)) {
    trip.difference = "the write failed: " + trip.written.error;
    return trip;
  }
  VEKTPSLightLoadOptions load;
  load.form = options.form;
  load.maxObjects = 0;
  const VEKTPSLightDocument reloaded =
      VEKLoadDocument(trip.written.bytes.data(), trip.written.bytes.size(), load);
  if (!reloaded.Loaded() || reloaded.Schema() != VEKTPSLightSchema::Current) {
    trip.difference = "what was written does not load: " + reloaded.Error();
    return trip;
  }
  for (const VEKTPSLightDiagnostic& diagnostic : reloaded.Diagnostics()) {
    if (diagnostic.kind == VEKTPSLightDiagnosticKind::UnresolvedId) {
      trip.difference = "a link written does not resolve: " + diagnostic.message;
      return trip;
    }
  }
  Json before = ExportEach(sets);
  Json after = ExportEach(reloaded.Sets());
  SetAside(before, trip.written.warnings);
  SetAside(after, trip.written.warnings);
  // Compared as text, where -0 differs from 0 and every NaN is null.
  if (before.dump() == after.dump()) return trip;
  const Json patch = Json::diff(Json::parse(before.dump()), Json::parse(after.dump()));
  trip.difference = patch.empty() ? "a zero changed sign" : "first change " + patch[0].dump();
  return trip;
}

}  // namespace vek_fuzz
