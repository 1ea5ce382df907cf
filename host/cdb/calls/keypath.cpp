// Keypaths: from steps, and as text.
#include <algorithm>
#include <cstring>

#include "host/cdb/calls/cdb_path.h"
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
  for (; count < step.keys.size(); ++count) {
    const CdbNode* node = KeyNode(step.node, count);
    if (!ToValue(*node, step.keys[count].c_str(), &element[count])) return false;
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
    for (const std::string& key : step.keys) {
      if (&key != &step.keys.front()) text += ' ';
      AppendKey(key, &text);
    }
    text += '}';
  }
  return text.empty() ? "/" : text;
}

const std::string& KeypathPrinter::Print(const confd_hkeypath_t& keypath) {
  const CdbNode* node = schema_ != nullptr ? schema_->root() : nullptr;
  size_t place = 0, start = 0;  // of an element, counted from the top, and its text
  for (int at = keypath.len - 1; at >= 0; --at, ++place) {
    const confd_value_t* values = keypath.v[at];
    const bool is_tag = values[0].type == C_XMLTAG;
    const uint32_t tag = is_tag ? values[0].val.xmltag.tag : 0;
    if (!is_tag) PrintKeys(values, node);
    if (place < elements_.size()) {
      const Element& last = elements_[place];
      if (is_tag == last.is_tag && tag == last.tag &&
          (is_tag || text_.compare(start, last.end - start, keys_) == 0)) {
        node = last.node;
        start = last.end;
        continue;
      }
      elements_.resize(place);
    }
    text_.resize(start);
    if (!is_tag) {
      text_ += keys_;
    } else {
      if (node != nullptr) node = node->ChildByTag(tag);
      text_ += '/';
      if (node != nullptr) {
        text_ += node->name;
      } else {
        text_ += NameOfTag(tag);
      }
    }
    start = text_.size();
    elements_.push_back({is_tag, tag, node, start});
  }
  elements_.resize(place);
  text_.resize(start);
  if (text_.empty()) text_ = "/";
  return text_;
}

// Prints keys of `node` (may be null) into keys_.
void KeypathPrinter::PrintKeys(const confd_value_t* element, const CdbNode* node) {
  keys_ = '{';
  for (size_t i = 0; i < MAXKEYLEN && element[i].type != C_NOEXISTS; ++i) {
    key_.clear();
    ToText(KeyNode(node, i), element[i], &key_);
    if (i > 0) keys_ += ' ';
    AppendKey(key_, &keys_);
  }
  keys_ += '}';
}

std::string PrintKeypath(const CdbSchema* schema, const confd_hkeypath_t& keypath) {
  return KeypathPrinter(schema).Print(keypath);
}

}  // namespace host
