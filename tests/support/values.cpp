#include "tests/support/values.h"

#include <arpa/inet.h>

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "yang_tags.h"

namespace acl_test {
namespace {

bool HasBuffer(const confd_value_t& value) { return value.type == C_BUF || value.type == C_BINARY; }

std::string AddressText(in_addr address) {
  char text[INET_ADDRSTRLEN];
  return inet_ntop(AF_INET, &address, text, sizeof text);
}

template <class Set>
Value Make(confd_vtype type, Set set) {
  confd_value_t value{};
  value.type = type;
  set(value);
  return Value(value);
}

Value MakeBuffer(confd_vtype type, const void* octets, size_t size) {
  return Make(type, [&](confd_value_t& value) {
    value.val.buf.size = static_cast<unsigned int>(size);
    value.val.buf.ptr = static_cast<unsigned char*>(const_cast<void*>(octets));
  });
}

std::vector<Value> KeysOf(const std::string& list, const std::string& keys) {
  if (list == "access-list") {
    const size_t blank = keys.find(' ');
    return {Enum(std::stoi(keys)), Buf(keys.substr(blank + 1))};
  }
  if (list == "access-list-entry") return {Int32(std::stoi(keys))};
  return {Buf(keys)};
}

}  // namespace

confd_value_t CloneValue(const confd_value_t& value) {
  confd_value_t copy = value;
  if (HasBuffer(value)) {
    copy.val.buf.ptr = new unsigned char[value.val.buf.size + 1]();
    std::copy_n(value.val.buf.ptr, value.val.buf.size, copy.val.buf.ptr);
  } else if (value.type == C_LIST) {
    copy.val.list.ptr = new confd_value_t[value.val.list.size];
    std::transform(value.val.list.ptr, value.val.list.ptr + value.val.list.size, copy.val.list.ptr,
                   CloneValue);
  }
  return copy;
}

void ReleaseValue(confd_value_t* value) {
  if (HasBuffer(*value)) {
    delete[] value->val.buf.ptr;
  } else if (value->type == C_LIST) {
    for (unsigned int i = 0; i < value->val.list.size; ++i) ReleaseValue(&value->val.list.ptr[i]);
    delete[] value->val.list.ptr;
  }
}

std::string ToText(const confd_value_t* value) {
  if (value == nullptr) return "null";
  switch (value->type) {
    case C_BUF:
      return '"' + std::string(reinterpret_cast<char*>(value->val.buf.ptr)) + '"';
    case C_BINARY: {
      std::string text = "0x";
      for (unsigned int i = 0; i < value->val.buf.size; ++i) {
        char digits[3];
        std::snprintf(digits, sizeof digits, "%02x", value->val.buf.ptr[i]);
        text += digits;
      }
      return text;
    }
    case C_INT32:
      return "int32 " + std::to_string(value->val.i32);
    case C_UINT8:
      return "u8 " + std::to_string(value->val.u8);
    case C_UINT16:
      return "u16 " + std::to_string(value->val.u16);
    case C_UINT32:
      return "u32 " + std::to_string(value->val.u32);
    case C_ENUM_VALUE:
      return "enum " + std::to_string(value->val.enumvalue);
    case C_IPV4:
      return AddressText(value->val.ip);
    case C_IPV4_AND_PLEN:
      return AddressText(value->val.ipv4prefix.ip) + '/' +
             std::to_string(value->val.ipv4prefix.len);
    case C_LIST: {
      std::string text;
      for (unsigned int i = 0; i < value->val.list.size; ++i) {
        text += ' ' + ToText(&value->val.list.ptr[i]);
      }
      return '[' + (text.empty() ? text : text.substr(1)) + ']';
    }
    default:
      return "type " + std::to_string(value->type);
  }
}

Value Tag(const std::string& node_name) {
  return Make(C_XMLTAG, [&](confd_value_t& value) {
    value.val.xmltag = {kUnknownTag, static_cast<uint32_t>(yang_tags::kNamespace)};
    for (const auto& known : yang_tags::kAll) {
      if (node_name == known.name) value.val.xmltag.tag = known.tag;
    }
  });
}

Value Buf(const std::string& text) { return MakeBuffer(C_BUF, text.data(), text.size()); }

Value Binary(const std::vector<uint8_t>& octets) {
  return MakeBuffer(C_BINARY, octets.data(), octets.size());
}

Value U8(uint8_t number) {
  return Make(C_UINT8, [=](confd_value_t& value) { value.val.u8 = number; });
}

Value U16(uint16_t number) {
  return Make(C_UINT16, [=](confd_value_t& value) { value.val.u16 = number; });
}

Value U32(uint32_t number) {
  return Make(C_UINT32, [=](confd_value_t& value) { value.val.u32 = number; });
}

Value Int32(int32_t number) {
  return Make(C_INT32, [=](confd_value_t& value) { value.val.i32 = number; });
}

Value Enum(int32_t number) {
  return Make(C_ENUM_VALUE, [=](confd_value_t& value) { value.val.enumvalue = number; });
}

Value Ipv4(const char* address) {
  return Make(C_IPV4, [=](confd_value_t& value) { value.val.ip.s_addr = inet_addr(address); });
}

Value Prefix(const char* address, uint8_t length) {
  return Make(C_IPV4_AND_PLEN, [=](confd_value_t& value) {
    value.val.ipv4prefix.ip.s_addr = inet_addr(address);
    value.val.ipv4prefix.len = length;
  });
}

Value List(const std::vector<Value>& elements) {
  std::vector<confd_value_t> shallow;
  for (const Value& element : elements) shallow.push_back(*element.get());
  return Make(C_LIST, [&](confd_value_t& value) {
    value.val.list = {static_cast<unsigned int>(shallow.size()), shallow.data()};
  });
}

KeyPath::KeyPath(const std::string& text) : confd_hkeypath_t{}, text_(text) {
  std::string name;
  for (size_t at = 0; at < text.size();) {
    size_t end = text.size();
    if (text[at] == '/') {
      end = at + 1;
    } else if (text[at] == '{') {  // names of keys may hold anything but "}/"
      end = std::min(text.find("}/", at), text.size() - 1) + 1;
      elements_.push_back(KeysOf(name, text.substr(at + 1, end - at - 2)));
    } else if (text[at] == '[') {
      end = text.find(']', at) + 1;
      elements_.push_back({Int32(std::stoi(text.substr(at + 1)))});
    } else {
      end = std::min(text.find_first_of("/{[", at), text.size());
      name = text.substr(at, end - at);
      elements_.push_back({Tag(name)});
    }
    at = end;
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
