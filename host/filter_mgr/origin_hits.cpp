// Hits by origin: see origin_hits.h.
#include "host/filter_mgr/origin_hits.h"

#include <optional>
#include <utility>

#include "host/filter_mgr/group_walk.h"

namespace host {
namespace {

constexpr size_t kStepEntries = 4096;  // about half a millisecond

// Groups are read one after the other. When one has changed by the time that the last is read, the
// first may be of another configuration, and all are read again.
class OriginHits : public OriginHitsReading {
 public:
  OriginHits(const GroupTable& table, std::function<bool()> trusted,
             const std::weak_ptr<const void>& alive)
      : table_(table), trusted_(std::move(trusted)), alive_(alive) {}

  bool Next(HitsByOrigin* hits) override {
    hits->clear();
    if (alive_.expired()) return true;
    if (!walk_) Start();
    if (!walk_->done()) {
      Step();
      return false;
    }
    const bool changed = table_.generation() != generation_;
    if (changed && ++attempts_ < kMostAttempts) {
      walk_.reset();
      return false;
    }
    if (!changed && table_.current() && trusted_()) *hits = std::move(found_);
    return true;
  }

 private:
  static constexpr int kMostAttempts = 8;

  void Start() {
    generation_ = table_.generation();
    walk_.emplace(table_);
    found_.clear();
  }

  void Step() {
    if (!walk_->group()) {
      next_entry_ = 0;
      if (!walk_->Begin()) return;
    }
    const auto& counted = walk_->hits();
    const size_t entries = (*walk_->group())->getEntriesRef().size();
    const size_t known = counted ? std::min(entries, counted->size()) : 0;
    std::vector<EntryHits>* binding = nullptr;
    EntryOrigin last;
    // An entry with an origin has its place as its id.
    for (size_t left = kStepEntries; left > 0 && next_entry_ < known; --left, ++next_entry_) {
      const EntryOrigin origin = walk_->group()->OriginOf(static_cast<uint16_t>(next_entry_));
      if (!origin.known()) continue;
      if (origin.interface != last.interface || origin.profile != last.profile) {
        binding = &found_[{*origin.interface, *origin.profile}];
        last = origin;
      }
      binding->push_back({origin.ace_priority, (*counted)[next_entry_]});
    }
    if (next_entry_ >= known) walk_->End();
  }

  const GroupTable& table_;
  const std::function<bool()> trusted_;
  const std::weak_ptr<const void> alive_;
  std::optional<GroupWalk> walk_;
  uint64_t generation_ = 0;
  int attempts_ = 0;
  size_t next_entry_ = 0;
  HitsByOrigin found_;
};

}  // namespace

std::unique_ptr<OriginHitsReading> ReadOriginHits(const GroupTable& table,
                                                  std::function<bool()> trusted,
                                                  const std::weak_ptr<const void>& alive) {
  return std::make_unique<OriginHits>(table, std::move(trusted), alive);
}

}  // namespace host
