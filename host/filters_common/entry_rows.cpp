#include "platform/filters_common/entry_rows.h"

#include <algorithm>

namespace FiltersCommon {
namespace {

bool SamePorts(const EntryRows::PortList* a, const EntryRows::PortList* b) {
  return a == b || (a != nullptr && b != nullptr && *a == *b);
}

}  // namespace

void EntryRows::Add(const FiltersEntry& entry) {
  const PortList* const ports = entry.ingressPorts();
  if (runs_.empty() || runs_.back().ports != ports) runs_.push_back({ports, entries_.size()});
  identities_.push_back(entry.contentIdentity());
  entries_.push_back(&entry);
}

void EntryRows::ReleaseFrom(size_t first) {
  for (size_t run = 0; run < runs_.size(); ++run) {
    const size_t begin = std::max(first, runs_[run].first), end = EndOf(run);
    if (begin >= end) continue;
    if (runs_[run].ports == nullptr) {  // without any, or each with an empty list of its own
      for (size_t i = begin; i < end; ++i) entries_[i]->~FiltersEntry();
      continue;
    }
    for (size_t i = begin; i < end; ++i) FiltersEntry::ReleaseContent(identities_[i]);
    FiltersEntry::ReleasePorts(runs_[run].ports, end - begin);
  }
}

size_t EntryRows::CommonFront(const EntryRows& a, const EntryRows& b) {
  const size_t most = std::min(a.size(), b.size());
  const auto end = a.identities_.begin() + static_cast<ptrdiff_t>(most);
  const auto parted = std::mismatch(a.identities_.begin(), end, b.identities_.begin()).first;
  const auto same = static_cast<size_t>(parted - a.identities_.begin());
  size_t at = 0, run_a = 0, run_b = 0;
  while (at < same && SamePorts(a.runs_[run_a].ports, b.runs_[run_b].ports)) {
    at = std::min(a.EndOf(run_a), b.EndOf(run_b));
    if (a.EndOf(run_a) == at) ++run_a;
    if (b.EndOf(run_b) == at) ++run_b;
  }
  return std::min(at, same);
}

size_t EntryRows::CommonBack(const EntryRows& a, const EntryRows& b, size_t most) {
  const auto end = a.identities_.rbegin() + static_cast<ptrdiff_t>(most);
  const auto parted = std::mismatch(a.identities_.rbegin(), end, b.identities_.rbegin()).first;
  const auto same = static_cast<size_t>(parted - a.identities_.rbegin());
  // `at` counts from the end; a run reaches from its `first` up to there.
  size_t at = 0, run_a = a.runs_.size(), run_b = b.runs_.size();
  while (at < same && SamePorts(a.runs_[run_a - 1].ports, b.runs_[run_b - 1].ports)) {
    const size_t from_a = a.size() - a.runs_[run_a - 1].first;
    const size_t from_b = b.size() - b.runs_[run_b - 1].first;
    at = std::min(from_a, from_b);
    if (from_a == at) --run_a;
    if (from_b == at) --run_b;
  }
  return std::min(at, same);
}

}  // namespace FiltersCommon
