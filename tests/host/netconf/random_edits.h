// Random edits of a small configuration.
#ifndef TESTS_HOST_NETCONF_RANDOM_EDITS_H_
#define TESTS_HOST_NETCONF_RANDOM_EDITS_H_

#include <gtest/gtest.h>

#include <random>
#include <string>

#include "host/cdb/schema/yang_tree.h"

namespace host {

class RandomEdits {
 public:
  RandomEdits(const ly_ctx* context, unsigned seed, int entries = 3)
      : context_(context), random_(seed), entries_(entries) {}

  int Below(int bound) { return static_cast<int>(random_() % bound); }

  // An edit that is well-formed, but need not be acceptable.
  Tree Next() {
    const std::string name = std::to_string(Below(4));
    const std::string profile = "<access-list" + Operation() +
                                "><acl-type>l3</acl-type><acl-name>p" + name +
                                "</acl-name><acl-priority-l3><priority>" + name +
                                "</priority></acl-priority-l3>" + Entries() + "</access-list>";
    const std::string interface = "<interface" + Operation() + "><interface-name>e" + name +
                                  "</interface-name><ingress" + Operation() + ">p" +
                                  std::to_string(Below(4)) + "</ingress></interface>";
    const int kind = Below(3);
    const std::string xml =
        "<config xmlns='urn:acl-app:acl' xmlns:nc='urn:ietf:params:xml:ns:netconf:base:1.0'>"
        "<access-list>" +
        (kind != 0 ? "<acl-profile><ingress>" + profile + "</ingress></acl-profile>" : "") +
        (kind != 1 ? interface : "") + "</access-list></config>";
    lyd_node* tree = nullptr;
    EXPECT_EQ(lyd_parse_data_mem(context_, xml.c_str(), LYD_XML, LYD_PARSE_ONLY | LYD_PARSE_STRICT,
                                 0, &tree),
              LY_SUCCESS)
        << xml << ly_errmsg(context_);
    return Tree(tree);
  }

 private:
  std::string Operation() {
    static constexpr const char* kOperations[] = {"", "", "", " nc:operation='remove'",
                                                  " nc:operation='replace'"};
    return kOperations[Below(5)];
  }
  std::string Entries() {
    std::string all;
    for (int first = Below(entries_), i = 0; i <= entries_ / 8; ++i) {
      all += Entry((first + i) % entries_);
    }
    return all;
  }
  std::string Entry(int priority) {
    const std::string match =
        Below(2) != 0 ? "<vlan>" + std::to_string(1 + Below(3)) + "</vlan>" : "";
    return "<access-list-entry" + Operation() + "><ace-priority>" + std::to_string(priority) +
           "</ace-priority><match>" + match + "</match><action><packet-handling>" +
           (Below(2) != 0 ? "<deny/>" : "<permit/>") +
           "</packet-handling></action></access-list-entry>";
  }

  const ly_ctx* context_;
  std::minstd_rand random_;
  const int entries_;
};

}  // namespace host

#endif  // TESTS_HOST_NETCONF_RANDOM_EDITS_H_
