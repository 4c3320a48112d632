#include <gtest/gtest.h>

#include "FailingAllocator.h"
#include "VEKBaseUnknown.h"
#include "VEKComPtr.h"
#include "VEKLists.h"

namespace {

TEST(Lists, AreOneBasedAndOutOfRangeIsHarmless) {
  VEKListValVEKUnicodeString strings;
  ASSERT_EQ(strings.Append(VEKUnicodeString("first")), S_OK);
  ASSERT_EQ(strings.Append(VEKUnicodeString("\xE2\x8C\x80")), S_OK);
  EXPECT_EQ(strings.Size(), 2);
  EXPECT_TRUE(strings[1] == "first" && strings[2] == "\xE2\x8C\x80");
  for (const int outside : {0, -1, 3, 2147483647, -2147483647 - 1}) {
    strings[outside] = VEKUnicodeString("scribble");
    EXPECT_TRUE(strings[outside] == "") << outside;
    EXPECT_TRUE(static_cast<const VEKListValVEKUnicodeString&>(strings)[outside] == "");
  }
  EXPECT_EQ(strings.Size(), 2);

  int target = 0;
  VEKRawCollPV pointers(4);
  ASSERT_EQ(pointers.Append(&target), S_OK);
  EXPECT_EQ(pointers[1], &target);
  EXPECT_EQ(pointers[2], nullptr);
}

TEST(Lists, CopiesAreIndependentAndAppendReportsOutOfMemory) {
  VEKRawCollint original(0);
  ASSERT_EQ(original.Append(1), S_OK);
  VEKRawCollint copy(original);
  copy[1] = 5;
  ASSERT_EQ(copy.Append(6), S_OK);
  EXPECT_EQ(original.Size(), 1);
  EXPECT_EQ(original[1], 1);

  VEKRawCollint empty(0);
  HRESULT result = S_OK;
  {
    vektest::FailingAllocations failAll(1);
    result = empty.Append(1);
  }
  EXPECT_EQ(result, E_OUTOFMEMORY);
  EXPECT_EQ(empty.Size(), 0);
  // The loss is remembered, also by copies, so positions read later are known to be off.
  EXPECT_FALSE(empty.Complete());
  EXPECT_EQ(empty.Append(2), S_OK);
  EXPECT_FALSE(VEKRawCollint(empty).Complete());
  EXPECT_TRUE(VEKRawCollint(3).Complete());
}

// A minimal component: counts references and offers no face.
class Component : public VEKBaseUnknown {
 public:
  explicit Component(bool* constructed) { *constructed = true; }
  HRESULT QueryInterface(const IID&, void**) override { return E_NOINTERFACE; }
  std::uint32_t AddRef() override { return ++count_; }
  std::uint32_t Release() override {
    const std::uint32_t remaining = --count_;
    if (remaining == 0) delete this;
    return remaining;
  }

 private:
  std::uint32_t count_ = 1;
};

TEST(BaseUnknown, AllocationFailureGivesNullWithoutConstructing) {
  bool constructed = false;
  Component* component = nullptr;
  {
    vektest::FailingAllocations failAll(1);
    component = new Component(&constructed);
  }
  EXPECT_EQ(component, nullptr);
  EXPECT_FALSE(constructed);

  component = new Component(&constructed);
  ASSERT_NE(component, nullptr);
  EXPECT_TRUE(constructed);
  component->Release();
}

// GetAddressOf hands out the slot as it is; only ReleaseAndGetAddressOf drops the reference.
TEST(ComPtr, OnlyTheReleasingAddressOfReleases) {
  bool constructed = false;
  VEKComPtr<Component> held;
  held.Attach(new Component(&constructed));
  Component* const raw = held.Get();
  raw->AddRef();
  EXPECT_EQ(*held.GetAddressOf(), raw);
  EXPECT_EQ(raw->AddRef(), 3u);
  EXPECT_EQ(raw->Release(), 2u);
  EXPECT_EQ(held.ReleaseAndGetAddressOf(), held.GetAddressOf());
  EXPECT_EQ(held.Get(), nullptr);
  EXPECT_EQ(raw->Release(), 0u);
}

}  // namespace
