// The units of a configuration.
#include "host/cdb/storage/units.h"

#include <cstdlib>
#include <cstring>
#include <new>

#include "host/cdb/diff.h"
#include "host/runtime/watchdog.h"

namespace host {
namespace {

// The keys as a path's predicates, in libyang's form.
std::string KeysText(const lyd_node* entry) {
  std::string text;
  for (const lyd_node* key = lyd_child(entry); key != nullptr && IsKey(key); key = key->next) {
    const char quote = std::strchr(TextOf(key), '\'') == nullptr ? '\'' : '"';
    text.append("[").append(LYD_NAME(key)).append("=");
    text.append(1, quote).append(TextOf(key)).append(1, quote).append("]");
  }
  return text;
}

// Writes a list entry without the lists within as a JSON object, as libyang would print a copy of
// it (RFC 7951), which takes a bulk edit much longer.
class ContentWriter {
 public:
  // False for a type of value that is not known here; `text` then means nothing.
  static bool Write(const lyd_node* entry, std::string* text) {
    ContentWriter writer(text);
    return writer.WriteChildren(entry);
  }

 private:
  explicit ContentWriter(std::string* text) : text_(*text) {}

  bool WriteChildren(const lyd_node* parent) {
    text_ += '{';
    const lyd_node* before = nullptr;  // the last one written
    const lyd_node* child;
    LY_LIST_FOR(lyd_child(parent), child) {
      if (child->schema->nodetype == LYS_LIST) break;  // lists are last, and stand together
      if (IsPlainContainer(child->schema) && !HoldsSomething(child)) continue;
      const bool goes_on = before != nullptr && before->schema == child->schema;
      if (before != nullptr) text_ += ',';
      if (!goes_on) {
        text_ += '"';
        if (child->schema->module != parent->schema->module)
          text_.append(child->schema->module->name).append(":");
        text_.append(LYD_NAME(child)).append("\":");
      }
      if (!WriteNode(child, goes_on)) return false;
      before = child;
    }
    text_ += '}';
    return true;
  }

  // `goes_on`: the node is a further element of the leaf-list whose array was written last.
  bool WriteNode(const lyd_node* node, bool goes_on) {
    if ((node->schema->nodetype & LYD_NODE_INNER) != 0) return WriteChildren(node);
    const lyd_value* value = &reinterpret_cast<const lyd_node_term*>(node)->value;
    if (node->schema->nodetype != LYS_LEAFLIST) return WriteValue(node, value);
    if (goes_on) {
      // The array's end and the comma.
      text_.resize(text_.size() - 2);
      text_ += ',';
    } else {
      text_ += '[';
    }
    const bool known = WriteValue(node, value);
    text_ += ']';
    return known;
  }

  bool WriteValue(const lyd_node* node, const lyd_value* value) {
    while (value->realtype->basetype == LY_TYPE_UNION) value = &value->subvalue->value;
    switch (value->realtype->basetype) {
      case LY_TYPE_INT8:
      case LY_TYPE_INT16:
      case LY_TYPE_INT32:
      case LY_TYPE_UINT8:
      case LY_TYPE_UINT16:
      case LY_TYPE_UINT32:
      case LY_TYPE_BOOL:
        text_ += TextOf(node);
        return true;
      case LY_TYPE_EMPTY:
        text_ += "[null]";
        return true;
      case LY_TYPE_ENUM:
      case LY_TYPE_STRING:
        WriteString(TextOf(node));
        return true;
      default:
        return false;
    }
  }

  void WriteString(const char* value) {
    static constexpr const char* kDigits = "0123456789abcdef";
    text_ += '"';
    for (; *value != '\0'; ++value) {
      const auto byte = static_cast<unsigned char>(*value);
      if (byte < 0x20 || byte == 0x7f) {
        text_ += "\\u00";
        text_ += kDigits[byte >> 4];
        text_ += kDigits[byte & 0xf];
        continue;
      }
      if (byte == '"' || byte == '\\') text_ += '\\';
      text_ += *value;
    }
    text_ += '"';
  }

  std::string& text_;
};

// Copies what is an entry's own below `parent`.
void CopyOwn(const lyd_node* node, lyd_node* parent) {
  const lyd_node* child;
  LY_LIST_FOR(lyd_child(node), child) {
    if (child->schema->nodetype == LYS_LIST) return;
    if (IsKey(child)) continue;
    lyd_node* copy = AddCopy(child, parent, 0, nullptr);
    if ((child->schema->nodetype & LYD_NODE_INNER) != 0) CopyOwn(child, copy);
  }
}

// The entry without the lists within, as a JSON object.
std::string ContentOf(const lyd_node* entry) {
  std::string content;
  if (ContentWriter::Write(entry, &content)) return content;
  lyd_node* copy = nullptr;
  AddCopy(entry, nullptr, 0, &copy);
  const Tree own(copy);
  CopyOwn(entry, copy);
  char* text = nullptr;
  if (lyd_print_mem(&text, copy, LYD_JSON, LYD_PRINT_SHRINK) != LY_SUCCESS) throw std::bad_alloc();
  const std::unique_ptr<char, decltype(&std::free)> owner(text, &std::free);
  // {"module:list":[ object ]}
  const std::string document = text;
  const size_t from = document.find('[') + 1;
  return document.substr(from, document.rfind(']') - from);
}

class UnitWalk {
 public:
  // Visits either the units that go, or the others.
  UnitWalk(const UnitVisitor& visit, bool removed) : visit_(visit), removed_(removed) {}

  // False when the visitor has ended the walk, or something is in no unit.
  bool Walk(const lyd_node* diff, const lyd_node* after, DiffOperation inherited) {
    for (const lyd_node* node = diff; node != nullptr; node = node->next) {
      if (IsKey(node)) continue;
      FeedWatchdog();
      const DiffOperation operation = DiffOperationOf(node, inherited);
      if (node->schema->nodetype != LYS_LIST) {
        in_units_ = in_units_ && IsFrame(node->schema);
        if (!in_units_) return false;
        const lyd_node* now = FindSame(after, node);
        if (!Walk(lyd_child(node), now != nullptr ? lyd_child(now) : nullptr, operation))
          return false;
      } else if (operation == DiffOperation::kDelete) {
        if (removed_ && !visit_({KeyOf(node), "", false})) return false;
      } else if (removed_ && operation == DiffOperation::kCreate) {
        continue;  // nothing goes in there
      } else if (!WalkEntry(node, FindSame(after, node), operation)) {
        return false;
      }
    }
    return true;
  }

  bool in_units() const { return in_units_; }

 private:
  UnitKey KeyOf(const lyd_node* entry) {
    const lyd_node* parent = lyd_parent(entry);
    if (parent != place_of_) place_ = PathOf(parent);
    place_of_ = parent;
    return {place_, LYD_NAME(entry), KeysText(entry)};
  }

  bool WalkEntry(const lyd_node* node, const lyd_node* now, DiffOperation operation) {
    in_units_ = in_units_ && now != nullptr;
    if (!in_units_) return false;
    const bool is_new = operation == DiffOperation::kCreate;
    bool own = is_new;
    const lyd_node* child;
    LY_LIST_FOR(lyd_child(node), child) own = own || (!IsKey(child) && !HoldsUnits(child));
    if (own && !removed_ && !visit_({KeyOf(now), ContentOf(now), is_new})) return false;
    LY_LIST_FOR(lyd_child(node), child) {
      if (HoldsUnits(child)) return Walk(child, lyd_child(now), operation);
    }
    return true;
  }

  static bool HoldsUnits(const lyd_node* node) {
    return node->schema->nodetype == LYS_LIST || IsFrame(node->schema);
  }

  const UnitVisitor& visit_;
  const bool removed_;
  bool in_units_ = true;
  const lyd_node* place_of_ = nullptr;
  std::string place_;  // path of place_of_, the parent of the last entries
};

}  // namespace

bool VisitUnitChanges(const lyd_node* diff, const lyd_node* after, const UnitVisitor& visit,
                      bool* in_units) {
  for (const bool removed : {true, false}) {
    UnitWalk walk(visit, removed);
    const bool done = walk.Walk(diff, after, DiffOperation::kNone);
    *in_units = walk.in_units();
    if (!done) return false;
  }
  return true;
}

bool AddUnits(lyd_node* parent, const std::string& list, const std::string& contents) {
  const std::string document =
      std::string("{\"") + parent->schema->module->name + ":" + list + "\":[" + contents + "]}";
  ly_in* in = nullptr;
  if (ly_in_new_memory(document.c_str(), &in) != LY_SUCCESS) throw std::bad_alloc();
  lyd_node* parsed = nullptr;
  const LY_ERR result =
      lyd_parse_data(LYD_CTX(parent), parent, in, LYD_JSON,
                     LYD_PARSE_ONLY | LYD_PARSE_STRICT | LYD_PARSE_NO_STATE, 0, &parsed);
  ly_in_free(in, 0);
  return result == LY_SUCCESS;
}

}  // namespace host
