// Differences as text.
#include "host/cdb/diff_text.h"

#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <string_view>

#include "host/runtime/watchdog.h"

namespace host {
namespace {

constexpr char kYangModule[] = "yang";
constexpr char kYangNamespace[] = "urn:ietf:params:xml:ns:yang:1";

class DiffWriter {
 public:
  explicit DiffWriter(std::string* text) : text_(*text) {}

  // False for what is not known here; the text then means nothing.
  bool WriteSiblings(const lyd_node* first, const lys_module* around) {
    for (const lyd_node* node = first; node != nullptr; node = node->next) {
      if ((node->flags & LYD_DEFAULT) == 0 && !WriteNode(node, around)) return false;
    }
    return true;
  }

 private:
  bool WriteNode(const lyd_node* node, const lys_module* around) {
    const lys_module* module = node->schema->module;
    const std::string_view name = node->schema->name;
    text_.append("<").append(name);
    if (module != around) text_.append(" xmlns=\"").append(module->ns).append("\"");
    if (around == nullptr) text_.append(" xmlns:yang=\"").append(kYangNamespace).append("\"");
    for (const lyd_meta* meta = node->meta; meta != nullptr; meta = meta->next) {
      if (std::strcmp(meta->annotation->module->name, kYangModule) != 0) return false;
      text_.append(" yang:").append(meta->name).append("=\"");
      Escape(lyd_get_meta_value(meta));
      text_ += '"';
    }
    const size_t start = text_.size();
    text_ += '>';
    if ((node->schema->nodetype & LYD_NODE_INNER) != 0) {
      FeedWatchdog();
      if (!WriteSiblings(lyd_child(node), module)) return false;
    } else if (!WriteValue(node)) {
      return false;
    }
    if (text_.size() == start + 1) {
      text_.replace(start, 1, "/>");
    } else {
      text_.append("</").append(name).append(">");
    }
    return true;
  }

  bool WriteValue(const lyd_node* node) {
    if ((node->schema->nodetype & LYD_NODE_TERM) == 0) return false;
    const lyd_value* value = &reinterpret_cast<const lyd_node_term*>(node)->value;
    while (value->realtype->basetype == LY_TYPE_UNION) value = &value->subvalue->value;
    switch (value->realtype->basetype) {
      case LY_TYPE_INST:
      case LY_TYPE_IDENT:  // have prefixes
      case LY_TYPE_UNKNOWN:
        return false;
      default:
        Escape(TextOf(node));
        return true;
    }
  }

  void Escape(std::string_view value) {
    for (size_t at; (at = value.find_first_of("&<>\"")) != std::string_view::npos;) {
      text_.append(value.substr(0, at));
      switch (value[at]) {
        case '&':
          text_ += "&amp;";
          break;
        case '<':
          text_ += "&lt;";
          break;
        case '>':
          text_ += "&gt;";
          break;
        default:
          text_ += "&quot;";
      }
      value.remove_prefix(at + 1);
    }
    text_.append(value);
  }

  std::string& text_;
};

}  // namespace

std::string DifferenceText(const lyd_node* diff) {
  std::string text;
  if (diff == nullptr || DiffWriter(&text).WriteSiblings(diff, nullptr)) return text;
  char* printed = nullptr;
  if (lyd_print_mem(&printed, diff, LYD_XML, LYD_PRINT_SHRINK | LYD_PRINT_WITHSIBLINGS) !=
      LY_SUCCESS) {
    throw std::bad_alloc();
  }
  const std::unique_ptr<char, decltype(&std::free)> owner(printed, &std::free);
  return printed;
}

}  // namespace host
