// aclctl show acl: profiles as they are configured, where they are bound, and what they have hit.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <memory>
#include <set>

#include "host/xml/xml_text.h"
#include "tools/aclctl/commands.h"
#include "tools/aclctl/daemon_data.h"
#include "tools/aclctl/interfaces.h"
#include "tools/aclctl/table.h"
#include "tools/client/match_words.h"

namespace aclctl {
namespace {

using Align = Table::Align;

struct Hits {
  uint64_t packets = 0, bytes = 0;

  void Add(const Hits& other) {
    packets += other.packets;
    bytes += other.bytes;
  }
};

// What the entries in force have hit: by profile, ace-priority and interface.
using ByInterface = std::map<std::string, Hits>;
using HitsByOrigin = std::map<std::pair<std::string, std::string>, ByInterface>;

uint64_t NumberIn(const lyd_node* parent, const char* leaf) {
  return std::strtoull(ChildText(parent, leaf).c_str(), nullptr, 10);
}

// Of all profiles where `profile` is empty.
Failure FetchHits(Client* client, const std::string& profile, HitsByOrigin* hits) {
  std::string data;
  host::Tree reply;
  const lyd_node* filters = nullptr;
  const std::string wanted = profile.empty() ? "<profile/>" : host::XmlElement("profile", profile);
  if (Failure failure =
          FetchState(client,
                     "<filters xmlns=\"urn:acl-app:filters\"><group><entry>" + wanted +
                         "<interface/><ace-priority/><hits/></entry>" + "</group></filters>",
                     &data, &reply, &filters)) {
    return failure;
  }
  for (const lyd_node* group : Children(filters, "group")) {
    for (const lyd_node* entry : Children(group, "entry")) {
      const lyd_node* counters = FindChild(entry, "hits");
      if (counters == nullptr) continue;
      (*hits)[{ChildText(entry, "profile"), ChildText(entry, "ace-priority")}][ChildText(
          entry, "interface")] = {NumberIn(counters, "packets"), NumberIn(counters, "bytes")};
    }
  }
  return {};
}

// One profile, with all that is shown of it.
class ProfilePrinter {
 public:
  ProfilePrinter(const lyd_node* profile, const std::set<std::string>& bound,
                 const InterfaceStates& states, const HitsByOrigin& hits)
      : profile_(profile),
        name_(ChildText(profile, "acl-name")),
        bound_(bound),
        states_(states),
        hits_(hits) {}

  void Print() const {
    const std::string type = ChildText(profile_, "acl-type");
    const std::string priority = ChildText(FindChild(profile_, "acl-priority-" + type), "priority");
    std::printf("%s (%s, priority %s)%s\n", name_.c_str(), type.c_str(), priority.c_str(),
                bound_.empty() ? ", bound to no interface" : "");
    const std::string description = ChildText(profile_, "description");
    if (!description.empty()) std::puts(description.c_str());
    PrintBindings();
    PrintEntries();
    if (bound_.size() > 1) PrintByInterface();
  }

 private:
  void PrintBindings() const {
    if (bound_.empty()) return;
    Table table({{"INTERFACE"}, {"STATE"}, {"FILTERS"}});
    for (const std::string& interface : bound_) {
      const auto state = states_.find(interface);
      table.AddRow({interface, LinkOf(states_, interface),
                    state == states_.end() ? "-" : state->second.filters});
    }
    std::fputs(("\n" + table.Print()).c_str(), stdout);
  }

  void PrintEntries() const {
    Table table({{"ENTRY", Align::kRight},
                 {"MATCH"},
                 {"ACTION"},
                 {"PACKETS", Align::kRight},
                 {"BYTES", Align::kRight},
                 {"DESCRIPTION", Align::kLeft, true}});
    for (const lyd_node* entry : Children(profile_, "access-list-entry")) {
      const ByInterface* const counted = HitsOf(entry);
      Hits total;
      if (counted != nullptr) {
        for (const auto& [interface, hits] : *counted) total.Add(hits);
      }
      table.AddRow({ChildText(entry, "ace-priority"), client::MatchText(FindChild(entry, "match")),
                    client::ActionText(FindChild(entry, "action")),
                    counted == nullptr ? "-" : std::to_string(total.packets),
                    counted == nullptr ? "-" : std::to_string(total.bytes),
                    ChildText(entry, "description")});
    }
    if (!table.empty()) std::fputs(("\n" + table.Print()).c_str(), stdout);
  }

  // Entries that have hit something, a line for each interface.
  void PrintByInterface() const {
    Table table({{"ENTRY", Align::kRight},
                 {"INTERFACE"},
                 {"PACKETS", Align::kRight},
                 {"BYTES", Align::kRight}});
    for (const lyd_node* entry : Children(profile_, "access-list-entry")) {
      const ByInterface* const counted = HitsOf(entry);
      if (counted == nullptr) continue;
      for (const auto& [interface, hits] : *counted) {
        if (hits.packets == 0) continue;
        table.AddRow({ChildText(entry, "ace-priority"), interface, std::to_string(hits.packets),
                      std::to_string(hits.bytes)});
      }
    }
    if (!table.empty()) std::fputs(("\n" + table.Print()).c_str(), stdout);
  }

  // Null where the entry is not in force, or hits are not counted.
  const ByInterface* HitsOf(const lyd_node* entry) const {
    const auto found = hits_.find({name_, ChildText(entry, "ace-priority")});
    return found == hits_.end() ? nullptr : &found->second;
  }

  const lyd_node* const profile_;
  const std::string name_;
  const std::set<std::string>& bound_;
  const InterfaceStates& states_;
  const HitsByOrigin& hits_;
};

Failure ShowAcl(const Common& common, const std::string& profile) {
  Client client;
  if (Failure failure = client.Open(common.socket)) return failure;
  const std::string key = profile.empty() ? "" : host::XmlElement("acl-name", profile);
  const std::string profiles =
      "<acl-profile><ingress><access-list>" + key + "</access-list></ingress></acl-profile>";
  const std::string filter = "<config xmlns=\"urn:acl-app:acl\"><access-list>" + profiles +
                             (common.form == Form::kText ? "<interface/>" : "") +
                             "</access-list></config>";
  host::Tree reply;
  std::string text;
  if (Failure failure =
          client.Call("<get-config><source><running/></source><filter type=\"subtree\">" + filter +
                          "</filter></get-config>",
                      &reply, &text)) {
    return failure;
  }
  const lyd_node* config = FindChild(FindChild(reply.get(), "data"), "config");
  const lyd_node* lists = FindChild(config, "access-list");
  const auto found = Children(FindChild(FindChild(lists, "acl-profile"), "ingress"), "access-list");
  if (found.empty() && !profile.empty()) {
    return {kRefused, "there is no profile \"" + profile + "\"", {}};
  }
  if (common.form != Form::kText) {
    return PrintData(common.form, &client, "acl-app", InnerXml(text, "data"));
  }
  std::map<std::string, std::set<std::string>> bound;  // interfaces by profile
  for (const lyd_node* interface : Children(lists, "interface")) {
    for (const lyd_node* name : Children(interface, "ingress")) {
      bound[std::string(host::XmlText(name))].insert(ChildText(interface, "interface-name"));
    }
  }
  InterfaceStates states;
  if (Failure failure = FetchInterfaces(&client, &states)) return failure;
  HitsByOrigin hits;
  if (Failure failure = FetchHits(&client, profile, &hits)) return failure;
  for (const lyd_node* one : found) {
    if (one != found.front()) std::putchar('\n');
    ProfilePrinter(one, bound[ChildText(one, "acl-name")], states, hits).Print();
  }
  return {};
}

Run SetUpShowAcl(Syntax* syntax) {
  const auto profile = std::make_shared<std::string>();
  syntax->OptionalOperand("PROFILE", profile.get(), "this profile alone", Names::kProfiles);
  return [profile](const Common& common) { return ShowAcl(common, *profile); };
}

}  // namespace

const Command kShowAcl = {"show acl",
                          Group::kLook,
                          "profiles as configured, where they are bound, what they have hit",
                          "aclctl show acl guests",
                          SetUpShowAcl,
                          kXml | kPaged};

}  // namespace aclctl
