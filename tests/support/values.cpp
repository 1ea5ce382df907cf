#include "tests/support/values.h"

#include <arpa/inet.h>

#include <algorithm>
#include <cstdlib>
#include <iomanip>
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
    NUMBER_TYPE("u8 ", C_UINT8, u8),
    NUMBER_TYPE("u16 ", C_UINT16, u16),
    NUMBER_TYPE("u32 ", C_UINT32, u32),
    NUMBER_TYPE("int32 ", C_INT32, i32),
    NUMBER_TYPE("enum ", C_ENUM_VALUE, enumvalue),
};

bool HasBuffer(const confd_value_t& value) { return value.type == C_BUF || value.type == C_BINARY; }

std::string Octets(const std::string& digits) {
  std::string octets;
  for (size_t at = 0; at < digits.size(); at += 2) {
    octets += static_cast<char>(std::stoi(digits.substr(at, 2), nullptr, 16));
  }
  return octets;
}

confd_value_t Buffer(confd_vtype type, const std::string& octets) {
  confd_value_t value{};
  value.type = type;
  value.val.buf.size = static_cast<unsigned int>(octets.size());
  value.val.buf.ptr = reinterpret_cast<unsigned char*>(const_cast<char*>(octets.data()));
  return CloneValue(value);
}

std::vector<Value> KeysOf(const std::string& list, const std::string& keys) {
  if (list == "access-list") {
    const size_t blank = keys.find(' ');
    return {"enum " + keys.substr(0, blank), '"' + keys.substr(blank + 1) + '"'};
  }
  if (list == "access-list-entry") return {"int32 " + keys};
  return {'"' + keys + '"'};
}

}  // namespace

confd_value_t CloneValue(const confd_value_t& value) {
  confd_value_t copy = value;
  if (HasBuffer(value)) {
    copy.val.buf.ptr = new unsigned char[value.val.buf.size + 1]();
    std::copy_n(value.val.buf.ptr, value.val.buf.size, copy.val.buf.ptr);
  } else if (value.type == C_LIST) {
    const confd_list& list = value.val.list;
    copy.val.list.ptr = new confd_value_t[list.size];
    std::transform(list.ptr, list.ptr + list.size, copy.val.list.ptr, CloneValue);
  }
  return copy;
}

void ReleaseValue(confd_value_t* value) {
  if (HasBuffer(*value)) {
    delete[] value->val.buf.ptr;
  } else if (value->type == C_LIST) {
    std::for_each_n(value->val.list.ptr, value->val.list.size,
                    [](confd_value_t& element) { ReleaseValue(&element); });
    delete[] value->val.list.ptr;
  }
}

Value::Value(const std::string& text) {
  value_.type = C_NOEXISTS;
  if (text.empty()) return;
  for (const NumberType& number : kNumberTypes) {
    const std::string name = number.name;
    if (text.compare(0, name.size(), name) != 0) continue;
    value_.type = number.type;
    number.set(value_, std::strtoll(text.c_str() + name.size(), nullptr, 0));
    return;
  }
  const size_t slash = text.find('/');
  if (text[0] == '"') {
    value_ = Buffer(C_BUF, text.substr(1, text.size() - 2));
  } else if (text.compare(0, 2, "0x") == 0) {
    value_ = Buffer(C_BINARY, Octets(text.substr(2)));
  } else if (slash == std::string::npos) {
    value_.type = C_IPV4;
    value_.val.ip.s_addr = inet_addr(text.c_str());
  } else {
    value_.type = C_IPV4_AND_PLEN;
    value_.val.ipv4prefix.ip.s_addr = inet_addr(text.substr(0, slash).c_str());
    value_.val.ipv4prefix.len = static_cast<uint8_t>(std::stoi(text.substr(slash + 1)));
  }
}

Value ListOf(const std::vector<Value>& elements) {
  std::vector<confd_value_t> shallow;
  shallow.reserve(elements.size());
  for (const Value& element : elements) shallow.push_back(*element.get());
  confd_value_t list{};
  list.type = C_LIST;
  list.val.list = {static_cast<unsigned int>(shallow.size()), shallow.data()};
  return Value(list);
}

Value TagOf(const std::string& node_name) {
  confd_value_t tag{};
  tag.type = C_XMLTAG;
  tag.val.xmltag = {kUnknownTag, static_cast<uint32_t>(yang_tags::kNamespace)};
  for (const auto& known : yang_tags::kAll) {
    if (node_name == known.name) tag.val.xmltag.tag = known.tag;
  }
  return Value(tag);
}

std::string HexText(const unsigned char* octets, size_t size) {
  std::ostringstream text;
  text << "0x" << std::hex << std::setfill('0');
  for (size_t i = 0; i < size; ++i) text << std::setw(2) << static_cast<int>(octets[i]);
  return text.str();
}

std::string AddressText(in_addr address) {
  char text[INET_ADDRSTRLEN];
  return inet_ntop(AF_INET, &address, text, sizeof text);
}

std::string ToText(const confd_value_t* value) {
  if (value == nullptr) return "null";
  for (const NumberType& number : kNumberTypes) {
    if (value->type == number.type) return number.name + std::to_string(number.get(*value));
  }
  switch (value->type) {
    case C_BUF:
      return '"' + std::string(reinterpret_cast<char*>(value->val.buf.ptr)) + '"';
    case C_BINARY:
      return HexText(value->val.buf.ptr, value->val.buf.size);
    case C_IPV4:
      return AddressText(value->val.ip);
    case C_IPV4_AND_PLEN:
      return AddressText(value->val.ipv4prefix.ip) + '/' +
             std::to_string(value->val.ipv4prefix.len);
    default:
      return "type " + std::to_string(value->type);
  }
}

KeyPath::KeyPath(const std::string& text) : confd_hkeypath_t{}, text_(text) {
  std::string name;
  for (size_t at = 0, end; at < text.size(); at = end) {
    if (text[at] == '/') {
      end = at + 1;
    } else if (text[at] == '{') {  // keys may hold anything but "}/"
      end = std::min(text.find("}/", at), text.size() - 1) + 1;
      elements_.push_back(KeysOf(name, text.substr(at + 1, end - at - 2)));
    } else if (text[at] == '[') {
      end = text.find(']', at) + 1;
      elements_.push_back({"int32 " + text.substr(at + 1, end - at - 2)});
    } else {
      end = std::min(text.find_first_of("/{[", at), text.size());
      name = text.substr(at, end - at);
      elements_.push_back({TagOf(name)});
    }
  }
  for (auto& element : v) {
    for (confd_value_t& key : element) key.type = C_NOEXISTS;
  }
  len = static_cast<int>(elements_.size());
  for (int depth = 0; depth < len; ++depth) {
    const std::vector<Value>& keys = elements_[len - 1 - depth];
    for (size_t i = 0; i < keys.size(); ++i) v[depth][i] = *keys[i].get();
  }
}

}  // namespace acl_test
