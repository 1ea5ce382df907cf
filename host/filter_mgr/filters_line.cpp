#include "host/filter_mgr/filters_line.h"

#include <cstdint>
#include <map>
#include <string>

namespace host {
namespace {

std::string Counted(uint32_t count, const char* what) {
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
  return line;
}

StatusLine FiltersLine(const OpenedBackend& opened, const GroupTable& table) {
  if (!opened.enforces) return {StatusLine::kWarning, "enforced by nothing: " + opened.why};
  StatusLine line{opened.second_best ? StatusLine::kWarning : StatusLine::kOk, ""};
  size_t enforced = 0;
  std::map<PortState, std::string> others;
  for (const auto& [name, state] : opened.backend->Ports()) {
    if (state == PortState::kEnforced) {
      ++enforced;
      continue;
    }
    others[state] += (others[state].empty() ? "" : ", ") + name;
    const auto least = state == PortState::kFailed ? StatusLine::kError : StatusLine::kWarning;
    if (line.state < least) line.state = least;
  }
  const auto count = [](size_t ports) {
    return std::to_string(ports) + (ports == 1 ? " port" : " ports");
  };
  line.text = std::string("enforced by ") + opened.backend->name() + " (" + opened.why + ") on " +
              count(enforced);
  if (enforced == 0 && others.empty() && !table.pending().empty() && opened.backend->Left() != 0) {
    line.state = StatusLine::kWarning;
    line.text +=
        "; what was in force before the start stays so on " + count(opened.backend->Left());
  }
  constexpr struct {
    PortState state;
    const char* text;
  } kOthers[] = {{PortState::kFailed, "; failed: "}, {PortState::kAbsent, "; no interface yet: "}};
  for (const auto& other : kOthers) {
    if (others.count(other.state) != 0) line.text += other.text + others[other.state];
  }
  return line;
}

}  // namespace host
