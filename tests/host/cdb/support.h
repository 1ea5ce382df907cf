// What the datastore's tests share: opening one, writing edits briefly, printing trees.
#ifndef TESTS_HOST_CDB_SUPPORT_H_
#define TESTS_HOST_CDB_SUPPORT_H_

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "host/cdb/datastore.h"
#include "host/cdb/schema/yang_tree.h"

namespace host {

inline std::string ToText(const DatastoreErrors& errors) {
  std::string text;
  for (const DatastoreError& error : errors)
    text += error.tag + "|" + error.app_tag + "|" + error.path + "|" + error.message + "\n";
  return text;
}

// A directory that lives as long as the object.
class ScratchDirectory {
 public:
  ScratchDirectory() {
    char name[] = "/tmp/acl-cdb-XXXXXX";
    path_ = mkdtemp(name);
  }
  ~ScratchDirectory() { std::filesystem::remove_all(path_); }
  const std::string& path() const { return path_; }
  std::string Write(const std::string& name, const std::string& text) const {
    std::ofstream(path_ + "/" + name) << text;
    return path_ + "/" + name;
  }

 private:
  std::string path_;
};

inline std::unique_ptr<Datastore> OpenDatastore(const DatastoreOptions& given,
                                                DatastoreErrors* errors = nullptr) {
  DatastoreErrors unexpected;
  DatastoreOptions options = given;
  options.yang_directory = ACL_YANG_DIR;
  auto datastore = Datastore::Open(options, errors != nullptr ? errors : &unexpected);
  EXPECT_EQ("", ToText(unexpected));
  return datastore;
}

inline std::unique_ptr<Datastore> OpenDatastore(const std::string& startup_file = "",
                                                DatastoreErrors* errors = nullptr) {
  DatastoreOptions options;
  options.startup_file = startup_file;
  return OpenDatastore(options, errors);
}

// Puts the content of config/access-list into its containers.
inline std::string Config(const std::string& content) {
  return "<config xmlns=\"urn:acl-app:acl\" "
         "xmlns:nc=\"urn:ietf:params:xml:ns:netconf:base:1.0\"><access-list>" +
         content + "</access-list></config>";
}
inline std::string Profiles(const std::string& content) {
  return "<acl-profile><ingress>" + content + "</ingress></acl-profile>";
}
// A profile of type l2 or l3 with a priority and further content; `operation` as in nc:operation.
inline std::string Operate(const std::string& operation) {
  return operation.empty() ? "" : " nc:operation=\"" + operation + "\"";
}
inline std::string Profile(const std::string& type, const std::string& name, int priority,
                           const std::string& content = "", const std::string& operation = "") {
  std::string text = "<access-list" + Operate(operation) + "><acl-type>" + type +
                     "</acl-type><acl-name>" + name + "</acl-name>";
  if (priority >= 0) {
    const std::string container = "acl-priority-" + type;
    text += "<" + container + "><priority>" + std::to_string(priority) + "</priority></" +
            container + ">";
  }
  return text + content + "</access-list>";
}
inline std::string Entry(int priority, const std::string& content = "",
                         const std::string& operation = "") {
  return "<access-list-entry" + Operate(operation) + "><ace-priority>" + std::to_string(priority) +
         "</ace-priority>" + content + "</access-list-entry>";
}
inline std::string Match(const std::string& content) { return "<match>" + content + "</match>"; }
inline std::string Interface(const std::string& name, const std::string& content = "",
                             const std::string& operation = "") {
  return "<interface" + Operate(operation) + "><interface-name>" + name + "</interface-name>" +
         content + "</interface>";
}
inline std::string Bind(const std::string& profile, const std::string& operation = "") {
  return "<ingress" + Operate(operation) + ">" + profile + "</ingress>";
}

// Parses an edit as the NETCONF server does: what the schema refuses becomes opaque.
inline Tree ParseEdit(const ly_ctx* context, const std::string& xml) {
  lyd_node* first = nullptr;
  const LY_ERR result =
      lyd_parse_data_mem(context, xml.c_str(), LYD_XML, LYD_PARSE_ONLY | LYD_PARSE_OPAQ, 0, &first);
  EXPECT_EQ(LY_SUCCESS, result) << xml;
  return Tree(first);
}

inline DatastoreErrors Edit(Datastore* datastore, const std::string& xml,
                            const EditOptions& options = {}) {
  const Tree edit = ParseEdit(datastore->Context(), xml);
  return datastore->Edit(edit.get(), options, Origin{"tester", 1});
}

// A line per leaf (keys aside) and list entry, sorted: equal for equal configurations, however
// reached.
inline void CollectLines(const lyd_node* first, std::vector<std::string>* lines) {
  for (; first != nullptr; first = first->next) {
    std::string line = PathOf(first);
    if ((first->schema->nodetype & LYD_NODE_TERM) != 0) line += " = " + std::string(TextOf(first));
    if (!IsPlainContainer(first->schema) && !IsKey(first)) lines->push_back(line);
    CollectLines(lyd_child(first), lines);
  }
}
inline std::string Snapshot(const lyd_node* tree) {
  std::vector<std::string> lines;
  CollectLines(tree, &lines);
  std::sort(lines.begin(), lines.end());
  std::string text;
  for (const std::string& line : lines) text += line + "\n";
  return text;
}

}  // namespace host

#endif  // TESTS_HOST_CDB_SUPPORT_H_
