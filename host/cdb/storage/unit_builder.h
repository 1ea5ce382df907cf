// Builds stored units straight from their text, where that has the form in which units.cpp writes
// it: an object without blanks, members in the order of the schema, keys first, strings of plain
// characters, every value its own canonical text.
//
// libyang's parser takes several times as long, most of a start, for it finds every name in the
// schema and every value's type anew. Here the schema is walked from place to place, and a value
// that an earlier entry has, as many ports and protocols do, is copied from there. A value that is
// new goes through its type in libyang as ever. Nothing is refused here: all else is for the parser
// to read, and what is built is what the parser would have made of it.
#ifndef HOST_CDB_STORAGE_UNIT_BUILDER_H_
#define HOST_CDB_STORAGE_UNIT_BUILDER_H_

#include <array>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "host/cdb/schema/yang_tree.h"

namespace host {

// For units that come into one tree, from which nothing else may be taken meanwhile.
class UnitBuilder {
 public:
  // Adds the entry whose content is `text` to the list `schema` below `parent`. False when it is
  // not in the form above; then nothing has changed.
  bool Add(lyd_node* parent, const lysc_node* schema, std::string_view text);

 private:
  struct Built {
    const lyd_node* node;
    uint32_t types;  // of its form in JSON, as in Value
  };
  // What there is to know of a schema node, and of the nodes that were built of it.
  struct Kind {
    const lysc_node* schema = nullptr;
    std::string_view name;
    std::vector<std::unique_ptr<Kind>> children;  // those of the configuration, in libyang's order
    const lyd_node* built = nullptr;              // of a container
    std::unordered_map<std::string_view, Built> values;  // of a leaf, by their texts
  };
  // A value as JSON has it: a number, a string, true or false, or [null].
  struct Value {
    uint32_t types = 0;  // that have such values, a bit each
    std::string_view text;
  };
  static constexpr size_t kMostKeys = 3;

  static std::unique_ptr<Kind> MakeKind(const lysc_node* schema);
  static bool IsValue(const lyd_node* leaf, const Value& value);

  bool BuildEntry(const Kind& list, lyd_node* parent, lyd_node** entry);
  bool BuildMembers(const Kind& of, lyd_node* parent, size_t next);
  bool BuildContainer(Kind* container, lyd_node* parent);
  bool BuildLeaf(Kind* leaf, lyd_node* parent);
  bool BuildLeafList(Kind* list, lyd_node* parent);

  // Takes what the text goes on with; false when that is something else.
  bool Take(std::string_view expected);
  bool TakeString(std::string_view* text);
  bool TakeValue(Value* value);

  std::map<const lysc_node*, std::unique_ptr<Kind>> lists_;
  std::string_view rest_;                      // of the text
  std::array<std::string, kMostKeys> values_;  // members to save allocations
};

}  // namespace host

#endif  // HOST_CDB_STORAGE_UNIT_BUILDER_H_
