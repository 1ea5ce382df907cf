// Values and keypaths of the configuration database as texts, and the texts of what a call is
// given.
#ifndef TESTS_CORE_PLATFORM_VALUES_H_
#define TESTS_CORE_PLATFORM_VALUES_H_

#include <net/ethernet.h>

#include <list>
#include <string>

#include "platform/confd/confd_lib.h"

namespace acl_test {

// A value made from its text, with all that it points to: "u8 7", "u16 7", "u32 7", "int32 7",
// "enum 7", "\"a text\"" (C_BUF), "0x0a0b" (C_BINARY), "10.0.0.1", "10.0.0.1/8", "vlan" (the tag of
// that node, kUnknownTag when the module has none), "[\"a\",u8 1]" (C_LIST), "" (none).
class Value {
 public:
  explicit Value(const std::string& text);
  Value(const Value&) = delete;
  Value& operator=(const Value&) = delete;
  ~Value() { Free(&value_); }

  // Null when there is none.
  operator confd_value_t*() { return value_.type == C_NOEXISTS ? nullptr : &value_; }  // NOLINT
  confd_value_t* operator->() { return &value_; }
  // The value, whose memory is then the caller's.
  confd_value_t Release();
  // Frees what a value points to. The value stays as it is: a second time is an error that the
  // address sanitizer sees.
  static void Free(confd_value_t* value);

 private:
  confd_value_t value_{};
};
constexpr uint32_t kUnknownTag = 0x12345;

// A keypath from its text, such as "/config/access-list/interface{eth0}/ingress{P}". The keys of a
// profile are an enumeration and a buffer ("access-list{0 P}"), that of an entry is a number, all
// others are buffers; a position ("[3]" or "/[3]") stands as a number.
class KeyPath : public confd_hkeypath_t {
 public:
  explicit KeyPath(const std::string& text);
  const std::string& text() const { return text_; }
  // The element at this position from the top, counted from 1.
  confd_value_t* FromTop(int position) { return v[len - position]; }

 private:
  std::string text_;
  std::list<Value> values_;
};

// The text that makes the value; "null" for a null pointer.
std::string Word(const confd_value_t* value);
inline std::string Word(const std::string& text) { return text; }
inline std::string Word(long long number) { return std::to_string(number); }
std::string Word(in_addr address);
std::string Word(const ether_addr& address);

// The words with blanks between them.
template <class... Args>
std::string Line(const std::string& first, const Args&... words) {
  return (first + ... + (' ' + Word(words)));
}

}  // namespace acl_test

#endif  // TESTS_CORE_PLATFORM_VALUES_H_
