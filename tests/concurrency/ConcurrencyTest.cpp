// Loads running in eight threads at once over different documents must give the models they give
// alone, and the dump file they all write must always hold one whole document.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <fstream>
#include <iterator>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "ScratchDirectory.h"
#include "VEKDocumentGenerator.h"
#include "VEKTPSLightDocument.h"
#include "VEKTPSLightJsonExport.h"
#include "VEKTPSLightParserUtil.h"

namespace {

constexpr const char* kDumpName = "E:\\TPSLoadXML.xml";

struct Document {
  VEKTPSLightSchema schema;
  std::string xml;
};

// The JSON of one load, or the failure's name.
std::string LoadToJson(const Document& document) {
  VEKTPSLightParserUtil parser;
  VEKComPtr<VEKITPSLightSet> set;
  HRESULT result;
  if (document.schema == VEKTPSLightSchema::Legacy) {
    result = parser.GenerateLightModel(document.xml.c_str(), nullptr, set.ReleaseAndGetAddressOf());
  } else {
    VEKUnicodeString text(document.xml.data(), document.xml.size());
    result = parser.GenerateLightModelFromBase(text, nullptr, set.ReleaseAndGetAddressOf(), 0,
                                               nullptr, 0, 0);
  }
  std::string json;
  if (VEKFailed(VEKExportLoadToJson(document.schema, result, set.Get(), false, json)))
    return "export failed";
  return json;
}

std::string ReadDump() {
  std::ifstream file(kDumpName, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

TEST(ConcurrentLoads, GiveTheModelsOfLoadsAloneAndAWholeDump) {
  // The loads write their dump into the working directory: a directory of the test's own.
  vek_test::ScratchDirectory scratch;
  ASSERT_TRUE(scratch.Entered());
  std::vector<Document> documents;
  for (std::uint64_t seed = 1; seed <= 4; ++seed) {
    documents.push_back({VEKTPSLightSchema::Current,
                         VEKGenerateDocument({VEKGeneratedSchema::Current, 120, seed})});
    documents.push_back(
        {VEKTPSLightSchema::Legacy, VEKGenerateDocument({VEKGeneratedSchema::Legacy, 120, seed})});
  }
  // Alone: the expected model of every document, and the dump of every current-schema one.
  std::vector<std::string> expected;
  std::set<std::string> dumps;
  for (const Document& document : documents) {
    expected.push_back(LoadToJson(document));
    if (document.schema == VEKTPSLightSchema::Current) dumps.insert(ReadDump());
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
        if (LoadToJson(documents[index]) != expected[index]) ++mismatches;
        ++loads;
      }
    });
  }
  int dumpChecks = 0;
  int torn = 0;
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(2);
  while (std::chrono::steady_clock::now() < end) {
    if (dumps.count(ReadDump()) == 0) ++torn;
    ++dumpChecks;
  }
  stop = true;
  for (std::thread& thread : threads) thread.join();

  EXPECT_EQ(mismatches, 0) << "of " << loads << " loads";
  EXPECT_EQ(torn, 0) << "of " << dumpChecks << " reads of the dump";
  EXPECT_GT(loads, static_cast<int>(documents.size()));
}

// The model and the records of one-call load, as text.
std::string OneCallLoad(const std::string& bytes) {
  const VEKTPSLightDocument document = VEKLoadDocument(bytes.data(), bytes.size());
  std::string text;
  if (!document.Schema() ||
      VEKFailed(VEKExportLoadToJson(
          *document.Schema(), document.Result(),
          document.Sets().empty() ? nullptr : document.Sets().back().Get(), false, text)))
    return "export failed";
  for (const VEKTPSLightDiagnostic& diagnostic : document.Diagnostics())
    text += "\n" + std::to_string(diagnostic.line) + " " + diagnostic.message;
  return text;
}

TEST(ConcurrentLoads, OneCallLoadsGiveTheModelsAndRecordsOfLoadsAlone) {
  // Each thread records into its own load only: documents with problems of every kind.
  std::vector<std::string> documents;
  for (std::uint64_t seed = 1; seed <= 3; ++seed) {
    for (const VEKGeneratedSchema schema :
         {VEKGeneratedSchema::Current, VEKGeneratedSchema::Legacy}) {
      std::string xml = VEKGenerateDocument({schema, 60, seed});
      // A second legacy set, and numbers and references that do not hold.
      const bool legacy = schema == VEKGeneratedSchema::Legacy;
      const std::string set = legacy ? "<AnnotationSet>" : "<RootTPSs>";
      const std::size_t at = xml.find(set);
      xml.insert(at, legacy ? xml.substr(at, xml.find("</AnnotationSet>") + 16 - at)
                            : "<RootTPSs><TPS Val='x" + std::to_string(seed) +
                                  "'><TTRS>999</TTRS></TPS></RootTPSs>");
      documents.push_back(std::move(xml));
    }
  }
  std::vector<std::string> expected;
  for (const std::string& document : documents) expected.push_back(OneCallLoad(document));
  for (const std::string& alone : expected) ASSERT_NE(alone.find('\n'), std::string::npos);

  std::atomic<int> mismatches{0};
  std::atomic<int> loads{0};
  std::vector<std::thread> threads;
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(1);
  for (int thread = 0; thread < 8; ++thread) {
    threads.emplace_back([&, thread] {
      for (std::size_t round = thread; std::chrono::steady_clock::now() < end; ++round) {
        const std::size_t index = round % documents.size();
        if (OneCallLoad(documents[index]) != expected[index]) ++mismatches;
        ++loads;
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(mismatches, 0) << "of " << loads << " loads";
  EXPECT_GT(loads, static_cast<int>(documents.size()));
}

}  // namespace
