// Loads running in eight threads at once over different documents must give the models and records
// they give alone, and the dump file they all write must always hold one whole document.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "DocumentForms.h"
#include "LoadTestSupport.h"
#include "VEKDocumentGenerator.h"
#include "VEKTPSLightDocument.h"
#include "VEKTPSLightJsonExport.h"
#include "VEKTPSLightParserUtil.h"

namespace {

struct Document {
  VEKTPSLightSchema schema;
  std::string xml;
  bool oneCall;  // through VEKLoadDocument, which records into its own load only
};

// The model of one load as JSON, with the records of a one-call load, or the failure's name.
std::string Describe(const Document& document) {
  std::string text;
  if (document.oneCall) {
    const VEKTPSLightDocument loaded = VEKLoadDocument(document.xml.data(), document.xml.size());
    if (!loaded.Schema() ||
        VEKFailed(VEKExportLoadToJson(*loaded.Schema(), loaded.Result(),
                                      loaded.Sets().empty() ? nullptr : loaded.Sets().back().Get(),
                                      false, text)))
      return "export failed";
    for (const VEKTPSLightDiagnostic& diagnostic : loaded.Diagnostics())
      text += "\n" + std::to_string(diagnostic.line) + " " + diagnostic.message;
    return text;
  }
  VEKTPSLightParserUtil parser;
  VEKComPtr<VEKITPSLightSet> set;
  HRESULT result;
  if (document.schema == VEKTPSLightSchema::Legacy) {
    result = parser.GenerateLightModel(document.xml.c_str(), nullptr, set.ReleaseAndGetAddressOf());
  } else {
    VEKUnicodeString xml(document.xml.data(), document.xml.size());
    result = parser.GenerateLightModelFromBase(xml, nullptr, set.ReleaseAndGetAddressOf(), 0,
                                               nullptr, 0, 0);
  }
  if (VEKFailed(VEKExportLoadToJson(document.schema, result, set.Get(), false, text)))
    return "export failed";
  return text;
}

TEST(ConcurrentLoads, GiveTheModelsAndRecordsOfLoadsAloneAndAWholeDump) {
  // The loads write their dump into the working directory: a directory of the test's own.
  vek_test::ScratchDirectory scratch;
  ASSERT_TRUE(scratch.Entered());
  std::vector<Document> documents;
  for (std::uint64_t seed = 1; seed <= 4; ++seed) {
    for (const VEKGeneratedSchema schema :
         {VEKGeneratedSchema::Current, VEKGeneratedSchema::Legacy}) {
      const bool legacy = schema == VEKGeneratedSchema::Legacy;
      const VEKTPSLightSchema loaded =
          legacy ? VEKTPSLightSchema::Legacy : VEKTPSLightSchema::Current;
      documents.push_back({loaded, VEKGenerateDocument({schema, 120, seed}), false});
      // For one-call loads, problems of every kind to record: a second legacy set, and numbers
      // and references that do not hold.
      std::string xml = VEKGenerateDocument({schema, 60, seed});
      const std::size_t at = xml.find(legacy ? "<AnnotationSet>" : "<RootTPSs>");
      xml.insert(at, legacy ? xml.substr(at, xml.find("</AnnotationSet>") + 16 - at)
                            : "<RootTPSs><TPS Val='x" + std::to_string(seed) +
                                  "'><TTRS>999</TTRS></TPS></RootTPSs>");
      documents.push_back({loaded, std::move(xml), true});
    }
  }
  // Alone: the expected model of every document, and the dump of every current-schema one.
  std::vector<std::string> expected;
  std::set<std::string> dumps;
  for (const Document& document : documents) {
    expected.push_back(Describe(document));
    if (document.oneCall) {
      ASSERT_NE(expected.back().find('\n'), std::string::npos) << "nothing recorded";
    } else if (document.schema == VEKTPSLightSchema::Current) {
      dumps.insert(vek_test::ReadFileBytes(vek_test::DumpFileName()));
    }
  }
  ASSERT_EQ(dumps.size(), 4u);

  std::atomic<bool> stop{false};
  std::atomic<int> mismatches{0};
  std::atomic<int> loads{0};
  std::vector<std::thread> threads;
  for (int thread = 0; thread < 8; ++thread) {
    threads.emplace_back([&, thread] {
      for (std::size_t round = thread; !stop; ++round) {
        const std::size_t index = round % documents.size();
        if (Describe(documents[index]) != expected[index]) ++mismatches;
        ++loads;
      }
    });
  }
  int dumpChecks = 0;
  int torn = 0;
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(2);
  while (std::chrono::steady_clock::now() < end) {
    if (dumps.count(vek_test::ReadFileBytes(vek_test::DumpFileName())) == 0) ++torn;
    ++dumpChecks;
  }
  stop = true;
  for (std::thread& thread : threads) thread.join();

  EXPECT_EQ(mismatches, 0) << "of " << loads << " loads";
  EXPECT_EQ(torn, 0) << "of " << dumpChecks << " reads of the dump";
  EXPECT_GT(loads, static_cast<int>(documents.size()));
}

}  // namespace
