// The acl-app module as the cdb_* calls see it: a tree of nodes with their XML tags and the value
// types in which their leaves are delivered. Built once, from libyang's compiled schema.
#ifndef HOST_CDB_SCHEMA_CDB_SCHEMA_H_
#define HOST_CDB_SCHEMA_CDB_SCHEMA_H_

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "host/cdb/schema/yang_tree.h"

namespace host {

// How a leaf's text becomes a value.
enum class ValueKind {
  kNone,  // not a leaf, or a type that is not delivered
  kEmpty,
  kInt32,
  kUint8,
  kUint16,
  kUint32,
  kText,        // C_BUF
  kMac,         // C_BINARY of 6 bytes
  kIpv4,        // C_IPV4
  kIpv4Length,  // C_IPV4_AND_PLEN
};

struct CdbNode {
  const lysc_node* schema = nullptr;
  const CdbNode* parent = nullptr;
  std::string name;
  uint32_t tag = 0;
  int order = 0;         // place among its siblings in the schema
  size_t key_count = 0;  // lists: the keys are the first children
  std::vector<std::unique_ptr<CdbNode>> children;

  // Leaves and leaf-lists: a text that is one of `enums` is a C_ENUM_VALUE, others are of `kind`.
  ValueKind kind = ValueKind::kNone;
  std::vector<std::pair<std::string, int32_t>> enums;

  bool is(uint16_t nodetype) const { return (schema->nodetype & nodetype) != 0; }
  bool is_key() const { return parent != nullptr && order < static_cast<int>(parent->key_count); }
  const CdbNode* Child(std::string_view child_name) const;
  const CdbNode* ChildByTag(uint32_t child_tag) const;
};

class CdbSchema {
 public:
  explicit CdbSchema(const ly_ctx* context);

  // Stands above the top-level nodes; has no schema node of its own.
  const CdbNode* root() const { return &root_; }
  // The node of a compiled schema node, null when it is of another module.
  const CdbNode* Find(const lysc_node* schema) const;

 private:
  void AddChildren(const lysc_node* schema, const lysc_module* module, CdbNode* parent);

  CdbNode root_;
  std::unordered_map<const lysc_node*, const CdbNode*> by_schema_;
};

}  // namespace host

#endif  // HOST_CDB_SCHEMA_CDB_SCHEMA_H_
