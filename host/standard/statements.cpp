// Statements in common: see statements.h.
#include "host/standard/statements.h"

#include <utility>

namespace host::standard {

void RefuseValue(Reading* reading, const Statement& statement) {
  reading->builder.Refuse(statement.path,
                          "\"" + statement.node.value + "\" is no value that is known");
}

void Refuse(Reading* reading, const Statement& statement, const Rule& rule) {
  // A container without content says nothing.
  if (statement.node.children.empty() && statement.node.value.empty()) return;
  const std::string value = statement.node.value.empty() ? "" : " " + statement.node.value;
  reading->builder.Refuse(statement.path, rule.meaning + value);
}

void TakeNumber(Reading* reading, const Statement& statement, const Rule& rule) {
  const std::optional<uint32_t> number = NumberOf(statement.node.value, rule.number);
  if (!number) return RefuseValue(reading, statement);
  reading->builder.AndExact(rule.field, *number);
}

void TakeDscp(Reading* reading, const Statement& statement, const Rule& /*rule*/) {
  const std::optional<uint32_t> dscp = NumberOf(statement.node.value, 63);
  if (!dscp) return RefuseValue(reading, statement);
  reading->builder.And(kTos, {{uint64_t{*dscp} << 2, kDscpMask}});
}

void TakePrefix(Reading* reading, const Statement& statement, const Rule& rule) {
  const std::optional<Value> prefix = PrefixOf(statement.node.value);
  if (!prefix) return RefuseValue(reading, statement);
  reading->builder.And(rule.field, {*prefix});
}

void TakeMac(Reading* reading, const Statement& statement, const Rule& rule) {
  const std::optional<uint64_t> address = MacOf(statement.node.value);
  const Node* mask_node = statement.parent.Find(std::string(statement.node.name) + "-mask");
  const std::optional<uint64_t> mask =
      mask_node == nullptr ? FullMask(rule.field) : MacOf(mask_node->value);
  if (!address || !mask) return RefuseValue(reading, statement);
  reading->builder.And(rule.field, {{*address, *mask}});
}

void TakeMask(Reading* reading, const Statement& statement, const Rule& /*rule*/) {
  const std::string_view name = statement.node.name;
  if (statement.parent.Find(name.substr(0, name.size() - 5)) == nullptr) {
    reading->builder.Refuse(statement.path, "a mask without its address");
  }
}

namespace {

// The set that a statement names; null, with a problem, where there is none that can be used.
template <class Set>
const Set* FindSet(Reading* reading, const Statement& statement, const char* what,
                   const std::map<std::string, std::optional<Set>>& sets) {
  const auto set = sets.find(statement.node.value);
  if (set != sets.end() && set->second) return &*set->second;
  reading->builder.Refuse(statement.path, "the " + std::string(what) + " set " +
                                              statement.node.value +
                                              " is not there, or not as it should be");
  return nullptr;
}

}  // namespace

void TakePrefixSet(Reading* reading, const Statement& statement, const Rule& rule) {
  const auto* set = FindSet(reading, statement, "prefix", reading->sets.prefixes);
  if (set != nullptr) reading->builder.And(rule.field, *set);
}

void TakePortSet(Reading* reading, const Statement& statement, const Rule& rule) {
  const auto* set = FindSet(reading, statement, "port", reading->sets.ports);
  if (set == nullptr) return;
  reading->builder.AndRanges(rule.field, *set, statement.path,
                             "the port set " + statement.node.value);
}

void TakeProtocolSet(Reading* reading, const Statement& statement, const Rule& rule) {
  const auto* set = FindSet(reading, statement, "protocol", reading->sets.protocols);
  if (set != nullptr) reading->builder.And(rule.field, *set);
}

std::optional<std::vector<Value>> PrefixesIn(const Node& set, std::string_view name) {
  std::vector<Value> prefixes;
  for (const Node& node : set.children) {
    if (node.name != name) continue;
    const std::optional<Value> prefix = PrefixOf(node.value);
    if (!prefix) return std::nullopt;
    prefixes.push_back(*prefix);
  }
  return prefixes;
}

}  // namespace host::standard
