// Builds data of a YANG module node by node.
#ifndef HOST_RUNTIME_TREE_WRITER_H_
#define HOST_RUNTIME_TREE_WRITER_H_

#include <libyang/libyang.h>

#include <cstdint>
#include <string>

namespace host {

// Adds nodes below given parents. Direct calls, as a path string for each of some 600,000 nodes
// would take seconds. The first refusal stands; later calls do nothing.
class TreeWriter {
 public:
  // `output`: what is built is the answer of an operation.
  explicit TreeWriter(const lys_module* module, bool output = false)
      : module_(module), output_(output ? 1 : 0) {}

  bool ok() const { return ok_; }

  // A container, or the operation itself.
  lyd_node* Inner(lyd_node* parent, const char* name) {
    lyd_node* node = nullptr;
    if (ok_) ok_ = lyd_new_inner(parent, module_, name, output_, &node) == LY_SUCCESS;
    return node;
  }
  template <class... Keys>
  lyd_node* List(lyd_node* parent, const char* name, const Keys&... keys) {
    lyd_node* node = nullptr;
    if (ok_) {
      ok_ = lyd_new_list(parent, module_, name, output_, &node, keys.c_str()...) == LY_SUCCESS;
    }
    return node;
  }
  void Leaf(lyd_node* parent, const char* name, const char* value) {
    if (ok_) ok_ = lyd_new_term(parent, module_, name, value, output_, nullptr) == LY_SUCCESS;
  }
  void Leaf(lyd_node* parent, const char* name, const std::string& value) {
    Leaf(parent, name, value.c_str());
  }
  void Leaf(lyd_node* parent, const char* name, uint64_t value) {
    Leaf(parent, name, std::to_string(value));
  }
  // A text of somebody's: control characters, which no YANG string has, become blanks; an empty one
  // is left out.
  void Text(lyd_node* parent, const char* name, std::string value) {
    for (char& c : value) {
      if (static_cast<unsigned char>(c) < 0x20) c = ' ';
    }
    if (!value.empty()) Leaf(parent, name, value);
  }

 private:
  const lys_module* module_;
  const unsigned char output_;
  bool ok_ = true;
};

}  // namespace host

#endif  // HOST_RUNTIME_TREE_WRITER_H_
