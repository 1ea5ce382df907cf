#include "host/filter_mgr/hits_answer.h"

#include <libyang/libyang.h>

#include <optional>
#include <utility>
#include <vector>

#include "host/netconf/xml_writer.h"

namespace host {
namespace {

constexpr size_t kPieceEntries = 1024;  // about half a millisecond

class HitsAnswer : public StateProviders::TextPieces {
 public:
  HitsAnswer(const GroupTable& table, bool hit_only, const std::weak_ptr<const void>& alive)
      : table_(table), hit_only_(hit_only), alive_(alive) {
    for (const auto& [key, group] : table.groups()) groups_.push_back(key);
  }

  bool Next(std::string* xml) override {
    if (alive_.expired() || next_group_ == groups_.size()) return false;
    if (!group_ && !Begin()) return true;
    XmlWriter writer("urn:acl-app:filters");
    writer.Open("group");
    writer.Leaf("type", SlotOf((*group_)->getType()) == kL2 ? "l2" : "l3");
    AddEntries(&writer);
    writer.Close("group");
    *xml += writer.Take();
    return true;
  }

 private:
  using Entries = FiltersCommon::FiltersGroup::Entries;

  // Reads the hits of the group whose turn it is, and takes it as it is when that is done. False
  // while it is not.
  bool Begin() {
    const auto it = table_.groups().find(groups_[next_group_]);
    if (it == table_.groups().end()) {
      ++next_group_;
      return false;
    }
    if (!reading_started_) {
      reading_ = table_.backend().ReadHits(SlotOf(it->second->getType()));
      reading_started_ = true;
    }
    hits_.reset();
    if (reading_ != nullptr) {
      if (reading_->Next() == HitsReading::Progress::kMore) return false;
      hits_ = std::move(reading_->hits);
    }
    reading_.reset();
    reading_started_ = false;
    group_ = it->second;
    next_entry_ = (*group_)->getEntriesRef().begin();
    return true;
  }

  // The entries of this piece. They are numbered as the bindings make them, so those of one follow
  // each other.
  void AddEntries(XmlWriter* writer) {
    const Entries& entries = (*group_)->getEntriesRef();
    EntryOrigin binding;
    for (size_t left = kPieceEntries; left > 0 && next_entry_ != entries.end();
         --left, ++next_entry_) {
      const unsigned short id = next_entry_->first;
      const EntryOrigin origin = group_->OriginOf(id);
      const Hits* hits = hits_ && id < hits_->size() ? &(*hits_)[id] : nullptr;
      if (!origin.known() || (hit_only_ && (hits == nullptr || hits->packets == 0))) continue;
      if (!binding.known() || *binding.interface != *origin.interface ||
          *binding.profile != *origin.profile) {
        if (binding.known()) writer->Close("binding");
        writer->Open("binding");
        writer->Leaf("interface", *origin.interface);
        writer->Leaf("profile", *origin.profile);
        binding = origin;
      }
      AddEntry(origin, hits, writer);
    }
    if (binding.known()) writer->Close("binding");
    if (next_entry_ != entries.end()) return;
    group_.reset();
    ++next_group_;
  }

  static void AddEntry(const EntryOrigin& origin, const Hits* hits, XmlWriter* writer) {
    writer->Open("entry");
    writer->Leaf("ace-priority", uint64_t{origin.ace_priority});
    if (hits != nullptr) {
      writer->Leaf("packets", hits->packets);
      writer->Leaf("bytes", hits->bytes);
    }
    writer->Close("entry");
  }

  const GroupTable& table_;
  const bool hit_only_;
  const std::weak_ptr<const void> alive_;
  std::vector<GroupTable::Key> groups_;
  size_t next_group_ = 0;
  std::unique_ptr<HitsReading> reading_;  // of the next one's hits, where they are counted
  bool reading_started_ = false;
  std::optional<std::vector<Hits>> hits_;
  std::optional<SentGroup> group_;  // the one at work
  Entries::const_iterator next_entry_;
};

}  // namespace

std::unique_ptr<StateProviders::TextPieces> AnswerHits(const lyd_node* input,
                                                       const GroupTable& table,
                                                       const std::weak_ptr<const void>& alive) {
  return std::make_unique<HitsAnswer>(table, lyd_child(input) != nullptr, alive);
}

}  // namespace host
