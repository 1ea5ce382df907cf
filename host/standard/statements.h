// Statements that the standards have in common, and the form of the tables in which each standard
// lists its own.
#ifndef HOST_STANDARD_STATEMENTS_H_
#define HOST_STANDARD_STATEMENTS_H_

#include <map>
#include <optional>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "host/standard/ace_builder.h"
#include "host/standard/shapes.h"

namespace host::standard {

// Numbers of protocols, and the largest port.
inline constexpr uint32_t kIcmp = 1, kTcp = 6, kUdp = 17;
inline constexpr uint32_t kMostPort = 65535;

// What the nodes of a document may be called: the name in its model's tables, empty for a node of a
// module that has no table here, whose name may mean anything.
using NameOfNode = std::string_view (*)(const Node& node);

// Tells of a node that no table has: a problem, since it may decide what becomes of frames, or a
// note, where it is an annotation of which that is known to be false.
void TellUnknown(const std::string& place, const Node& node, std::vector<Problem>* problems,
                 std::vector<Note>* notes);

// Whether `child` of `node` may be taken: it has the form that it should have, and is there. Of a
// known one that has another form a problem tells.
bool MayTake(const Node& node, const Node& child, const std::string& place, NameOfNode name_of,
             std::vector<Problem>* problems);

// Goes through what is in `node`, whose path is `place`. `take` gets each child that has the form
// that it should have, and its name, and returns whether it knows it; what it does not know is told
// of.
template <class Take>
void ForEach(const Node& node, const std::string& place, NameOfNode name_of,
             std::vector<Problem>* problems, std::vector<Note>* notes, const Take& take) {
  for (const Node& child : node.children) {
    if (!MayTake(node, child, place, name_of, problems)) continue;
    if (!take(child, name_of(child))) TellUnknown(place, child, problems, notes);
  }
}

// Whether one of the problems from `begin` on leaves what it is of in doubt as a whole.
bool AnyWhole(const std::vector<Problem>& problems, size_t begin);

// The first child that has the name in its model's tables, whatever others call theirs; null where
// there is none.
const Node* ChildOf(const Node& parent, NameOfNode name_of, std::string_view name);
// Its value, empty where there is none.
const std::string& ValueIn(const Node& parent, NameOfNode name_of, std::string_view name);

// Tells of a node beside those that the document is read for.
void TellOtherModel(const Node& node, AccessLists* lists);

// The path of a child.
std::string PathOf(const std::string& place, const Node& node);

// Whether the value is this identity of the module, or may be, as a document that says no module.
bool IsIdentity(const Node& node, const Module& module, std::string_view name);

// Sets that entries name. One without a value is not as it should be.
struct DefinedSets {
  std::map<std::string, std::optional<std::vector<Value>>> prefixes, protocols;
  std::map<std::string, std::optional<Ranges>> ports;
};

// What is wrong with a set, and what has no place here, while it is read.
struct SetReading {
  NameOfNode name_of;
  std::vector<Problem> problems = {};
  std::vector<Note>* notes;

  // Refuses the set for the value of `node`, at `place`.
  void RefuseValue(const std::string& place, const Node& node);
  // Refuses the set at `place` where it has none.
  void RequireValues(const std::string& place, bool has_any);
  // Notes a text about the set.
  void NoteText(const std::string& place, const Node& node);
};

// Reads the list `list` of sets in `container`. `read` gets a set, its path and a SetReading, and
// returns its values. Of a set with problems, or with the name of another, a note tells: entries
// that name it are refused. What is no set is a problem of the document.
template <class Set, class Read>
void ReadSets(const Node& container, const std::string& path, std::string_view list,
              NameOfNode name_of, const Read& read, AccessLists* lists,
              std::map<std::string, std::optional<Set>>* sets) {
  ForEach(container, path, name_of, &lists->problems, &lists->notes,
          [&](const Node& node, std::string_view name) {
            if (name != list) return name == "state";
            const std::string& key = ValueIn(node, name_of, "name");
            const std::string place = EntryPath(path, list, "name", key);
            SetReading reading{name_of, {}, &lists->notes};
            Set values = read(node, place, &reading);
            const auto [set, is_new] = sets->try_emplace(key);
            if (!is_new) reading.problems.push_back({place, "a second set of that name"});
            set->second.reset();
            for (const Problem& problem : reading.problems) {
              lists->notes.push_back(
                  {problem.path, problem.meaning, "no set: entries that name it are refused"});
            }
            if (!reading.problems.empty()) return true;
            set->second = std::move(values);
            lists->notes.push_back({place, "a set", "its values are in the entries that name it"});
            return true;
          });
}

// The value of a prefix among those of a set.
void TakeSetPrefix(const Node& node, const std::string& place, SetReading* reading,
                   std::vector<Value>* prefixes);

// One entry being read.
struct Reading {
  AceBuilder builder;
  const DefinedSets& sets;
  NameOfNode name_of;
  std::vector<Note>* notes;
};

// Bounds the memory that the entries of a document take: a set counts with each that names it.
class ValueCount {
 public:
  // Counts an entry; with too many values in all it and those behind it lose theirs.
  void Add(Ace* ace);
  // Why the document cannot be read; empty when it can.
  const std::string& error() const { return error_; }

 private:
  size_t values_ = 0;
  std::string error_;
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
  // The rule of `name`, within `container` unless that is empty; null where there is none.
  const Rule* Find(std::string_view container, std::string_view name) const;

 private:
  std::unordered_map<std::string_view, const Rule*> by_path_;
};

// A value that is none of the statement's.
void RefuseValue(Reading* reading, const Statement& statement);
// Refuses what is in the statement's node and not called one of these, or has another form.
void RefuseOthers(Reading* reading, const Statement& statement,
                  std::initializer_list<std::string_view> known);
// Refuses a condition that no table has.
void RefuseUnknown(Reading* reading, const std::string& place, const Node& node);

// For tables. What has no place here is refused, with its value.
void Refuse(Reading* reading, const Statement& statement, const Rule& rule);
// The same of a container, which says nothing where it is empty.
void RefuseContent(Reading* reading, const Statement& statement, const Rule& rule);
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

}  // namespace host::standard

#endif  // HOST_STANDARD_STATEMENTS_H_
