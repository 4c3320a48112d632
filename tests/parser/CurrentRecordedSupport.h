// Fixture for the current-schema tests that check, through the recording model, which model
// operations are made, in which order, and that every reference obtained is released.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "GlbBuilder.h"
#include "ParserTestSupport.h"
#include "RecordingModel.h"
#include "VEKTPSLightParserUtil.h"

namespace vek_test {

using Lines = std::vector<std::string>;

class RecordedTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(container_.CreateLightSet(set_.GetAddressOf(), nullptr), S_OK);
    ledger().Clear();
  }
  void TearDown() override {
    set_.Reset();
    EXPECT_EQ(container_.OutstandingReferences(), 0) << ledger().Text();
    EXPECT_EQ(container_.OverReleases(), 0) << ledger().Text();
  }

  Ledger& ledger() { return container_.GetLedger(); }
  // The model operations recorded since the last Clear, references left out.
  Lines Operations() { return ledger().Operations(); }
  // A "Rep" element of the given type whose buffer holds a valid scene graph.
  static std::string Rep(const char* type) {
    const std::vector<char> glb = BuildMeshesGlb(1, 0, 0);
    return std::string("<Rep Type='") + type + "'><Buf>" +
           EncodeBase64(reinterpret_cast<const unsigned char*>(glb.data()), glb.size()) +
           "</Buf></Rep>";
  }

  RecordingContainer container_;
  VEKComPtr<VEKITPSLightSet> set_;
  VEKTPSLightParserUtil util_;
};

}  // namespace vek_test
