// Fixture for the current-schema tests that check, through the recording model, which model
// operations are made, in which order, and that every reference obtained is released.
#pragma once

#include <gtest/gtest.h>

#include <deque>
#include <string>
#include <vector>

#include "ParserTestSupport.h"
#include "RecordingModel.h"
#include "VEKTPSLightParserUtil.h"

namespace vek_test {

class RecordedTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(container_.CreateLightSet(set_.ReleaseAndGetAddressOf(), nullptr), S_OK);
    ledger().Clear();
  }
  void TearDown() override {
    set_.Reset();
    EXPECT_EQ(container_.OutstandingReferences(), 0) << ledger().Text();
    EXPECT_EQ(container_.OverReleases(), 0) << ledger().Text();
  }

  Ledger& ledger() { return container_.GetLedger(); }
  // The model operations recorded since the last Clear, references left out, joined.
  std::string Operations() { return Joined(ledger().Operations()); }
  // `xml` parsed into an element that lives as long as the test.
  VEKLightXmlElement& Xml(const std::string& xml) { return parsed_.emplace_back(ParseXml(xml)); }
  // The identity lines every object gets from an element without "TPSId" and "TPSLoc".
  static std::string Blank(const std::string& object) {
    return object + ".SetName(\"\") | " + object + ".SetUuid(\"\") | " + object + ".SetType(0) | " +
           object + ".SetId(0) | " + object + ".SetStatus(0)";
  }

  RecordingContainer container_;
  VEKComPtr<VEKITPSLightSet> set_;
  VEKTPSLightParserUtil util_;
  std::deque<VEKLightXmlElement> parsed_;
};

}  // namespace vek_test
