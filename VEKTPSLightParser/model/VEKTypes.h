// Result codes and interface identifiers shared by every component.
#pragma once

#include <cstdint>

#include "VEKExport.h"

// 32-bit result code: non-negative is success, negative is failure.
using HRESULT = std::int32_t;

constexpr HRESULT S_OK = 0;
constexpr HRESULT S_FALSE = 1;
constexpr HRESULT E_NOINTERFACE = static_cast<HRESULT>(0x80004002u);
constexpr HRESULT E_POINTER = static_cast<HRESULT>(0x80004003u);
constexpr HRESULT E_FAIL = static_cast<HRESULT>(0x80004005u);
constexpr HRESULT E_OUTOFMEMORY = static_cast<HRESULT>(0x8007000Eu);
constexpr HRESULT E_INVALIDARG = static_cast<HRESULT>(0x80070057u);

constexpr bool VEKSucceeded(HRESULT result) { return result >= 0; }
constexpr bool VEKFailed(HRESULT result) { return result < 0; }

// A 16-byte globally unique identifier: one 32-bit, two 16-bit and eight 8-bit fields.
struct GUID {
  std::uint32_t Data1;
  std::uint16_t Data2;
  std::uint16_t Data3;
  std::uint8_t Data4[8];
};
using IID = GUID;
using CLSID = GUID;

constexpr bool operator==(const GUID& a, const GUID& b) {
  if (a.Data1 != b.Data1 || a.Data2 != b.Data2 || a.Data3 != b.Data3) return false;
  for (int i = 0; i < 8; ++i) {
    if (a.Data4[i] != b.Data4[i]) return false;
  }
  return true;
}
constexpr bool operator!=(const GUID& a, const GUID& b) { return !(a == b); }
