// Conversion between the texts of the data trees and the values of the cdb_* calls.
#ifndef HOST_CDB_CALLS_VALUES_H_
#define HOST_CDB_CALLS_VALUES_H_

#include <cstdint>
#include <string>
#include <vector>

#include "host/cdb/schema/cdb_schema.h"
#include "platform/confd/confd_lib.h"

namespace host {

// Sets `value` to what the canonical text of a leaf (or leaf-list element) of `node` is delivered
// as. Buffers are malloc'ed, for confd_free_value(). False for texts and types that have no value.
bool ToValue(const CdbNode& node, const char* text, confd_value_t* value);

// A C_BUF value with a copy of `text`.
confd_value_t TextValue(const std::string& text);

// The text of a value; `node` (may be null) names enumeration values. False for types that have
// no text of their own (tags, lists).
bool ToText(const CdbNode* node, const confd_value_t& value, std::string* text);

// Orders values of one type, as the entries of a list are delivered: numbers and enumerations by
// value, texts by their bytes.
bool Less(const confd_value_t& a, const confd_value_t& b);

// Owns values.
class Values {
 public:
  Values() = default;
  Values(Values&& other) noexcept { values_.swap(other.values_); }
  Values& operator=(Values&& other) noexcept {
    values_.swap(other.values_);
    return *this;
  }
  ~Values() {
    for (confd_value_t& value : values_) confd_free_value(&value);
  }
  void Add(const confd_value_t& value) { values_.push_back(value); }
  const std::vector<confd_value_t>& all() const { return values_; }
  // Leaves the values to whoever has copied them.
  void Release() { values_.clear(); }

 private:
  std::vector<confd_value_t> values_;
};

// A value as a number, an octet string as one in network order; the mask is that of a prefix.
struct NumericValue {
  uint64_t value = 0;
  uint64_t mask = ~uint64_t{0};
};
// What a leaf of the data tree is delivered as, as a number; 0 where it has no value.
NumericValue NumericOf(const CdbSchema& schema, const lyd_node* leaf);

// The keys of a list entry, or the value of a leaf-list element, of the data tree.
Values KeysOf(const CdbNode& node, const lyd_node* instance);
void AddKeysOf(const CdbNode& node, const lyd_node* instance, Values* keys);

}  // namespace host

#endif  // HOST_CDB_CALLS_VALUES_H_
