// Random edits, the same for the same seed: every operation on every kind of node, most of them
// acceptable, many not.
#ifndef TESTS_HOST_CDB_EDIT_MAKER_H_
#define TESTS_HOST_CDB_EDIT_MAKER_H_

#include <functional>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "tests/host/cdb/support.h"

namespace host {

class EditMaker {
 public:
  explicit EditMaker(unsigned seed) : random_(seed) {}

  std::string Make() {
    std::string content;
    if (Chance(80))
      content += "<acl-profile" + MaybeOperation(2) + "><ingress" + MaybeOperation(2) + ">" +
                 Several(3, [&] { return RandomProfile(); }) + "</ingress></acl-profile>";
    content += Several(3, [&] { return RandomInterface(); });
    return Config(content);
  }

  EditOptions Options() {
    EditOptions options;
    const int pick = Number(0, 19);
    if (pick == 0) options.default_operation = DefaultOperation::kReplace;
    if (pick == 1) options.default_operation = DefaultOperation::kNone;
    return options;
  }

 private:
  int Number(int low, int high) { return std::uniform_int_distribution<>(low, high)(random_); }
  bool Chance(int percent) { return Number(0, 99) < percent; }
  std::string Pick(const std::vector<std::string>& from) {
    return from[Number(0, static_cast<int>(from.size()) - 1)];
  }
  std::string MaybeOperation(int percent) {
    if (!Chance(percent)) return "";
    return Operate(Pick({"merge", "replace", "create", "delete", "remove", "remove"}));
  }
  std::string Several(int most, const std::function<std::string()>& make) {
    std::string text;
    for (int n = Number(0, most); n > 0; --n) text += make();
    return text;
  }
  std::string Leaf(const std::string& name, const std::string& value) {
    const std::string operation = MaybeOperation(15);
    const bool bare = operation.find("delete") != std::string::npos && Chance(50);
    return "<" + name + operation + ">" + (bare ? "" : value) + "</" + name + ">";
  }
  std::string Address(const std::string& name) {
    std::string content;
    if (Chance(60))
      content += "<mask>" + Leaf("ip", Pick({"10.0.0.1/8", "10.0.0.0/33"})) + "</mask>";
    if (Chance(40)) content += "<no-mask>" + Leaf("ip", "10.0.0.1") + "</no-mask>";
    return "<" + name + MaybeOperation(10) + ">" + content + "</" + name + ">";
  }
  std::string RandomEntry() {
    std::string match;
    if (Chance(40)) match += Leaf("vlan", Pick({"1", "7", "4094", "4095"}));
    if (Chance(20)) match += Leaf("dscp", Pick({"ef", "12", "64"}));
    if (Chance(20)) match += Leaf("tos", Pick({"1", "255"}));
    if (Chance(20)) match += Leaf("source-mac-address", "02:00:00:00:00:01");
    if (Chance(20)) match += Leaf("source-mac-address-mask", "ff:ff:ff:00:00:00");
    if (Chance(30)) match += Address("source-ipv4-address");
    std::string action;
    if (Chance(50))
      action += "<packet-handling" + MaybeOperation(10) + ">" + Leaf(Pick({"deny", "permit"}), "") +
                "</packet-handling>";
    if (Chance(20)) action += "<set>" + Leaf("pcp", Pick({"0", "7", "8"})) + "</set>";
    const std::string operation = MaybeOperation(25);
    return "<access-list-entry" + operation + "><ace-priority>" + std::to_string(Number(0, 5)) +
           "</ace-priority>" +
           (Chance(30) ? Leaf("description", Pick({"web", "\xc3\xa4 \\"})) : "") + "<match" +
           MaybeOperation(10) + ">" + match + "</match><action" + MaybeOperation(10) + ">" +
           action + "</action></access-list-entry>";
  }
  // A name's own most of the time, so that it is not refused as a change; two have the same.
  std::string Priority(const std::string& name) {
    const int own = name == "a" ? 5 : name == "b" ? 6 : 7;
    return std::to_string(Chance(95) ? own : Number(5, 8));
  }
  std::string RandomProfile() {
    const std::string type = Pick({"l2", "l3"});
    const std::string container = "acl-priority-" + Pick({type, type, type, type, "l2", "l3"});
    const std::string name = Pick({"a", "b", "c", "d"});
    std::string content = "<acl-type>" + type + "</acl-type><acl-name>" + name + "</acl-name>";
    if (Chance(85)) {
      content += "<" + container + ">" + Leaf("priority", Priority(name)) + "</" + container + ">";
    }
    return "<access-list" + MaybeOperation(30) + ">" + content +
           Several(3, [&] { return RandomEntry(); }) + "</access-list>";
  }
  std::string RandomInterface() {
    const std::string name = Pick({"eth0", "eth1", "eth2"});
    std::set<std::string> bound;
    std::string content;
    for (int n = Number(0, 2); n > 0; --n) {
      const std::string profile = Pick({"a", "b", "c", "d"});
      if (bound.insert(profile).second) content += Bind(profile, Chance(40) ? "remove" : "");
    }
    return "<interface" + MaybeOperation(25) + "><interface-name>" + name + "</interface-name>" +
           content + "</interface>";
  }

  std::mt19937 random_;
};

}  // namespace host

#endif  // TESTS_HOST_CDB_EDIT_MAKER_H_
