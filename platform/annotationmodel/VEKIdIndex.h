// The id index of one object kind: a map from id to object in one flat array with linear probing,
// so that a look-up usually touches one cache line. Private to the model library.
//
// Ids come from documents, so nothing about the table may be predictable from them: the hash is
// keyed with a seed drawn for each table, and no entry lies more than kMaxDisplacement slots past
// its home slot, which bounds every look-up. An insertion that would pass the bound rebuilds the
// table under a fresh seed; a table that keeps meeting such runs (which random seeds do not give)
// moves its entries into an ordered map. No choice of ids makes an operation cost more than
// O(log n), and the work of rebuilding stays linear in the entries.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <utility>
#include <vector>

namespace VEKModelDetail {

class LightObject;

class IdIndex {
 public:
  // Gives the seed of a table being (re)built at `table`.
  using SeedSource = std::uint64_t (*)(const void* table);
  // A seed no document can predict: a per-process random secret, a count of draws and the
  // table's address, mixed.
  static std::uint64_t UnpredictableSeed(const void* table) noexcept;

  explicit IdIndex(SeedSource seeds = UnpredictableSeed) noexcept : seeds_(seeds) {}

  // The hash of `id` under `seed`; a table of 2^b slots takes its top b bits as the home slot.
  static std::uint64_t Hash(int id, std::uint64_t seed) noexcept;

  // The entry of `id`, or null when there is none.
  LightObject** Find(int id) noexcept;
  LightObject* const* Find(int id) const noexcept { return const_cast<IdIndex*>(this)->Find(id); }
  // The entry of `id`, made with `object` (not null) when absent; `second` tells whether it was
  // made. Throws std::bad_alloc when memory runs out (nothing is then changed).
  std::pair<LightObject**, bool> TryEmplace(int id, LightObject* object);
  // Removes the entry of `id`, if any.
  void Erase(int id) noexcept;
  // Whether the entries have moved into the ordered map.
  bool IsOrdered() const noexcept { return ordered_ != nullptr; }

 private:
  struct Slot {
    LightObject* object = nullptr;  // null: free
    int id = 0;
  };
  // Far beyond the longest run of a random seed at half load (about 55 slots at 2^24 entries).
  static constexpr std::size_t kMaxDisplacement = 128;
  // Rebuilds under a fresh seed that an index may make for passing the bound.
  static constexpr int kMaxReseeds = 3;

  std::size_t Home(int id) const noexcept;
  std::size_t Mask() const noexcept { return slots_.size() - 1; }
  // The slot holding `id` while hashing; null when there is none.
  Slot* Locate(int id) noexcept;
  // Puts `entry` (absent) in the first free slot within the bound; null when there is none.
  Slot* Place(const Slot& entry) noexcept;
  // Moves every entry into `capacity` slots under a fresh seed, redrawing it while an entry does
  // not fit. `passed` tells that the current seed already let a run pass the bound. Redraws for
  // that reason are counted: past kMaxReseeds the entries go into the ordered map instead.
  void Rebuild(std::size_t capacity, bool passed);

  SeedSource seeds_;
  std::vector<Slot> slots_;
  std::size_t count_ = 0;
  std::uint64_t seed_ = 0;
  unsigned shift_ = 0;
  // The longest distance of any entry from its home: no look-up probes further.
  std::size_t longest_ = 0;
  int reseeds_ = 0;
  std::unique_ptr<std::map<int, LightObject*>> ordered_;
};

}  // namespace VEKModelDetail
