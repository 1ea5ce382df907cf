// Values and keypaths of the configuration database, made from short texts and numbers. Both own
// what they point to.
#ifndef TESTS_SUPPORT_VALUES_H_
#define TESTS_SUPPORT_VALUES_H_

#include <cstdint>
#include <string>
#include <vector>

#include "platform/confd/confd_lib.h"

namespace acl_test {

// A deep copy of `value`, to be released with ReleaseValue().
confd_value_t CloneValue(const confd_value_t& value);
// Releases what the value points to. The value itself is left as it is, so that a second release
// is an error that the address sanitizer sees.
void ReleaseValue(confd_value_t* value);
// "u16 5", "\"text\"", "0x01020304", "10.0.0.1/8", "[\"a\" \"b\"]"; "null" for a null pointer.
std::string ToText(const confd_value_t* value);

class Value {
 public:
  Value() { value_.type = C_NOEXISTS; }
  explicit Value(const confd_value_t& value) : value_(CloneValue(value)) {}
  Value(const Value& other) : Value(other.value_) {}
  Value(Value&& other) noexcept : value_(other.value_) { other.value_.type = C_NOEXISTS; }
  Value& operator=(Value other) noexcept {
    std::swap(value_, other.value_);
    return *this;
  }
  ~Value() { ReleaseValue(&value_); }

  confd_value_t* get() { return &value_; }
  const confd_value_t* get() const { return &value_; }

 private:
  confd_value_t value_{};
};

Value Tag(const std::string& node_name);  // a name that the module lacks gives kUnknownTag
Value Buf(const std::string& text);
Value Binary(const std::vector<uint8_t>& octets);
Value U8(uint8_t number);
Value U16(uint16_t number);
Value U32(uint32_t number);
Value Int32(int32_t number);
Value Enum(int32_t number);
Value Ipv4(const char* address);
Value Prefix(const char* address, uint8_t length);
Value List(const std::vector<Value>& elements);

constexpr uint32_t kUnknownTag = 0x12345;

// A keypath from its text, such as "/config/access-list/interface{eth0}/ingress{P}". The keys of a
// profile are an enumeration and a buffer ("access-list{0 P}"), that of an entry is a number, all
// others are buffers; a position ("[3]") stands as a number. Tests may change the elements.
class KeyPath : public confd_hkeypath_t {
 public:
  explicit KeyPath(const std::string& text);
  KeyPath(const KeyPath&) = delete;
  KeyPath& operator=(const KeyPath&) = delete;

  const std::string& text() const { return text_; }

 private:
  std::string text_;
  std::vector<std::vector<Value>> elements_;  // from the top
};

}  // namespace acl_test

#endif  // TESTS_SUPPORT_VALUES_H_
