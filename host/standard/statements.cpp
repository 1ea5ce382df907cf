// Statements in common: see statements.h.
#include "host/standard/statements.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include "host/runtime/log_text.h"

namespace host::standard {
namespace {

// Modules of annotations that say where data comes from and how it is written, never what it means
// (RFC 8342, RFC 6243, XML itself), by name or namespace.
constexpr std::string_view kHarmless[] = {"ietf-origin",
                                          "urn:ietf:params:xml:ns:yang:ietf-origin",
                                          "ietf-netconf-with-defaults",
                                          "urn:ietf:params:xml:ns:netconf:default:1.0",
                                          "http://www.w3.org/XML/1998/namespace",
                                          "http://www.w3.org/2001/XMLSchema-instance"};

bool IsHarmless(const Node& annotation) {
  const auto known = [](std::string_view module) {
    return std::find(std::begin(kHarmless), std::end(kHarmless), module) != std::end(kHarmless);
  };
  if (annotation.children.empty()) return known(annotation.module);
  return std::all_of(annotation.children.begin(), annotation.children.end(),
                     [&](const Node& node) { return known(node.module); });
}

std::string AnnotationText(const Node& annotation) {
  std::string text = annotation.value;
  for (const Node& node : annotation.children) {
    text += text.empty() ? "" : ", ";
    text.append(node.module).append(":").append(node.name);
    text += "=\"" + node.value + "\"";
  }
  return "an annotation, " + text;
}

}  // namespace

std::string PathOf(const std::string& place, const Node& node) {
  std::string path = place + "/";
  if (node.name.size() > kMaxOutsideText) return path + CutText(node.name, kMaxOutsideText);
  return path.append(node.name);
}

bool MayTake(const Node& node, const Node& child, const std::string& place, NameOfNode name_of,
             std::vector<Problem>* problems) {
  const char* fault = name_of(child).empty() ? nullptr : FaultOf(node, child);
  if (fault != nullptr) problems->push_back({PathOf(place, child), fault, true, true});
  return fault == nullptr && child.form != Node::Form::kNothing;
}

bool AnyWhole(const std::vector<Problem>& problems, size_t begin) {
  return std::any_of(problems.begin() + static_cast<std::ptrdiff_t>(begin), problems.end(),
                     [](const Problem& problem) { return problem.whole; });
}

const Node* ChildOf(const Node& parent, NameOfNode name_of, std::string_view name) {
  for (const Node& node : parent.children) {
    if (node.name == name && !name_of(node).empty()) return &node;
  }
  return nullptr;
}

const std::string& ValueIn(const Node& parent, NameOfNode name_of, std::string_view name) {
  static const std::string kNone;
  const Node* node = ChildOf(parent, name_of, name);
  return node == nullptr ? kNone : node->value;
}

void SetReading::RefuseValue(const std::string& place, const Node& node) {
  problems.push_back(
      {PathOf(place, node), "\"" + node.value + "\" is no value that is known", true});
}

void SetReading::RequireValues(const std::string& place, bool has_any) {
  if (!has_any && problems.empty()) problems.push_back({place, "a set without values", true});
}

void SetReading::NoteText(const std::string& place, const Node& node) {
  notes->push_back({PathOf(place, node), "the text \"" + node.value + "\"", "left out"});
}

void TakeSetPrefix(const Node& node, const std::string& place, SetReading* reading,
                   std::vector<Value>* prefixes) {
  const std::optional<Value> prefix = PrefixOf(node.value);
  if (!prefix) return reading->RefuseValue(place, node);
  prefixes->push_back(*prefix);
}

void TellUnknown(const std::string& place, const Node& node, std::vector<Problem>* problems,
                 std::vector<Note>* notes) {
  if (node.form != Node::Form::kAnnotation) {
    problems->push_back({PathOf(place, node), "a statement that is not known here", true});
  } else if (IsHarmless(node)) {
    notes->push_back({PathOf(place, node), AnnotationText(node), "left out"});
  } else {
    problems->push_back({PathOf(place, node), AnnotationText(node), true, true});
  }
}

void TellOtherModel(const Node& node, AccessLists* lists) {
  if (node.form == Node::Form::kAnnotation) {
    return TellUnknown("", node, &lists->problems, &lists->notes);
  }
  const std::string path = "/" + std::string(node.module) + ":" + std::string(node.name);
  lists->notes.push_back({path, "data of another model", "not looked at"});
}

bool IsIdentity(const Node& node, const Module& module, std::string_view name) {
  return node.value == name &&
         (node.module_of_value.empty() || node.module_of_value == module.name);
}

void ValueCount::Add(Ace* ace) {
  constexpr size_t kMost = 4000000;
  for (const std::vector<Value>& values : ace->conditions) values_ += values.size();
  if (values_ <= kMost) return;
  if (error_.empty()) {
    error_ = "the conditions of its entries have more than " + std::to_string(kMost) +
             " values, sets counted with each entry that names them, at " + ace->path;
  }
  ace->conditions = {};
}

const Rule* RuleIndex::Find(std::string_view container, std::string_view name) const {
  char path[96];
  if (container.size() + name.size() + 1 > sizeof(path)) return nullptr;
  size_t size = container.copy(path, container.size());
  if (size > 0) path[size++] = '/';
  size += name.copy(path + size, name.size());
  const auto rule = by_path_.find(std::string_view(path, size));
  return rule == by_path_.end() ? nullptr : rule->second;
}

void RefuseUnknown(Reading* reading, const std::string& place, const Node& node) {
  TellUnknown(place, node, &reading->builder.problems(), reading->notes);
}

void RefuseOthers(Reading* reading, const Statement& statement,
                  std::initializer_list<std::string_view> known) {
  ForEach(statement.node, statement.path, reading->name_of, &reading->builder.problems(),
          reading->notes, [&](const Node& /*node*/, std::string_view name) {
            return std::find(known.begin(), known.end(), name) != known.end();
          });
}

void RefuseValue(Reading* reading, const Statement& statement) {
  reading->builder.Refuse(statement.path,
                          "\"" + statement.node.value + "\" is no value that is known");
}

void RefuseContent(Reading* reading, const Statement& statement, const Rule& rule) {
  if (statement.node.children.empty() && statement.node.value.empty()) return;
  Refuse(reading, statement, rule);
}

void Refuse(Reading* reading, const Statement& statement, const Rule& rule) {
  const std::string value = statement.node.value.empty() ? "" : " " + statement.node.value;
  reading->builder.Refuse(statement.path, rule.meaning + value);
}

void TakeNumber(Reading* reading, const Statement& statement, const Rule& rule) {
  const std::optional<uint32_t> number = NumberOf(statement.node.value, rule.number);
  const bool is_priority_tag = rule.field == kVlan && number == 0;  // which is no VLAN
  if (!number || is_priority_tag) return RefuseValue(reading, statement);
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
  const Node* mask_node =
      ChildOf(statement.parent, reading->name_of, std::string(statement.node.name) + "-mask");
  const std::optional<uint64_t> mask =
      mask_node == nullptr ? FullMask(rule.field) : MacOf(mask_node->value);
  if (!address || !mask) return RefuseValue(reading, statement);
  reading->builder.And(rule.field, {{*address, *mask}});
}

void TakeMask(Reading* reading, const Statement& statement, const Rule& /*rule*/) {
  const std::string_view name = statement.node.name;
  if (ChildOf(statement.parent, reading->name_of, name.substr(0, name.size() - 5)) == nullptr) {
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
  if (set == nullptr) return;
  reading->builder.AndSet(rule.field, *set, statement.path,
                          "the prefix set " + statement.node.value);
}

void TakePortSet(Reading* reading, const Statement& statement, const Rule& rule) {
  const auto* set = FindSet(reading, statement, "port", reading->sets.ports);
  if (set == nullptr) return;
  reading->builder.AndRanges(rule.field, *set, statement.path,
                             "the port set " + statement.node.value);
}

void TakeProtocolSet(Reading* reading, const Statement& statement, const Rule& rule) {
  const auto* set = FindSet(reading, statement, "protocol", reading->sets.protocols);
  if (set == nullptr) return;
  reading->builder.AndSet(rule.field, *set, statement.path,
                          "the protocol set " + statement.node.value);
}

}  // namespace host::standard
