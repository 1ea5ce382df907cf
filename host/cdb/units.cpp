// The units of a configuration.
#include "host/cdb/units.h"

#include <cstdlib>
#include <new>

#include "host/cdb/diff.h"

namespace host {
namespace {

UnitKey KeyOf(const lyd_node* entry) {
  UnitKey key;
  key.place = PathOf(lyd_parent(entry));
  key.list = LYD_NAME(entry);
  key.keys = PathOf(entry).substr(key.place.size() + 1 + key.list.size());
  return key;
}

// Copies what is an entry's own below `parent`.
void CopyOwn(const lyd_node* node, lyd_node* parent) {
  const lyd_node* child;
  LY_LIST_FOR(lyd_child(node), child) {
    if (child->schema->nodetype == LYS_LIST) return;  // lists are last, and stand together
    if (IsKey(child)) continue;
    lyd_node* copy = AddCopy(child, parent, 0, nullptr);
    if ((child->schema->nodetype & LYD_NODE_INNER) != 0) CopyOwn(child, copy);
  }
}

// The entry without the lists within, as a JSON object.
std::string ContentOf(const lyd_node* entry) {
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

class UnitCollector {
 public:
  explicit UnitCollector(std::vector<UnitChange>* changes) : changes_(changes) {}

  bool Collect(const lyd_node* diff, const lyd_node* after, DiffOperation inherited) {
    for (const lyd_node* node = diff; node != nullptr; node = node->next) {
      if (IsKey(node)) continue;
      const DiffOperation operation = DiffOperationOf(node, inherited);
      if (node->schema->nodetype != LYS_LIST) {
        if (!IsFrame(node->schema)) return false;
        const lyd_node* now = FindSame(after, node);
        if (!Collect(lyd_child(node), now != nullptr ? lyd_child(now) : nullptr, operation))
          return false;
      } else if (operation == DiffOperation::kDelete) {
        changes_->insert(changes_->begin() + static_cast<ptrdiff_t>(removed_++),
                         {KeyOf(node), "", false});
      } else if (!CollectEntry(node, FindSame(after, node), operation)) {
        return false;
      }
    }
    return true;
  }

 private:
  bool CollectEntry(const lyd_node* node, const lyd_node* now, DiffOperation operation) {
    if (now == nullptr) return false;
    const bool is_new = operation == DiffOperation::kCreate;
    bool own = is_new;
    const lyd_node* child;
    LY_LIST_FOR(lyd_child(node), child) own = own || (!IsKey(child) && !HoldsUnits(child));
    if (own) changes_->push_back({KeyOf(now), ContentOf(now), is_new});
    LY_LIST_FOR(lyd_child(node), child) {
      if (HoldsUnits(child)) return Collect(child, lyd_child(now), operation);
    }
    return true;
  }

  static bool HoldsUnits(const lyd_node* node) {
    return node->schema->nodetype == LYS_LIST || IsFrame(node->schema);
  }

  std::vector<UnitChange>* changes_;
  size_t removed_ = 0;
};

}  // namespace

bool CollectUnitChanges(const lyd_node* diff, const lyd_node* after,
                        std::vector<UnitChange>* changes) {
  return UnitCollector(changes).Collect(diff, after, DiffOperation::kNone);
}

bool AddUnits(const ly_ctx* context, const std::string& place, const std::string& list,
              const std::string& contents, Tree* tree) {
  lyd_node* parent = nullptr;
  if (lyd_find_path(tree->get(), place.c_str(), 0, &parent) != LY_SUCCESS) return false;
  const std::string document =
      std::string("{\"") + parent->schema->module->name + ":" + list + "\":[" + contents + "]}";
  ly_in* in = nullptr;
  if (ly_in_new_memory(document.c_str(), &in) != LY_SUCCESS) throw std::bad_alloc();
  lyd_node* parsed = nullptr;
  const LY_ERR result =
      lyd_parse_data(context, parent, in, LYD_JSON,
                     LYD_PARSE_ONLY | LYD_PARSE_STRICT | LYD_PARSE_NO_STATE, 0, &parsed);
  ly_in_free(in, 0);
  return result == LY_SUCCESS;
}

}  // namespace host
