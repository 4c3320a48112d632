// The annotation set: its families of objects, its id broker and the making of a new model.
#include <cstdint>
#include <mutex>
#include <new>
#include <utility>

#include "VEKTPSLightObjects.h"

namespace VEKModelDetail {

// The sets of every live model in the process, so that a pointer handed in from outside (a
// caller's stale or uninitialised *out or set) is recognised without being looked through: a hash
// table of buckets chaining the sets through a link each set carries. Inserting never allocates
// and so never fails; the buckets start in static storage and grow (never shrinking) only past 64
// live sets, so a load's allocations do not depend on what earlier loads did. Addresses are kept
// complemented: the table must not pass for a reference to a set a host forgot to release, or
// leak checkers would stop reporting it.
class LiveSets {
 public:
  // Never destroyed, so that a model freed while the process exits still finds it.
  static LiveSets& Instance() noexcept {
    alignas(LiveSets) static unsigned char storage[sizeof(LiveSets)];
    static LiveSets* const instance = new (storage) LiveSets();
    return *instance;
  }

  void Add(LightSet& set) noexcept {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (count_ == bucketCount_) Grow();
    Link(set);
    ++count_;
  }
  void Remove(LightSet& set) noexcept {
    const std::lock_guard<std::mutex> lock(mutex_);
    for (std::uintptr_t* link = &buckets_[BucketOf(&set)]; *link; link = &Reveal(*link)->listed_) {
      if (Reveal(*link) == &set) {
        *link = set.listed_;
        --count_;
        return;
      }
    }
  }
  bool Contains(const VEKITPSLightSet* face) noexcept {
    const std::lock_guard<std::mutex> lock(mutex_);
    // Only listed sets are read while walking, never `face` itself.
    for (std::uintptr_t link = buckets_[BucketOf(face)]; link; link = Reveal(link)->listed_) {
      if (static_cast<const VEKITPSLightSet*>(Reveal(link)) == face) return true;
    }
    return false;
  }

 private:
  static constexpr std::size_t kInitialBuckets = 64;

  static std::uintptr_t Disguise(LightSet* set) noexcept {
    return ~reinterpret_cast<std::uintptr_t>(set);
  }
  static LightSet* Reveal(std::uintptr_t disguised) noexcept {
    return reinterpret_cast<LightSet*>(~disguised);
  }
  // Sets are found by the address of their VEKITPSLightSet face, the one callers hold.
  std::size_t BucketOf(const VEKITPSLightSet* face) const noexcept {
    const std::uint64_t mixed = reinterpret_cast<std::uintptr_t>(face) * 0x9E3779B97F4A7C15ull;
    return static_cast<std::size_t>(mixed >> 32) & (bucketCount_ - 1);
  }
  void Link(LightSet& set) noexcept {
    std::uintptr_t& bucket = buckets_[BucketOf(&set)];
    set.listed_ = bucket;
    bucket = Disguise(&set);
  }
  // Twice the buckets; when memory runs out the chains just grow longer.
  void Grow() noexcept {
    const std::size_t count = bucketCount_ * 2;
    std::uintptr_t* grown = new (std::nothrow) std::uintptr_t[count]();
    if (!grown) return;
    std::uintptr_t* const old = buckets_;
    const std::size_t oldCount = bucketCount_;
    buckets_ = grown;
    bucketCount_ = count;
    for (std::size_t bucket = 0; bucket < oldCount; ++bucket) {
      for (std::uintptr_t link = old[bucket]; link;) {
        LightSet* set = Reveal(link);
        link = set->listed_;
        Link(*set);
      }
    }
    if (old != initial_) delete[] old;
  }

  std::mutex mutex_;
  std::uintptr_t initial_[kInitialBuckets] = {};
  std::uintptr_t* buckets_ = initial_;
  std::size_t bucketCount_ = kInitialBuckets;
  std::size_t count_ = 0;
};

HRESULT LightSet::Create(VEKBaseUnknown* father, LightSet* previous, LightSet** out) noexcept {
  *out = nullptr;
  std::unique_ptr<Core> core(new (std::nothrow) Core());
  if (!core) return E_OUTOFMEMORY;
  LightSet* set = new LightSet(*core, father);
  if (!set) return E_OUTOFMEMORY;
  Core* model = core.release();
  model->Adopt(set);
  LiveSets::Instance().Add(*set);
  model->AdoptPrevious(previous);
  model->AddRef();
  *out = set;
  return S_OK;
}

LightSet* LightSet::From(VEKITPSLightSet* set) noexcept {
  return IsLive(set) ? static_cast<LightSet*>(set) : nullptr;
}

bool LightSet::IsLive(const VEKITPSLightSet* set) noexcept {
  return set && LiveSets::Instance().Contains(set);
}

void LightSet::Unlist() noexcept { LiveSets::Instance().Remove(*this); }

HRESULT LightSet::Adopt(LightObject* object) noexcept {
  const HRESULT result = families_[object->Kind() - 1].Append(object->Identity());
  if (VEKFailed(result)) {
    delete object;
    return result;
  }
  GetCore().Adopt(object);
  GetCore().AddRef();
  return S_OK;
}

HRESULT LightSet::AssignId(LightObject& object, int id) noexcept {
  const std::optional<int> earlier = object.GetId();
  if (earlier == id) return S_OK;
  IdIndex& index = indexes_[object.Kind() - 1];
  try {
    const auto [slot, inserted] = index.TryEmplace(id, &object);
    if (!inserted) {
      duplicates_.push_back({id, object.Kind()});
      // Whoever was created first answers for a shared id, whatever the order of SetId calls.
      if (object.Serial() < (*slot)->Serial()) *slot = &object;
    }
  } catch (const std::bad_alloc&) {
    return E_OUTOFMEMORY;
  }
  object.StoreId(id);
  if (earlier) Unindex(object, *earlier);
  return S_OK;
}

void LightSet::Unindex(const LightObject& object, int id) noexcept {
  IdIndex& index = indexes_[object.Kind() - 1];
  LightObject** slot = index.Find(id);
  if (!slot || *slot != &object) return;
  // Only an object whose id changes gets here: walking the model once in creation order finds
  // the next holder of the old id, if any.
  for (LightObject* other = GetCore().First(); other; other = other->Next()) {
    if (other->Kind() == object.Kind() && other->GetId() == id) {
      *slot = other;
      return;
    }
  }
  index.Erase(id);
}

HRESULT LightSet::SetStandard(const wchar_t* standard) {
  if (!standard) return E_POINTER;
  standard_.emplace(standard);
  return S_OK;
}

HRESULT LightSet::GetPreviousSet(VEKITPSLightSet** out) const {
  if (!out) return E_POINTER;
  LightSet* previous = GetCore().GetPrevious();
  *out = previous;
  if (!previous) return S_FALSE;
  previous->AddRef();
  return S_OK;
}

VEKBaseUnknown* LightSet::FindObject(int id, int kind) const {
  if (kind < 1 || kind > kKindCount) return nullptr;
  LightObject* const* found = indexes_[kind - 1].Find(id);
  return found ? (*found)->Identity() : nullptr;
}

HRESULT LightSet::GetObjectFromId(int id, int kind, VEKBaseUnknown** out) {
  if (!out) return E_POINTER;
  *out = nullptr;
  if (VEKBaseUnknown* identity = FindObject(id, kind)) {
    identity->AddRef();
    *out = identity;
    return S_OK;
  }
  try {
    unresolved_.push_back({id, kind});
  } catch (const std::bad_alloc&) {
    // The record is lost, the failure itself is still reported.
  }
  return E_FAIL;
}

}  // namespace VEKModelDetail
