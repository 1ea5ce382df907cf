// How the back end prepares a group: compares it with what is in force, and writes what differs.
#include <algorithm>
#include <cerrno>

#include "host/filter_mgr/ebpf/ebpf_backend.h"
#include "host/filter_mgr/ebpf/port_lists.h"
#include "host/filter_mgr/entry_text.h"
#include "host/runtime/log.h"

namespace host {
namespace {

using FiltersCommon::FiltersEntry;
using FiltersCommon::FiltersGroup;

}  // namespace

FilterMgrError EbpfBackend::Prepare(const SentGroup& group) {
  const GroupSlot slot = SlotOf(group->getType());
  Drop(slot);
  const Failure failure = Arrange(group);
  if (failure.code == FILTER_MGR_OK) return FILTER_MGR_OK;
  LogFailure(failure);
  if (!failure.passing) return failure.code;
  short_[slot].emplace(Short{group, failure.text});
  return FILTER_MGR_OK;
}

Failure EbpfBackend::Arrange(const SentGroup& group) {
  PreparedGroup prepared(group);
  Failure failure = Compare(&prepared);
  if (failure.code == FILTER_MGR_OK) failure = Write(&prepared);
  const GroupSlot slot = SlotOf(group->getType());
  if (failure.code == FILTER_MGR_OK) {
    prepared_[slot].emplace(std::move(prepared));
  } else {
    failure.text = "filter group " + std::to_string(group->getId()) + " (" + SlotName(slot) +
                   (failure.passing ? ") has to wait: " : ") is refused: ") + failure.text;
  }
  return failure;
}

Failure EbpfBackend::ArrangePending() {
  Failure failure;
  for (const GroupSlot slot : kSlots) {
    if (prepared_[slot] || !pending_[slot]) continue;
    failure = Arrange(*pending_[slot]);
    if (failure.code != FILTER_MGR_OK) break;
  }
  return failure;
}

// Logs what is refused, or tried again.
void EbpfBackend::LogFailure(const Failure& failure) {
  const LogFields fields({{"INTERFACE", failure.port}});
  if (failure.passing) {
    Log(LogLevel::kWarning, "%s; it is tried again", failure.text.c_str());
  } else {
    Log(LogLevel::kError, "%s", failure.text.c_str());
  }
}

Failure EbpfBackend::Compare(PreparedGroup* prepared) {
  const FiltersGroup& group = prepared->group.source.content();
  const FiltersCommon::EntryRows& rows = prepared->group.rows();
  const GroupSlot slot = SlotOf(group.getType());
  Failure failure;
  std::string& reason = failure.text;
  const auto refuse = [&](const FiltersEntry& entry) {
    if (failure.code == FILTER_MGR_OK) failure.code = FILTER_MGR_ERR_UNSUPPORTED;
    reason = prepared->group.source.NameOf(entry.getId()) + ": " + reason + " (" +
             EntryText(entry) + ")";
    return failure;
  };
  // What has nothing in the new content is removed, and so needs an update as well.
  std::vector<RootUpdate*> update_of;  // by port number
  const auto open = [&](uint32_t number) {
    const uint32_t root = FilterPorts::RootOf(number, slot);
    if (held_.size() <= root + 1) held_.resize(root + 2);
    if (update_of.size() <= number) update_of.resize(number + 1);
    const auto it =
        prepared->updates.try_emplace(root, classifier_.get(), root, &held_[root]).first;
    update_of[number] = &it->second;
  };
  for (uint32_t number = 0; number < ports_->count(); ++number) {
    if (!held_[FilterPorts::RootOf(number, slot)].empty()) open(number);
  }
  PortLists lists([&](limid_t id, uint32_t* number) {
    const std::string name = options_.names(id);
    if (name.empty()) {
      reason = "its ingress port " + std::to_string(id) + " is not known";
      return false;
    }
    prepared->group.ports.insert(name);
    if (!ports_->NumberOf(name, number, &failure)) return false;
    if (*number >= update_of.size() || update_of[*number] == nullptr) open(*number);
    return true;
  });
  // What the group shares at its ends with the one in force needs no second look.
  const auto [begin, end] = ChangedPart(slot, rows);
  for (size_t run = 0; run < rows.runs().size(); ++run) {
    const auto [list, first] = rows.runs()[run];
    // All ports would be meant, of which nobody knows what they are to become.
    if (list == nullptr) {
      reason = "it names no ingress port";
      return refuse(rows.entry(first));
    }
    const std::vector<uint32_t>& numbers = lists.Find(*list);
    if (!reason.empty()) return refuse(rows.entry(first));
    const size_t last = rows.EndOf(run);
    for (const uint32_t number : numbers) {
      update_of[number]->KeepEnds(std::clamp(begin, first, last) - first,
                                  last - std::clamp(end, first, last));
    }
  }
  for (size_t run = 0; run < rows.runs().size(); ++run) {
    const auto [list, first] = rows.runs()[run];
    const size_t last = std::min(end, rows.EndOf(run));
    for (size_t i = std::max(begin, first); i < last; ++i) {
      for (const uint32_t number : lists.Find(*list)) {
        if (!update_of[number]->Next(rows.entry(i), &reason)) return refuse(rows.entry(i));
      }
    }
  }
  for (auto& [root, update] : prepared->updates) update.Finish();
  return {};
}

// The entries of the new content, from the first to behind the last, that may not be in force.
std::pair<size_t, size_t> EbpfBackend::ChangedPart(GroupSlot slot,
                                                   const FiltersCommon::EntryRows& rows) const {
  if (!groups_[slot]) return {0, rows.size()};
  const FiltersCommon::EntryRows& before = groups_[slot]->rows();
  const size_t front = FiltersCommon::EntryRows::CommonFront(before, rows);
  const size_t most = std::min(before.size(), rows.size()) - front;
  return {front, rows.size() - FiltersCommon::EntryRows::CommonBack(before, rows, most)};
}

Failure EbpfBackend::Write(PreparedGroup* prepared) {
  size_t added = 0;
  for (const auto& [root, update] : prepared->updates) added += update.added();
  counters_->Reserve(added);
  for (auto it = prepared->updates.begin(); it != prepared->updates.end(); ++it) {
    classifier::Refusal refusal;
    if (it->second.empty() || it->second.Write(&*counters_, &refusal)) continue;
    classifier_->Discard(it->first);
    for (auto done = prepared->updates.begin(); done != it; ++done) {
      classifier_->Discard(done->first);
      done->second.Undo(&*counters_);
    }
    const std::string port = ports_->NameOf(it->first / 2);
    // Without an error a limit of the tables is reached.
    Failure failure = FailureOf(refusal.error != 0 ? refusal.error : -E2BIG,
                                "port " + port + ": " + refusal.text);
    failure.port = port;
    return failure;
  }
  return {};
}

void EbpfBackend::Drop(GroupSlot slot) {
  short_[slot].reset();
  if (!prepared_[slot]) return;
  for (auto& [root, update] : prepared_[slot]->updates) {
    classifier_->Discard(root);
    update.Undo(&*counters_);
  }
  retired_.push_back(std::move(prepared_[slot]->group));
  prepared_[slot].reset();
}

void EbpfBackend::Discard() {
  for (const GroupSlot slot : kSlots) Drop(slot);
}

}  // namespace host
