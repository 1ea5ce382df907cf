// What readers of standards have in common: from the texts of values to conditions of an entry.
#ifndef HOST_STANDARD_ACE_BUILDER_H_
#define HOST_STANDARD_ACE_BUILDER_H_

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "host/standard/acl.h"
#include "host/standard/document.h"

namespace host::standard {

// Numbers, in order and without common ones: what a range or a set of ports or VLANs comes to.
struct Range {
  uint64_t low = 0, high = 0;
};
using Ranges = std::vector<Range>;

// A decimal number up to `most`; none for other texts.
std::optional<uint32_t> NumberOf(const std::string& text, uint32_t most);
// "a.b.c.d/length"; without the length a whole address.
std::optional<Value> PrefixOf(const std::string& text);
std::optional<uint64_t> MacOf(const std::string& text);
// The values without those that others of them repeat, in their order.
std::vector<Value> Distinct(std::vector<Value> values);
// The numbers of a and b together, in order.
Ranges Union(Ranges ranges);
// Those of `all` that are not in `without`, both as Union() returns them.
Ranges Difference(const Ranges& all, const Ranges& without);
uint64_t CountOf(const Ranges& ranges);

// The fewest prefixes of 32 bits that have these addresses and no others.
std::vector<Value> PrefixesOf(const Ranges& addresses);

// The range that an operator (eq, neq, lte, gte) makes of `number`, up to `most`; none for an
// unknown operator.
std::optional<Ranges> RangesOf(std::string_view op, uint32_t number, uint32_t most);

// Puts an entry together. Conditions on one field must all hold: they are intersected.
class AceBuilder {
 public:
  // `most_values` bounds what a range is taken apart into.
  AceBuilder(Ace* ace, size_t most_values) : ace_(ace), most_values_(most_values) {}

  void And(Field field, std::vector<Value> values);
  void AndExact(Field field, uint64_t value) { And(field, {{value, FullMask(field)}}); }
  // Numbers of a field that has no other masks than all. Too many are a problem.
  void AndRanges(Field field, const Ranges& ranges, const std::string& path,
                 const std::string& meaning);
  // The values of a set. Too many are a problem, and are not copied.
  void AndSet(Field field, const std::vector<Value>& values, const std::string& path,
              const std::string& meaning);
  // A statement that cannot be held, or whose value is wrong.
  void Refuse(const std::string& path, const std::string& meaning, bool is_condition = true);
  // One without which the other conditions would say something else.
  void RefuseWhole(const std::string& path, const std::string& meaning);

  // For those who tell of statements by themselves.
  std::vector<Problem>& problems() { return ace_->problems; }

 private:
  void RefuseCount(const std::string& path, const std::string& meaning, uint64_t count);

  Ace* ace_;
  size_t most_values_;
};

// Path of a list entry: "/acls/acl[name='x']". A key that is longer than a name should be is cut.
std::string EntryPath(const std::string& parent, std::string_view list, std::string_view key,
                      const std::string& value);

}  // namespace host::standard

#endif  // HOST_STANDARD_ACE_BUILDER_H_
