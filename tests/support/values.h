// Values and keypaths of the configuration database, made from texts. Both own what they point to.
#ifndef TESTS_SUPPORT_VALUES_H_
#define TESTS_SUPPORT_VALUES_H_

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "platform/confd/confd_lib.h"

namespace acl_test {

// A deep copy of `value`, to be released with ReleaseValue().
confd_value_t CloneValue(const confd_value_t& value);
// Releases what the value points to. The value itself is left as it is, so that a second release
// is an error that the address sanitizer sees.
void ReleaseValue(confd_value_t* value);

// A value by its text: "u8 7", "u16 7", "u32 7", "int32 7", "enum 7", "\"a text\"" (C_BUF),
// "0x0a0b" (C_BINARY), "10.0.0.1", "10.0.0.1/8"; "" is none (C_NOEXISTS).
class Value {
 public:
  Value() : Value("") {}
  Value(const std::string& text);  // NOLINT: texts stand for values all over the tests
  Value(const char* text) : Value(std::string(text)) {}  // NOLINT
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

Value ListOf(const std::vector<Value>& elements);
Value TagOf(const std::string& node_name);  // of a name that the module lacks: kUnknownTag
constexpr uint32_t kUnknownTag = 0x12345;

// The text that makes the value; "null" for a null pointer.
std::string ToText(const confd_value_t* value);
std::string HexText(const unsigned char* octets, size_t size);
std::string AddressText(in_addr address);

// A keypath from its text, such as "/config/access-list/interface{eth0}/ingress{P}". The keys of a
// profile are an enumeration and a buffer ("access-list{0 P}"), that of an entry is a number, all
// others are buffers; a position ("[3]") stands as a number. Tests may change the elements.
class KeyPath : public confd_hkeypath_t {
 public:
  explicit KeyPath(const std::string& text);
  KeyPath(const KeyPath&) = delete;
  KeyPath& operator=(const KeyPath&) = delete;

  const std::string& text() const { return text_; }
  // The element at this position from the top, counted from 1.
  confd_value_t* FromTop(int position) { return v[len - position]; }

 private:
  std::string text_;
  std::vector<std::vector<Value>> elements_;  // from the top
};

}  // namespace acl_test

#endif  // TESTS_SUPPORT_VALUES_H_
