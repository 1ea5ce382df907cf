#include "tests/core/platform/values.h"

#include <arpa/inet.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <iomanip>
#include <regex>
#include <sstream>

#include "yang_tags.h"

namespace acl_test {
namespace {

struct NumberType {
  const char* name;
  confd_vtype type;
  void (*set)(confd_value_t& value, long long number);
  long long (*get)(const confd_value_t& value);
};

// A row of the table: the type's name, its code, and its field of the union.
#define NUMBER_TYPE(name, type, field)                                             \
  {                                                                                \
    name, type,                                                                    \
        [](confd_value_t& v, long long n) {                                        \
          v.val.field = static_cast<decltype(v.val.field)>(n);                     \
        },                                                                         \
        [](const confd_value_t& v) { return static_cast<long long>(v.val.field); } \
  }

const NumberType kNumberTypes[] = {
    NUMBER_TYPE("u8", C_UINT8, u8),
    NUMBER_TYPE("u16", C_UINT16, u16),
    NUMBER_TYPE("u32", C_UINT32, u32),
    NUMBER_TYPE("int32", C_INT32, i32),
    NUMBER_TYPE("enum", C_ENUM_VALUE, enumvalue),
};

// What `digits` or a quoted text stand for, with a NUL byte behind.
confd_buf Buffer(const std::string& octets) {
  auto* ptr = static_cast<unsigned char*>(std::calloc(octets.size() + 1, 1));
  std::copy(octets.begin(), octets.end(), ptr);
  return {static_cast<unsigned int>(octets.size()), ptr};
}

std::string Octets(const std::string& digits) {
  std::string octets;
  for (size_t at = 0; at < digits.size(); at += 2) {
    octets += static_cast<char>(std::stoi(digits.substr(at, 2), nullptr, 16));
  }
  return octets;
}

std::string HexText(const unsigned char* octets, size_t size) {
  std::ostringstream text;
  text << "0x" << std::hex << std::setfill('0');
  for (size_t i = 0; i < size; ++i) text << std::setw(2) << static_cast<int>(octets[i]);
  return text.str();
}

confd_list List(const std::string& texts) {
  std::list<Value> values;
  std::istringstream stream(texts);
  for (std::string text; std::getline(stream, text, ',');) values.emplace_back(text);
  confd_list list{static_cast<unsigned int>(values.size()), new confd_value_t[values.size()]};
  std::transform(values.begin(), values.end(), list.ptr, [](Value& v) { return v.Release(); });
  return list;
}

}  // namespace

Value::Value(const std::string& text) {
  value_.type = C_NOEXISTS;
  if (text.empty()) return;
  const size_t blank = text.find(' '), slash = text.find('/');
  for (const NumberType& number : kNumberTypes) {
    if (text.compare(0, blank, number.name) != 0) continue;
    value_.type = number.type;
    number.set(value_, std::strtoll(text.c_str() + blank, nullptr, 0));
    return;
  }
  if (text[0] == '"' || text.compare(0, 2, "0x") == 0) {
    value_.type = text[0] == '"' ? C_BUF : C_BINARY;
    value_.val.buf =
        Buffer(text[0] == '"' ? text.substr(1, text.size() - 2) : Octets(text.substr(2)));
  } else if (text[0] == '[') {
    value_.type = C_LIST;
    value_.val.list = List(text.substr(1, text.size() - 2));
  } else if (std::isdigit(text[0]) == 0) {
    value_.type = C_XMLTAG;
    value_.val.xmltag = {kUnknownTag, static_cast<uint32_t>(yang_tags::kNamespace)};
    for (const auto& known : yang_tags::kAll) {
      if (text == known.name) value_.val.xmltag.tag = known.tag;
    }
  } else if (slash == std::string::npos) {
    value_.type = C_IPV4;
    value_.val.ip.s_addr = inet_addr(text.c_str());
  } else {
    value_.type = C_IPV4_AND_PLEN;
    value_.val.ipv4prefix = {{inet_addr(text.substr(0, slash).c_str())},
                             static_cast<uint8_t>(std::stoi(text.substr(slash + 1)))};
  }
}

confd_value_t Value::Release() {
  const confd_value_t released = value_;
  value_.type = C_NOEXISTS;
  return released;
}

void Value::Free(confd_value_t* value) {
  if (value->type == C_BUF || value->type == C_BINARY) std::free(value->val.buf.ptr);
  if (value->type != C_LIST) return;
  std::for_each_n(value->val.list.ptr, value->val.list.size, [](auto& v) { Free(&v); });
  delete[] value->val.list.ptr;
}

std::string Word(const ether_addr& address) {
  return HexText(address.ether_addr_octet, sizeof address.ether_addr_octet);
}

std::string Word(in_addr address) {
  char text[INET_ADDRSTRLEN];
  return inet_ntop(AF_INET, &address, text, sizeof text);
}

std::string Word(const confd_value_t* value) {
  if (value == nullptr) return "null";
  for (const NumberType& number : kNumberTypes) {
    if (value->type == number.type) return Line(number.name, number.get(*value));
  }
  switch (value->type) {
    case C_BUF:
      return '"' + std::string(reinterpret_cast<char*>(value->val.buf.ptr)) + '"';
    case C_BINARY:
      return HexText(value->val.buf.ptr, value->val.buf.size);
    case C_IPV4:
      return Word(value->val.ip);
    case C_IPV4_AND_PLEN:
      return Word(value->val.ipv4prefix.ip) + '/' + Word(value->val.ipv4prefix.len);
    default:
      return Line("type", value->type);
  }
}

KeyPath::KeyPath(const std::string& text) : confd_hkeypath_t{}, text_(text) {
  std::list<std::list<std::string>> elements;  // from the node upwards
  static const std::regex kNode(R"(/([^/{[]+)(\{(.*?)\}(?=/|$)|/?\[(\d+)\])?)");
  for (std::sregex_iterator node(text.begin(), text.end(), kNode), end; node != end; ++node) {
    const std::string name = (*node)[1], keys = (*node)[3], position = (*node)[4];
    elements.push_front({name});
    if (!position.empty() || (name == "access-list-entry" && !keys.empty())) {
      elements.push_front({"int32 " + position + keys});
    } else if (name == "access-list" && !keys.empty()) {
      elements.push_front({"enum " + keys.substr(0, 1), '"' + keys.substr(2) + '"'});
    } else if (!keys.empty()) {
      elements.push_front({'"' + keys + '"'});
    }
  }
  for (auto& element : v) {
    for (confd_value_t& key : element) key.type = C_NOEXISTS;
  }
  for (const auto& element : elements) {
    confd_value_t* key = v[len++];
    for (const std::string& key_text : element) *key++ = *values_.emplace_back(key_text);
  }
}

}  // namespace acl_test
