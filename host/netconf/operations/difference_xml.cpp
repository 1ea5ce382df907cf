// A difference for clients: see difference_xml.h.
#include "host/netconf/operations/difference_xml.h"

#include <string>

#include "host/cdb/diff.h"

namespace host {
namespace {

const char* NameOf(DiffOperation operation) {
  switch (operation) {
    case DiffOperation::kCreate:
      return "create";
    case DiffOperation::kDelete:
      return "delete";
    default:
      return "modify";
  }
}

void WriteLeaf(const lyd_node* leaf, DiffOperation operation, const std::string& name,
               XmlWriter* xml) {
  xml->Open("leaf");
  xml->Leaf("name", name);
  const lyd_meta* old = lyd_find_meta(leaf->meta, nullptr, "yang:orig-value");
  if (operation == DiffOperation::kDelete) xml->Leaf("old-value", TextOf(leaf));
  if (operation == DiffOperation::kReplace && old != nullptr)
    xml->Leaf("old-value", lyd_get_meta_value(old));
  if (operation != DiffOperation::kDelete) xml->Leaf("value", TextOf(leaf));
  xml->Close("leaf");
}

// One list entry's own changes. Nothing is written for an entry that has none.
class EntryWriter {
 public:
  EntryWriter(const lyd_node* entry, XmlWriter* xml) : entry_(entry), xml_(xml) {}

  void Write(DiffOperation operation) {
    if (operation != DiffOperation::kNone) Begin(operation);
    WriteLeaves(entry_, operation, "");
    if (begun_) xml_->Close("change");
  }

 private:
  void Begin(DiffOperation operation) {
    begun_ = true;
    xml_->Open("change");
    xml_->Leaf("path", PathOf(entry_));
    xml_->Leaf("operation", NameOf(operation));
  }

  void WriteLeaves(const lyd_node* parent, DiffOperation inherited, const std::string& prefix) {
    const lyd_node* child;
    LY_LIST_FOR(lyd_child(parent), child) {
      if (IsKey(child) || child->schema->nodetype == LYS_LIST) continue;
      const DiffOperation operation = DiffOperationOf(child, inherited);
      if ((child->schema->nodetype & LYD_NODE_TERM) == 0) {
        WriteLeaves(child, operation, prefix + LYD_NAME(child) + "/");
      } else if (operation != DiffOperation::kNone) {
        if (!begun_) Begin(DiffOperation::kNone);
        WriteLeaf(child, operation, prefix + LYD_NAME(child), xml_);
      }
    }
  }

  const lyd_node* entry_;
  XmlWriter* xml_;
  bool begun_ = false;
};

void WriteEntries(const lyd_node* node, DiffOperation inherited, XmlWriter* xml) {
  for (; node != nullptr; node = node->next) {
    if ((node->schema->nodetype & LYD_NODE_TERM) != 0) continue;
    const DiffOperation operation = DiffOperationOf(node, inherited);
    if (node->schema->nodetype == LYS_LIST) EntryWriter(node, xml).Write(operation);
    WriteEntries(lyd_child(node), operation, xml);
  }
}

}  // namespace

void WriteDifference(const lyd_node* diff, XmlWriter* xml) {
  WriteEntries(diff, DiffOperation::kNone, xml);
}

}  // namespace host
