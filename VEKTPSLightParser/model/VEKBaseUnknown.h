// The component base: reference counting and interface discovery for every model object.
#pragma once

#include <cstddef>
#include <cstdint>

#include "VEKTypes.h"

class VEK_API VEKBaseUnknown {
 public:
  // Identifier of the plain VEKBaseUnknown face; the same value as CLSID_VEKBaseUnknown.
  static constexpr IID kIID = {
      0x0B6F1C52, 0x7E3A, 0x4C1D, {0x9A, 0x85, 0x2F, 0x4D, 0x6B, 0x8E, 0x1A, 0x37}};

  virtual ~VEKBaseUnknown();

  // Fills *out with an interface of this object carrying one reference; E_NOINTERFACE (and
  // *out null) when the object does not offer it, E_POINTER when out is null.
  virtual HRESULT QueryInterface(const IID& iid, void** out) = 0;
  // Adds a reference; returns the new count (informative only).
  virtual std::uint32_t AddRef() = 0;
  // Drops a reference and frees the object at zero; returns the remaining count.
  virtual std::uint32_t Release() = 0;

  // Components are allocated through these: a failed allocation yields null instead of throwing,
  // so `new Component()` is null when memory runs out and the constructor is not run.
  static void* operator new(std::size_t size) noexcept;
  static void operator delete(void* block) noexcept;
};

// Asks any object for its plain VEKBaseUnknown face (its identity).
extern VEK_API const CLSID CLSID_VEKBaseUnknown;
