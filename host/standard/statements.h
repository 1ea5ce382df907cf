// Statements that the standards have in common, and the form of the tables in which each standard
// lists its own.
#ifndef HOST_STANDARD_STATEMENTS_H_
#define HOST_STANDARD_STATEMENTS_H_

#include <map>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "host/standard/ace_builder.h"

namespace host::standard {

// Sets that entries name. One without a value is not as it should be.
struct DefinedSets {
  std::map<std::string, std::optional<std::vector<Value>>> prefixes, protocols;
  std::map<std::string, std::optional<Ranges>> ports;
};

// One entry being read.
struct Reading {
  AceBuilder builder;
  const DefinedSets& sets;
};

// A condition of an entry, with the node that it is in.
struct Statement {
  const Node& node;
  const Node& parent;
  const std::string& path;
};

struct Rule {
  const char* path;  // of the statement, below what has the conditions of an entry
  // Takes the statement, with all that is in it.
  void (*take)(Reading* reading, const Statement& statement, const Rule& rule);
  Field field = kFieldCount;
  uint32_t number = 0;  // largest value, or protocol
  const char* meaning = "";
};

// The rules of a table by their paths.
class RuleIndex {
 public:
  template <size_t N>
  explicit RuleIndex(const Rule (&rules)[N]) {
    for (const Rule& rule : rules) by_path_.emplace(rule.path, &rule);
  }
  const Rule* Find(const std::string& path) const {
    const auto it = by_path_.find(path);
    return it == by_path_.end() ? nullptr : it->second;
  }

 private:
  std::unordered_map<std::string, const Rule*> by_path_;
};

// A value that is none of the statement's.
void RefuseValue(Reading* reading, const Statement& statement);

// For tables. What has no place here is refused, with its value, where it says anything.
void Refuse(Reading* reading, const Statement& statement, const Rule& rule);
void TakeNumber(Reading* reading, const Statement& statement, const Rule& rule);
void TakeDscp(Reading* reading, const Statement& statement, const Rule& rule);
void TakePrefix(Reading* reading, const Statement& statement, const Rule& rule);
// A MAC address with the mask beside it, and that mask, which is read with its address.
void TakeMac(Reading* reading, const Statement& statement, const Rule& rule);
void TakeMask(Reading* reading, const Statement& statement, const Rule& rule);
// Names of sets.
void TakePrefixSet(Reading* reading, const Statement& statement, const Rule& rule);
void TakePortSet(Reading* reading, const Statement& statement, const Rule& rule);
void TakeProtocolSet(Reading* reading, const Statement& statement, const Rule& rule);

// The leaf-list `name` of prefixes in a set; nothing where one of them is none.
std::optional<std::vector<Value>> PrefixesIn(const Node& set, std::string_view name);

}  // namespace host::standard

#endif  // HOST_STANDARD_STATEMENTS_H_
