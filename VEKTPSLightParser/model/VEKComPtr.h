// RAII holder for one interface reference: the reference is released when the holder goes out of
// scope, so every early return is leak-free.
#pragma once

#include <cstddef>
#include <utility>

#include "VEKBaseUnknown.h"

template <class T>
class VEKComPtr {
 public:
  VEKComPtr() noexcept = default;
  VEKComPtr(std::nullptr_t) noexcept {}
  // Shares `pointer`: takes a reference of its own.
  explicit VEKComPtr(T* pointer) noexcept : pointer_(pointer) {
    if (pointer_) pointer_->AddRef();
  }
  VEKComPtr(const VEKComPtr& other) noexcept : VEKComPtr(other.pointer_) {}
  VEKComPtr(VEKComPtr&& other) noexcept : pointer_(other.Detach()) {}
  ~VEKComPtr() { Reset(); }

  VEKComPtr& operator=(VEKComPtr other) noexcept {
    std::swap(pointer_, other.pointer_);
    return *this;
  }

  T* Get() const noexcept { return pointer_; }
  T* operator->() const noexcept { return pointer_; }
  explicit operator bool() const noexcept { return pointer_ != nullptr; }

  // The slot itself, without releasing what it holds: for reading through an in-out parameter.
  T** GetAddressOf() noexcept { return &pointer_; }
  // Releases what is held and returns the slot for an out parameter that delivers one reference.
  T** ReleaseAndGetAddressOf() noexcept {
    Reset();
    return &pointer_;
  }
  // The same slot typed for QueryInterface-style out parameters.
  void** ReleaseAndGetVoidAddressOf() noexcept {
    return reinterpret_cast<void**>(ReleaseAndGetAddressOf());
  }

  // Adopts a reference the caller already owns (no AddRef).
  void Attach(T* pointer) noexcept {
    Reset();
    pointer_ = pointer;
  }
  // Gives up the reference without releasing it; the caller now owns it.
  T* Detach() noexcept {
    T* pointer = pointer_;
    pointer_ = nullptr;
    return pointer;
  }
  // Releases the reference now (where the order of releases matters).
  void Reset() noexcept {
    if (pointer_) {
      T* pointer = pointer_;
      pointer_ = nullptr;
      pointer->Release();
    }
  }

  // Queries the held object for interface U, whose identifier is U::kIID.
  template <class U>
  HRESULT As(VEKComPtr<U>* out) const noexcept {
    if (!out) return E_POINTER;
    if (!pointer_) {
      out->Reset();
      return E_POINTER;
    }
    return pointer_->QueryInterface(U::kIID, out->ReleaseAndGetVoidAddressOf());
  }

 private:
  T* pointer_ = nullptr;
};
