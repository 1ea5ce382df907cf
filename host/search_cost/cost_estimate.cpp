#include "host/search_cost/cost_estimate.h"

#include <algorithm>
#include <map>
#include <utility>

#include "host/filter_mgr/ebpf/program/shared.h"

namespace host {
namespace {

using classifier::Rule;
using findings::Entry;
using findings::FrameClass;

// What the filter program notes of a frame that has what a field needs.
constexpr std::pair<uint8_t, uint64_t> kHas[] = {
    {FrameClass::kTag, CLS_HAS_TAG},
    {FrameClass::kTosByte, FILTER_HAS_TOS},
    {FrameClass::kProtocol, FILTER_HAS_PROTOCOL},
    {FrameClass::kSource, FILTER_HAS_SRC_IP},
    {FrameClass::kWhole, CLS_HAS_IPV4},
    {FrameClass::kPort, CLS_HAS_PORT},
};

// The rule that the back end of tables makes of the entry.
Rule RuleOf(const Entry& entry) {
  Rule rule;
  rule.value = entry.matches.value;
  rule.mask = entry.matches.mask;
  for (int i = 0; i < findings::kFieldCount; ++i) {
    const auto field = static_cast<findings::Field>(i);
    if (!entry.matches.Has(field)) continue;
    for (const auto& [need, has] : kHas) {
      if ((findings::PlaceOf(field).needs & need) == 0) continue;
      rule.value.word[3] |= has;
      rule.mask.word[3] |= has;
    }
  }
  rule.action = entry.action == Entry::Action::kDeny     ? CLS_DENY
                : entry.action == Entry::Action::kSetPcp ? CLS_SET_PCP
                                                         : CLS_PERMIT;
  rule.pcp = entry.pcp;
  return rule;
}

}  // namespace

CostEstimate::CostEstimate(std::shared_ptr<const findings::Configuration> configuration)
    : configuration_(std::move(configuration)),
      tables_(&memory_),
      next_(configuration_->interfaces.begin()) {
  tables_.Format();  // the heap has the room
}

std::vector<Rule> CostEstimate::RulesOf(const findings::Interface& interface, bool l3) const {
  std::map<int, const findings::Profile*> profiles;  // by priority
  for (const std::string& name : interface.profiles) {
    const auto profile = configuration_->profiles.find(name);
    if (profile == configuration_->profiles.end() || profile->second.l3 != l3) continue;
    profiles.emplace(profile->second.priority, &profile->second);
  }
  std::vector<Rule> rules;
  for (const auto& [priority, profile] : profiles) {
    std::transform(profile->entries.begin(), profile->entries.end(), std::back_inserter(rules),
                   RuleOf);
  }
  return rules;
}

bool CostEstimate::Step() {
  if (next_ == configuration_->interfaces.end()) return false;
  const std::vector<Rule> rules = RulesOf(next_->second, l3_);
  classifier::Refusal refusal;
  if (rules.empty()) {
  } else if (!tables_.Replace(root_, rules.data(), rules.size(), nullptr, &refusal)) {
    result_.refused.push_back(
        {next_->first,
         "tables cannot hold its " + std::string(l3_ ? "L3" : "L2") + " entries: " + refusal.text});
    tables_.Discard(root_);
  } else {
    tables_.Publish();
    const classifier::Cost found = tables_.CostOf(root_, SearchSamples(rules.size()));
    const SearchCost cost{next_->first, SearchCost::Tables{found.mean_tables, found.worst_tables},
                          found.worst_entries};
    std::optional<SearchCost>& worst = result_.groups[l3_ ? 1 : 0];
    if (!worst || *worst < cost) worst = cost;
  }
  ++root_;
  if (l3_) ++next_;
  l3_ = !l3_;
  result_.bytes = memory_.bytes();
  return next_ != configuration_->interfaces.end();
}

}  // namespace host
