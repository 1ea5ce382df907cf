// Nodes and modules: see document.h.
#include "host/standard/document.h"

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <utility>

#include "host/standard/document_modules.h"

namespace host::standard {

const Module kAccessControlList = {"ietf-access-control-list",
                                   "urn:ietf:params:xml:ns:yang:ietf-access-control-list", "acl"};
const Module kAclEnhancements = {"ietf-acl-enh", "urn:ietf:params:xml:ns:yang:ietf-acl-enh",
                                 "acl-enh"};
const Module kOpenConfigAcl = {"openconfig-acl", "http://openconfig.net/yang/acl", "oc-acl"};
const Module kOpenConfigMatch = {"openconfig-packet-match",
                                 "http://openconfig.net/yang/header-fields", "oc-pkt-match"};
const Module kOpenConfigMatchTypes = {"openconfig-packet-match-types",
                                      "http://openconfig.net/yang/packet-match-types",
                                      "oc-pkt-match-types"};
const Module kOpenConfigSets = {"openconfig-defined-sets",
                                "http://openconfig.net/yang/defined-sets", "oc-sets"};
const Module kOpenConfigInterfaces = {"openconfig-interfaces",
                                      "http://openconfig.net/yang/interfaces", "oc-if"};
const Module kOwnStandard = {"acl-app-standard", "urn:acl-app:standard", "acl-x"};
const Module kOwn = {"acl-app", "urn:acl-app:acl", "acl-app"};

namespace {

constexpr const Module* kModules[] = {
    &kAccessControlList,    &kAclEnhancements,      &kOpenConfigAcl,
    &kOpenConfigMatch,      &kOpenConfigMatchTypes, &kOpenConfigSets,
    &kOpenConfigInterfaces, &kOwnStandard,          &kOwn};

const std::string kNothing;

}  // namespace

const Module* FindModule(std::string_view name) {
  for (const Module* module : kModules) {
    if (name == module->name) return module;
  }
  return nullptr;
}

const Module* FindSpace(std::string_view space) {
  for (const Module* module : kModules) {
    if (space == module->space) return module;
  }
  return nullptr;
}

bool MayBeIdentity(std::string_view leaf) {
  static constexpr std::string_view kLeaves[] = {"counter-capability", "ethertype",  "forwarding",
                                                 "forwarding-action",  "log-action", "logging",
                                                 "protocol",           "type"};
  return std::find(std::begin(kLeaves), std::end(kLeaves), leaf) != std::end(kLeaves);
}

bool SeenNames::Add(std::string_view name, std::string_view module) {
  const Key key{name.data(), module.data()};
  if (many_.empty()) {
    const auto end = few_.begin() + static_cast<std::ptrdiff_t>(count_);
    if (std::find(few_.begin(), end, key) != end) return false;
    if (count_ < few_.size()) {
      few_[count_++] = key;
      return true;
    }
    many_.insert(few_.begin(), end);
  }
  return many_.insert(key).second;
}

const Node* Node::Find(std::string_view child) const {
  for (const Node& node : children) {
    if (node.name == child) return &node;
  }
  return nullptr;
}

const std::string& Node::ValueOf(std::string_view child) const {
  const Node* node = Find(child);
  return node == nullptr ? kNothing : node->value;
}

Node& Node::Add(std::string_view child, Form with_form, std::string text) {
  Node& node = children.emplace_back();
  node.name = child;
  node.module = module;
  node.form = with_form;
  node.value = std::move(text);
  return node;
}

std::string_view Document::Keep(std::string_view text) {
  const auto known = known_.find(text);
  if (known != known_.end()) return *known;
  return *known_.insert(kept_.emplace_back(text)).first;
}

}  // namespace host::standard
