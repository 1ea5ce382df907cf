// Small pieces of XML text: see xml_text.h.
#include "host/netconf/xml_text.h"

#include <algorithm>
#include <vector>

namespace host {
namespace {

constexpr std::string_view kBlanks = " \t\r\n";

// Where the tag that starts at `pos` (just after its '<') ends: the position of its '>'. npos when
// it does not. A '>' within quotes does not count.
size_t FindTagEnd(std::string_view text, size_t pos) {
  while (true) {
    pos = text.find_first_of("\"'><", pos);
    if (pos == std::string_view::npos || text[pos] == '<') return std::string_view::npos;
    if (text[pos] == '>') return pos;
    pos = text.find(text[pos], pos + 1);
    if (pos == std::string_view::npos) return pos;
    ++pos;
  }
}

// Where what is no element (comment, CDATA section, processing instruction) at `pos` ends: just
// behind it. 0 when it is an element; npos when it does not end or is not allowed.
size_t SkipOther(std::string_view text, size_t pos) {
  static constexpr struct {
    std::string_view start, end;
  } kKinds[] = {{"<!--", "-->"}, {"<![CDATA[", "]]>"}, {"<?", "?>"}};
  for (const auto& kind : kKinds) {
    if (text.substr(pos, kind.start.size()) != kind.start) continue;
    const size_t end = text.find(kind.end, pos + kind.start.size());
    return end == std::string_view::npos ? end : end + kind.end.size();
  }
  return text.substr(pos, 2) == "<!" ? std::string_view::npos : 0;
}

// Bytes of the character that `text`, which is not empty, starts with; 0 when it is no UTF-8 or no
// character of XML 1.0 (section 2.2).
size_t CharacterSize(std::string_view text) {
  const auto byte = [text](size_t i) { return static_cast<unsigned char>(text[i]); };
  if (byte(0) < 0x80)
    return byte(0) >= 0x20 || kBlanks.find(text[0]) != std::string_view::npos ? 1 : 0;
  const size_t size = byte(0) >= 0xf0 ? 4 : byte(0) >= 0xe0 ? 3 : 2;
  if (byte(0) < 0xc2 || byte(0) > 0xf4 || text.size() < size) return 0;
  char32_t code = byte(0) & (0xff >> (size + 1));
  for (size_t i = 1; i < size; ++i) {
    if ((byte(i) & 0xc0) != 0x80) return 0;
    code = code << 6 | (byte(i) & 0x3f);
  }
  static constexpr char32_t kSmallest[] = {0, 0, 0x80, 0x800, 0x10000};
  const bool surrogate = code >= 0xd800 && code <= 0xdfff;
  if (code < kSmallest[size] || code > 0x10ffff || surrogate || (code & ~1u) == 0xfffe) return 0;
  return size;
}

void ReadRoot(std::string_view tag, XmlOutline* outline) {
  const size_t name_end = tag.find_first_of(" \t\r\n/");
  outline->root = tag.substr(0, name_end);
  if (name_end == std::string_view::npos) return;
  tag.remove_prefix(name_end);
  if (tag.back() == '/') tag.remove_suffix(1);
  const size_t first = tag.find_first_not_of(kBlanks);
  if (first == std::string_view::npos) return;
  outline->root_attributes = tag.substr(first, tag.find_last_not_of(kBlanks) - first + 1);
}

std::string_view LocalName(std::string_view name) { return name.substr(name.find(':') + 1); }

struct Attribute {
  std::string_view prefix, name, value;  // the value as written
  bool declares = false;                 // a namespace, for prefix `name` or (empty) as default
};

// Takes the next attribute off `*rest`, what is left of a start tag. False when there is none, also
// where the tag is malformed.
bool TakeAttribute(std::string_view* rest, Attribute* attribute) {
  const size_t start = rest->find_first_not_of(kBlanks);
  const size_t equals = rest->find('=');
  if (equals == std::string_view::npos || start == equals) return false;
  const size_t value = rest->find_first_not_of(kBlanks, equals + 1);
  if (value == std::string_view::npos) return false;
  const char quote = (*rest)[value];
  if (quote != '"' && quote != '\'') return false;
  const size_t end = rest->find(quote, value + 1);
  if (end == std::string_view::npos) return false;
  const size_t name_end = rest->find_last_not_of(kBlanks, equals - 1) + 1;
  const std::string_view name = rest->substr(start, name_end - start);
  const size_t colon = std::min(name.find(':'), name.size());
  attribute->prefix = colon == name.size() ? "" : name.substr(0, colon);
  attribute->name = LocalName(name);
  attribute->value = rest->substr(value + 1, end - value - 1);
  attribute->declares = name == "xmlns" || attribute->prefix == "xmlns";
  if (name == "xmlns") attribute->name = "";
  rest->remove_prefix(end + 1);
  return true;
}

// Follows attributes, namespaces and the size of what should be small from tag to tag.
class TagScan {
 public:
  using Fault = XmlOutline::Fault;

  // `tag` is a start tag without its brackets, of an element below `depth` others.
  Fault Open(std::string_view tag, int depth) {
    const size_t name_end = std::min(tag.find_first_of(" \t\r\n/"), tag.size());
    while (!declared_.empty() && declared_.back().depth >= depth) declared_.pop_back();
    if (depth <= kParameterDepth) in_filter_ = false;
    const bool counts = depth == kParameterDepth || depth == kParameterDepth - 1 || in_filter_;
    if (counts && ++parameters_ > kMaxParameterElements) return Fault::kTooManyParameters;
    if (depth == kParameterDepth) in_filter_ = LocalName(tag.substr(0, name_end)) == "filter";
    if (name_end == tag.size()) return Fault::kNone;
    return ReadAttributes(tag.substr(name_end), depth);
  }

  bool foreign_attributes() const { return foreign_attributes_; }

 private:
  static constexpr int kParameterDepth = 2;  // <rpc>, operation, parameter

  struct Declaration {
    std::string_view prefix;
    bool is_netconf;
    int depth;
  };

  Fault ReadAttributes(std::string_view attributes, int depth) {
    Attribute attribute;
    size_t count = 0, declarations = 0;
    for (std::string_view rest = attributes; TakeAttribute(&rest, &attribute);) {
      if (++count > kMaxAttributes) return Fault::kTooManyAttributes;
      if (attribute.declares) {
        declared_.push_back({attribute.name, attribute.value == kNetconfNamespace, depth});
        ++declarations;
      } else if (attribute.name == "select" && attribute.value.size() > kMaxSelectBytes) {
        return Fault::kSelectTooLong;
      }
    }
    if (declared_.size() > kMaxDeclarationsInScope) return Fault::kTooManyAttributes;
    if (count == declarations || depth <= kParameterDepth || in_filter_) return Fault::kNone;
    for (std::string_view rest = attributes; TakeAttribute(&rest, &attribute);) {
      foreign_attributes_ |= !attribute.declares && !IsEditOperation(attribute);
    }
    return Fault::kNone;
  }

  bool IsEditOperation(const Attribute& attribute) const {
    if (attribute.name != "operation" || attribute.prefix.empty()) return false;
    for (auto declared = declared_.rbegin(); declared != declared_.rend(); ++declared) {
      if (declared->prefix == attribute.prefix) return declared->is_netconf;
    }
    return false;
  }

  std::vector<Declaration> declared_;  // by the elements around, the outermost first
  size_t parameters_ = 0;
  bool in_filter_ = false;
  bool foreign_attributes_ = false;
};

}  // namespace

std::string XmlEscape(std::string_view text) {
  std::string escaped;
  escaped.reserve(text.size());
  while (!text.empty()) {
    const size_t size = CharacterSize(text);
    switch (size == 1 ? text[0] : '\0') {
      case '&':
        escaped += "&amp;";
        break;
      case '<':
        escaped += "&lt;";
        break;
      case '>':
        escaped += "&gt;";
        break;
      case '"':
        escaped += "&quot;";
        break;
      default:
        escaped += size == 0 ? "?" : text.substr(0, size);
    }
    text.remove_prefix(std::max<size_t>(size, 1));
  }
  return escaped;
}

std::string NameEmptyNamespaces(std::string xml) {
  constexpr std::string_view kDeclaration = "xmlns";
  std::string named;
  size_t copied = 0;
  // Also within text or comments, where it does no harm.
  for (size_t pos = 0; (pos = xml.find(kDeclaration, pos)) != std::string::npos;) {
    pos += kDeclaration.size();
    size_t value = xml.find_first_not_of(kBlanks, pos);
    if (value == std::string::npos || xml[value] != '=') continue;
    value = xml.find_first_not_of(kBlanks, value + 1);
    if (value == std::string::npos || (xml[value] != '"' && xml[value] != '\'')) continue;
    if (value + 1 == xml.size() || xml[value + 1] != xml[value]) continue;
    named.append(xml, copied, value + 1 - copied).append(kNoNamespace);
    copied = value + 1;
  }
  return copied == 0 ? xml : named.append(xml, copied);
}

XmlOutline ScanXml(std::string_view message, int max_depth) {
  using Fault = XmlOutline::Fault;
  XmlOutline outline;
  const auto fail = [&outline](Fault fault) {
    outline.fault = fault;
    return outline;
  };
  if (message.find('\0') != std::string_view::npos) return fail(Fault::kMalformed);
  TagScan tags;
  int depth = 0;
  bool too_deep = false;
  for (size_t pos = message.find('<'); pos != std::string_view::npos;
       pos = message.find('<', pos)) {
    if (const size_t behind = SkipOther(message, pos); behind != 0) {
      if (behind == std::string_view::npos) return fail(Fault::kMalformed);
      pos = behind;
      continue;
    }
    ++pos;
    const size_t end = FindTagEnd(message, pos);
    if (end == std::string_view::npos || end == pos) return fail(Fault::kMalformed);
    if (message[pos] == '/') {
      if (--depth < 0) return fail(Fault::kMalformed);
    } else {
      const std::string_view tag = message.substr(pos, end - pos);
      ++outline.elements;
      const Fault fault = too_deep ? Fault::kNone : tags.Open(tag, depth);
      if (fault != Fault::kNone) return fail(fault);
      if (outline.root.empty()) ReadRoot(tag, &outline);
      if (message[end - 1] != '/') ++depth;
      too_deep |= depth > max_depth;
    }
    pos = end + 1;
  }
  if (depth != 0 || outline.root.empty()) return fail(Fault::kMalformed);
  outline.foreign_attributes = tags.foreign_attributes();
  return too_deep ? fail(Fault::kTooDeep) : outline;
}

}  // namespace host
