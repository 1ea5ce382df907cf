// Conversion between texts and values.
#include "host/cdb/calls/values.h"

#include <arpa/inet.h>

#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>

namespace host {
namespace {

constexpr size_t kMacLength = 6;

confd_buf Buffer(const void* data, size_t size) {
  auto* copy = static_cast<unsigned char*>(std::malloc(size + 1));
  if (copy == nullptr) throw std::bad_alloc();
  memcpy(copy, data, size);
  copy[size] = 0;
  return {static_cast<unsigned int>(size), copy};
}

template <typename Number>
bool ParseNumber(const char* text, Number* number) {
  const char* end = text + strlen(text);
  const auto result = std::from_chars(text, end, *number);
  return result.ec == std::errc() && result.ptr == end;
}

bool ParseMac(const char* text, confd_value_t* value) {
  unsigned char address[kMacLength];
  for (size_t i = 0; i < kMacLength; ++i, text += 3) {
    const auto result = std::from_chars(text, text + 2, address[i], 16);
    if (result.ec != std::errc() || result.ptr != text + 2) return false;
    if (text[2] != (i + 1 < kMacLength ? ':' : '\0')) return false;
  }
  value->type = C_BINARY;
  value->val.buf = Buffer(address, sizeof(address));
  return true;
}

bool ParseIpv4Length(const char* text, confd_value_t* value) {
  const char* slash = strchr(text, '/');
  if (slash == nullptr) return false;
  const std::string address(text, slash);
  in_addr parsed;
  value->type = C_IPV4_AND_PLEN;
  if (inet_pton(AF_INET, address.c_str(), &parsed) != 1 ||
      !ParseNumber(slash + 1, &value->val.ipv4prefix.len)) {
    return false;
  }
  value->val.ipv4prefix.ip = parsed;
  return true;
}

bool NeedsNumber(ValueKind kind, const char* text, confd_value_t* value) {
  switch (kind) {
    case ValueKind::kInt32:
      value->type = C_INT32;
      return ParseNumber(text, &value->val.i32);
    case ValueKind::kUint8:
      value->type = C_UINT8;
      return ParseNumber(text, &value->val.u8);
    case ValueKind::kUint16:
      value->type = C_UINT16;
      return ParseNumber(text, &value->val.u16);
    default:
      value->type = C_UINT32;
      return ParseNumber(text, &value->val.u32);
  }
}

std::string Dotted(in_addr address) {
  char text[INET_ADDRSTRLEN];
  inet_ntop(AF_INET, &address, text, sizeof(text));
  return text;
}

std::string EnumText(const CdbNode* node, int32_t number) {
  if (node != nullptr) {
    for (const auto& [name, value] : node->enums) {
      if (value == number) return name;
    }
  }
  return std::to_string(number);
}

std::string BinaryText(const confd_buf& buffer) {
  std::string text;
  for (unsigned int i = 0; i < buffer.size; ++i) {
    char byte[4];
    std::snprintf(byte, sizeof(byte), i == 0 ? "%02x" : ":%02x", buffer.ptr[i]);
    text += byte;
  }
  return text;
}

int64_t NumberOf(const confd_value_t& value) {
  switch (value.type) {
    case C_INT32:
      return value.val.i32;
    case C_UINT8:
      return value.val.u8;
    case C_UINT16:
      return value.val.u16;
    case C_UINT32:
      return value.val.u32;
    case C_ENUM_VALUE:
      return value.val.enumvalue;
    case C_IPV4:
      return ntohl(value.val.ip.s_addr);
    default:
      return 0;
  }
}

bool HasBuffer(const confd_value_t& value) { return value.type == C_BUF || value.type == C_BINARY; }

}  // namespace

confd_value_t TextValue(const std::string& text) {
  confd_value_t value{};
  value.type = C_BUF;
  value.val.buf = Buffer(text.data(), text.size());
  return value;
}

bool ToValue(const CdbNode& node, const char* text, confd_value_t* value) {
  const std::string_view wanted = node.enums.empty() ? std::string_view() : text;
  for (const auto& [name, number] : node.enums) {
    if (name != wanted) continue;
    value->type = C_ENUM_VALUE;
    value->val.enumvalue = number;
    return true;
  }
  switch (node.kind) {
    case ValueKind::kNone:
    case ValueKind::kEmpty:
      return false;
    case ValueKind::kText:
      *value = TextValue(text);
      return true;
    case ValueKind::kMac:
      return ParseMac(text, value);
    case ValueKind::kIpv4:
      value->type = C_IPV4;
      return inet_pton(AF_INET, text, &value->val.ip) == 1;
    case ValueKind::kIpv4Length:
      return ParseIpv4Length(text, value);
    default:
      return NeedsNumber(node.kind, text, value);
  }
}

bool ToText(const CdbNode* node, const confd_value_t& value, std::string* text) {
  switch (value.type) {
    case C_BUF:
      text->assign(reinterpret_cast<const char*>(value.val.buf.ptr), value.val.buf.size);
      return true;
    case C_BINARY:
      *text = BinaryText(value.val.buf);
      return true;
    case C_ENUM_VALUE:
      *text = EnumText(node, value.val.enumvalue);
      return true;
    case C_IPV4:
      *text = Dotted(value.val.ip);
      return true;
    case C_IPV4_AND_PLEN:
      *text = Dotted(value.val.ipv4prefix.ip) + "/" + std::to_string(value.val.ipv4prefix.len);
      return true;
    case C_INT32:
    case C_UINT8:
    case C_UINT16:
    case C_UINT32:
      *text = std::to_string(NumberOf(value));
      return true;
    default:
      return false;
  }
}

bool Less(const confd_value_t& a, const confd_value_t& b) {
  if (!HasBuffer(a) || !HasBuffer(b)) return NumberOf(a) < NumberOf(b);
  const confd_buf& x = a.val.buf;
  const confd_buf& y = b.val.buf;
  const int order = memcmp(x.ptr, y.ptr, x.size < y.size ? x.size : y.size);
  return order != 0 ? order < 0 : x.size < y.size;
}

void AddKeysOf(const CdbNode& node, const lyd_node* instance, Values* keys) {
  confd_value_t value{};
  if (node.is(LYS_LEAFLIST)) {
    if (ToValue(node, TextOf(instance), &value)) keys->Add(value);
    return;
  }
  const lyd_node* child = lyd_child(instance);
  for (size_t i = 0; i < node.key_count && child != nullptr; ++i, child = child->next) {
    if (ToValue(*node.children[i], TextOf(child), &value)) keys->Add(value);
  }
}

Values KeysOf(const CdbNode& node, const lyd_node* instance) {
  Values keys;
  AddKeysOf(node, instance, &keys);
  return keys;
}

NumericValue NumericOf(const CdbSchema& schema, const lyd_node* leaf) {
  confd_value_t value{};
  const CdbNode* node = schema.Find(leaf->schema);
  if (node == nullptr || !ToValue(*node, TextOf(leaf), &value)) return {};
  Values owner;
  owner.Add(value);
  NumericValue number;
  switch (value.type) {
    case C_BINARY:
      for (unsigned int i = 0; i < value.val.buf.size; ++i) {
        number.value = number.value << 8 | value.val.buf.ptr[i];
      }
      break;
    case C_BUF:  // hexadecimal text; Buffer() ends it by 0
      number.value = std::strtoul(reinterpret_cast<const char*>(value.val.buf.ptr), nullptr, 16);
      break;
    case C_IPV4:
      number.value = ntohl(value.val.ip.s_addr);
      break;
    case C_IPV4_AND_PLEN:
      number.value = ntohl(value.val.ipv4prefix.ip.s_addr);
      number.mask = ~uint64_t{0} << (32 - value.val.ipv4prefix.len);
      break;
    case C_ENUM_VALUE:
      number.value = static_cast<uint64_t>(value.val.enumvalue);
      break;
    case C_UINT8:
      number.value = value.val.u8;
      break;
    default:
      number.value = value.val.u16;
  }
  return number;
}

}  // namespace host
