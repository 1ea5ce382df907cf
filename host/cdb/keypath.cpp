// Keypaths: from steps, and as text.
#include <algorithm>
#include <cstring>

#include "host/cdb/cdb_path.h"
#include "yang_tags.h"

namespace host {
namespace {

std::string NameOfTag(uint32_t tag) {
  for (const yang_tags::NamedTag& known : yang_tags::kAll) {
    if (known.tag == tag) return known.name;
  }
  return std::to_string(tag);
}

// Longer than most paths are: so their texts take one allocation.
constexpr size_t kUsualPath = 192;

bool NeedsQuotes(const std::string& key) {
  const auto special = [](char c) {
    return c == ' ' || c == '{' || c == '}' || c == '"' || c == '\\';
  };
  return key.empty() || std::any_of(key.begin(), key.end(), special);
}

void AppendKey(const std::string& key, std::string* text) {
  if (!NeedsQuotes(key)) {
    *text += key;
    return;
  }
  *text += '"';
  for (const char c : key) {
    if (c == '"' || c == '\\') *text += '\\';
    *text += c;
  }
  *text += '"';
}

const CdbNode* KeyNode(const CdbNode* node, size_t i) {
  if (node == nullptr || node->schema == nullptr) return nullptr;
  if (node->is(LYS_LEAFLIST)) return node;
  return i < node->key_count ? node->children[i].get() : nullptr;
}

void SetTag(uint32_t tag, confd_value_t* element) {
  element[0].type = C_XMLTAG;
  element[0].val.xmltag = {tag, static_cast<uint32_t>(yang_tags::kNamespace)};
  element[1].type = C_NOEXISTS;
}

bool SetKeys(const PathStep& step, confd_value_t* element) {
  size_t count = 0;
  if (step.keys.empty()) {
    Values keys = KeysOf(*step.node, step.data);
    for (const confd_value_t& key : keys.all()) element[count++] = key;
    keys.Release();
  } else {
    for (; count < step.keys.size(); ++count) {
      const CdbNode* node = KeyNode(step.node, count);
      if (!ToValue(*node, step.keys[count].c_str(), &element[count])) return false;
    }
  }
  element[count].type = C_NOEXISTS;
  return true;
}

}  // namespace

bool ToKeypath(const PathSteps& steps, confd_hkeypath_t* keypath) {
  int length = 0;
  for (const PathStep& step : steps) length += step.is_entry ? 2 : 1;
  if (length > MAXDEPTH) return false;
  keypath->len = length;
  int at = length;
  for (const PathStep& step : steps) {
    SetTag(step.node->tag, keypath->v[--at]);
    if (step.is_entry && !SetKeys(step, keypath->v[--at])) return false;
  }
  keypath->v[length][0].type = C_NOEXISTS;
  return true;
}

void FreeKeypathValues(confd_hkeypath_t* keypath) {
  for (int at = 0; at < keypath->len; ++at) {
    for (confd_value_t* value = keypath->v[at]; value->type != C_NOEXISTS; ++value) {
      confd_free_value(value);
    }
  }
}

std::string PrintSteps(const PathSteps& steps) {
  std::string text;
  text.reserve(kUsualPath);
  for (const PathStep& step : steps) {
    text += '/';
    text += step.node->name;
    if (!step.is_entry) continue;
    text += '{';
    const lyd_node* key =
        step.node->is(LYS_LIST) && step.keys.empty() ? lyd_child(step.data) : nullptr;
    const size_t count = key != nullptr ? step.node->key_count : step.keys.size();
    for (size_t i = 0; i < count; ++i) {
      if (i > 0) text += ' ';
      AppendKey(key != nullptr ? TextOf(key) : step.keys[i], &text);
      if (key != nullptr) key = key->next;
    }
    text += '}';
  }
  return text.empty() ? "/" : text;
}

std::string PrintKeypath(const CdbSchema* schema, const confd_hkeypath_t& keypath) {
  std::string text, key;
  text.reserve(kUsualPath);
  const CdbNode* node = schema != nullptr ? schema->root() : nullptr;
  for (int at = keypath.len - 1; at >= 0; --at) {
    const confd_value_t* element = keypath.v[at];
    if (element[0].type == C_XMLTAG) {
      if (node != nullptr) node = node->ChildByTag(element[0].val.xmltag.tag);
      text += '/';
      if (node != nullptr) {
        text += node->name;
      } else {
        text += NameOfTag(element[0].val.xmltag.tag);
      }
      continue;
    }
    text += '{';
    for (size_t i = 0; i < MAXKEYLEN && element[i].type != C_NOEXISTS; ++i) {
      key.clear();
      ToText(KeyNode(node, i), element[i], &key);
      if (i > 0) text += ' ';
      AppendKey(key, &text);
    }
    text += '}';
  }
  return text.empty() ? "/" : text;
}

}  // namespace host
