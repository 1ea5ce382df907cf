// Small pieces of XML text: see xml_text.h.
#include "host/xml/xml_text.h"

#include <algorithm>
#include <vector>

#include "host/runtime/utf8.h"

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
  char32_t code = 0;
  const size_t size = ReadUtf8(text, &code);
  if (code < 0x20 && kBlanks.find(text[0]) == std::string_view::npos) return 0;
  return (code & ~1u) == 0xfffe ? 0 : size;
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
std::string_view PrefixOf(std::string_view name) {
  return name.substr(0, name.find(':') == std::string_view::npos ? 0 : name.find(':'));
}

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
  attribute->prefix = PrefixOf(name);
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
    if (name_end != tag.size()) {
      const Fault fault = ReadAttributes(tag.substr(name_end), depth);
      if (fault != Fault::kNone) return fault;
    }
    namespaces_missing_ |= FindDeclaration(PrefixOf(tag.substr(0, name_end))) == nullptr;
    return Fault::kNone;
  }

  bool foreign_attributes() const { return foreign_attributes_; }
  bool namespaces_missing() const { return namespaces_missing_; }
  // The declarations in scope in the element that was opened last, each prefix once.
  std::vector<std::pair<std::string_view, std::string_view>> DeclarationsInScope() const {
    std::vector<std::pair<std::string_view, std::string_view>> found;
    for (auto declared = declared_.rbegin(); declared != declared_.rend(); ++declared) {
      const auto same = [&](const auto& other) { return other.first == declared->prefix; };
      if (std::none_of(found.begin(), found.end(), same))
        found.emplace_back(declared->prefix, declared->value);
    }
    return found;
  }

 private:
  static constexpr int kParameterDepth = 2;  // <rpc>, operation, parameter

  struct Declaration {
    std::string_view prefix;
    std::string_view value;  // as written
    bool is_netconf;
    int depth;
  };

  Fault ReadAttributes(std::string_view attributes, int depth) {
    Attribute attribute;
    size_t count = 0, declarations = 0;
    for (std::string_view rest = attributes; TakeAttribute(&rest, &attribute);) {
      if (++count > kMaxAttributes) return Fault::kTooManyAttributes;
      if (attribute.declares) {
        declared_.push_back(
            {attribute.name, attribute.value, attribute.value == kNetconfNamespace, depth});
        ++declarations;
      } else if (attribute.name == "select" && attribute.value.size() > kMaxSelectBytes) {
        return Fault::kSelectTooLong;
      }
    }
    if (declared_.size() > kMaxDeclarationsInScope) return Fault::kTooManyAttributes;
    if (count == declarations || depth <= kParameterDepth || in_filter_) return Fault::kNone;
    for (std::string_view rest = attributes; TakeAttribute(&rest, &attribute);) {
      if (attribute.declares || IsEditOperation(attribute)) continue;
      foreign_attributes_ = true;
      namespaces_missing_ |= attribute.name == "operation" && attribute.prefix.empty();
    }
    return Fault::kNone;
  }

  bool IsEditOperation(const Attribute& attribute) const {
    if (attribute.name != "operation" || attribute.prefix.empty()) return false;
    const Declaration* declared = FindDeclaration(attribute.prefix);
    return declared != nullptr && declared->is_netconf;
  }

  // The declaration of a prefix ("": of the default namespace) that counts here, or null.
  const Declaration* FindDeclaration(std::string_view prefix) const {
    for (auto declared = declared_.rbegin(); declared != declared_.rend(); ++declared) {
      if (declared->prefix == prefix) return &*declared;
    }
    return nullptr;
  }

  std::vector<Declaration> declared_;  // by the elements around, the outermost first
  size_t parameters_ = 0;
  bool in_filter_ = false;
  bool foreign_attributes_ = false;
  bool namespaces_missing_ = false;
};

// Puts declarations of namespaces into start tags where they are missing.
class NamespaceWriter {
 public:
  explicit NamespaceWriter(std::string_view text) : text_(text) {}

  // `tag` is a start tag within the text, without its brackets, of an element below `depth` others.
  void Open(std::string_view tag, int depth) {
    while (!scope_.empty() && scope_.back().depth >= depth) scope_.pop_back();
    if (depth <= data_depth_) data_depth_ = 0;
    const size_t name_end = std::min(tag.find_first_of(" \t\r\n/"), tag.size());
    const std::string_view name = tag.substr(0, name_end), prefix = PrefixOf(name);
    const bool in_data = data_depth_ != 0;
    Attribute attribute;
    for (std::string_view rest = tag.substr(name_end); TakeAttribute(&rest, &attribute);) {
      if (attribute.declares) scope_.push_back({attribute.name, depth, Kind::kGiven});
    }
    const Kind kind = Find(prefix);
    // What is inside <config> and <filter> is not NETCONF's, and inherits no default of ours.
    const Kind wanted = in_data || depth == 0 || !prefix.empty() ? Kind::kNone : Kind::kNetconf;
    if (kind != Kind::kGiven && kind != wanted) {
      const std::string colon = prefix.empty() ? "" : ":";
      Insert(tag.data() + name_end, " xmlns" + colon + std::string(prefix) + "=\"" +
                                        (wanted == Kind::kNone ? kNoNamespace : kNetconfNamespace) +
                                        "\"");
      scope_.push_back({prefix, depth, wanted});
      ++declared_;
    }
    if (!in_data && depth > 1 && (LocalName(name) == "config" || LocalName(name) == "filter")) {
      data_depth_ = depth;
      is_config_ = LocalName(name) == "config";
      if (is_config_)
        Insert(tag.data() + name_end,
               std::string(" xmlns:") + kOwnPrefix + "=\"" + kNetconfNamespace + "\"");
    }
    if (!in_data || !is_config_) return;
    for (std::string_view rest = tag.substr(name_end); TakeAttribute(&rest, &attribute);) {
      if (attribute.declares || !attribute.prefix.empty() || attribute.name != "operation")
        continue;
      Insert(attribute.name.data(), std::string(kOwnPrefix) + ":");
    }
  }

  // The text as it is to be; empty when that would be too much.
  std::string Take() {
    if (declared_ > kMaxParameterElements) return "";
    return result_.append(text_.substr(copied_));
  }

 private:
  static constexpr const char* kOwnPrefix = "acl-app-netconf";

  enum class Kind { kUnknown, kGiven, kNone, kNetconf };
  struct Scope {
    std::string_view prefix;
    int depth;
    Kind kind;
  };

  Kind Find(std::string_view prefix) const {
    for (auto scope = scope_.rbegin(); scope != scope_.rend(); ++scope) {
      if (scope->prefix == prefix) return scope->kind;
    }
    return Kind::kUnknown;
  }

  void Insert(const char* at, const std::string& what) {
    if (declared_ > kMaxParameterElements) return;
    const size_t position = at - text_.data();
    result_.append(text_.substr(copied_, position - copied_)).append(what);
    copied_ = position;
  }

  const std::string_view text_;
  std::vector<Scope> scope_;  // declarations, by the elements around, the outermost first
  int data_depth_ = 0;        // of the <config> or <filter> around, 0: none
  bool is_config_ = false;
  size_t declared_ = 0;
  std::string result_;
  size_t copied_ = 0;
};

// Calls `open` with each start tag of `message`, without its brackets, and its depth. False when
// the message is malformed.
template <class Open>
XmlOutline::Fault ForEachStartTag(std::string_view message, const Open& open) {
  using Fault = XmlOutline::Fault;
  int depth = 0;
  bool any = false;
  for (size_t pos = message.find('<'); pos != std::string_view::npos;
       pos = message.find('<', pos)) {
    if (const size_t behind = SkipOther(message, pos); behind != 0) {
      if (behind == std::string_view::npos) return Fault::kMalformed;
      pos = behind;
      continue;
    }
    ++pos;
    const size_t end = FindTagEnd(message, pos);
    if (end == std::string_view::npos || end == pos) return Fault::kMalformed;
    if (message[pos] == '/') {
      if (--depth < 0) return Fault::kMalformed;
    } else {
      any = true;
      const Fault fault = open(message.substr(pos, end - pos), depth);
      if (fault != Fault::kNone) return fault;
      if (message[end - 1] != '/') ++depth;
    }
    pos = end + 1;
  }
  return depth != 0 || !any ? Fault::kMalformed : Fault::kNone;
}

// Finds the content of a <config>: see XmlOutline.
class ConfigScan {
 public:
  // `tag` is a start tag within `message`, without its brackets, of an element below `depth`
  // others; `tags` has opened it.
  void Open(std::string_view message, std::string_view tag, int depth, const TagScan& tags) {
    const size_t start = tag.data() - message.data();
    if (depth_ >= 0 && depth > depth_) {
      if (depth == depth_ + 1) ++elements_;
      return;
    }
    if (depth_ >= 0 && end_ == 0) end_ = start;
    depth_ = -1;
    const std::string_view name = tag.substr(0, tag.find_first_of(" \t\r\n/"));
    if (depth == kParameterDepth) in_source_ = LocalName(name) == "source";
    const bool parameter = depth == kParameterDepth || (depth == kParameterDepth + 1 && in_source_);
    if (!parameter || LocalName(name) != "config" || tag.back() == '/') return;
    ++found_;
    depth_ = depth;
    name_ = name;
    begin_ = start + tag.size() + 1;
    declarations_ = tags.DeclarationsInScope();
  }

  void Finish(std::string_view message, XmlOutline* outline) {
    if (found_ != 1 || elements_ != 1) return;
    // The last end tag before what follows. One in a comment there would be taken for it, which
    // makes the content no document.
    const std::string tag = "</" + std::string(name_);
    const std::string_view rest = message.substr(0, end_ != 0 ? end_ : message.size());
    const size_t end = rest.rfind(tag);
    if (end == std::string_view::npos || end < begin_) return;
    outline->config = message.substr(begin_, end - begin_);
    outline->config_declarations = std::move(declarations_);
  }

 private:
  static constexpr int kParameterDepth = 2;  // <rpc>, operation, parameter

  int depth_ = -1;  // of the <config> that is open, -1: none is
  bool in_source_ = false;
  std::string_view name_;
  size_t begin_ = 0;     // of its content
  size_t end_ = 0;       // where the next element outside starts, 0: there is none
  size_t found_ = 0;     // such elements
  size_t elements_ = 0;  // within them
  std::vector<std::pair<std::string_view, std::string_view>> declarations_;
};

}  // namespace

std::string ConfigDocument(const XmlOutline& outline) {
  const std::string_view content = outline.config;
  const size_t start = content.find_first_not_of(kBlanks);
  if (start == std::string_view::npos || content[start] != '<') return "";
  const size_t end = FindTagEnd(content, start + 1);
  if (end == std::string_view::npos || SkipOther(content, start) != 0) return "";
  const size_t name_end = content.find_first_of(" \t\r\n/>", start);
  std::string document(content.substr(start, name_end - start));
  for (const auto& [prefix, value] : outline.config_declarations) {
    Attribute own;
    bool declared = false;
    for (std::string_view rest = content.substr(name_end, end - name_end);
         TakeAttribute(&rest, &own);) {
      declared |= own.declares && own.name == prefix;
    }
    if (declared) continue;
    const char quote = value.find('"') == std::string_view::npos ? '"' : '\'';
    document.append(prefix.empty() ? " xmlns" : " xmlns:").append(prefix).append("=");
    document.append(1, quote).append(value).append(1, quote);
  }
  return document.append(content.substr(name_end));
}

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

std::string CompleteNamespaces(std::string xml) {
  NamespaceWriter writer(xml);
  ForEachStartTag(xml, [&writer](std::string_view tag, int depth) {
    writer.Open(tag, depth);
    return XmlOutline::Fault::kNone;
  });
  std::string completed = writer.Take();
  return completed.empty() ? xml : completed;
}

void DropByteOrderMark(std::string* xml) {
  constexpr std::string_view kMark = "\xef\xbb\xbf";
  if (xml->compare(0, kMark.size(), kMark) == 0) xml->erase(0, kMark.size());
}

XmlOutline ScanXml(std::string_view message, int max_depth) {
  using Fault = XmlOutline::Fault;
  XmlOutline outline;
  outline.fault = Fault::kMalformed;
  if (message.find('\0') != std::string_view::npos) return outline;
  TagScan tags;
  ConfigScan config;
  bool too_deep = false;
  outline.fault = ForEachStartTag(message, [&](std::string_view tag, int depth) {
    ++outline.elements;
    const Fault fault = too_deep ? Fault::kNone : tags.Open(tag, depth);
    if (fault != Fault::kNone) return fault;
    if (outline.root.empty()) ReadRoot(tag, &outline);
    config.Open(message, tag, depth, tags);
    too_deep |= tag.back() != '/' && depth >= max_depth;
    return Fault::kNone;
  });
  if (outline.fault == Fault::kNone) config.Finish(message, &outline);
  outline.foreign_attributes = tags.foreign_attributes();
  outline.namespaces_missing = tags.namespaces_missing();
  if (outline.fault == Fault::kNone && too_deep) outline.fault = Fault::kTooDeep;
  return outline;
}

}  // namespace host
