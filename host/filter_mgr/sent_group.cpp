#include "host/filter_mgr/sent_group.h"

#include <list>
#include <utility>

namespace host {

using FiltersCommon::MatchIngressPorts;

SentGroup::SentGroup(const FiltersCommon::FiltersGroup& content,
                     std::shared_ptr<const GroupOrigins> origins, PortNames names)
    : content_(content), names_(std::move(names)), origins_(std::move(origins)) {}

EntryOrigin SentGroup::OriginOf(unsigned short id) const {
  if (origins_ != nullptr && !compared_ && !OriginsFit()) origins_.reset();
  compared_ = true;
  return origins_ == nullptr ? EntryOrigin() : origins_->Of(id);
}

std::string SentGroup::NameOf(unsigned short id) const {
  const EntryOrigin origin = OriginOf(id);
  if (!origin.known()) return "entry " + std::to_string(id);
  return "entry " + std::to_string(origin.ace_priority) + " of profile " + *origin.profile +
         " on " + *origin.interface;
}

// The merge numbers entries from 0 on, by priority; so an id is a place in the order.
bool SentGroup::OriginsFit() const {
  const auto& entries = content_.getEntriesRef();
  if (entries.size() != origins_->size()) return false;
  auto entry = entries.begin();
  for (const GroupOrigins::Run& run : origins_->runs()) {
    const std::list<limid_t>* fitting = nullptr;  // the entries of a run share their list of ports
    for (size_t place = run.first; place < run.end(); ++place, ++entry) {
      const auto& [id, value] = *entry;
      if (id != place || value.getPriority() != place) return false;
      const auto* ports = static_cast<const MatchIngressPorts*>(
          value.findMatch(FiltersCommon::FILTERS_MATCH_INGRESS_PORTS));
      if (ports == nullptr) return false;
      if (&ports->ports() == fitting) continue;
      fitting = &ports->ports();
      if (fitting->size() != 1 || names_(fitting->front()) != run.interface) return false;
    }
  }
  return true;
}

}  // namespace host
