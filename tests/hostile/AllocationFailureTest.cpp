// Every allocation of a whole load refused in turn, alone or with every later one: the load must
// end with a result code, release everything it took, and leave a model that says nothing the
// document does not.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <pugixml.hpp>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <string>
#include <tuple>

#include "DocumentForms.h"
#include "FailingAllocator.h"
#include "ScratchDirectory.h"
#include "VEKComPtr.h"
#include "VEKDocumentGenerator.h"
#include "VEKTPSLightDocument.h"
#include "VEKTPSLightJsonExport.h"
#include "VEKTPSLightParserUtil.h"
#include "VEKTPSLightWriter.h"

namespace {

using nlohmann::json;

// The XML parser's blocks go through the same countdown as every other allocation; set before any
// document exists, so no block is freed by a function other than the one that made it.
const bool kCountedXmlAllocations = [] {
  pugi::set_memory_management_functions(vektest::CountedAllocate, vektest::CountedFree);
  return true;
}();

struct Sample {
  const char* name;
  VEKGeneratedSchema schema;
  VEKGeneratedForm form;
  // Through VEKLoadDocument rather than the load operations.
  bool oneCall = false;
};

// Where the writer writes.
struct Target {
  const char* name;
  VEKTPSLightForm form;
  bool toFile = false;
};

// The sets of one load as JSON.
json SetsAsJson(VEKTPSLightSchema schema, HRESULT result, VEKITPSLightSet* set) {
  std::string text;
  EXPECT_EQ(VEKExportLoadToJson(schema, result, set, false, text), S_OK);
  return json::parse(text)["sets"];
}

// One document of a few objects of each family, one annotation with a GLB among them, encoded in
// the sample's form. The sweep reaches the scene-graph reader's allocations too, simdjson's
// among them. With seed 6 two annotations of each schema carry an order group, so the sweep
// reaches the linking of groups.
class LoadInput {
 public:
  explicit LoadInput(const Sample& sample) : sample_(sample) {
    const std::string xml = VEKGenerateDocument({sample.schema, 10, 6});
    declared_ = static_cast<int>(xml.size());
    EXPECT_TRUE(VEKEncodeDocumentForm(xml, sample.form, bytes_));
  }

  // Copies the input for the next load, which may write into it; made before allocations are
  // refused, since the caller's copies are not the load's.
  void Prepare() {
    work_ = bytes_;
    text_ = VEKUnicodeString(work_.data(), work_.size());
  }

  HRESULT Load(VEKComPtr<VEKITPSLightSet>& set) {
    if (sample_.oneCall) {
      const VEKTPSLightDocument document = VEKLoadDocument(work_.data(), work_.size());
      status_ = document.Status();
      set = document.Sets().empty() ? nullptr : document.Sets().back();
      return document.Result();
    }
    VEKTPSLightParserUtil parser;
    if (sample_.schema == VEKGeneratedSchema::Legacy)
      return parser.GenerateLightModel(work_.c_str(), nullptr, set.ReleaseAndGetAddressOf());
    if (sample_.form == VEKGeneratedForm::Zlib) {
      return parser.GenerateLightModelFromBase(text_, nullptr, set.ReleaseAndGetAddressOf(), 0,
                                               work_.data(), declared_,
                                               static_cast<int>(work_.size()));
    }
    const unsigned char fromBase64 = sample_.form == VEKGeneratedForm::Base64 ? 1 : 0;
    return parser.GenerateLightModelFromBase(text_, nullptr, set.ReleaseAndGetAddressOf(),
                                             fromBase64, nullptr, 0, 0);
  }

  // Whether the last load told memory running out as such, never as a fault of the document (a
  // list of children that could not be built reads as no children, so no set may be made).
  bool ToldRightly() const {
    return status_ == VEKTPSLightLoadStatus::Loaded ||
           status_ == VEKTPSLightLoadStatus::OutOfMemory || status_ == VEKTPSLightLoadStatus::NoSet;
  }

  json Export(HRESULT result, VEKITPSLightSet* set) const {
    return SetsAsJson(sample_.schema == VEKGeneratedSchema::Legacy ? VEKTPSLightSchema::Legacy
                                                                   : VEKTPSLightSchema::Current,
                      result, set);
  }

 private:
  Sample sample_;
  std::string bytes_;
  int declared_ = 0;
  std::string work_;
  VEKUnicodeString text_;
  VEKTPSLightLoadStatus status_ = VEKTPSLightLoadStatus::Loaded;
};

// Whether `partial` says nothing that `whole` does not. Objects and links may be missing and
// values may read as absent: a text that could not be held is empty, and a number read from it
// is what an absent value gives: 0, or in the legacy schema the integer carried over from the item
// read before it, which the object holds in another member.
// The failed lookups a model records are left out: a missing object leaves some.
bool CarriedOver(const json& object, const std::string& key) {
  for (const auto& [other, value] : object.items())
    if (other != key && value == object[key]) return true;
  return false;
}

bool SaysNoMoreThan(const json& partial, const json& whole) {
  if (partial == whole || partial.is_null()) return true;
  if (partial.is_string()) return partial.get_ref<const std::string&>().empty();
  if (partial.is_number()) return partial == 0;
  if (partial.is_object() && whole.is_object()) {
    for (const auto& [key, value] : partial.items()) {
      const auto found = whole.find(key);
      if (key == "unresolved") continue;
      if (value.is_number() && CarriedOver(partial, key)) continue;
      if (found == whole.end() || !SaysNoMoreThan(value, *found)) return false;
    }
    return true;
  }
  if (partial.is_array() && whole.is_array()) {
    std::size_t at = 0;
    for (const json& element : partial) {
      while (at < whole.size() && !SaysNoMoreThan(element, whole[at])) ++at;
      if (at++ == whole.size()) return false;
    }
    return true;
  }
  return false;
}

// Runs `attempt(failing)` for each of the `allocations` an operation makes, refusing allocation
// `failing` in it; `attempt` tells what is wrong with the outcome (empty when nothing is) and must
// leave no block behind.
template <class Attempt>
void RefuseEach(std::size_t allocations, Attempt attempt) {
  ASSERT_GT(allocations, 50u);
  for (std::size_t failing = 1; failing <= allocations; ++failing) {
    SCOPED_TRACE(testing::Message() << "allocation " << failing << " of " << allocations);
    const std::size_t liveBefore = vektest::LiveBlocks();
    const std::string wrong = attempt(failing);
    // Measured before anything is reported, since reporting allocates too.
    const std::size_t liveAfter = vektest::LiveBlocks();
    ASSERT_EQ(wrong, "");
    EXPECT_EQ(liveAfter, liveBefore) << "blocks left behind";
  }
}

std::string WrongResult(HRESULT result) {
  return "result " + testing::PrintToString(static_cast<unsigned>(result));
}

// The sweeps of one operation over its samples, each refusal alone or with every later one, in a
// scratch working directory.
template <class Param>
class Sweep : public testing::TestWithParam<std::tuple<Param, vektest::Refusal>> {
 public:
  static std::string Name(const testing::TestParamInfo<std::tuple<Param, vektest::Refusal>>& info) {
    const bool once = std::get<1>(info.param) == vektest::Refusal::kThatOneOnly;
    return std::string(std::get<0>(info.param).name) + (once ? "_once" : "_from_then_on");
  }

 protected:
  void SetUp() override { ASSERT_TRUE(scratch_.Entered()); }
  vek_test::ScratchDirectory scratch_;
};
using AllocationFailure = Sweep<Sample>;
using WriterAllocationFailure = Sweep<Target>;
const auto kRefusals =
    testing::Values(vektest::Refusal::kThatOneOnly, vektest::Refusal::kFromThenOn);

TEST_P(AllocationFailure, EachRefusedAllocationEndsCleanly) {
  const Sample& sample = std::get<0>(GetParam());
  const vektest::Refusal refusal = std::get<1>(GetParam());
  LoadInput input(sample);
  json whole;
  std::size_t allocations = 0;
  {
    VEKComPtr<VEKITPSLightSet> set;
    input.Prepare();
    // A refusal beyond the last allocation counts them without refusing any.
    vektest::FailingAllocations none(SIZE_MAX, vektest::Refusal::kThatOneOnly);
    const HRESULT result = input.Load(set);
    allocations = none.Requested();
    ASSERT_EQ(result, S_OK);
    whole = input.Export(result, set.Get());
  }
  RecordProperty("allocations", static_cast<int>(allocations));
  const auto grouped = [](const json& annotation) { return !annotation["orderGroup"].empty(); };
  ASSERT_TRUE(std::any_of(whole[0]["annotations"].begin(), whole[0]["annotations"].end(), grouped));

  RefuseEach(allocations, [&](std::size_t failing) -> std::string {
    VEKComPtr<VEKITPSLightSet> set;
    input.Prepare();
    HRESULT result = S_OK;
    bool refused = false;
    {
      vektest::FailingAllocations failure(failing, refusal);
      result = input.Load(set);
      refused = failure.Refused();
    }
    if (!refused) return "nothing refused";
    // A set the model could not make passes its E_OUTOFMEMORY on as the load's result.
    if (result != S_OK && result != E_FAIL && result != E_OUTOFMEMORY) return WrongResult(result);
    if (!input.ToldRightly()) return "memory running out told as a fault of the document";
    if (!set) return "";
    const json partial = input.Export(result, set.Get());
    return SaysNoMoreThan(partial, whole) ? "" : "says more: " + partial.dump();
  });

  // Nothing the refusals touched lingers: the next load gives the whole model again.
  VEKComPtr<VEKITPSLightSet> set;
  input.Prepare();
  const HRESULT result = input.Load(set);
  EXPECT_EQ(input.Export(result, set.Get()), whole);
}

INSTANTIATE_TEST_SUITE_P(
    EverySchemaAndForm, AllocationFailure,
    testing::Combine(
        testing::Values(
            Sample{"current_plain", VEKGeneratedSchema::Current, VEKGeneratedForm::Plain},
            Sample{"current_base64", VEKGeneratedSchema::Current, VEKGeneratedForm::Base64},
            Sample{"current_zlib", VEKGeneratedSchema::Current, VEKGeneratedForm::Zlib},
            Sample{"legacy", VEKGeneratedSchema::Legacy, VEKGeneratedForm::Plain},
            Sample{"one_call_base64", VEKGeneratedSchema::Current, VEKGeneratedForm::Base64, true},
            Sample{"one_call_legacy", VEKGeneratedSchema::Legacy, VEKGeneratedForm::Plain, true}),
        kRefusals),
    AllocationFailure::Name);

// The writer under the same sweep: each refused allocation ends in E_OUTOFMEMORY with nothing
// written (no file either) and nothing left behind, or in a document that says no more than the
// model. What it cannot tell: a text the model could not copy for the writer reads as empty.
TEST_P(WriterAllocationFailure, EachRefusedAllocationEndsCleanly) {
  const Target& target = std::get<0>(GetParam());
  const vektest::Refusal refusal = std::get<1>(GetParam());
  const std::string xml = VEKGenerateDocument({VEKGeneratedSchema::Current, 10, 6});
  const VEKTPSLightDocument document = VEKLoadDocument(xml.data(), xml.size());
  ASSERT_TRUE(document.Loaded());
  VEKTPSLightWriteOptions options;
  options.form = target.form;
  const auto write = [&] {
    return target.toFile ? VEKWriteDocumentFile("out.xml", document, options)
                         : VEKWriteDocument(document, options);
  };
  // The sets of the document a write gave, read back.
  const auto written = [&](const VEKTPSLightWriteResult& result) {
    const std::string bytes = target.toFile ? vek_test::ReadFileBytes("out.xml") : result.bytes;
    const VEKTPSLightDocument reread = VEKLoadDocument(bytes.data(), bytes.size());
    return SetsAsJson(VEKTPSLightSchema::Current, S_OK,
                      reread.Sets().empty() ? nullptr : reread.Sets().back().Get());
  };
  std::size_t allocations = 0;
  json whole;
  {
    vektest::FailingAllocations none(SIZE_MAX, vektest::Refusal::kThatOneOnly);
    const VEKTPSLightWriteResult result = write();
    allocations = none.Requested();
    ASSERT_EQ(result.result, S_OK);
    whole = written(result);
  }
  RefuseEach(allocations, [&](std::size_t failing) -> std::string {
    if (target.toFile) std::remove("out.xml");
    VEKTPSLightWriteResult result;
    {
      vektest::FailingAllocations failure(failing, refusal);
      result = write();
    }
    if (result.result == E_OUTOFMEMORY) {
      if (!result.bytes.empty() || !result.warnings.empty()) return "output of a failed write";
      // Neither the file nor a temporary one.
      return target.toFile && !std::filesystem::is_empty(".") ? "a file of a failed write" : "";
    }
    if (result.result != S_OK) return WrongResult(result.result);
    return SaysNoMoreThan(written(result), whole) ? "" : "says more than the model";
  });
}

INSTANTIATE_TEST_SUITE_P(EveryForm, WriterAllocationFailure,
                         testing::Combine(testing::Values(Target{"plain", VEKTPSLightForm::Plain},
                                                          Target{"base64", VEKTPSLightForm::Base64},
                                                          Target{"zlib", VEKTPSLightForm::Zlib},
                                                          Target{"plain_file",
                                                                 VEKTPSLightForm::Plain, true}),
                                          kRefusals),
                         WriterAllocationFailure::Name);

}  // namespace
