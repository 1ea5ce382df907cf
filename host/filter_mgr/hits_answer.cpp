#include "host/filter_mgr/hits_answer.h"

#include <libyang/libyang.h>

#include "host/filter_mgr/group_walk.h"
#include "host/xml/xml_writer.h"

namespace host {
namespace {

constexpr size_t kPieceEntries = 1024;  // about half a millisecond

class HitsAnswer : public StateProviders::TextPieces {
 public:
  HitsAnswer(const GroupTable& table, bool hit_only, const std::weak_ptr<const void>& alive)
      : walk_(table), hit_only_(hit_only), alive_(alive) {}

  bool Next(std::string* xml) override {
    if (alive_.expired() || walk_.done()) return false;
    if (!walk_.group() && !Begin()) return true;
    XmlWriter writer("urn:acl-app:filters");
    writer.Open("group");
    writer.Leaf("type", SlotOf((*walk_.group())->getType()) == kL2 ? "l2" : "l3");
    AddEntries(&writer);
    writer.Close("group");
    *xml += writer.Take();
    return true;
  }

 private:
  using Entries = FiltersCommon::FiltersGroup::Entries;

  bool Begin() {
    if (!walk_.Begin()) return false;
    next_entry_ = (*walk_.group())->getEntriesRef().begin();
    return true;
  }

  // The entries of this piece. They are numbered as the bindings make them, so those of one follow
  // each other.
  void AddEntries(XmlWriter* writer) {
    const Entries& entries = (*walk_.group())->getEntriesRef();
    EntryOrigin binding;
    for (size_t left = kPieceEntries; left > 0 && next_entry_ != entries.end();
         --left, ++next_entry_) {
      const unsigned short id = next_entry_->first;
      const EntryOrigin origin = walk_.group()->OriginOf(id);
      const auto& counted = walk_.hits();
      const Hits* hits = counted && id < counted->size() ? &(*counted)[id] : nullptr;
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
    walk_.End();
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

  GroupWalk walk_;
  const bool hit_only_;
  const std::weak_ptr<const void> alive_;
  Entries::const_iterator next_entry_;
};

}  // namespace

std::unique_ptr<StateProviders::TextPieces> AnswerHits(const lyd_node* input,
                                                       const GroupTable& table,
                                                       const std::weak_ptr<const void>& alive) {
  return std::make_unique<HitsAnswer>(table, lyd_child(input) != nullptr, alive);
}

}  // namespace host
