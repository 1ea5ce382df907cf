// The words of entries: see words.h.
#include "tools/aclctl/words.h"

#include "host/cdb/schema/schema.h"

namespace aclctl {
namespace {

const lysc_node* SchemaOf(const lyd_node* parent, const std::string& name) {
  return lys_find_child(parent->schema, parent->schema->module, name.c_str(), 0, 0, 0);
}

const lyd_node* Child(const lyd_node* parent, const std::string& name) {
  return parent == nullptr ? nullptr
                           : host::FindBySchema(lyd_child(parent), SchemaOf(parent, name));
}

// Adds the leaf when the schema takes the value.
std::string AddLeaf(const std::string& name, const std::string& value, lyd_node* parent) {
  std::string wrong = host::WhyNotValue(SchemaOf(parent, name), value);
  if (wrong.empty() &&
      lyd_new_term(parent, nullptr, name.c_str(), value.c_str(), 0, nullptr) != LY_SUCCESS) {
    wrong = "the value cannot be stored";
  }
  return wrong;
}

std::string AddMac(const MatchWord& word, const std::string& value, lyd_node* match) {
  const size_t slash = value.find('/');
  std::string wrong = AddLeaf(word.node, value.substr(0, slash), match);
  if (!wrong.empty() || slash == std::string::npos) return wrong;
  return AddLeaf(MaskOf(word), value.substr(slash + 1), match);
}

std::string AddIpv4(const MatchWord& word, const std::string& value, lyd_node* match) {
  const char* const form = value.find('/') == std::string::npos ? "no-mask" : "mask";
  lyd_node *address = nullptr, *inner = nullptr;
  if (lyd_new_inner(match, nullptr, word.node, 0, &address) != LY_SUCCESS ||
      lyd_new_inner(address, nullptr, form, 0, &inner) != LY_SUCCESS) {
    return "the value cannot be stored";
  }
  return AddLeaf("ip", value, inner);
}

// The value of a match as it is written, empty when the entry does not have it.
std::string ValueOf(const MatchWord& word, const lyd_node* match) {
  const lyd_node* node = Child(match, word.node);
  if (node == nullptr) return "";
  if (word.kind == MatchWord::Kind::kIpv4) {
    const lyd_node* ip = Child(Child(node, "mask"), "ip");
    if (ip == nullptr) ip = Child(Child(node, "no-mask"), "ip");
    return ip == nullptr ? "" : host::TextOf(ip);
  }
  const lyd_node* mask = word.kind == MatchWord::Kind::kMac ? Child(match, MaskOf(word)) : nullptr;
  return host::TextOf(node) + (mask == nullptr ? "" : std::string("/") + host::TextOf(mask));
}

}  // namespace

const MatchWord* FindMatchWord(const std::string& word) {
  for (const MatchWord& known : MatchWords()) {
    if (word == known.word || word == known.brief) return &known;
  }
  return nullptr;
}

std::string ListMatchWords() {
  std::string list;
  for (const MatchWord& word : MatchWords()) list += std::string(word.word) + ", ";
  return list + "or any";
}

std::string AddMatch(const MatchWord& word, const std::string& value, lyd_node* match) {
  switch (word.kind) {
    case MatchWord::Kind::kMac:
      return AddMac(word, value, match);
    case MatchWord::Kind::kIpv4:
      return AddIpv4(word, value, match);
    default:
      return AddLeaf(word.node, value, match);
  }
}

std::string ConfiguredMatch(const lyd_node* match) {
  std::string text;
  for (const MatchWord& word : MatchWords()) {
    const std::string value = ValueOf(word, match);
    if (!value.empty()) text += (text.empty() ? "" : " ") + std::string(word.word) + " " + value;
  }
  return text.empty() ? "any" : text;
}

std::string ConfiguredAction(const lyd_node* action, const char* between) {
  std::string text;
  const lyd_node* handling = Child(action, "packet-handling");
  for (const char* name : {"deny", "permit"}) {
    if (Child(handling, name) != nullptr) text = name;
  }
  if (const lyd_node* pcp = Child(Child(action, "set"), "pcp")) {
    text += (text.empty() ? "" : between) + std::string("set-pcp ") + host::TextOf(pcp);
  }
  return text.empty() ? "none" : text;
}

}  // namespace aclctl
