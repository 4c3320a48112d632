#include "VEKToolCheck.h"

#include <algorithm>
#include <cstdint>
#include <functional>
#include <unordered_map>
#include <unordered_set>

namespace {

// Where a document names another object by id, as the load looks it up.
struct Reference {
  int kind;
  int id;
  std::ptrdiff_t offset;
  // The naming object, e.g. `capture 41 "Main"`, and how it names the other one.
  std::string namer;
  const char* role;
};

// Where a document gives an object its id.
struct Definition {
  int kind;
  int id;
  std::ptrdiff_t offset;
};

// What the document holds for one set of the load.
struct SetSources {
  std::vector<Reference> references;
  std::vector<Definition> definitions;
};

using Element = const VEKLightXmlElementItf&;

std::uint64_t KeyOf(int kind, int id) {
  return (static_cast<std::uint64_t>(static_cast<std::uint32_t>(kind)) << 32) |
         static_cast<std::uint32_t>(id);
}

void ForEachChild(Element parent, const std::function<void(Element)>& visit) {
  for (void* position = parent.GetChildren(); position;) {
    if (const VEKLightXmlElementItf* child = parent.GetChild(position)) visit(*child);
  }
}

// The first child of `parent` named `name`, as the library's navigation finds it; null if none.
const VEKLightXmlElementItf* FirstChild(Element parent, const char* name) {
  for (void* position = parent.GetChildren(); position;) {
    const VEKLightXmlElementItf* child = parent.GetChild(position);
    if (child && child->GetName() == name) return child;
  }
  return nullptr;
}

std::string Utf8(const VEKUnicodeString& text) { return text.ConvertToChar(); }

// "%d" as the library converts it; `value` keeps what it held when the text does not convert.
void ConvertInt(const std::string& text, int& value) {
  (void)VEKUnicodeString(text.c_str(), text.size()).ConvertToNum(&value, "%d");
}

int ToInt(const std::string& text) {
  int value = 0;
  ConvertInt(text, value);
  return value;
}

// The integers of a space-separated list, zeros dropped, as the current schema's lists read.
std::vector<int> SpaceSeparatedIds(const std::string& text) {
  std::vector<int> ids;
  for (std::size_t start = 0; start <= text.size();) {
    const std::size_t found = text.find(' ', start);
    const std::size_t end = found == std::string::npos ? text.size() : found;
    if (const int id = ToInt(text.substr(start, end - start))) ids.push_back(id);
    if (found == std::string::npos) break;
    start = found + 1;
  }
  return ids;
}

// The pieces of a legacy packed list: the first character is never part of a piece, and a last
// piece without a closing separator comes back as the whole text.
std::vector<std::string> LegacyPieces(const std::string& text, char separator) {
  std::vector<std::string> pieces;
  if (text.empty()) return pieces;
  std::size_t start = 1;
  while (start < text.size() && (static_cast<unsigned char>(text[start]) & 0xC0) == 0x80) ++start;
  for (;;) {
    const std::size_t found = text.find(separator, start);
    if (found == std::string::npos) {
      pieces.push_back(text);
      break;
    }
    if (start < found) pieces.push_back(text.substr(start, found - start));
    start = found + 1;
    if (start >= text.size()) break;
  }
  return pieces;
}

std::string Printable(std::string text) {
  for (char& c : text) {
    if (static_cast<unsigned char>(c) < 0x20 || c == 0x7F) c = ' ';
  }
  return text;
}

std::string Describe(int kind, int id, const std::string& name) {
  std::string text = VEKToolKindName(kind) + " " + std::to_string(id);
  if (!name.empty()) text += " \"" + Printable(name) + "\"";
  return text;
}

class ProblemList {
 public:
  explicit ProblemList(const VEKToolLines& lines) : lines_(lines) {}
  void Add(std::ptrdiff_t offset, std::string text) {
    const int line = lines_.LineOf(offset);
    if (line > 0) text = "line " + std::to_string(line) + ": " + text;
    problems_.push_back({line, std::move(text)});
  }
  int LineOf(std::ptrdiff_t offset) const { return lines_.LineOf(offset); }
  std::vector<VEKToolProblem> Take() {
    std::stable_sort(
        problems_.begin(), problems_.end(), [](const VEKToolProblem& a, const VEKToolProblem& b) {
          return (a.line == 0 ? INT32_MAX : a.line) < (b.line == 0 ? INT32_MAX : b.line);
        });
    std::unordered_set<std::string> seen;
    std::vector<VEKToolProblem> unique;
    for (VEKToolProblem& problem : problems_) {
      if (seen.insert(problem.text).second) unique.push_back(std::move(problem));
    }
    return unique;
  }

 private:
  const VEKToolLines& lines_;
  std::vector<VEKToolProblem> problems_;
};

// ---- current schema ----

struct CurrentFamily {
  const char* root;
  const char* tag;
  int kind;
};

const CurrentFamily kCurrentFamilies[] = {
    {"RootTTRSs", "TTRS", VEKTPSLightKindTTRS},
    {"RootTPSs", "TPS", VEKTPSLightKindAnnotation},
    {"RootViews", "TPSView", VEKTPSLightKindView},
    {"RootRefs", "RefFrame", VEKTPSLightKindRefFrame},
    {"RootCGs", "TPSCG", VEKTPSLightKindCG},
    {"RootCaps", "TPSCap", VEKTPSLightKindCapture},
};

void AddCurrentReferences(Element list, int kind, const std::string& namer, const char* role,
                          SetSources& sources) {
  for (const int id : SpaceSeparatedIds(Utf8(list.GetValue())))
    sources.references.push_back({kind, id, list.GetSourceOffset(), namer, role});
}

void ScanCurrentObject(Element object, int kind, SetSources& sources) {
  int id = 0;
  std::string name;
  if (const VEKLightXmlElementItf* location = FirstChild(object, "TPSLoc")) {
    ConvertInt(Utf8(location->GetAttributeValue("Id")), id);
  }
  if (const VEKLightXmlElementItf* identity = FirstChild(object, "TPSId")) {
    name = Utf8(identity->GetAttributeValue("Name"));
  }
  sources.definitions.push_back({kind, id, object.GetSourceOffset()});
  const std::string namer = Describe(kind, id, name);

  if (kind == VEKTPSLightKindAnnotation) {
    ForEachChild(object, [&](Element child) {
      if (child.GetName() == "Grou") {
        AddCurrentReferences(child, VEKTPSLightKindAnnotation, namer, " in its order group",
                             sources);
      }
    });
  } else if (kind == VEKTPSLightKindView) {
    if (const VEKLightXmlElementItf* shown = FirstChild(object, "TPSs"))
      AddCurrentReferences(*shown, VEKTPSLightKindAnnotation, namer, "", sources);
  } else if (kind == VEKTPSLightKindRefFrame) {
    ForEachChild(object, [&](Element child) {
      if (child.GetName() == "Datum")
        AddCurrentReferences(child, VEKTPSLightKindAnnotation, namer, " as a datum", sources);
    });
  } else if (kind == VEKTPSLightKindCapture) {
    if (const int view = ToInt(Utf8(object.GetAttributeValue("ActVie")))) {
      sources.references.push_back(
          {VEKTPSLightKindView, view, object.GetSourceOffset(), namer, " as its active view"});
    }
    // The camera ends what a capture reads.
    bool camera = false;
    ForEachChild(object, [&](Element child) {
      if (camera) return;
      const VEKUnicodeString& tag = child.GetName();
      if (tag == "TPSs") AddCurrentReferences(child, VEKTPSLightKindAnnotation, namer, "", sources);
      if (tag == "Views") AddCurrentReferences(child, VEKTPSLightKindView, namer, "", sources);
      if (tag == "CGs") AddCurrentReferences(child, VEKTPSLightKindCG, namer, "", sources);
      camera = tag == "Cam";
    });
  }
}

// Each "AnnotationSet" starts the sources of the next set; family roots before the first one
// build nothing.
std::vector<SetSources> ScanCurrent(Element root, ProblemList& problems) {
  std::vector<SetSources> perSet;
  ForEachChild(root, [&](Element child) {
    const VEKUnicodeString& name = child.GetName();
    if (name == "AnnotationSet") {
      perSet.emplace_back();
      return;
    }
    for (const CurrentFamily& family : kCurrentFamilies) {
      if (name != family.root) continue;
      if (perSet.empty()) {
        problems.Add(child.GetSourceOffset(),
                     std::string(family.root) +
                         " comes before any AnnotationSet, so its objects are not built");
        return;
      }
      ForEachChild(child, [&](Element object) {
        if (object.GetName() == family.tag) ScanCurrentObject(object, family.kind, perSet.back());
      });
    }
  });
  return perSet;
}

// ---- legacy schema ----

// The positional values of a legacy object: the "V" of each counted child, and where it stands.
struct Values {
  std::vector<std::string> items;
  std::vector<std::ptrdiff_t> offsets;
  const std::string& Item(std::size_t k) const {
    static const std::string empty;
    return k >= 1 && k <= items.size() ? items[k - 1] : empty;
  }
  std::ptrdiff_t Offset(std::size_t k) const {
    return k >= 1 && k <= offsets.size() ? offsets[k - 1] : -1;
  }
};

Values CollectValues(Element object, const std::function<bool(const VEKUnicodeString&)>& counts) {
  Values values;
  ForEachChild(object, [&](Element child) {
    if (child.GetName().GetLengthInChar() == 0 || !counts(child.GetName())) return;
    values.items.push_back(Utf8(child.GetAttributeValue("V")));
    values.offsets.push_back(child.GetSourceOffset());
  });
  return values;
}

void AddLegacyReferences(const Values& values, std::size_t item, char separator, int kind,
                         const std::string& namer, const char* role, SetSources& sources) {
  for (const std::string& piece : LegacyPieces(values.Item(item), separator))
    sources.references.push_back({kind, ToInt(piece), values.Offset(item), namer, role});
}

// Runs `build` on every `tag` child of the first `rootName` child of the document root, with the
// object's values when they are exactly `expected`, and reports the others as passed over.
void ScanLegacyFamily(Element root, const char* rootName, const char* tag, std::size_t expected,
                      const std::function<bool(const VEKUnicodeString&)>& counts,
                      ProblemList& problems,
                      const std::function<void(Element, const Values&)>& build) {
  const VEKLightXmlElementItf* familyRoot = FirstChild(root, rootName);
  if (!familyRoot) return;
  ForEachChild(*familyRoot, [&](Element object) {
    if (object.GetName() != tag) return;
    const Values values = CollectValues(object, counts);
    if (values.items.size() == expected) {
      build(object, values);
      return;
    }
    problems.Add(object.GetSourceOffset(),
                 std::string(tag) + " holds " + std::to_string(values.items.size()) +
                     " values, not " + std::to_string(expected) + ", so it is passed over");
  });
}

SetSources ScanLegacy(Element root, ProblemList& problems) {
  SetSources sources;
  const auto everyChild = [](const VEKUnicodeString&) { return true; };

  ForEachChild(root, [&](Element child) {
    if (child.GetName() == "AnnotationSet" && child.GetChildCount() != 5) {
      problems.Add(child.GetSourceOffset(),
                   "AnnotationSet holds " + std::to_string(child.GetChildCount()) +
                       " values, not 5, so its set gets no values and no objects");
    }
  });

  // A TTRS takes its name, id and uuid from its Na, In and Ui children in document order.
  if (const VEKLightXmlElementItf* ttrsRoot = FirstChild(root, "TTRSRoot")) {
    ForEachChild(*ttrsRoot, [&](Element object) {
      if (object.GetName() != "TTRS") return;
      const Values identity = CollectValues(object, [](const VEKUnicodeString& name) {
        return name == "Na" || name == "In" || name == "Ui";
      });
      if (identity.items.empty()) {
        problems.Add(object.GetSourceOffset(),
                     "TTRS has no Na, In or Ui child, so it is passed over");
        return;
      }
      sources.definitions.push_back(
          {VEKTPSLightKindTTRS, ToInt(identity.Item(2)), object.GetSourceOffset()});
    });
  }

  ScanLegacyFamily(
      root, "Annotations", "TPS", 11, everyChild, problems,
      [&](Element object, const Values& values) {
        // Type and id share one number, so an unreadable id repeats the type.
        int id = 0;
        ConvertInt(values.Item(1), id);
        ConvertInt(values.Item(4), id);
        sources.definitions.push_back({VEKTPSLightKindAnnotation, id, object.GetSourceOffset()});
        AddLegacyReferences(values, 11, ';', VEKTPSLightKindAnnotation,
                            Describe(VEKTPSLightKindAnnotation, id, values.Item(3)),
                            " in its order group", sources);
      });

  ScanLegacyFamily(
      root, "ViewRoot", "View", 5, [](const VEKUnicodeString& name) { return name != "Mt"; },
      problems,
      [&](Element object, const Values& values) {
        int id = 0;
        ConvertInt(values.Item(1), id);
        ConvertInt(values.Item(3), id);
        sources.definitions.push_back({VEKTPSLightKindView, id, object.GetSourceOffset()});
        AddLegacyReferences(values, 5, ';', VEKTPSLightKindAnnotation,
                            Describe(VEKTPSLightKindView, id, values.Item(2)), "", sources);
      });

  ScanLegacyFamily(
      root, "ReferenceFrame", "RefFrame", 6, everyChild, problems,
      [&](Element object, const Values& values) {
        int id = 32;
        ConvertInt(values.Item(2), id);
        sources.definitions.push_back({VEKTPSLightKindRefFrame, id, object.GetSourceOffset()});
        AddLegacyReferences(values, 5, ';', VEKTPSLightKindAnnotation,
                            Describe(VEKTPSLightKindRefFrame, id, values.Item(1)), " as a datum",
                            sources);
      });

  ScanLegacyFamily(
      root, "CGRoot", "CG", 8, everyChild, problems, [&](Element object, const Values& values) {
        int id = 0;
        ConvertInt(values.Item(1), id);
        ConvertInt(values.Item(3), id);
        sources.definitions.push_back({VEKTPSLightKindCG, id, object.GetSourceOffset()});
      });

  ScanLegacyFamily(
      root, "CaptureRoot", "Capture", 8,
      [](const VEKUnicodeString& name) { return name != "Cam" && name != "Gd"; }, problems,
      [&](Element object, const Values& values) {
        // Number and active view share one number, so an unreadable view repeats the number.
        int number = 0;
        ConvertInt(values.Item(1), number);
        const int id = number;
        sources.definitions.push_back({VEKTPSLightKindCapture, id, object.GetSourceOffset()});
        const std::string namer = Describe(VEKTPSLightKindCapture, id, values.Item(4));
        ConvertInt(values.Item(2), number);
        if (number != 0) {
          sources.references.push_back(
              {VEKTPSLightKindView, number, values.Offset(2), namer, " as its active view"});
        }
        AddLegacyReferences(values, 6, ' ', VEKTPSLightKindAnnotation, namer, "", sources);
        AddLegacyReferences(values, 7, ' ', VEKTPSLightKindView, namer, "", sources);
        AddLegacyReferences(values, 8, ' ', VEKTPSLightKindCG, namer, "", sources);
      });
  return sources;
}

// ---- what the model recorded ----

void ReportSet(const VEKITPSLightSet& set, const SetSources& sources, ProblemList& problems) {
  std::unordered_map<std::uint64_t, std::vector<std::ptrdiff_t>> definitions;
  for (const Definition& definition : sources.definitions)
    definitions[KeyOf(definition.kind, definition.id)].push_back(definition.offset);

  // Each failed lookup is placed at the first reference of that kind and id not yet placed.
  std::unordered_map<std::uint64_t, std::vector<const Reference*>> references;
  for (const Reference& reference : sources.references)
    references[KeyOf(reference.kind, reference.id)].push_back(&reference);
  std::unordered_map<std::uint64_t, std::size_t> placed;
  for (const VEKTPSLightUnresolved& missing : set.GetUnresolvedReferences()) {
    const std::uint64_t key = KeyOf(missing.kind, missing.id);
    const std::string target = VEKToolKindName(missing.kind) + " " + std::to_string(missing.id);
    const auto candidates = references.find(key);
    std::size_t& next = placed[key];
    if (candidates == references.end() || next >= candidates->second.size()) {
      problems.Add(-1, "unresolved reference to " + target);
      continue;
    }
    const Reference& reference = *candidates->second[next++];
    std::string text = reference.namer + " names " + target + reference.role;
    const auto defined = definitions.find(key);
    if (defined != definitions.end() && defined->second.front() > reference.offset) {
      text += ", which is defined later, at line " +
              std::to_string(problems.LineOf(defined->second.front())) +
              "; a reference finds only objects defined before it";
    } else {
      text += ", which does not exist";
    }
    problems.Add(reference.offset, text);
  }

  // The n-th duplicate of a kind and id is the (n + 1)-th object given it.
  std::unordered_map<std::uint64_t, std::size_t> seen;
  for (const VEKTPSLightUnresolved& duplicate : set.GetDuplicateIds()) {
    const std::uint64_t key = KeyOf(duplicate.kind, duplicate.id);
    const std::string text =
        "duplicate " + VEKToolKindName(duplicate.kind) + " id " + std::to_string(duplicate.id);
    const std::size_t index = ++seen[key];
    const auto defined = definitions.find(key);
    if (defined == definitions.end() || index >= defined->second.size()) {
      problems.Add(-1, text);
      continue;
    }
    problems.Add(
        defined->second[index],
        text + ", first given at line " + std::to_string(problems.LineOf(defined->second.front())));
  }
}

}  // namespace

std::string VEKToolKindName(int kind) {
  switch (kind) {
    case VEKTPSLightKindAnnotation:
      return "annotation";
    case VEKTPSLightKindView:
      return "view";
    case VEKTPSLightKindTTRS:
      return "TTRS";
    case VEKTPSLightKindRefFrame:
      return "reference frame";
    case VEKTPSLightKindCG:
      return "construction geometry";
    case VEKTPSLightKindCapture:
      return "capture";
    default:
      return "object of kind " + std::to_string(kind);
  }
}

std::vector<VEKToolProblem> VEKToolFindProblems(
    const VEKToolDocument& document, const std::vector<VEKComPtr<VEKITPSLightSet>>& sets) {
  const VEKToolLines lines(document.utf8);
  ProblemList problems(lines);
  if (document.schema == VEKToolSchema::Current) {
    const std::vector<SetSources> perSet = ScanCurrent(document.root, problems);
    const SetSources none;
    for (std::size_t k = 0; k < sets.size(); ++k)
      ReportSet(*sets[k].Get(), k < perSet.size() ? perSet[k] : none, problems);
  } else if (document.schema == VEKToolSchema::Legacy) {
    // Every set of a legacy load is built from the whole document.
    const SetSources sources = ScanLegacy(document.root, problems);
    for (const VEKComPtr<VEKITPSLightSet>& set : sets) ReportSet(*set.Get(), sources, problems);
  }
  return problems.Take();
}
