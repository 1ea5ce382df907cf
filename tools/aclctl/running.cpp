// The running configuration and its edits: see running.h.
#include "tools/aclctl/running.h"

#include <cstdlib>
#include <cstring>
#include <memory>

#include "host/cdb/diff.h"
#include "host/xml/xml_text.h"
#include "tools/aclctl/daemon_data.h"

namespace aclctl {
namespace {

// From how many parts on everything is fetched: the server bounds the elements of a filter, and
// looking for each costs more then than reading all.
constexpr size_t kManyParts = 200;

std::string ProfileFilter(const std::string& name, const Scope::Entries& entries) {
  std::string filter = "<access-list>" + host::XmlElement("acl-name", name);
  if (!entries.all) {
    filter += "<acl-type/><description/><acl-priority-l2/><acl-priority-l3/>";
    for (const std::string& priority : entries.priorities) {
      filter += "<access-list-entry>" + host::XmlElement("ace-priority", priority) +
                "</access-list-entry>";
    }
  }
  return filter + "</access-list>";
}

size_t CountParts(const Scope& scope) {
  size_t parts = scope.interfaces.size();
  for (const auto& [name, entries] : scope.profiles) parts += 1 + entries.priorities.size();
  return parts;
}

std::string FilterOf(const Scope& scope) {
  if (scope.everything || CountParts(scope) > kManyParts) {
    return "<config xmlns=\"urn:acl-app:acl\"/>";
  }
  std::string filter = "<config xmlns=\"urn:acl-app:acl\"><access-list><acl-profile><ingress>";
  // A filter without a profile would select them all.
  if (scope.profiles.empty()) filter += "<none/>";
  for (const auto& [name, entries] : scope.profiles) filter += ProfileFilter(name, entries);
  filter += "</ingress></acl-profile>";
  for (const std::string& name : scope.interfaces) {
    if (!scope.all_interfaces) {
      filter += "<interface>" + host::XmlElement("interface-name", name) + "</interface>";
    }
  }
  if (scope.all_interfaces) filter += "<interface/>";
  return filter + "</access-list></config>";
}

// What libyang's difference says of a node, in the words of an edit; null: nothing.
const char* OperationFor(const lyd_node* node, const char* difference) {
  if (std::strcmp(difference, "none") == 0) return nullptr;
  const bool deletes = std::strcmp(difference, "delete") == 0;
  const bool entry = node->schema->nodetype == LYS_LIST;
  if (deletes) return entry ? "delete" : "remove";
  return entry && std::strcmp(difference, "create") == 0 ? "create" : "merge";
}

// Removes what is below a list entry that goes, its keys aside.
void KeepKeys(lyd_node* entry) {
  lyd_node *child, *next;
  LY_LIST_FOR_SAFE(lyd_child_no_keys(entry), next, child) { lyd_free_tree(child); }
}

// Turns libyang's marks on `siblings` and below into an edit's. `around` is the operation of what
// they are in.
void MarkEdit(lyd_node* siblings, const char* around) {
  lyd_node* node;
  LY_LIST_FOR(siblings, node) {
    const char* operation = around;
    lyd_meta* meta = node->meta;
    if (const lyd_meta* own = lyd_find_meta(meta, nullptr, "yang:operation")) {
      operation = OperationFor(node, lyd_get_meta_value(own));
    }
    lyd_free_meta_siblings(node->meta);
    node->meta = nullptr;
    if (operation != nullptr && operation != around) {
      lyd_new_meta(LYD_CTX(node), node, nullptr, "ietf-netconf:operation", operation, 0, nullptr);
    }
    if (operation != nullptr && std::strcmp(operation, "delete") == 0) KeepKeys(node);
    // What comes with an entry needs no operation of its own.
    if ((node->schema->nodetype & LYD_NODE_INNER) != 0)
      MarkEdit(lyd_child_no_keys(node), operation);
  }
}

}  // namespace

std::string PrintXml(const lyd_node* tree) {
  char* text = nullptr;
  lyd_print_mem(&text, tree, LYD_XML,
                LYD_PRINT_WITHSIBLINGS | LYD_PRINT_SHRINK | LYD_PRINT_KEEPEMPTYCONT);
  const std::unique_ptr<char, void (*)(void*)> owner(text, std::free);
  return text != nullptr ? text : "";
}

Failure FetchRunningText(Client* client, const Scope& scope, std::string* reply) {
  return client->CallForText("<get-config><source><running/></source><filter type=\"subtree\">" +
                                 FilterOf(scope) + "</filter></get-config>",
                             reply);
}

Failure ReadRunningText(const std::string& reply, const ly_ctx* context, host::Tree* tree) {
  lyd_node* raw = nullptr;
  const LY_ERR result = lyd_parse_data_mem(context, InnerXml(reply, "data").c_str(), LYD_XML,
                                           LYD_PARSE_ONLY | LYD_PARSE_STRICT, 0, &raw);
  tree->reset(raw);
  if (result == LY_SUCCESS) return {};
  return {kProtocol, "the daemon's configuration cannot be understood", {}};
}

Failure FetchRunning(Client* client, const ly_ctx* context, const Scope& scope, host::Tree* tree) {
  std::string reply;
  if (Failure failure = FetchRunningText(client, scope, &reply)) return failure;
  return ReadRunningText(reply, context, tree);
}

std::string EditBetween(const ConfigTree& from, const ConfigTree& to) {
  host::Tree before = host::CopyTree(from.root()), after = host::CopyTree(to.root());
  host::Normalize(from.context(), &before);
  host::Normalize(from.context(), &after);
  const host::Tree difference = host::Difference(from.context(), before.get(), after.get());
  if (difference == nullptr) return "";
  MarkEdit(difference.get(), nullptr);
  return PrintXml(difference.get());
}

}  // namespace aclctl
