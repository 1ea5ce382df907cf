// Restart: taking over what another process left in the arrays.
#include <algorithm>

#include "host/classifier/core.h"
#include "host/classifier/store_word.h"

namespace host::classifier {

bool Classifier::Core::Adopt(std::string* problem) {
  *problem = Read();
  if (!problem->empty()) return false;
  for (uint32_t number = 0; number < roots_.size(); ++number) Take(number);
  return true;
}

std::string Classifier::Core::Read() {
  const cls_control* control = memory_->control();
  if (control == nullptr || control->layout != CLS_LAYOUT_VERSION) {
    return "the arrays have another layout than version " + std::to_string(CLS_LAYOUT_VERSION);
  }
  generation_ = control->generation;
  roots_.resize(memory_->capacity(CLS_ROOTS));
  for (uint32_t number = 0; number < roots_.size(); ++number) {
    const std::string problem = ReadRoot(number);
    if (!problem.empty()) return "root " + std::to_string(number) + ", " + problem;
  }
  if (!arena_.groups.EndClaims() || !arena_.tables.EndClaims() || !arena_.filters.EndClaims() ||
      !arena_.slots.EndClaims() || !arena_.entries.EndClaims()) {
    return "parts of the arrays have two owners";
  }
  return "";
}

std::string Classifier::Core::ReadRoot(uint32_t number) {
  const cls_root& words = Words(number);
  if ((words.choice[0] | words.choice[1]) == 0) return "";
  roots_[number] = std::make_unique<Root>();
  Root* root = roots_[number].get();
  uint64_t chosen = 0;
  for (uint8_t word = 0; word < 2; ++word) {
    const uint64_t choice = words.choice[word];
    if (choice == 0 || CLS_BIRTH_OF(choice) > generation_ || choice < chosen) continue;
    root->choice = word;
    chosen = choice;
  }
  if (CLS_GROUP_OF(chosen) == 0) return "";
  std::vector<uint32_t> records;
  std::string problem;
  root->group = TableGroup::Adopt(&arena_, CLS_GROUP_OF(chosen), &records, &problem);
  if (root->group == nullptr) return problem;

  std::vector<uint32_t> alive;
  for (const uint32_t record : records) {
    const cls_entry& body = arena_.entries.body(record);
    if (body.born <= generation_ && generation_ < body.died) alive.push_back(record);
  }
  std::sort(alive.begin(), alive.end(), [this](uint32_t a, uint32_t b) {
    return arena_.entries.head(a).label < arena_.entries.head(b).label;
  });
  RootContent& content = root->content;
  content.sentinel = list_.Create(number);
  content.index.Reserve(alive.size());
  EntryId last = content.sentinel;
  for (const uint32_t record : alive) {
    const EntryId id = list_.Create(number);
    Node& node = list_[id];
    node.record = record;
    node.label = arena_.entries.head(record).label;
    node.linked = true;
    node.prev = last;
    node.next = content.sentinel;
    list_[last].next = id;
    list_[content.sentinel].prev = id;
    if (last != content.sentinel && list_[last].label == node.label) {
      return "two entries have the label " + std::to_string(node.label);
    }
    if (content.index.Find(arena_.entries, list_, record) != kNoEntry) {
      return "two entries have the same match";
    }
    content.index.Add(arena_.entries, list_, id);
    ++content.entries;
    last = id;
  }
  return "";
}

// Drops what was not published, and what has died.
void Classifier::Core::Take(uint32_t number) {
  Root* root = roots_[number].get();
  if (root == nullptr) return;
  auto& other = Words(number).choice[1 - root->choice];
  if (other != 0) StoreWord(&other, 0);
  if (root->group == nullptr) return;
  std::vector<uint32_t> gone;
  root->group->ForEach([&](uint32_t record) {
    cls_entry& body = arena_.entries.body(record);
    if (body.born > generation_ || body.died <= generation_) {
      gone.push_back(record);
    } else if (body.died != CLS_NEVER) {
      StoreWord(&body.died, CLS_NEVER);
    }
  });
  for (const uint32_t record : gone) {
    root->group->Unlink(record);
    arena_.Retire({0, Retired::kUnlinkedEntry, 0, record, 0, nullptr});
  }
}

}  // namespace host::classifier
