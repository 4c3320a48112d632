// The id index: a keyed hash table whose runs are bounded, and its ordered fallback.
#include "VEKIdIndex.h"

#include <sys/random.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <new>

namespace VEKModelDetail {

namespace {

// A bijective 64-bit mixer (xor-shift and multiply rounds): every input bit reaches every output
// bit, so keys that differ anywhere land in unrelated slots.
std::uint64_t Mix(std::uint64_t x) noexcept {
  x ^= x >> 30;
  x *= 0xBF58476D1CE4E5B9ull;
  x ^= x >> 27;
  x *= 0x94D049BB133111EBull;
  x ^= x >> 31;
  return x;
}

std::uint64_t ProcessSecret() noexcept {
  std::uint64_t secret = 0;
  if (getrandom(&secret, sizeof secret, GRND_NONBLOCK) == static_cast<ssize_t>(sizeof secret)) {
    return secret;
  }
  // No kernel entropy yet: the clock and the randomised addresses of the stack and the library.
  const int local = 0;
  const auto now = std::chrono::steady_clock::now().time_since_epoch().count();
  return Mix(static_cast<std::uint64_t>(now)) ^ Mix(reinterpret_cast<std::uintptr_t>(&local)) ^
         reinterpret_cast<std::uintptr_t>(&ProcessSecret);
}

}  // namespace

std::uint64_t IdIndex::UnpredictableSeed(const void* table) noexcept {
  static const std::uint64_t secret = ProcessSecret();
  static std::atomic<std::uint64_t> draws{0};
  const std::uint64_t draw = draws.fetch_add(1, std::memory_order_relaxed);
  return Mix(secret ^ Mix(reinterpret_cast<std::uintptr_t>(table) + draw * 0x9E3779B97F4A7C15ull));
}

std::uint64_t IdIndex::Hash(int id, std::uint64_t seed) noexcept {
  return Mix(static_cast<std::uint32_t>(id) ^ seed);
}

std::size_t IdIndex::Home(int id) const noexcept {
  return static_cast<std::size_t>(Hash(id, seed_) >> shift_);
}

IdIndex::Slot* IdIndex::Locate(int id) noexcept {
  if (count_ == 0) return nullptr;
  std::size_t slot = Home(id);
  for (std::size_t distance = 0; distance <= longest_ && slots_[slot].object; ++distance) {
    if (slots_[slot].id == id) return &slots_[slot];
    slot = (slot + 1) & Mask();
  }
  return nullptr;
}

LightObject** IdIndex::Find(int id) noexcept {
  if (ordered_) {
    const auto found = ordered_->find(id);
    return found == ordered_->end() ? nullptr : &found->second;
  }
  Slot* slot = Locate(id);
  return slot ? &slot->object : nullptr;
}

IdIndex::Slot* IdIndex::Place(const Slot& entry) noexcept {
  // The table is at most half full, so a free slot always comes before the probe wraps around.
  std::size_t slot = Home(entry.id);
  for (std::size_t distance = 0; distance <= kMaxDisplacement; ++distance) {
    if (!slots_[slot].object) {
      slots_[slot] = entry;
      longest_ = std::max(longest_, distance);
      return &slots_[slot];
    }
    slot = (slot + 1) & Mask();
  }
  return nullptr;
}

void IdIndex::Rebuild(std::size_t capacity, bool passed) {
  std::vector<Slot> entries(capacity);
  entries.swap(slots_);
  const std::uint64_t earlierSeed = seed_;
  const unsigned earlierShift = shift_;
  const std::size_t earlierLongest = longest_;
  unsigned bits = 0;
  while ((std::size_t{1} << bits) < capacity) ++bits;
  shift_ = 64 - bits;
  while (!passed || ++reseeds_ <= kMaxReseeds) {
    seed_ = seeds_(this);
    longest_ = 0;
    const bool fits = std::all_of(entries.begin(), entries.end(),
                                  [&](const Slot& entry) { return !entry.object || Place(entry); });
    if (fits) return;
    passed = true;
    std::fill(slots_.begin(), slots_.end(), Slot{});
  }
  try {
    auto ordered = std::make_unique<std::map<int, LightObject*>>();
    for (const Slot& entry : entries) {
      if (entry.object) ordered->emplace(entry.id, entry.object);
    }
    ordered_ = std::move(ordered);
  } catch (const std::bad_alloc&) {
    entries.swap(slots_);
    seed_ = earlierSeed;
    shift_ = earlierShift;
    longest_ = earlierLongest;
    throw;
  }
  std::vector<Slot>().swap(slots_);
  count_ = 0;
}

std::pair<LightObject**, bool> IdIndex::TryEmplace(int id, LightObject* object) {
  if (LightObject** found = Find(id)) return {found, false};
  // At most half full, so that runs stay short.
  if (!ordered_ && (count_ + 1) * 2 > slots_.size()) {
    Rebuild(slots_.empty() ? 16 : slots_.size() * 2, false);
  }
  while (!ordered_) {
    if (Slot* slot = Place(Slot{object, id})) {
      ++count_;
      return {&slot->object, true};
    }
    Rebuild(slots_.size(), true);
  }
  return {&ordered_->emplace(id, object).first->second, true};
}

void IdIndex::Erase(int id) noexcept {
  if (ordered_) {
    ordered_->erase(id);
    return;
  }
  Slot* found = Locate(id);
  if (!found) return;
  std::size_t hole = static_cast<std::size_t>(found - slots_.data());
  // Backward shift: later entries of the run move into the hole unless their home lies cyclically
  // after it, so no probe sequence is ever broken. No entry lies further than longest_ from its
  // home, so none further than that from the hole can move into it.
  for (std::size_t next = (hole + 1) & Mask();
       slots_[next].object && ((next - hole) & Mask()) <= longest_; next = (next + 1) & Mask()) {
    const std::size_t home = Home(slots_[next].id);
    const bool stays = hole <= next ? (hole < home && home <= next) : (hole < home || home <= next);
    if (stays) continue;
    slots_[hole] = slots_[next];
    hole = next;
  }
  slots_[hole] = Slot{};
  --count_;
}

}  // namespace VEKModelDetail
