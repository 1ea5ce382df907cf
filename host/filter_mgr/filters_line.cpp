#include "host/filter_mgr/filters_line.h"

#include <algorithm>
#include <cstddef>
#include <map>
#include <string>

namespace host {
namespace {

std::string Counted(size_t count, const char* what) {
  return std::to_string(count) + " " + what + (count == 1 ? "" : "s");
}

}  // namespace

StatusLine GroupsLine(const GroupTable& table) {
  StatusLine line{StatusLine::kOk, "no group is in force"};
  const char* between = "";
  for (const auto& [key, group] : table.groups()) {
    if (*between == 0) line.text.clear();
    line.text += std::string(between) + GroupTypeName(group->getType()) + " " +
                 std::to_string(group->getEntriesRef().size()) + " of " +
                 std::to_string(table.capacity()) + " entries";
    if (const auto cost = table.backend().CostOf(SlotOf(group->getType()))) {
      line.text += cost->tables
                       ? " (a frame is looked up in " + Counted(cost->tables->worst, "table") +
                             " at most, at " + cost->port + ")"
                       : " (a frame is compared with " + Counted(cost->entries_worst, "rule") +
                             " at most, at " + cost->port + ")";
    }
    const auto waits = table.pending().find(key);
    if (waits != table.pending().end()) {
      line.text += " (" + std::to_string(waits->second->getEntriesRef().size()) + " wait)";
    }
    between = ", ";
    if (!table.NearlyFull(group->getType())) continue;
    line.text += " (nearly full)";
    line.state = StatusLine::kWarning;
  }
  if (table.refused_into_nothing()) {
    line.state = StatusLine::kError;
    line.text += "; those sent last were refused";
  }
  return line;
}

StatusLine FiltersLine(const OpenedBackend& opened, const GroupTable& table,
                       const LeftInForce& left) {
  StatusLine line{opened.second_best ? StatusLine::kWarning : StatusLine::kOk, ""};
  const auto raise = [&line](StatusLine::State least) { line.state = std::max(line.state, least); };
  size_t enforced = 0;
  std::map<PortState, std::string> ports;  // that are not filtered
  for (const auto& [name, state] : opened.backend->Ports()) {
    if (state == PortState::kEnforced) {
      ++enforced;
      continue;
    }
    ports[state] += (ports[state].empty() ? "" : ", ") + name;
    raise(state == PortState::kFailed ? StatusLine::kError : StatusLine::kWarning);
  }
  if (opened.enforces) {
    line.text = std::string("enforced by ") + opened.backend->name() + " (" + opened.why + ") on " +
                Counted(enforced, "port");
  } else {
    line = {StatusLine::kWarning, "enforced by nothing: " + opened.why};
  }
  if (enforced == 0 && ports.empty() && left.own != 0) {
    raise(StatusLine::kWarning);
    line.text += "; what was in force before the start stays so on " + Counted(left.own, "port");
  } else if (left.others.empty() && table.refused_into_nothing()) {
    raise(StatusLine::kError);
    line.text += "; all frames pass, for the groups were refused";
  }
  for (const auto& [backend, filters] : left.others) {
    const bool in_reach = filters.out_of_reach.empty();
    raise(in_reach ? StatusLine::kWarning : StatusLine::kError);
    line.text +=
        "; " + backend + " filters " + Counted(filters.ports, "port") + " as before the start";
    if (!in_reach) line.text += ", out of this process's reach (" + filters.out_of_reach + ")";
  }
  constexpr struct {
    PortState state;
    const char* text;
  } kOthers[] = {{PortState::kFailed, "; failed: "}, {PortState::kAbsent, "; no interface yet: "}};
  for (const auto& other : kOthers) {
    if (ports.count(other.state) != 0) line.text += other.text + ports[other.state];
  }
  return line;
}

}  // namespace host
