// CSV tables of a load's sets, one per family, flattened from the JSON form of each set so that
// both exports name and write every member alike.
#include <new>
#include <string>
#include <utility>
#include <vector>

#include "VEKTPSLightJsonExport.h"
#include "VEKTPSLightJsonModel.h"

namespace {

using Json = nlohmann::ordered_json;

struct Family {
  const char* member;  // in the JSON form of a set
  const char* file;
};

constexpr Family kFamilies[] = {
    {"annotations", "annotations.csv"}, {"ttrs", "ttrs.csv"}, {"views", "views.csv"},
    {"refFrames", "ref_frames.csv"},    {"cgs", "cgs.csv"},   {"captures", "captures.csv"},
};

std::string Scalar(const Json& value) {
  if (value.is_null()) return "";
  if (value.is_string()) return value.get<std::string>();
  return value.dump();
}

// A list as one cell: items separated by spaces, nested lists by "; ", a missing item as "null".
std::string List(const Json& list) {
  std::string cell;
  const bool nested = !list.empty() && list.front().is_array();
  for (const Json& item : list) {
    if (!cell.empty()) cell += nested ? "; " : " ";
    cell += item.is_array() ? List(item) : item.is_null() ? "null" : Scalar(item);
  }
  return cell;
}

// The columns of a family, from the JSON form of one of its objects with every nested member
// present: nested members flattened as "outer.inner".
void Columns(const Json& shape, const std::string& prefix, std::vector<std::string>& columns) {
  for (auto member = shape.begin(); member != shape.end(); ++member) {
    if (member->is_object()) {
      Columns(*member, prefix + member.key() + ".", columns);
    } else {
      columns.push_back(prefix + member.key());
    }
  }
}

// The cells of one object in the order of Columns(shape); a nested member that is null (a graphic
// never set) leaves its cells empty.
void Cells(const Json& shape, const Json& object, std::vector<std::string>& cells) {
  for (auto member = shape.begin(); member != shape.end(); ++member) {
    const auto found = object.is_object() ? object.find(member.key()) : object.end();
    const Json none;
    const Json& value = object.is_object() && found != object.end() ? *found : none;
    if (member->is_object()) {
      Cells(*member, value, cells);
    } else {
      cells.push_back(value.is_array() ? List(value) : Scalar(value));
    }
  }
}

void AppendField(const std::string& field, std::string& csv) {
  if (field.find_first_of(",\"\r\n") == std::string::npos) {
    csv += field;
    return;
  }
  csv += '"';
  for (const char c : field) {
    if (c == '"') csv += '"';
    csv += c;
  }
  csv += '"';
}

void AppendRow(const std::vector<std::string>& fields, std::string& csv) {
  for (std::size_t k = 0; k < fields.size(); ++k) {
    if (k > 0) csv += ',';
    AppendField(fields[k], csv);
  }
  csv += "\r\n";
}

// The JSON form of a set holding one object of each family, with an empty graphic wherever an
// object can have one and every other value never set: its members are the columns.
Json ShapeOfSet() {
  VEKComPtr<VEKTPSLightContainer> container;
  container.Attach(new VEKTPSLightContainer());
  VEKComPtr<VEKITPSLightSet> set;
  if (!container || VEKFailed(container->CreateLightSet(set.ReleaseAndGetAddressOf(), nullptr)))
    throw std::bad_alloc();
  VEKComPtr<VEKITPSLightAnnotation> annotation;
  VEKComPtr<VEKITPSLightTTRS> ttrs;
  VEKComPtr<VEKITPSLightView> view;
  VEKComPtr<VEKITPSLightRefFrame> frame;
  VEKComPtr<VEKITPSLightCG> cg;
  VEKComPtr<VEKITPSLightCapture> capture;
  const HRESULT made[] = {
      container->CreateAnnotation(annotation.ReleaseAndGetAddressOf(), set.Get()),
      container->CreateTTRS(ttrs.ReleaseAndGetAddressOf(), set.Get()),
      container->CreateView(view.ReleaseAndGetAddressOf(), set.Get()),
      container->CreateRefFrame(frame.ReleaseAndGetAddressOf(), set.Get()),
      container->CreateCG(cg.ReleaseAndGetAddressOf(), set.Get()),
      container->CreateCapture(capture.ReleaseAndGetAddressOf(), set.Get())};
  for (const HRESULT result : made) {
    if (VEKFailed(result)) throw std::bad_alloc();
  }
  for (const VEKLightObjectList* family :
       {static_cast<const VEKLightObjectList*>(set->GetAnnotations()), &set->GetTTRS(),
        &set->GetViews(), &set->GetRefFrames(), &set->GetCGs(), &set->GetCaptures()}) {
    VEKComPtr<VEKITPSLight> light;
    if (VEKFailed(VEKComPtr<VEKBaseUnknown>(family->Get(0)).As(&light)) ||
        VEKFailed(light->SetRep(new VEKRep())))
      throw std::bad_alloc();
  }
  if (VEKFailed(annotation->SetRep(new VEKRep())) || VEKFailed(capture->SetRep(new VEKRep())))
    throw std::bad_alloc();
  return VEKJsonOfSet(*set.Get());
}

}  // namespace

HRESULT VEKExportLoadToCsv(VEKITPSLightSet* lastSet, int onlySet,
                           std::vector<std::pair<std::string, std::string>>& tables) noexcept {
  tables.clear();
  try {
    std::vector<VEKComPtr<VEKITPSLightSet>> sets;
    if (VEKFailed(VEKGetSetsOfLoad(lastSet, sets))) return E_OUTOFMEMORY;
    if (onlySet < 0 || onlySet > static_cast<int>(sets.size())) return E_INVALIDARG;
    std::vector<Json> json;
    for (std::size_t k = 0; k < sets.size(); ++k) {
      json.push_back(onlySet == 0 || onlySet == static_cast<int>(k) + 1
                         ? VEKJsonOfSet(*sets[k].Get())
                         : Json());
    }
    const Json shape = ShapeOfSet();
    for (const Family& family : kFamilies) {
      const Json& objectShape = shape[family.member][0];
      std::vector<std::string> columns = {"set"};
      Columns(objectShape, "", columns);
      std::string csv;
      AppendRow(columns, csv);
      for (std::size_t k = 0; k < json.size(); ++k) {
        if (json[k].is_null()) continue;
        for (const Json& object : json[k][family.member]) {
          std::vector<std::string> cells = {std::to_string(k + 1)};
          Cells(objectShape, object, cells);
          AppendRow(cells, csv);
        }
      }
      tables.emplace_back(family.file, std::move(csv));
    }
    return S_OK;
  } catch (const std::bad_alloc&) {
    tables.clear();
    return E_OUTOFMEMORY;
  } catch (...) {
    tables.clear();
    return E_FAIL;
  }
}
